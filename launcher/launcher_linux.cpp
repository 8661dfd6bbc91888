#include "launcher/launcher_ops.h"
#include "platform/errors.h"
#include "platform/fatal.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <initializer_list>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

volatile sig_atomic_t stop_signalled;
sigset_t mask_while_waiting; // the signals come in the wait alone

void handle_stop(int) {
    stop_signalled = 1;
}

// It only ends the wait.
void handle_child(int) {}

// An end of a pipe must not get the number 0, which means none, nor those of the agent's own streams.
void open_standard_streams() {
    int file = open("/dev/null", O_RDWR);
    while (file >= 0 && file <= STDERR_FILENO)
        file = open("/dev/null", O_RDWR);
    if (file >= 0) close(file);
}

void set_handler(int number, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(number, &action, nullptr);
}

int host_serve(int (*body)()) {
    open_standard_streams();
    sigset_t blocked;
    sigemptyset(&blocked);
    for (int number : {SIGTERM, SIGINT, SIGCHLD})
        sigaddset(&blocked, number);
    sigprocmask(SIG_BLOCK, &blocked, &mask_while_waiting);
    for (int number : {SIGTERM, SIGINT, SIGCHLD})
        sigdelset(&mask_while_waiting, number);
    set_handler(SIGTERM, handle_stop);
    set_handler(SIGINT, handle_stop);
    set_handler(SIGCHLD, handle_child);
    signal(SIGPIPE, SIG_IGN);
    return body();
}

int64_t host_now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

// Under systemd stderr is the journal already.
void host_tell(bool trouble, const char *text) {
    fprintf(stderr, "tnlauncher: %s\n", text);
    if (trouble && getenv("JOURNAL_STREAM") == nullptr) event_report(text, 0);
}

const char *setting(const char *name) {
    const char *value = getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

bool host_default_folder(char *buffer, size_t size) {
    const char *home = setting("HOME");
    int length = -1;
    if (const char *state = setting("STATE_DIRECTORY")) // systemd may name several folders
        length = snprintf(buffer, size, "%.*s/program", static_cast<int>(strcspn(state, ":")), state);
    else if (geteuid() == 0)
        length = snprintf(buffer, size, "/var/lib/tarnix/program");
    else if (const char *base = setting("XDG_STATE_HOME"))
        length = snprintf(buffer, size, "%s/tarnix/program", base);
    else if (home != nullptr)
        length = snprintf(buffer, size, "%s/.local/state/tarnix/program", home);
    return length >= 0 && static_cast<size_t>(length) < size;
}

bool host_full_path(const char *path, char *buffer, size_t size) {
    char here[PATH_MAX] = "";
    if (*path != '/' && getcwd(here, sizeof here) == nullptr) return false;
    int length =
        *path == '/' ? snprintf(buffer, size, "%s", path) : snprintf(buffer, size, "%s/%s", here, path);
    return static_cast<size_t>(length) < size;
}

bool host_enter_folder(const char *path) {
    return chdir(path) == 0;
}

bool host_lock_folder(const char *name) {
    int file = open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) return false;
    if (flock(file, LOCK_EX | LOCK_NB) == 0) return true; // it stays open with the process
    int error = errno;
    close(file);
    errno = error;
    return false;
}

bool host_make_pipes(agent_pipes *out) {
    int to_agent[2];
    int from_agent[2];
    if (pipe2(to_agent, O_CLOEXEC) != 0) return false;
    if (pipe2(from_agent, O_CLOEXEC) != 0) {
        int error = errno;
        close(to_agent[0]);
        close(to_agent[1]);
        errno = error;
        return false;
    }
    fcntl(from_agent[0], F_SETFL, O_NONBLOCK);
    *out = {
        .read = from_agent[0], .write = to_agent[1], .agent_read = to_agent[0], .agent_write = from_agent[1]};
    return true;
}

void host_close_end(int32_t end) {
    close(end);
}

