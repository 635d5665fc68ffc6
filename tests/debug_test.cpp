// The state dump (IBase::debug): its options and the handles that get nothing. The report of a
// state reached through calls and reports: scenarios/state-dump.scenario.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>

#include <future>
#include <thread>

#include "ActivityZelSupport.h"
#include "DumpText.h"

namespace {

using namespace artest;

using DebugTest = ZelActivityTest;
using artest::DumpText;

// debug() returns whatever its handle does: a call still running after 10 s ends the program with
// a failure at once, rather than at the test's time limit.
void returns(std::function<void()> call) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> returned = done->get_future();
    std::thread([call, done] {
        call();
        done->set_value();
    }).detach();
    if (returned.wait_for(std::chrono::seconds(10)) == std::future_status::ready) return;
    fprintf(stderr, "debug() did not return\n");
    _exit(1);
}

// Without the property the client library is never tried.
TEST_F(ActivityTest, OptionsPickSidesOrTheUsage) {
    service->getEnvironmentInterface();
    // How often each report holds each of these parts, as a digit each.
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
        std::string text;
        returns([&, &options = options] { text = DumpText(service, options); });
        std::string shown;
        for (const char* part : parts) {
            size_t count = 0;
            for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
                ++count;
            shown += static_cast<char>('0' + std::min<size_t>(count, 9));
        }
        EXPECT_EQ(expected, shown) << text;
    }
    // A plain request without other values ends its line there.
    enable(100, 1, 1);
    EXPECT_NE(std::string::npos, DumpText(service, {"--activity"}).find("ns plain\n"));
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
    handles.back()->data[0] = file;  // an int, not an fd: nothing is written to it
    for (int fd : {-1, pipeFds[1], sockets[0], readOnly, closedFd}) {
        handles.push_back(native_handle_create(1, 0));
        handles.back()->data[0] = fd;
    }
    const int stdinCopy = dup(STDIN_FILENO);  // "no fd" must not become fd 0
    dup2(file, STDIN_FILENO);
    for (native_handle_t* handle : handles) {
        returns([&] { EXPECT_TRUE(service->debug(handle, {}).isOk()); });
        if (handle != nullptr) native_handle_delete(handle);
    }
    dup2(stdinCopy, STDIN_FILENO);
    close(stdinCopy);
    EXPECT_EQ(0, lseek(file, 0, SEEK_END));
    sigset_t pending, blocked;
    ASSERT_EQ(0, sigpending(&pending) | pthread_sigmask(SIG_BLOCK, nullptr, &blocked));
    EXPECT_FALSE(sigismember(&pending, SIGPIPE) || sigismember(&blocked, SIGPIPE));
    // A SIGPIPE that was pending before the dump stays pending.
    returns([&] {
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
        pthread_kill(pthread_self(), SIGPIPE);
        native_handle_t* handle = native_handle_create(1, 0);
        handle->data[0] = pipeFds[1];
        service->debug(handle, {});
        native_handle_delete(handle);
        const struct timespec noWait = {};
        EXPECT_EQ(SIGPIPE, sigtimedwait(&pipeSignal, nullptr, &noWait));
    });
    EXPECT_TRUE(log.lines().empty());
    for (int fd : {pipeFds[1], sockets[0], file, readOnly}) close(fd);
}

// A live reader gets the whole report on any fd, 0 included, a socket's too; a write that a
// signal interrupts before it wrote anything is made again.
TEST_F(DebugTest, LiveReadersGetTheWholeReport) {
    const std::string usage = DumpText(service, {"--help"});
    ASSERT_NE(std::string::npos, usage.find("usage: lshal"));
    auto readAll = [](int fd) {
        std::string text;
        char buffer[4096];
        for (ssize_t n; (n = read(fd, buffer, sizeof(buffer))) > 0;) text.append(buffer, n);
        return text;
    };
    std::atomic<pthread_t> dumping{};
    auto dumpTo = [&](int fd) {
        native_handle_t* handle = native_handle_create(1, 0);
        handle->data[0] = fd;
        returns([&] {
            dumping = pthread_self();
            service->debug(handle, {"--help"});
        });
        native_handle_delete(handle);
    };
    int sockets[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sockets));
    const int stdinCopy = dup(STDIN_FILENO);
    dup2(sockets[0], STDIN_FILENO);
    dumpTo(STDIN_FILENO);
    dup2(stdinCopy, STDIN_FILENO);
    for (int fd : {stdinCopy, sockets[0]}) close(fd);
    EXPECT_EQ(usage, readAll(sockets[1]));
    close(sockets[1]);

    // A full pipe blocks the write; signals without SA_RESTART interrupt it until the pipe drains.
    struct sigaction interrupt = {}, saved;
    interrupt.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupt, &saved);
    int pipeFds[2];
    ASSERT_EQ(0, pipe2(pipeFds, O_NONBLOCK));
    std::string filler(4096, 'f');
    size_t filled = 0;
    for (size_t size : {filler.size(), size_t{1}}) {
        for (ssize_t n; (n = write(pipeFds[1], filler.data(), size)) > 0;) filled += n;
    }
    for (int fd : pipeFds) fcntl(fd, F_SETFL, 0);
    dumping = pthread_t{};
    std::thread writer([&] { dumpTo(pipeFds[1]); });
    for (int i = 0; i < 20; ++i) {
        usleep(5000);
        if (dumping != pthread_t{}) pthread_kill(dumping, SIGUSR1);
    }
    for (ssize_t left = filled; left > 0;)
        left -= read(pipeFds[0], filler.data(), std::min<size_t>(left, filler.size()));
    writer.join();
    close(pipeFds[1]);
    EXPECT_EQ(usage, readAll(pipeFds[0]));
    close(pipeFds[0]);
    sigaction(SIGUSR1, &saved, nullptr);
}

}  // namespace
