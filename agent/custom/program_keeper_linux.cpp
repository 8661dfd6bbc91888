#include "custom/program_keeper_linux.h"

#include "custom/child_list.h"
#include "platform/crash_linux.h"
#include "platform/heap.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

struct started_program {
    pid_t keeper;
    pid_t leader; // of the program's own process group
    int channel;  // to the keeper
};

namespace {

enum report_kind : int32_t {
    PROGRAM_STARTED, // or not, with the error
    PROGRAM_ENDED,   // with its exit code
    NOBODY_LEFT,
};

struct report {
    report_kind kind;
    int32_t value;
    pid_t program;
};

// The descriptors of the process between the agent and a program, behind the three standard ones.
enum : int { KEEPER_CHANNEL = 3, KEEPER_OUTPUT = 4, KEEPER_NO_MORE = 5 };

constexpr int KILL_ROUNDS = 200;    // each up to 10 ms, since who waits for a device dies only behind that
constexpr int KILL_PATIENCE = 3000; // milliseconds that the agent waits for all rounds
constexpr int START_PATIENCE = 100; // milliseconds until the agent looks after a start that tells nothing

} // namespace

// ---- in the process between the agent and the program: from here on one thread, and no heap

static void tell(int channel, report_kind kind, int32_t value, pid_t program) {
    report said = {.kind = kind, .value = value, .program = program};
    send(channel, &said, sizeof said, MSG_NOSIGNAL);
}

// Older kernels have no call for it.
static void close_from(int first) {
    if (syscall(SYS_close_range, first, ~0U, 0) == 0) return;
    long limit = sysconf(_SC_OPEN_MAX);
    if (limit < 0 || limit > 65536) limit = 65536;
    for (int file = first; file < limit; file++)
        close(file);
}

// Keeps nothing of the agent's. Without an output the program writes to nobody.
static bool arrange_files(int output, int channel) {
    int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    int high_null = fcntl(null, F_DUPFD_CLOEXEC, KEEPER_NO_MORE);
    int high_output = fcntl(output >= 0 ? output : null, F_DUPFD_CLOEXEC, KEEPER_NO_MORE);
    int high_channel = fcntl(channel, F_DUPFD_CLOEXEC, KEEPER_NO_MORE);
    if (null < 0 || high_null < 0 || high_output < 0 || high_channel < 0) return false;
    for (int file = STDIN_FILENO; file <= STDERR_FILENO; file++)
        dup2(high_null, file);
    dup3(high_channel, KEEPER_CHANNEL, O_CLOEXEC);
    dup3(high_output, KEEPER_OUTPUT, O_CLOEXEC);
    close_from(KEEPER_NO_MORE);
    return true;
}

// The program starts as from a shell: no signal blocked or ignored, a session of its own, no core where the
// agent alone has asked for one.
static int spawn(const char *const *words, pid_t *out) {
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, KEEPER_OUTPUT, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, KEEPER_OUTPUT, STDERR_FILENO);
    posix_spawnattr_setflags(
        &attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    int error = posix_spawnp(out, words[0], &actions, &attributes, const_cast<char *const *>(words), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

// Returns the program, or ends this process.
static pid_t start_in_between(const char *const *words, int output, int channel) {
    signal(SIGCHLD, SIG_DFL); // ignored, it would keep every exit code from this process
    if (!arrange_files(output, channel)) {
        tell(channel, PROGRAM_STARTED, errno, 0);
        _exit(1);
    }
    setsid();
    restore_core_limit();
    pid_t program = 0;
    int error = spawn(words, &program);
    tell(KEEPER_CHANNEL, PROGRAM_STARTED, error, program);
    if (error != 0) _exit(1);
    close(KEEPER_OUTPUT);
    return program;
}

static int32_t exit_code_in(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Collects all who have ended. False when nobody is left, whom nobody can become any more.
static bool collect(pid_t program) {
    for (;;) {
        int status = 0;
        pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended <= 0) return ended == 0;
        if (ended == program) tell(KEEPER_CHANNEL, PROGRAM_ENDED, exit_code_in(status), program);
    }
}

static void kill_children() {
    char text[4096];
    int file = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    ssize_t length = file >= 0 ? read(file, text, sizeof text - 1) : -1;
    if (file >= 0) close(file);
    if (length < 0) return;
    text[length] = '\0';
    const char *at = text;
    for (int32_t child; (child = next_child(&at)) > 0;)
        kill(child, SIGKILL);
}

static void wait_for_signal(int signals, int milliseconds) {
    pollfd file = {.fd = signals, .events = POLLIN};
    signalfd_siginfo info;
    if (poll(&file, 1, milliseconds) <= 0) return;
    ssize_t got = read(signals, &info, sizeof info);
    static_cast<void>(got); // who has ended is asked of the kernel
}

// The children of one who is killed come to this process before that one can be collected, so nobody is left
// when there is nobody to collect.
static void kill_all(pid_t program, int signals) {
    kill(-program, SIGKILL);
    for (int round = 0; round < KILL_ROUNDS && collect(program); round++) {
        kill_children();
        wait_for_signal(signals, 10);
    }
}

[[noreturn]] static void serve(pid_t program, int signals) {
    for (;;) {
        pollfd files[] = {{.fd = KEEPER_CHANNEL, .events = POLLIN}, {.fd = signals, .events = POLLIN}};
        poll(files, 2, -1);
        if (files[1].revents != 0) {
            wait_for_signal(signals, 0);
            if (!collect(program)) break;
        }
        if (files[0].revents == 0) continue;
        char order = 0;
        if (recv(KEEPER_CHANNEL, &order, 1, 0) > 0) kill_all(program, signals); // else the agent has gone
        break;
    }
    tell(KEEPER_CHANNEL, NOBODY_LEFT, 0, program);
    _exit(0);
}

// All signals are blocked here and stay so: the agent's handlers are not to run in this process.
[[noreturn]] static void keep(const char *const *words, int output, int channel) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    prctl(PR_SET_NAME, "tnagent-keeper"); // signals to all of the agent's name are not for it
    pid_t program = start_in_between(words, output, channel);
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    int signals = signalfd(-1, &child, SFD_CLOEXEC);
    if (signals < 0) _exit(1);
    serve(program, signals);
}

[[noreturn]] static void release(const char *const *words, int, int channel) {
    start_in_between(words, -1, channel);
    _exit(0);
}

// ---- in the agent

using body_in_between = void(const char *const *words, int output, int channel);

static pid_t fork_with_signals_blocked(body_in_between *body, const char *const *words, int output,
                                       int channel) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pid_t child = fork();
    if (child == 0) body(words, output, channel);
    int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return child;
}

