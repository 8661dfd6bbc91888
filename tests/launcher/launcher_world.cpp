#include "launcher/launcher_world.h"

#include "fakes/notes.h"
#include "platform/fatal.h"

#include <gtest/gtest.h>
#include <stdexcept>

launcher_world *the_launcher;

namespace {

const files_ops *memory_files;
files_ops cutting_files;

void change() {
    the_launcher->operations++;
    if (the_launcher->operations_until_cut != 0 && --the_launcher->operations_until_cut == 0)
        throw power_cut();
}

host_file open_file(const char *path, file_mode mode) {
    if (mode != FILE_READ) change();
    return memory_files->open(path, mode);
}

int64_t write_file(host_file file, const void *buffer, size_t size) {
    change();
    return memory_files->write(file, buffer, size);
}

bool sync_file(host_file file) {
    change();
    return memory_files->sync(file);
}

bool move_file(const char *from, const char *to) {
    change();
    return memory_files->MoveFileExA(from, to);
}

bool delete_file(const char *path) {
    change();
    return memory_files->DeleteFileA(path);
}

bool make_executable(const char *path) {
    change();
    if (the_launcher->host.broken["chmod"].contains(path)) {
        the_launcher->host.last_error = the_launcher->host.broken["chmod"][path];
        return false;
    }
    the_launcher->executables.emplace_back(path);
    return true;
}

// The launcher.

int serve(int (*body)()) {
    return body();
}

int64_t now_ms() {
    return the_launcher->now_ms;
}

void tell(bool trouble, const char *text) {
    the_launcher->told.emplace_back(trouble, text);
    note_text(text);
}

void called(const std::string &what) {
    the_launcher->calls.push_back(std::to_string(the_launcher->now_ms) + " " + what);
}

bool make_pipes(agent_pipes *out) {
    if (the_launcher->pipes_break) {
        the_launcher->host.last_error = 24;
        return false;
    }
    *out = {.read = 11, .write = 12, .agent_read = 13, .agent_write = 14};
    the_launcher->open_ends += 4;
    return true;
}

void close_end(int32_t end) {
    EXPECT_NE(end, 0);
    the_launcher->open_ends--;
    called("close " + std::to_string(end));
}

bool write_byte(int32_t end, uint8_t byte) {
    EXPECT_EQ(end, 12);
    called("say " + std::to_string(byte));
    return !the_launcher->writes_fail;
}

bool start(const char *const *words, const agent_pipes *pipes, int64_t *out_process) {
    EXPECT_EQ(pipes->agent_read, 13);
    EXPECT_EQ(pipes->agent_write, 14);
    std::string line;
    for (const char *const *word = words; *word != nullptr; word++)
        line += (line.empty() ? "" : " ") + std::string(*word);
    called("start");
    the_launcher->starts.push_back(line);
    the_launcher->programs.push_back(the_launcher->host.read_file(words[0]));
    if (the_launcher->failing_starts > 0) {
        the_launcher->failing_starts--;
        the_launcher->host.last_error = 8;
        return false;
    }
    if (the_launcher->at_start) the_launcher->at_start();
    *out_process = 4711;
    return true;
}

void kill_process(int64_t process) {
    EXPECT_EQ(process, 4711);
    called("kill");
}

bool may_happen(int64_t process) {
    const auto &left = the_launcher->happenings;
    return !left.empty() && (process != 0 || !left.front().in_life);
}

launcher_event wait(int32_t read_end, int64_t process, int64_t milliseconds) {
    auto &left = the_launcher->happenings;
    bool possible = may_happen(process);
    if (!possible || (milliseconds != WAIT_FOR_EVER && left.front().after_ms > milliseconds)) {
        if (milliseconds == WAIT_FOR_EVER) throw std::runtime_error("the launcher waits for ever");
        the_launcher->now_ms += milliseconds;
        if (possible) left.front().after_ms -= milliseconds;
        return {.kind = EVENT_TIMEOUT};
    }
    launcher_world::happening next = left.front();
    left.pop_front();
    EXPECT_TRUE(read_end != 0 || next.event.kind == EVENT_EXIT || next.event.kind == EVENT_STOP);
    the_launcher->now_ms += next.after_ms;
    if (next.then) next.then();
    return next.event;
}

const launcher_ops fake_launcher = {.serve = serve,
                                    .now_ms = now_ms,
                                    .tell = tell,
                                    .make_pipes = make_pipes,
                                    .close_end = close_end,
                                    .write_byte = write_byte,
                                    .start = start,
                                    .kill = kill_process,
                                    .wait = wait};
const process_ops fake_process = {.program_suffix = ""};

} // namespace

launcher_world::launcher_world() {
    the_launcher = this;
    memory_files = files_host;
    cutting_files = *memory_files;
    cutting_files.open = open_file;
    cutting_files.write = write_file;
    cutting_files.sync = sync_file;
    cutting_files.MoveFileExA = move_file;
    cutting_files.DeleteFileA = delete_file;
    cutting_files.make_executable = make_executable;
    files_host = &cutting_files;
    process_host = &fake_process;
    launcher_host = &fake_launcher;
}

launcher_world::~launcher_world() {
    EXPECT_EQ(open_ends, 0);
    EXPECT_EQ(host.blocks, 0);
    EXPECT_TRUE(host.open_files.empty());
    the_launcher = nullptr;
}

void launcher_world::agent_says(uint8_t byte, int64_t after_ms) {
    happenings.push_back({.event = {.kind = EVENT_BYTE, .byte = byte}, .after_ms = after_ms, .then = {}});
}

void launcher_world::pipe_ends() {
    happenings.push_back({.event = {.kind = EVENT_PIPE_END}, .then = {}});
}

void launcher_world::agent_ends(int32_t status, int64_t after_ms, std::function<void()> then) {
    happenings.push_back(
        {.event = {.kind = EVENT_EXIT, .status = status}, .after_ms = after_ms, .then = std::move(then)});
}

void launcher_world::host_stops(int64_t after_ms, bool in_life) {
    happenings.push_back(
        {.event = {.kind = EVENT_STOP}, .after_ms = after_ms, .then = {}, .in_life = in_life});
}

bool launcher_world::has_told(bool trouble, const std::string &text) const {
    for (const auto &[was_trouble, line] : told)
        if (was_trouble == trouble && line == text) return true;
    return false;
}

int64_t launcher_world::called_at(const std::string &call) const {
    for (const std::string &line : calls)
        if (line.ends_with(" " + call)) return std::stoll(line);
    return -1;
}
