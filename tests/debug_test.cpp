// The state dump (IBase::debug): the report of a state reached through HIDL calls and lower-layer
// reports, its options, the handles that get nothing, and that it logs and sends nothing below.
#include <android-base/stringprintf.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>

#include "ActivityZelSupport.h"
#include "DumpText.h"

namespace {

using namespace artest;
using ::android::hardware::Void;

class EnvClient : public ar::V1_0::IEnvironmentChangedCallback {
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>&) override {
        return Void();
    }
};

// The environment interface with one 1.0 client of pid 3001.
sp<EnvClient> addEnvironmentClient(const sp<IActivityRecognition>& service) {
    sp<EnvClient> client = new EnvClient;
    ScopedCallingIdentity guard(3001);
    service->getEnvironmentInterface().withDefault(nullptr)->registerEnvironmentCallback(client);
    return client;
}

using DebugTest = ZelActivityTest;
using ::android::base::StringPrintf;
using arharness::DumpText;

TEST_F(DebugTest, ReportShowsClientsRequestsPairsAndLibraryAndChangesNothing) {
    auto fit = add(1, 2001);
    auto old = add(0, 2002);
    setLegacyState({ar_context_event{1, 3, 50, 0, 0, {}}});
    enable(2001, 1, 1, 2500000000);  // legacy, rounded down
    enable(2001, 3, 1, 5000000000);  // routed to the client library
    enable(2002, 3, 1, 2000000007);  // joins: merged latency, first report
    enableExtend(2002, 64, 1, 1000000000, params(1, 0, "wifi\x01"));  // no-wake, legacy
    report(getpid(), {event(1, 1, 1000), event(2, 1, 1001)});
    auto env = addEnvironmentClient(service);

    // What is logged and what reached each lower layer, so far.
    auto trace = [&] {
        return std::make_tuple(log.lines().size(), simulated_legacy::calls().size(),
                               simulated_zel::calls().size());
    };
    const auto before = trace();
    const std::string text = DumpText(service, {});
    const std::string parts[] = {
            "legacy device: \"activity_recognition_hidl\" open, version 0x1\n"
            "activity interface: created\nenvironment interface: created\n",
            StringPrintf("clients V1_1 (1), in map order:\n  pid[2001] callback[%p]\n"
                         "clients V1_0 (1), in map order:\n  pid[2002] callback[%p]\n",
                         fit.get(), old.get()),
            "mEventData (4), in order:\n"
            "  pid[2001] activity[1] event[1] latency[2000000000]ns plain\n"
            "  pid[2001] activity[3] event[1] latency[5000000000]ns plain\n"
            "  pid[2002] activity[3] event[1] latency[2000000000]ns plain\n"
            "  pid[2002] activity[64] event[1] latency[604800000000000]ns extended "
            "params[1,0,0,0] extra[\"wifi\\x01\"]\n",
            "firstReport (1):\n  pid[2002] activity[3] event[1] timestamp[50]\n",
            "packageNames (1): 2001\nmLastActivityEvent: 1 entries\n",
            "mEnableToNativeData (3):\n"
            "  pid[2001] activity[1] event[1] latency[2000000000]ns noWake[0]\n"
            "  pid[2001] activity[3] event[1] latency[5000000000]ns noWake[0]\n"
            "  pid[2002] activity[64] event[1] latency[604800000000000]ns noWake[1]\n",
            "g_zelEnableData (1):\n"
            "  pid[0] activity[3] event[1] latency[2000000000]ns noWake[0]\n"
            "  ar-on cmdParam:3,1,2000000000,0,;\n",
            "client library: registered (libZelClient.so), attempts[1]\n"
            "  AR config : 0x8, supported activities (1): 3\n",
            StringPrintf(
                    "== environment ==\nlegacy environment table: present\nclients V1_1 (0), "
                    "in map order:\nclients V1_0 (1), in map order:\n  pid[3001] callback[%p]\n",
                    env.get()),
    };
    for (const std::string& part : parts) {
        EXPECT_NE(std::string::npos, text.find(part)) << part << "\nin:\n" << text;
    }
    EXPECT_EQ(text, DumpText(service, {}));  // nothing changed
    EXPECT_EQ(before, trace());
}

// Without the property the client library is never tried.
TEST_F(ActivityTest, OptionsPickSidesOrTheUsage) {
    addEnvironmentClient(service);
    // Which of these parts each report holds, as 0 or 1 each.
    const char* const parts[] = {"unknown option: -x", "usage: lshal",
                                 "== service",         "== activity",
                                 "== environment",     "not enabled (libZelClient.so)"};
    const std::pair<std::vector<std::string>, std::string> cases[] = {
            {{}, "001111"},
            {{"--activity"}, "001101"},
            {{"--environment"}, "001010"},
            {{"--help"}, "010000"},
            {{"--activity", "-x"}, "110000"},
            {{"--environment", "--activity"}, "001111"}};
    for (const auto& [options, expected] : cases) {
        const std::string text = DumpText(service, options);
        std::string shown;
        for (const char* part : parts) shown += text.find(part) == std::string::npos ? '0' : '1';
        EXPECT_EQ(expected, shown) << text;
    }
}

// Each handle gets nothing, and a reader that has gone neither kills the process nor leaves a
// SIGPIPE pending or blocked.
TEST_F(DebugTest, HandlesThatCannotTakeTheReportGetNothing) {
    int pipeFds[2], sockets[2];
    ASSERT_EQ(0, pipe(pipeFds));
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sockets));
    const int file = memfd_create("report", 0);
    const int readOnly = open(("/proc/self/fd/" + std::to_string(file)).c_str(), O_RDONLY);
    const int closedFd = dup(file);
    for (int fd : {pipeFds[0], sockets[1], closedFd}) close(fd);  // readers gone, fd closed
    std::vector<native_handle_t*> handles = {nullptr, native_handle_create(0, 1)};
    for (int fd : {-1, pipeFds[1], sockets[0], readOnly, closedFd}) {
        handles.push_back(native_handle_create(1, 0));
        handles.back()->data[0] = fd;
    }
    for (native_handle_t* handle : handles) {
        EXPECT_TRUE(service->debug(handle, {}).isOk());
        if (handle != nullptr) native_handle_delete(handle);
    }
    EXPECT_EQ(0, lseek(file, 0, SEEK_END));
    sigset_t pending, blocked;
    ASSERT_EQ(0, sigpending(&pending) | pthread_sigmask(SIG_BLOCK, nullptr, &blocked));
    EXPECT_FALSE(sigismember(&pending, SIGPIPE) || sigismember(&blocked, SIGPIPE));
    EXPECT_TRUE(log.lines().empty());
    for (int fd : {pipeFds[1], sockets[0], file, readOnly}) close(fd);
}

}  // namespace