// False where the other side has gone.
static bool hear(int channel, report *out) {
    ssize_t got;
    do
        got = recv(channel, out, sizeof *out, 0);
    while (got < 0 && errno == EINTR);
    return got == sizeof *out;
}

static bool hear_within(int channel, int milliseconds, report *out, bool *timed_out) {
    pollfd file = {.fd = channel, .events = POLLIN};
    int ready;
    do
        ready = poll(&file, 1, milliseconds);
    while (ready < 0 && errno == EINTR);
    *timed_out = ready == 0;
    return ready > 0 && hear(channel, out);
}

// The first that a program does may be to stop whoever has started it.
static bool hear_start(pid_t child, int channel, report *out) {
    bool timed_out = true;
    bool heard = false;
    while (timed_out) {
        heard = hear_within(channel, START_PATIENCE, out, &timed_out);
        if (timed_out) kill(child, SIGCONT);
    }
    return heard;
}

static void collect_child(pid_t child) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// The first process of a system, or of a container, is given those whose parents have gone.
static void collect_strays() {
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

// Runs `body` in a child, and returns that when the program has been started; -1 with errno otherwise.
static pid_t start_child(body_in_between *body, const char *const *words, int output, int *channel,
                         pid_t *leader) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return -1;
    pid_t child = fork_with_signals_blocked(body, words, output, ends[1]);
    int error = errno;
    close(ends[1]);
    report said = {};
    if (child > 0) {
        error = hear_start(child, ends[0], &said) ? said.value : ECHILD;
        if (error != 0) collect_child(child);
    }
    if (error != 0 || child < 0) {
        close(ends[0]);
        errno = error;
        return -1;
    }
    *channel = ends[0];
    *leader = said.program;
    return child;
}

started_program *start_kept(const char *const *words, int output) {
    guard<started_program, heap_free> program(heap_new<started_program>());
    errno = ENOMEM;
    if (program == nullptr) return nullptr;
    program->keeper = start_child(keep, words, output, &program->channel, &program->leader);
    return program->keeper > 0 ? program.release() : nullptr;
}

bool start_released(const char *const *words) {
    int channel = -1;
    pid_t leader = 0;
    pid_t child = start_child(release, words, -1, &channel, &leader);
    if (child < 0) return false;
    close(channel);
    collect_child(child);
    collect_strays();
    return true;
}

int end_of_program(const started_program *program) {
    return program->channel;
}

bool exit_code_of_program(started_program *program, uint32_t *out) {
    report said = {};
    if (!hear(program->channel, &said) || said.kind != PROGRAM_ENDED) {
        errno = ECHILD;
        return false;
    }
    *out = static_cast<uint32_t>(said.value);
    return true;
}

// A program can stop its keeper, or kill it; then there is its own process group to be killed.
void kill_program_tree(started_program *program) {
    char order = 'K';
    kill(program->keeper, SIGCONT);
    send(program->channel, &order, 1, MSG_NOSIGNAL);
    report said = {.kind = PROGRAM_STARTED};
    bool timed_out = false;
    while (said.kind != NOBODY_LEFT)
        if (!hear_within(program->channel, KILL_PATIENCE, &said, &timed_out)) break;
    if (said.kind != NOBODY_LEFT) kill(-program->leader, SIGKILL);
}

// The keeper has nothing to do but to be there, so it is told by what nothing keeps from it.
void release_program(started_program *program) {
    kill(program->keeper, SIGKILL);
    collect_child(program->keeper);
    collect_strays();
    close(program->channel);
    heap_free(program);
}
