// The command channel as a socket that keeps message boundaries.
//
// A listener with a backlog of one takes the place of a pipe with one instance. From the accept of a client
// to its disconnect the listener's backlog holds a connection of our own, so that a second client is told
// busy.
#include "core/command_pipe_ops.h"
#include "platform/heap.h"
#include "platform/waits_linux.h"
#include "settings/places.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static constexpr const char *SOCKET_NAME = "command";
static constexpr const char *LOCK_NAME = "command.lock";
static constexpr int READ_WAIT = 1000;     // milliseconds
static constexpr uint32_t MORE_DATA = 234; // ERROR_MORE_DATA: the message is longer than the buffer

struct command_pipe {
    int folder;   // of the socket; -1 for a client's end
    int lock;     // held while this agent lives
    int listener; // -1 for a client's end
    int stopper;  // our own connection in the backlog
    int client;
    waitable *event; // of the wait for a client; closed ahead of the pipe
};

static void close_file(int *file) {
    if (*file >= 0) close(*file);
    *file = -1;
}

static void close_pipe(command_pipe *pipe) {
    if (pipe->listener >= 0) unlinkat(pipe->folder, SOCKET_NAME, 0);
    for (int *file : {&pipe->client, &pipe->stopper, &pipe->listener, &pipe->lock, &pipe->folder})
        close_file(file);
    heap_free(pipe);
}

using pipe_guard = guard<command_pipe, close_pipe>;

static command_pipe *new_pipe() {
    auto *pipe = heap_new<command_pipe>();
    if (pipe != nullptr) *pipe = {-1, -1, -1, -1, -1, nullptr};
    return pipe;
}

// A socket's address may be shorter than the folder's path; the descriptor's name is always short enough.
static sockaddr_un address_in(int folder) {
    sockaddr_un address = {.sun_family = AF_UNIX};
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder, SOCKET_NAME);
    return address;
}

