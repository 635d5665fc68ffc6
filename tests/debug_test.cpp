// The state dump (IBase::debug of the service object): the report of a state reached through HIDL
// calls and lower-layer reports, its options, the handles it writes nothing to, and that dumping
// changes nothing that is logged or sent below.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>

#include "ActivityZelSupport.h"
#include "DumpText.h"

namespace {

using namespace artest;
using Options = std::vector<std::string>;

class EnvClient : public ar::V1_1::IEnvironmentChangedCallback {
    Return<void> onEnvironmentChanged(const hidl_vec<ar::V1_0::ActivityEventExtend>&) override {
        return ::android::hardware::Void();
    }
    Return<void> onEnvironmentChangedV1_1(
            const hidl_vec<ar::V1_1::ActivityEventExtendV1_1>&) override {
        return ::android::hardware::Void();
    }
};

std::string callbackLine(const void* callback, uint64_t pid) {
    char text[64];
    snprintf(text, sizeof(text), "  pid[%lu] callback[%p]\n", pid, callback);
    return text;
}

class DebugTest : public ZelActivityTest {
  protected:
    std::string dump(const Options& options = {}) { return arharness::DumpText(service, options); }
    // An environment interface with one 1.1 client of pid 3001.
    sp<EnvClient> addEnvironmentClient() {
        sp<EnvClient> client = new EnvClient;
        ScopedCallingIdentity guard(3001);
        service->getEnvironmentInterfaceV1_1().withDefault(nullptr)->registerEnvironmentCallbackV1_1(
                client);
        return client;
    }
};

TEST_F(DebugTest, ReportShowsClientsRequestsPairsAndLibraryAndChangesNothing) {
    auto fit = add(1, 2001);
    auto old = add(0, 2002);
    ar_context_event state{};
    state.timestamp = 50;
    setLegacyState({state});
    enable(2001, 1, 1, 2500000000);  // legacy, rounded down
    enable(2001, 3, 1, 5000000000);  // routed to the client library
    enable(2002, 3, 1, 2000000007);  // joins: merged latency, first report
    enableExtend(2002, 64, 1, 1000000000, params(1, 0, "wifi\x01"));  // no-wake, legacy
    report(getpid(), {event(1, 1, 1000), event(2, 1, 1001)});
    auto env = addEnvironmentClient();

    const size_t logged = log.lines().size();
    const size_t legacyCalls = simulated_legacy::calls().size();
    const size_t zelCalls = simulated_zel::calls().size();
    const std::string text = dump();
    const std::string parts[] = {
            "legacy module: id \"activity_recognition\"",
            "legacy device: \"activity_recognition_hidl\" open",
            "activity interface: created\nenvironment interface: created\n",
            "clients V1_1 (1), in map order:\n" + callbackLine(fit.get(), 2001),
            "clients V1_0 (1), in map order:\n" + callbackLine(old.get(), 2002),
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
            "  pid[2002] activity[64] event[1] latency[604800000000000]ns "
            "noWake[1]\n",
            "g_zelEnableData (1):\n"
            "  pid[0] activity[3] event[1] latency[2000000000]ns noWake[0]\n"
            "  ar-on cmdParam:3,1,2000000000,0,;\n",
            "client library: registered (libZelClient.so), attempts[1]\n"
            "  AR config : 0x8, supported activities (1): 3\n",
            "== environment ==\nlegacy environment table: present\n"
            "clients V1_1 (1), in map order:\n" +
                    callbackLine(env.get(), 3001) + "clients V1_0 (0), in map order:\n",
    };
    for (const std::string& part : parts) {
        EXPECT_NE(std::string::npos, text.find(part)) << part << "\nin:\n" << text;
    }
    EXPECT_EQ(text, dump());  // nothing changed
    EXPECT_EQ(logged, log.lines().size());
    EXPECT_EQ(legacyCalls, simulated_legacy::calls().size());
    EXPECT_EQ(zelCalls, simulated_zel::calls().size());
}

TEST_F(DebugTest, OptionsPickSidesOrTheUsage) {
    addEnvironmentClient();
    const struct {
        Options options;
        bool service, activity, environment, usage;
        const char* first;
    } cases[] = {
            {{}, true, true, true, false, "== service =="},
            {{"--activity"}, true, true, false, false, "== service =="},
            {{"--environment"}, true, false, true, false, "== service =="},
            {{"--environment", "--activity"}, true, true, true, false, "== service =="},
            {{"--help"}, false, false, false, true, "usage: lshal debug"},
            {{"--activity", "-x"}, false, false, false, true, "unknown option: -x\nusage:"},
    };
    for (const auto& c : cases) {
        const std::string text = dump(c.options);
        SCOPED_TRACE(text);
        EXPECT_EQ(0u, text.find(c.first));
        EXPECT_EQ(c.service, text.find("== service ==") != std::string::npos);
        EXPECT_EQ(c.activity, text.find("== activity ==") != std::string::npos);
        EXPECT_EQ(c.environment, text.find("== environment ==") != std::string::npos);
        EXPECT_EQ(c.usage, text.find("--environment  the service") != std::string::npos);
    }
}

// Each handle gets nothing, and a reader that has gone neither kills the process nor leaves a
// SIGPIPE pending or blocked.
TEST_F(DebugTest, HandlesThatCannotTakeTheReportGetNothing) {
    int pipeFds[2], sockets[2];
    ASSERT_EQ(0, pipe(pipeFds));
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sockets));
    close(pipeFds[0]);  // the pipe's reader has gone
    close(sockets[1]);  // so has the socket's peer
    const int file = memfd_create("report", 0);
    const int readOnly = open(("/proc/self/fd/" + std::to_string(file)).c_str(), O_RDONLY);
    int closedFd[2];
    ASSERT_EQ(0, pipe(closedFd));
    close(closedFd[0]);
    close(closedFd[1]);
    native_handle_t* noFds = native_handle_create(0, 1);
    for (int fd : {-1, pipeFds[1], sockets[0], readOnly, closedFd[1]}) {
        native_handle_t* one = native_handle_create(1, 0);
        one->data[0] = fd;
        EXPECT_TRUE(service->debug(one, {}).isOk());
        native_handle_delete(one);
    }
    EXPECT_TRUE(service->debug(::android::hardware::hidl_handle(), {}).isOk());
    EXPECT_TRUE(service->debug(noFds, {}).isOk());
    native_handle_delete(noFds);
    EXPECT_EQ(0, lseek(file, 0, SEEK_END));
    sigset_t pending, blocked;
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
    EXPECT_FALSE(sigismember(&blocked, SIGPIPE));
    EXPECT_TRUE(log.lines().empty());
    for (int fd : {pipeFds[1], sockets[0], file, readOnly}) close(fd);
}

// Without the property the library is never tried; refused three times it stays unregistered.
TEST_F(ActivityTest, DumpShowsALibraryThatIsNotEnabled) {
    EXPECT_NE(std::string::npos,
              arharness::DumpText(service, {})
                      .find("client library: not enabled (libZelClient.so), "
                            "attempts[0]\n  AR config : 0x0, supported activities "
                            "(0):\n"));
}

class RefusedLibraryTest : public ZelActivityTest {
    void SetUp() override {
        ::android::base::SetProperty("ro.odm.config.zel_service_enable", "true");
        simulated_zel::reset();
        simulated_zel::queueResults(simulated_zel::Entry::kMotionEnable, {0, 0, 0});
        ActivityTest::SetUp();
    }
};

TEST_F(RefusedLibraryTest, DumpShowsTheAttempts) {
    EXPECT_NE(
            std::string::npos,
            arharness::DumpText(service, {})
                    .find("client library: registration refused (libZelClient.so), attempts[3]\n"));
}

}  // namespace
