#include "custom/scripted_programs.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>

struct waitable {
    bool signalled = false;
    std::thread thread;
};

struct output_pipe {
    bool reads;
    size_t next_read = 0;
    bool cancelled = false;
};

struct started_program {};

namespace {

scripted_programs *world;
std::mutex lock;
std::condition_variable changed;
std::thread::id main_thread;
std::map<std::string, int> counts;
bool reader_waits; // for the buffer
bool reader_hangs; // in a read to which nothing comes
std::vector<waitable *> left_behind;
waitable *running_thread;
waitable *first_event;  // read_complete_evt
waitable *second_event; // data_processed_evt
started_program *live_program;
bool process_gone;
int64_t passing_ms; // ahead of the read that the main thread hears of next

// Notes a call; whether it is to fail.
bool fails(const std::string &name) {
    std::lock_guard held(lock);
    if (std::this_thread::get_id() == main_thread) world->calls.push_back(name);
    auto found = world->fails.find(name);
    return ++counts[name] == (found != world->fails.end() ? found->second : 0);
}

void set_error_mode(uint32_t mode) {
    EXPECT_EQ(mode, 0x8003U);
    fails("SetErrorMode");
}

uint64_t system_time() {
    std::lock_guard held(lock);
    return static_cast<uint64_t>(world->now_ms) * 10'000 + 9'999;
}

waitable *create_event() {
    if (fails("CreateEventA")) return nullptr;
    world->open++;
    auto *event = new waitable;
    (counts["CreateEventA"] % 2 == 1 ? first_event : second_event) = event;
    return event;
}

std::string name_of(const waitable *object) {
    if (object == first_event) return "read_complete";
    return object == second_event ? "data_processed" : "thread";
}

bool set_event(waitable *event) {
    if (fails("SetEvent " + name_of(event))) return false;
    std::lock_guard held(lock);
    event->signalled = true;
    changed.notify_all();
    return true;
}

bool reset_event(waitable *event) {
    if (fails("ResetEvent " + name_of(event))) return false;
    std::lock_guard held(lock);
    event->signalled = false;
    return true;
}

waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    if (fails("CreateThread")) return nullptr;
    world->open++;
    auto *thread = new waitable;
    running_thread = thread;
    thread->thread = std::thread([=] {
        body(argument);
        std::lock_guard held(lock);
        thread->signalled = true;
        changed.notify_all();
    });
    return thread;
}

// The answer that a test has given to the n-th wait of this name, or one that stands for none.
uint32_t scripted_answer(const std::string &name) {
    static constexpr uint32_t NONE = 4711;
    auto found = world->answers.find(name);
    if (found == world->answers.end()) return NONE;
    auto answer = found->second.find(counts["wait " + name]);
    return answer != found->second.end() ? answer->second : NONE;
}

// The main thread's wait times out when the reader cannot go on either; the reader's own has no limit.
uint32_t wait_for(waitable *object, uint32_t milliseconds) {
    std::string name = name_of(object);
    fails("wait " + name);
    std::unique_lock held(lock);
    if (uint32_t answer = scripted_answer(name); answer != 4711) return answer;
    bool in_main = std::this_thread::get_id() == main_thread;
    if (!in_main) {
        EXPECT_EQ(milliseconds, WAIT_WITHOUT_LIMIT);
        reader_waits = true;
        changed.notify_all();
        changed.wait(held, [&] { return object->signalled || process_gone; });
        reader_waits = false;
        if (process_gone) return OBJECT_FAILED;
    } else {
        auto ended = [&] { return running_thread != nullptr && running_thread->signalled; };
        changed.wait(held, [&] {
            return object->signalled || (reader_waits && !second_event->signalled) || reader_hangs || ended();
        });
        if (!object->signalled) {
            world->now_ms += milliseconds;
            return OBJECT_TIMEOUT;
        }
        world->now_ms += passing_ms;
        passing_ms = 0;
    }
    if (object != running_thread) object->signalled = false;
    return OBJECT_SIGNALLED;
}

void close_handle(waitable *object) {
    fails("CloseHandle " + name_of(object));
    world->open--;
    if (object != running_thread) {
        delete object;
        return;
    }
    running_thread = nullptr;
    left_behind.push_back(object);
}

bool create_pipe(output_pipe **out_read, output_pipe **out_write) {
    if (fails("CreatePipe")) return false;
    world->open += 2;
    *out_read = new output_pipe{.reads = true};
    *out_write = new output_pipe{.reads = false};
    return true;
}

bool duplicate_handle(output_pipe **end) {
    EXPECT_TRUE((*end)->reads);
    if (fails("DuplicateHandle")) return false;
    auto *copy = new output_pipe(**end);
    delete *end;
    *end = copy;
    return true;
}

