#include "fakes/test_host.h"

#include "fakes/calendar.h"
#include "fakes/notes.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/heap.h"
#include "platform/sockets.h"
#include "platform/waits.h"

#include <cstring>
#include <gtest/gtest.h>

test_host *the_host;

namespace {

int64_t fake_time() {
    return the_host->now;
}

bool fake_localtime(int64_t time, tm *out) {
    return utc_calendar(time + the_host->zone, out);
}

void fake_sleep(uint32_t milliseconds) {
    the_host->sleeps.push_back(milliseconds);
    the_host->now += milliseconds / 1000;
}

bool fake_random(void *buffer, size_t count) {
    if (the_host->random) return the_host->random(buffer, count);
    for (size_t i = 0; i < count; i++)
        static_cast<uint8_t *>(buffer)[i] = the_host->next_random++;
    return true;
}

uint32_t fake_last_error() {
    return the_host->last_error;
}

bool fake_format_message(uint32_t code, char *buffer, uint32_t size, uint32_t *out_error) {
    auto found = the_host->error_words.find(code);
    std::string words =
        found != the_host->error_words.end() ? found->second : "system error " + std::to_string(code);
    *out_error = 317;
    if (words == "(none)") return false;
    snprintf(buffer, size, "%s", words.c_str());
    return true;
}

void *fake_allocate(size_t size) {
    if (the_host != nullptr && the_host->fail_allocation != 0 && --the_host->fail_allocation == 0)
        return nullptr;
    void *block = heap_ops_host.allocate(size);
    if (the_host != nullptr) the_host->blocks++;
    return block;
}

void fake_release(void *block) {
    if (block != nullptr && the_host != nullptr) the_host->blocks--;
    heap_ops_host.release(block);
}

void *fake_register(const char *source) {
    EXPECT_STREQ(source, "Tarnix");
    return the_host->event_source_opens ? the_host : nullptr;
}

void fake_report(void *, bool error, uint32_t id, const char *message) {
    the_host->events.push_back({error, id, message});
}

void fake_deregister(void *) {}

void fake_exit(int status) {
    throw process_ended{status};
}

uint32_t fake_process_id() {
    return 4711;
}

bool fake_program_path(char *buffer, size_t size) {
    snprintf(buffer, size, "%s", the_host->program.c_str());
    return !the_host->program.empty();
}

// Files.

bool is_broken(const char *operation, const std::string &path) {
    for (const auto &[start, code] : the_host->broken[operation]) {
        if (path.starts_with(start)) {
            the_host->last_error = code;
            return true;
        }
    }
    return false;
}

std::string parent_of(const std::string &path) {
    size_t slash = path.find_last_of('/', path.size() - 2);
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

bool missing(const std::string &path) {
    if (the_host->files.contains(path)) return false;
    the_host->last_error = 2;
    return true;
}

bool folder_missing(const std::string &path) {
    std::string folder = parent_of(path);
    return !folder.empty() && folder != "/" && missing(folder);
}

memory_file new_file() {
    return {.number = the_host->next_file_number++, .created = the_host->now};
}

host_file fake_open(const char *path, file_mode mode) {
    if (is_broken("open", path) || (mode == FILE_READ && missing(path)) || folder_missing(path))
        return NO_FILE;
    auto [entry, made] = the_host->files.try_emplace(path, memory_file{});
    if (made) entry->second = new_file();
    if (mode == FILE_REPLACE) entry->second.content.clear();
    size_t position = mode == FILE_APPEND ? entry->second.content.size() : 0;
    the_host->open_files[the_host->next_handle] = {path, position};
    return the_host->next_handle++;
}

int64_t fake_read(host_file file, void *buffer, size_t size) {
    auto &[path, position] = the_host->open_files.at(file);
    if (is_broken("read", path)) return -1;
    const std::string &content = the_host->files[path].content;
    size_t count = position < content.size() ? std::min(size, content.size() - position) : 0;
    memcpy(buffer, content.data() + position, count);
    position += count;
    return static_cast<int64_t>(count);
}

int64_t fake_write(host_file file, const void *buffer, size_t size) {
    if (file == files_host->stderr_handle) return static_cast<int64_t>(size);
    auto &[path, position] = the_host->open_files.at(file);
    if (is_broken("write", path)) return -1;
    std::string &content = the_host->files[path].content;
    content.resize(std::max(content.size(), position + size));
    memcpy(content.data() + position, buffer, size);
    position += size;
    return static_cast<int64_t>(size);
}

bool fake_seek(host_file file, int64_t offset, file_origin origin) {
    auto &[path, position] = the_host->open_files.at(file);
    if (is_broken("seek", path)) return false;
    if (origin == FROM_END) offset += static_cast<int64_t>(the_host->files[path].content.size());
    if (offset < 0) {
        the_host->last_error = 22;
        return false;
    }
    position = static_cast<size_t>(offset);
    return true;
}

int64_t fake_tell(host_file file) {
    auto &[path, position] = the_host->open_files.at(file);
    return is_broken("tell", path) ? -1 : static_cast<int64_t>(position);
}

bool fake_sync(host_file file) {
    const std::string &path = the_host->open_files.at(file).first;
    if (is_broken("sync", path)) return false;
    the_host->files[path].synced = the_host->files[path].content;
    return true;
}

bool fake_close(host_file file) {
    the_host->open_files.erase(file);
    return true;
}

file_facts facts(const std::string &path) {
    const memory_file &file = the_host->files[path];
    return {.regular = !path.ends_with('/'),
            .volume = 1,
            .number = file.number,
            .size = static_cast<int64_t>(file.content.size())};
}

bool fake_facts_of(host_file file, file_facts *out) {
    auto found = the_host->open_files.find(file);
    if (found == the_host->open_files.end()) return false;
    *out = facts(found->second.first);
    return true;
}

bool fake_facts_at(const char *path, file_facts *out) {
    if (the_host->files.contains(std::string(path) + "/")) {
        *out = facts(std::string(path) + "/");
        return true;
    }
    if (missing(path)) return false;
    *out = facts(path);
    return true;
}

bool rename_entry(const char *from, const char *to) {
    if (is_broken("rename", from) || missing(from) || folder_missing(to)) return false;
    the_host->files[to] = the_host->files[from];
    the_host->files.erase(from);
    for (auto &[handle, open] : the_host->open_files)
        if (open.first == from) open.first = to;
    return true;
}

bool fake_move(const char *from, const char *to) {
    if (the_host->files.contains(to)) {
        the_host->last_error = 17;
        return false;
    }
    return rename_entry(from, to);
}

bool fake_move_replacing(const char *from, const char *to) {
    if (!rename_entry(from, to)) return false;
    memory_file kept = the_host->files[to];
    kept.content = kept.synced;
    the_host->disk[to] = kept;
    the_host->disk.erase(from);
    return true;
}

// What is open outlives its name.
void keep_open_file(const std::string &path) {
    std::string hidden = "deleted " + std::to_string(the_host->files[path].number);
    for (auto &[handle, open] : the_host->open_files) {
        if (open.first != path) continue;
        open.first = hidden;
        the_host->files[hidden] = the_host->files[path];
    }
}

bool fake_delete(const char *path) {
    if (is_broken("delete", path) || missing(path)) return false;
    keep_open_file(path);
    the_host->files.erase(path);
    return true;
}

bool fake_create_directory(const char *path) {
    if (is_broken("mkdir", path) || folder_missing(path)) return false;
    if (the_host->files.contains(std::string(path) + "/")) {
        the_host->last_error = 17;
        return false;
    }
    the_host->files[std::string(path) + "/"] = new_file();
    return true;
}

int64_t fake_creation_time(const char *path) {
    if (is_broken("open", path) || missing(path)) return 0;
    return the_host->keeps_creation_times ? the_host->files[path].created : -1;
}

void fake_restart_age(const char *path) {
    auto [entry, made] = the_host->files.try_emplace(path, memory_file{});
    if (made) entry->second = new_file();
    entry->second.created = the_host->now;
}

// Waits.

waitable *fake_create_event(bool, bool) {
    return reinterpret_cast<waitable *>(new char);
}

void fake_set_event(waitable *) {}
void fake_reset_event(waitable *) {}

void fake_close_handle(waitable *object) {
    delete reinterpret_cast<char *>(object);
}

int32_t fake_wait(uint32_t, waitable *const *, uint32_t milliseconds) {
    the_host->waits.push_back(milliseconds);
    if (the_host->wait_answers.empty()) {
        the_host->now += milliseconds / 1000;
        return WAIT_OBJECT_TIMEOUT;
    }
    int32_t answer = the_host->wait_answers.front();
    the_host->wait_answers.erase(the_host->wait_answers.begin());
    return answer;
}

const clock_ops fake_clock = {.time = fake_time, .localtime = fake_localtime, .Sleep = fake_sleep};
const random_ops fake_random_ops = {.random_bytes = fake_random};
const error_ops fake_errors = {.GetLastError = fake_last_error, .FormatMessageA = fake_format_message};
const heap_ops fake_heap = {.allocate = fake_allocate, .release = fake_release};
const event_ops fake_events = {.RegisterEventSourceA = fake_register,
                               .ReportEventA = fake_report,
                               .DeregisterEventSource = fake_deregister};
const process_ops fake_process = {.exit = fake_exit,
                                  .GetCurrentProcessId = fake_process_id,
                                  .GetModuleFileNameA = fake_program_path,
                                  .program_suffix = ""};
const files_ops fake_files = {
    .stderr_handle = 2,
    .open = fake_open,
    .read = fake_read,
    .write = fake_write,
    .seek64 = fake_seek,
    .tell64 = fake_tell,
    .sync = fake_sync,
    .close = fake_close,
    .facts_of = fake_facts_of,
    .facts_at = fake_facts_at,
    .MoveFileA = fake_move,
    .MoveFileExA = fake_move_replacing,
    .DeleteFileA = fake_delete,
    .CreateDirectoryA = fake_create_directory,
    .creation_time = fake_creation_time,
    .restart_age = fake_restart_age,
};
const waits_ops fake_waits = {.CreateEventA = fake_create_event,
                              .SetEvent = fake_set_event,
                              .ResetEvent = fake_reset_event,
                              .CloseHandle = fake_close_handle,
                              .WaitForMultipleObjects = fake_wait};

void keep_line(int32_t level, const char *message) {
    the_host->log.push_back({level, message});
    note_text(message);
}

} // namespace

test_host::test_host() {
    the_host = this;
    clock_host = &fake_clock;
    random_host = &fake_random_ops;
    error_host = &fake_errors;
    heap_host = &fake_heap;
    event_host = &fake_events;
    process_host = &fake_process;
    files_host = &fake_files;
    waits_host = &fake_waits;
    log_reset();
    waits_reset();
    sockets_reset();
    tn_srand(1);
    fatal_cleanup = nullptr;
    log_to_stderr();
    log_set_level(LOG_TRACE);
    agent_log_observer = keep_line;
}

test_host::~test_host() {
    agent_log_observer = nullptr;
    log_reset();
    heap_host = &heap_ops_host;
    the_host = nullptr;
}

bool test_host::logged(int32_t level, const std::string &text) const {
    for (const logged_line &line : log)
        if (line.level == level && line.text == text) return true;
    return false;
}

int test_host::count_logged(const std::string &part) const {
    int count = 0;
    for (const logged_line &line : log)
        count += line.text.find(part) != std::string::npos;
    return count;
}

std::vector<std::string> test_host::told() const {
    std::vector<std::string> texts;
    for (const logged_line &line : log)
        texts.push_back(line.text);
    return texts;
}

void test_host::write_file(const std::string &path, const std::string &content) {
    for (std::string folder = parent_of(path); folder.size() > 1; folder = parent_of(folder))
        disk[folder] = files.try_emplace(folder, new_file()).first->second;
    memory_file file = new_file();
    file.content = file.synced = content;
    files[path] = disk[path] = file;
}

std::string test_host::read_file(const std::string &path) const {
    auto found = files.find(path);
    return found != files.end() ? found->second.content : "";
}

bool test_host::has_file(const std::string &path) const {
    return files.contains(path);
}

void test_host::cut_power() {
    files = disk;
    open_files.clear();
}

std::string noted_failure(const char *failure) {
    std::string text = failure != nullptr ? failure : "(none)";
    if (failure != nullptr) note_text(text);
    return text;
}

void expect_fatal(const std::function<void()> &action, const std::string &message) {
    try {
        action();
        ADD_FAILURE() << "expected the end in \"" << message << "\"";
    } catch (const process_ended &end) {
        EXPECT_EQ(end.status, 1);
        EXPECT_TRUE(the_host->logged(LOG_ERROR, "Fatal error: " + message)) << message;
    }
}
