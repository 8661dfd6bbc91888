#include "platform/crash.h"

#include "fakes/test_host.h"
#include "platform/fatal.h"
#include "platform/threads.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static int told_file;

static void tell(const char *text) {
    char folder[4096] = "";
    if (getcwd(folder, sizeof folder) == nullptr) folder[0] = '\0';
    char line[8192];
    int length = snprintf(line, sizeof line, "%s|%s", folder, text);
    ssize_t written = write(told_file, line, static_cast<size_t>(length));
    static_cast<void>(written);
}

struct ending {
    int signal;
    std::string told;
};

// A child process installs the handler and does something that it does not survive.
static ending end_of(void (*fault)()) {
    test_host host;
    process_host = &process_ops_host;
    crash_host = &crash_ops_host;
    int files[2];
    EXPECT_EQ(pipe(files), 0);
    pid_t child = fork();
    if (child == 0) {
        told_file = files[1];
        install_crash_handler(tell);
        rlimit none = {};
        setrlimit(RLIMIT_CORE, &none); // no core of a test
        fault();
        _exit(0);
    }
    close(files[1]);
    ending end = {};
    char buffer[4096];
    for (ssize_t got; (got = read(files[0], buffer, sizeof buffer)) > 0;)
        end.told.append(buffer, static_cast<size_t>(got));
    close(files[0]);
    int status = 0;
    waitpid(child, &status, 0);
    end.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return end;
}

static std::string own_folder() {
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    std::string whole(path, static_cast<size_t>(length));
    return whole.substr(0, whole.rfind('/'));
}

static void expect_trace(const ending &end, int signal) {
    EXPECT_EQ(end.signal, signal);
    EXPECT_EQ(end.told,
              own_folder() +
                  "|An application error has been detected. Please report this error and submit the "
                  "dump file in '" +
                  own_folder() + "/core' along with your error report");
}

TEST(fault, of_memory_is_told_once_and_ends_the_process_by_its_signal) {
    expect_trace(end_of([] { *const_cast<volatile int *>(reinterpret_cast<int *>(8)) = 1; }), SIGSEGV);
}

TEST(fault, of_the_runtime_is_told_too) {
    expect_trace(end_of([] { abort(); }), SIGABRT);
}

TEST(fault, that_another_process_sends_is_told_too) {
    expect_trace(end_of([] { kill(getpid(), SIGBUS); }), SIGBUS);
}

static int sink(int depth) {
    volatile char block[4096];
    block[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : sink(depth + 1) + block[0];
}

TEST(fault, of_the_stack_is_told_on_another_one) {
    expect_trace(end_of([] { sink(0); }), SIGSEGV);
}

TEST(fault, in_another_thread_is_told_too) {
    expect_trace(end_of([] {
                     auto fault = [](void *) { return static_cast<uint32_t>(raise(SIGSEGV)); };
                     waitable *thread = threads_ops_host.CreateThread(fault, nullptr);
                     threads_ops_host.ResumeThread(thread);
                     threads_ops_host.WaitForSingleObject(thread);
                 }),
                 SIGSEGV);
}

TEST(fault, within_the_handler_ends_the_process_all_the_same) {
    ending end = end_of([] {
        install_crash_handler([](const char *) { abort(); });
        raise(SIGSEGV);
    });
    EXPECT_EQ(end.signal, SIGABRT);
    EXPECT_EQ(end.told, "");
}

TEST(fault, whose_handler_waits_for_ever_ends_the_process_by_its_signal) {
    ending end = end_of([] {
        install_crash_handler([](const char *text) {
            sigset_t alarms;
            sigemptyset(&alarms);
            sigaddset(&alarms, SIGALRM);
            pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr); // the thread sanitizer blocks all in a handler
            if (alarm(0) == 0) tell("it has no limit");
            kill(getpid(), SIGALRM); // as the host does when its time is over
            tell(text);
        });
        raise(SIGSEGV);
    });
    EXPECT_EQ(end.signal, SIGSEGV);
    EXPECT_EQ(end.told, "");
}