bool read_file(output_pipe *end, void *buffer, uint32_t size, uint32_t *out_length, uint32_t *out_error) {
    EXPECT_NE(std::this_thread::get_id(), main_thread);
    std::unique_lock held(lock);
    world->sizes.push_back(size);
    *out_error = ERROR_OUTPUT_ENDED;
    if (end->next_read >= world->reads.size()) return false;
    scripted_read &read = world->reads[end->next_read];
    passing_ms += read.milliseconds;
    read.milliseconds = 0;
    if (!read.text.empty()) {
        *out_length = static_cast<uint32_t>(read.text.copy(static_cast<char *>(buffer), size));
        *out_error = 0;
        read.text.erase(0, *out_length);
        if (read.text.empty()) end->next_read++;
        return true;
    }
    *out_error = read.error;
    if (read.error != 0) return false;
    auto ends = [&] { return end->cancelled && !world->deaf; };
    reader_hangs = !ends();
    changed.notify_all();
    changed.wait(held, ends);
    *out_error = 995;
    return false;
}

void cancel_reads(output_pipe *end) {
    fails("CancelIoEx");
    std::lock_guard held(lock);
    end->cancelled = true;
    if (!world->deaf) reader_hangs = false;
    changed.notify_all();
}

void close_pipe(output_pipe *end) {
    if (end == nullptr) return;
    fails(end->reads ? "ClosePipe read" : "ClosePipe write");
    world->open--;
    delete end;
}

bool create_process(const char *command, const char *const *words, output_pipe *output,
                    started_program **out) {
    if (fails("CreateProcessA")) return false;
    EXPECT_EQ(words != nullptr, world->takes_words);
    world->started = words == nullptr ? command : "";
    for (; words != nullptr && *words != nullptr; words++)
        world->started += std::string("[") + *words + "]";
    world->with_output = output != nullptr;
    if (output == nullptr) return true;
    EXPECT_FALSE(output->reads);
    world->open++;
    *out = live_program = new started_program;
    return true;
}

uint32_t wait_for_process(started_program *, uint32_t milliseconds) {
    fails("wait process");
    world->limits.push_back(milliseconds);
    std::lock_guard held(lock);
    if (uint32_t answer = scripted_answer("process"); answer != 4711) return answer;
    return OBJECT_SIGNALLED;
}

void terminate_process(started_program *, uint32_t exit_code) {
    EXPECT_EQ(exit_code, 1U);
    fails("TerminateProcess");
}

bool exit_code_of(started_program *, uint32_t *out) {
    if (fails("GetExitCodeProcess")) return false;
    *out = world->exit_code;
    return true;
}

void close_process(started_program *program) {
    fails("CloseProcess");
    world->open--;
    delete program;
}

custom_ops table;

} // namespace

scripted_programs::scripted_programs() {
    world = this;
    main_thread = std::this_thread::get_id();
    counts.clear();
    reader_waits = reader_hangs = false;
    running_thread = nullptr;
    process_gone = false;
    passing_ms = 0;
    use();
}

void scripted_programs::use() {
    table = {
        .SetErrorMode = set_error_mode,
        .GetSystemTime = system_time,
        .CreateEventA = create_event,
        .SetEvent = set_event,
        .ResetEvent = reset_event,
        .CreateThread = create_thread,
        .WaitForSingleObject = wait_for,
        .CloseHandle = close_handle,
        .CreatePipe = create_pipe,
        .DuplicateHandle = inherits ? duplicate_handle : nullptr,
        .ReadFile = read_file,
        .CancelIoEx = cancel_reads,
        .ClosePipe = close_pipe,
        .takes_words = takes_words,
        .CreateProcessA = create_process,
        .WaitForProcess = wait_for_process,
        .TerminateProcess = terminate_process,
        .GetExitCodeProcess = exit_code_of,
        .CloseProcess = close_process,
    };
    custom_host = &table;
}

void scripted_programs::join() {
    {
        std::lock_guard held(lock);
        deaf = reader_hangs = false;
        changed.notify_all();
    }
    for (waitable *thread : left_behind) {
        if (thread->thread.joinable()) thread->thread.join();
        delete thread;
    }
    left_behind.clear();
}

void scripted_programs::end_process() {
    {
        std::lock_guard held(lock);
        process_gone = true;
        changed.notify_all();
    }
    left_behind.push_back(running_thread);
    join();
    delete live_program;
    open -= 2; // the thread and the program; the pipe's end is closed with the room's own state
}

scripted_programs::~scripted_programs() {
    join();
    EXPECT_EQ(open, 0) << "something was not closed";
    world = nullptr;
}

int scripted_programs::called(const std::string &name) const {
    return static_cast<int>(std::count(calls.begin(), calls.end(), name));
}
