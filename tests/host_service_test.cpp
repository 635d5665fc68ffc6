// The host's service lookup (getService in passthrough mode, the instances it finds) and the
// simulated death of a client process.
#include <gtest/gtest.h>
#include <hidl/ServiceManagement.h>
#include <hwbinder/IPCThreadState.h>
#include <stdlib.h>
#include <unistd.h>

#include "Passthrough.h"

namespace {

namespace ar = ::vendor::quarn::hardware::activity_recognition;
using ::android::sp;
using ::android::wp;
using ::android::hardware::getAllHalInstanceNames;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::host::ScopedCallingIdentity;
using ::android::hardware::host::simulateProcessDeath;
using ::android::hidl::base::V1_0::IBase;

struct LookupCase {
    const char* name;
    const char* path;  // HIDL_PASSTHROUGH_PATH, or null to leave it unset
    bool found;
};

class ServiceLookup : public testing::TestWithParam<LookupCase> {};

TEST_P(ServiceLookup, FindsTheLibraryOnTheSearchPath) {
    const LookupCase& c = GetParam();
    // A later minor version serves the earlier interfaces: a folder of this process's own.
    std::string folder = testing::TempDir() + "newerXXXXXX";
    ASSERT_NE(nullptr, mkdtemp(&folder[0]));
    const std::string newer = folder + "/vendor.quarn.hardware.activity_recognition@1.3-impl.so";
    symlink(TEST_LIB_DIR "/vendor.quarn.hardware.activity_recognition@1.1-impl.so", newer.c_str());
    std::string path = c.path == nullptr ? "" : std::string(c.path) == "newer" ? folder : c.path;
    c.path == nullptr ? unsetenv("HIDL_PASSTHROUGH_PATH")
                      : setenv("HIDL_PASSTHROUGH_PATH", path.c_str(), 1);
    const std::vector<std::string> instances(c.found ? 1 : 0, "default");
    EXPECT_EQ(instances, getAllHalInstanceNames(ar::V1_0::IActivityRecognition::descriptor));
    EXPECT_EQ(instances, getAllHalInstanceNames(ar::V1_1::IActivityRecognition::descriptor));
    sp<ar::V1_1::IActivityRecognition> service = ar::V1_1::IActivityRecognition::getService();
    EXPECT_EQ(c.found, service != nullptr);
    // Every later lookup answers the instance's one object, also through the other version.
    sp<ar::V1_0::IActivityRecognition> asV1_0 = ar::V1_0::IActivityRecognition::getService();
    EXPECT_EQ(service.get(), asV1_0.get());
    unlink(newer.c_str());
    rmdir(folder.c_str());
}

INSTANTIATE_TEST_SUITE_P(
        Paths, ServiceLookup,
        testing::Values(LookupCase{"unset_uses_build_lib_folder", nullptr, true},
                        LookupCase{"search_list", "/nonexistent:" TEST_LIB_DIR, true},
                        LookupCase{"newer_minor_version", "newer", true},
                        LookupCase{"empty_means_nowhere", "", false},
                        LookupCase{"folder_without_library", "/nonexistent:/tmp", false}),
        [](const auto& info) { return std::string(info.param.name); });

struct Recipient : hidl_death_recipient {
    void serviceDied(uint64_t cookie, const wp<IBase>&) override { cookies.push_back(cookie); }
    std::vector<uint64_t> cookies;
};

TEST(ProcessDeath, ReachesTheLinksOfObjectsHandedInByThatProcess) {
    sp<Recipient> recipient = new Recipient;
    sp<IBase> first = new IBase, second = new IBase, unlinked = new IBase, other = new IBase;
    {
        ScopedCallingIdentity as(2001);
        ASSERT_TRUE(first->linkToDeath(recipient, 1));
        ASSERT_TRUE(second->linkToDeath(recipient, 2));
        ASSERT_TRUE(unlinked->linkToDeath(recipient, 3));
        ASSERT_TRUE(unlinked->unlinkToDeath(recipient));
    }
    ASSERT_TRUE(other->linkToDeath(recipient, 4));  // handed in by this process
    EXPECT_EQ(2u, simulateProcessDeath(2001));
    EXPECT_EQ((std::vector<uint64_t>{1, 2}), recipient->cookies);
    EXPECT_EQ(0u, simulateProcessDeath(2001));
}

}  // namespace