bool host_write_byte(int32_t end, uint8_t byte) {
    ssize_t written;
    do
        written = write(end, &byte, 1);
    while (written < 0 && errno == EINTR);
    return written == 1;
}

// The agent's ends keep their numbers: a descriptor copied to itself is one that is inherited.
int spawn(const char *const *words, const agent_pipes *pipes, pid_t *out) {
    sigset_t handled;
    sigemptyset(&handled);
    for (int number : {SIGTERM, SIGINT, SIGCHLD, SIGPIPE})
        sigaddset(&handled, number);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, pipes->agent_read, pipes->agent_read);
    posix_spawn_file_actions_adddup2(&actions, pipes->agent_write, pipes->agent_write);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes, &mask_while_waiting);
    posix_spawnattr_setsigdefault(&attributes, &handled);
    int error = posix_spawn(out, words[0], &actions, &attributes, const_cast<char *const *>(words), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

bool host_start(const char *const *words, const agent_pipes *pipes, int64_t *out_process) {
    pid_t process = 0;
    errno = spawn(words, pipes, &process);
    *out_process = process;
    return errno == 0;
}

void host_kill(int64_t process) {
    kill(static_cast<pid_t>(process), SIGKILL);
}

bool has_ended(int64_t process) {
    siginfo_t found = {};
    return process != 0 &&
           waitid(P_PID, static_cast<id_t>(process), &found, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           found.si_pid != 0;
}

launcher_event reap(int64_t process) {
    int status = 0;
    waitpid(static_cast<pid_t>(process), &status, 0);
    return {.kind = EVENT_EXIT, .status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status)};
}

// What the pipe holds, EVENT_TIMEOUT for nothing.
launcher_event read_pipe(int32_t end) {
    if (end == 0) return {.kind = EVENT_TIMEOUT};
    uint8_t byte = 0;
    ssize_t got = read(end, &byte, 1);
    if (got == 1) return {.kind = EVENT_BYTE, .byte = byte};
    bool nothing_yet = got < 0 && (errno == EAGAIN || errno == EINTR);
    return {.kind = nothing_yet ? EVENT_TIMEOUT : EVENT_PIPE_END};
}

// What has happened already, EVENT_TIMEOUT for nothing.
launcher_event look(int32_t read_end, int64_t process) {
    if (stop_signalled != 0) {
        stop_signalled = 0;
        return {.kind = EVENT_STOP};
    }
    bool ended = has_ended(process); // asked first: what is in the pipe then is all there will be
    launcher_event said = read_pipe(read_end);
    return said.kind == EVENT_TIMEOUT && ended ? reap(process) : said;
}

launcher_event host_wait(int32_t read_end, int64_t process, int64_t milliseconds) {
    int64_t end = milliseconds == WAIT_FOR_EVER ? INT64_MAX : host_now() + milliseconds;
    for (;;) {
        launcher_event seen = look(read_end, process);
        int64_t left = end - host_now();
        if (seen.kind != EVENT_TIMEOUT || left <= 0) return seen;
        timespec limit = {.tv_sec = left / 1000, .tv_nsec = left % 1000 * 1'000'000};
        pollfd pipe = {.fd = read_end != 0 ? read_end : -1, .events = POLLIN};
        ppoll(&pipe, 1, milliseconds == WAIT_FOR_EVER ? nullptr : &limit, &mask_while_waiting);
    }
}

} // namespace

const launcher_ops launcher_ops_host = {
    .serve = host_serve,
    .now_ms = host_now,
    .tell = host_tell,
    .default_folder = host_default_folder,
    .full_path = host_full_path,
    .enter_folder = host_enter_folder,
    .lock_folder = host_lock_folder,
    .make_pipes = host_make_pipes,
    .close_end = host_close_end,
    .write_byte = host_write_byte,
    .start = host_start,
    .kill = host_kill,
    .wait = host_wait,
};
