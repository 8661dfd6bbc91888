#include "platform/crash_linux.h"

#include "platform/crash.h"
#include "platform/text.h"

#include <cstdint>
#include <limits.h>
#include <sys/resource.h>
#include <unistd.h>

// Seconds for a handler that may wait for a lock of the damaged process.
static constexpr unsigned PATIENCE = 10;
static constexpr size_t STACK_SIZE = 64 * 1024;

static char program_folder[PATH_MAX];

static bool core_limit_raised;
static rlim_t core_limit_before;

static volatile sig_atomic_t fault;

// The handler has waited for too long; the process ends by its fault all the same.
static void give_up(int) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, fault);
    pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    raise(fault);
}

// A core lands in the working directory. The signal is blocked until the return, and then has its default
// effect.
static void handle(int number) {
    fault = number;
    signal(SIGALRM, give_up);
    alarm(PATIENCE);
    int moved = chdir(program_folder);
    static_cast<void>(moved); // then the core lands elsewhere
    crash_signalled();
    raise(number);
}

// As far as the host allows a core at all.
static void allow_core() {
    rlimit limit;
    if (getrlimit(RLIMIT_CORE, &limit) != 0) return;
    if (!core_limit_raised) core_limit_before = limit.rlim_cur;
    core_limit_raised = true;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_CORE, &limit);
}

void restore_core_limit() {
    rlimit limit;
    if (!core_limit_raised || getrlimit(RLIMIT_CORE, &limit) != 0) return;
    limit.rlim_cur = core_limit_before;
    setrlimit(RLIMIT_CORE, &limit);
}

static void install(const char *folder) {
    static char stack[STACK_SIZE]; // a fault may be the end of the other one
    stack_t alternate = {.ss_sp = stack, .ss_flags = 0, .ss_size = sizeof stack};
    copy_bounded(program_folder, folder, sizeof program_folder);
    allow_core();
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = handle;
    action.sa_flags = static_cast<int>(SA_ONSTACK | SA_RESETHAND);
    for (int number : FAULT_SIGNALS)
        sigaction(number, &action, nullptr);
}

const crash_ops crash_ops_host = {.install = install};
