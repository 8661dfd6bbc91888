#include "platform/agent_log.h"

#include "platform/clock.h"
#include "platform/heap.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>

void (*agent_log_observer)(int32_t level, const char *message);

namespace {

// The log is shared with the threads beside the main one. The lock keeps a stream open while a line goes to
// it. The handler of a fault may log in the middle of a line of its own thread.
std::recursive_mutex stream_lock;
std::atomic<host_file> stream{NO_FILE};
std::atomic<int32_t> threshold{0};

constexpr size_t PREFIX = 26; // the time and ": "

void write_line(char *line, size_t length) {
    line[length] = '\n';
    std::lock_guard lock(stream_lock);
    if (log_stream() != NO_FILE) file_write_all(log_stream(), line, length + 1);
}

void write_prefix(char *line) {
    format_ctime(time_now(), line);
    line[PREFIX - 2] = ':';
    line[PREFIX - 1] = ' ';
}

} // namespace

__attribute__((format(printf, 2, 0))) static void log_line(int32_t level, const char *format,
                                                           va_list arguments) {
    char short_line[1024];
    va_list again;
    va_copy(again, arguments);
    int length = vsnprintf(short_line + PREFIX, sizeof short_line - PREFIX, format, arguments);
    if (length < 0) short_line[PREFIX] = '\0'; // what cannot be formatted is an empty message
    size_t whole = PREFIX + static_cast<size_t>(length < 0 ? 0 : length);
    text_guard long_line;
    char *line = short_line;
    if (whole >= sizeof short_line) {
        long_line.reset(static_cast<char *>(heap_alloc(whole + 1)));
        if (long_line != nullptr) {
            line = long_line.get();
            vsnprintf(line + PREFIX, whole + 1 - PREFIX, format, again);
        } else {
            whole = sizeof short_line - 1; // a cut line rather than none
        }
    }
    va_end(again);
    if (agent_log_observer != nullptr) agent_log_observer(level, line + PREFIX);
    write_prefix(line);
    write_line(line, whole);
}

bool log_shows(int32_t level) {
    return level >= threshold.load(std::memory_order_relaxed) && log_stream() != NO_FILE;
}

void agent_log(int32_t level, const char *format, ...) {
    if (!log_shows(level)) return;
    va_list arguments;
    va_start(arguments, format);
    log_line(level, format, arguments);
    va_end(arguments);
}

static host_file change_stream(host_file to) {
    std::lock_guard lock(stream_lock);
    return stream.exchange(to);
}

host_file log_to_stderr() {
    return change_stream(files_host->stderr_handle);
}

host_file log_open(const char *path) {
    file_make_folders(path);
    host_file opened = files_host->open(path, FILE_APPEND);
    change_stream(opened);
    return opened;
}

void log_close() {
    if (log_is_console() || log_stream() == NO_FILE) return;
    agent_log(LOG_WARNING, "Closing logfile");
    files_host->close(change_stream(NO_FILE));
}

void log_set_level(int32_t level) {
    threshold = level;
}

bool log_is_console() {
    return log_stream() != NO_FILE && log_stream() == files_host->stderr_handle;
}

host_file log_stream() {
    return stream.load(std::memory_order_relaxed);
}

void log_reset() {
    stream = NO_FILE;
    threshold = 0;
}