static int connect_in(int folder) {
    int file = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (file < 0) return -1;
    sockaddr_un address = address_in(folder);
    if (connect(file, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) return file;
    int error = errno;
    close(file);
    errno = error == EAGAIN ? static_cast<int>(ERROR_PIPE_IS_BUSY) : error;
    return -1;
}

// ---- the agent's end

// A folder that somebody else has made for us would let him stand in for the agent.
static bool open_run_folder(command_pipe *pipe) {
    const char *path = find_places()->run_folder;
    mkdir(path, geteuid() == 0 ? 0755 : 0700);
    pipe->folder = open(path, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat facts;
    if (pipe->folder < 0 || fstat(pipe->folder, &facts) != 0) return false;
    errno = EPERM;
    return facts.st_uid == geteuid() || facts.st_uid == 0;
}

static bool take_lock(command_pipe *pipe) {
    pipe->lock = openat(pipe->folder, LOCK_NAME, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    return pipe->lock >= 0 && flock(pipe->lock, LOCK_EX | LOCK_NB) == 0;
}

// What lies at the name was left by an agent that is dead, since the lock is ours.
static bool listen_in_folder(command_pipe *pipe) {
    int on = 1;
    sockaddr_un address = address_in(pipe->folder);
    unlinkat(pipe->folder, SOCKET_NAME, 0);
    int file = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (file < 0) return false;
    fchmod(file, 0600); // the name takes the mode of the socket
    // Credentials come with each message: without them an empty message looks like the end.
    bool listens = setsockopt(file, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0 &&
                   bind(file, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    pipe->listener = file;
    return listens && fchmodat(pipe->folder, SOCKET_NAME, 0600, 0) == 0 && listen(file, 0) == 0;
}

static command_pipe *create_pipe() {
    pipe_guard pipe(new_pipe());
    if (pipe == nullptr || !open_run_folder(pipe.get()) || !take_lock(pipe.get())) return nullptr;
    if (!listen_in_folder(pipe.get())) return nullptr;
    errno = 0;
    return pipe.release();
}

// Nobody may wait behind the client that is served.
static bool accept_client(command_pipe *pipe) {
    if (pipe->client >= 0) {
        errno = static_cast<int>(ERROR_PIPE_IS_OPEN);
        return false;
    }
    pipe->client = accept4(pipe->listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (pipe->client < 0) return false;
    if (pipe->event != nullptr) pipe->event->watched = -1;
    pipe->stopper = connect_in(pipe->folder);
    return true;
}

static bool connect_pipe(command_pipe *pipe, waitable *event) {
    if (event == nullptr) return accept_client(pipe);
    if (pipe->stopper >= 0) {
        int own = accept4(pipe->listener, nullptr, nullptr, SOCK_CLOEXEC);
        close_file(&own);
        close_file(&pipe->stopper);
    }
    pipe->event = event;
    waits_ops_host.ResetEvent(event);
    event->watched = pipe->listener;
    errno = static_cast<int>(ERROR_PIPE_IS_WAITING);
    return false;
}

static bool disconnect(command_pipe *pipe) {
    if (pipe->client < 0) return true;
    int closed = close(pipe->client);
    pipe->client = -1;
    return closed == 0;
}

// ---- both ends

static bool carries_credentials(const msghdr &message) {
    return message.msg_controllen > 0;
}

static bool receive(int file, char *buffer, size_t size, uint32_t *out_count) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    iovec place = {.iov_base = buffer, .iov_len = size};
    msghdr message = {
        .msg_iov = &place, .msg_iovlen = 1, .msg_control = control, .msg_controllen = sizeof control};
    ssize_t got = recvmsg(file, &message, MSG_DONTWAIT);
    if (got < 0) {
        if (errno == EAGAIN || errno == EINTR) errno = static_cast<int>(WAIT_ENDED);
        if (errno == ECONNRESET) errno = static_cast<int>(ERROR_PIPE_ENDED);
        return false;
    }
    *out_count = static_cast<uint32_t>(got);
    errno = static_cast<int>(ERROR_PIPE_ENDED);
    if (got == 0 && !carries_credentials(message)) return false;
    errno = static_cast<int>(MORE_DATA);
    return (message.msg_flags & MSG_TRUNC) == 0;
}

static bool read_message(command_pipe *pipe, char *buffer, size_t size, uint32_t *out_count) {
    *out_count = 0;
    pollfd file = {.fd = pipe->client, .events = POLLIN};
    int ready = poll(&file, 1, READ_WAIT);
    if (ready > 0) return receive(pipe->client, buffer, size, out_count);
    if (ready == 0 || errno == EINTR) errno = static_cast<int>(WAIT_ENDED);
    return false;
}

static bool write_message(command_pipe *pipe, const char *text, size_t length, uint32_t *out_count) {
    *out_count = 0;
    ssize_t sent = send(pipe->client, text, length, MSG_NOSIGNAL);
    if (sent < 0) return false;
    *out_count = static_cast<uint32_t>(sent);
    return true;
}

// What was sent stays readable behind the close.
static void flush(command_pipe *) {}

// ---- a client's end

static bool is_absent(int error) {
    return error == ENOENT || error == ECONNREFUSED || error == ENOTDIR;
}

static bool connect_client(command_pipe *pipe, const char *path) {
    int folder = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return false;
    int on = 1;
    pipe->client = connect_in(folder);
    int error = errno;
    close(folder);
    errno = error;
    return pipe->client >= 0 && setsockopt(pipe->client, SOL_SOCKET, SO_PASSCRED, &on, sizeof on) == 0;
}

// The system's agent is asked first, then the user's own.
static command_pipe *open_client() {
    const places *found = find_places();
    pipe_guard pipe(new_pipe());
    if (pipe == nullptr) return nullptr;
    if (found->system_run_folder[0] != '\0') {
        if (connect_client(pipe.get(), found->system_run_folder)) return pipe.release();
        if (!is_absent(errno)) return nullptr;
    }
    return connect_client(pipe.get(), found->run_folder) ? pipe.release() : nullptr;
}

static bool is_refusal(uint32_t code) {
    return !is_absent(static_cast<int>(code));
}

const command_pipe_ops command_pipe_ops_host = {
    .CreateNamedPipeA = create_pipe,
    .ConnectNamedPipe = connect_pipe,
    .ReadFile = read_message,
    .WriteFile = write_message,
    .FlushFileBuffers = flush,
    .DisconnectNamedPipe = disconnect,
    .CloseHandle = close_pipe,
    .CreateFileA = open_client,
    .is_refusal = is_refusal,
};
