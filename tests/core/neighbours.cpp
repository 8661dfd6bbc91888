#include "core/neighbours.h"

#include "fakes/test_host.h"

#include <algorithm>

neighbours *the_neighbours;

namespace {

struct fake_thread {
    uint32_t (*body)(void *argument);
    void *argument;
    uint32_t exit_code;
    bool resumed;
};

std::vector<fake_thread *> all_threads;

fake_thread *thread_of(waitable *object) {
    return reinterpret_cast<fake_thread *>(object);
}

bool refuse(uint32_t code) {
    the_host->last_error = code;
    return false;
}

// ---- events and threads

waitable *create_event(bool, bool) {
    if (the_neighbours->event_refused_at > 0 && --the_neighbours->event_refused_at == 0) return nullptr;
    the_neighbours->open_handles++;
    return reinterpret_cast<waitable *>(new fake_thread{});
}

void set_event(waitable *event) {
    the_neighbours->set_events.push_back(event);
}

void reset_event(waitable *event) {
    std::erase(the_neighbours->set_events, event);
}

void close_handle(waitable *object) {
    the_neighbours->open_handles--;
    std::erase(all_threads, thread_of(object));
    delete thread_of(object);
}

int32_t wait_for_any(uint32_t, waitable *const *, uint32_t milliseconds) {
    the_host->waits.push_back(milliseconds);
    if (the_host->wait_answers.empty()) return WAIT_OBJECT_TIMEOUT;
    int32_t answer = the_host->wait_answers.front();
    the_host->wait_answers.erase(the_host->wait_answers.begin());
    return answer;
}

waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    if (the_neighbours->thread_refused) return nullptr;
    the_neighbours->threads_made++;
    the_neighbours->open_handles++;
    all_threads.push_back(new fake_thread{body, argument, STILL_ACTIVE, false});
    return reinterpret_cast<waitable *>(all_threads.back());
}

bool set_priority(waitable *, int32_t priority) {
    the_neighbours->priorities.push_back(priority);
    return !the_neighbours->priority_refused;
}

void run_thread(fake_thread *thread) {
    if (thread->resumed && thread->exit_code == STILL_ACTIVE)
        thread->exit_code = thread->body(thread->argument);
}

bool resume(waitable *object) {
    if (the_neighbours->resume_refused) return false;
    thread_of(object)->resumed = true;
    if (!the_neighbours->threads_held) run_thread(thread_of(object));
    return true;
}

bool exit_code_of(waitable *object, uint32_t *out) {
    *out = thread_of(object)->exit_code;
    return !the_neighbours->exit_code_refused;
}

void wait_for_end(waitable *object) {
    run_thread(thread_of(object));
}

// ---- the launcher

bool read_order(int32_t, waitable *stop, uint8_t *out, uint32_t *out_count) {
    *out_count = 0;
    if (stop != nullptr && the_neighbours->is_set(stop)) return refuse(995);
    if (the_neighbours->orders.empty()) return refuse(ERROR_PIPE_ENDED);
    int order = the_neighbours->orders.front();
    the_neighbours->orders.pop_front();
    if (order < 0) return true;
    *out = static_cast<uint8_t>(order);
    *out_count = 1;
    return true;
}

bool write_report(int32_t handle, uint8_t byte, uint32_t *out_count) {
    *out_count = 0;
    if (handle == 0) return refuse(6);
    if (the_neighbours->report_code != 0) return refuse(the_neighbours->report_code);
    if (the_neighbours->report_lost) return true;
    the_neighbours->reports += static_cast<char>(byte);
    *out_count = 1;
    return true;
}

// ---- the command pipe

command_pipe *a_pipe() {
    static char place;
    return reinterpret_cast<command_pipe *>(&place);
}

command_pipe *create_pipe() {
    the_neighbours->calls.push_back("create");
    the_host->last_error = 0;
    return the_neighbours->pipe_refused ? nullptr : a_pipe();
}

bool connect_pipe(command_pipe *, waitable *event) {
    the_neighbours->armed.push_back(event != nullptr);
    uint32_t code = ERROR_PIPE_IS_WAITING;
    if (event == nullptr) code = ERROR_PIPE_IS_OPEN;
    if (!the_neighbours->connects.empty()) {
        code = the_neighbours->connects.front();
        the_neighbours->connects.pop_front();
    }
    return code == 0 || refuse(code);
}

bool read_pipe(command_pipe *, char *buffer, size_t size, uint32_t *out_count) {
    *out_count = 0;
    if (the_neighbours->reads.empty()) return refuse(WAIT_ENDED);
    scripted_read read = the_neighbours->reads.front();
    the_neighbours->reads.pop_front();
    *out_count = static_cast<uint32_t>(read.text.copy(buffer, size));
    return read.code == 0 || refuse(read.code);
}

bool write_pipe(command_pipe *, const char *text, size_t length, uint32_t *out_count) {
    *out_count = 0;
    if (the_neighbours->write_code != 0) return refuse(the_neighbours->write_code);
    the_neighbours->written.emplace_back(text, length);
    *out_count = static_cast<uint32_t>(length);
    return true;
}

void flush_pipe(command_pipe *) {
    the_neighbours->calls.push_back("flush");
}

bool disconnect_pipe(command_pipe *) {
    the_neighbours->calls.push_back("disconnect");
    return the_neighbours->disconnect_code == 0 || refuse(the_neighbours->disconnect_code);
}

void close_pipe(command_pipe *) {
    the_neighbours->calls.push_back("close");
}

command_pipe *open_pipe() {
    if (the_neighbours->open_code == 0) return a_pipe();
    refuse(the_neighbours->open_code);
    return nullptr;
}

bool is_refusal(uint32_t code) {
    return code == the_neighbours->refusal;
}

void message_box(const char *title, const char *text, bool exclamation) {
    the_neighbours->boxes.push_back(std::string(title) + "|" + text + (exclamation ? "|!" : "|"));
}

const threads_ops fake_threads = {.CreateThread = create_thread,
                                  .SetThreadPriority = set_priority,
                                  .ResumeThread = resume,
                                  .GetExitCodeThread = exit_code_of,
                                  .WaitForSingleObject = wait_for_end};
const parent_pipe_ops fake_parent = {.ReadFile = read_order, .WriteFile = write_report};
const waits_ops fake_waits = {.CreateEventA = create_event,
                              .SetEvent = set_event,
                              .ResetEvent = reset_event,
                              .CloseHandle = close_handle,
                              .WaitForMultipleObjects = wait_for_any};

} // namespace

neighbours::neighbours()
    : pipe_ops{.CreateNamedPipeA = create_pipe,
               .ConnectNamedPipe = connect_pipe,
               .ReadFile = read_pipe,
               .WriteFile = write_pipe,
               .FlushFileBuffers = flush_pipe,
               .DisconnectNamedPipe = disconnect_pipe,
               .CloseHandle = close_pipe,
               .CreateFileA = open_pipe,
               .is_refusal = is_refusal,
               .MessageBoxA = message_box} {
    the_neighbours = this;
    threads_host = &fake_threads;
    parent_pipe_host = &fake_parent;
    command_pipe_host = &pipe_ops;
    waits_host = &fake_waits;
    open_code = 2; // no agent runs
}

neighbours::~neighbours() {
    the_neighbours = nullptr;
}

void neighbours::run_held() {
    for (size_t i = 0; i < all_threads.size(); i++)
        run_thread(all_threads[i]);
}

bool neighbours::is_set(const waitable *event) const {
    return std::find(set_events.begin(), set_events.end(), event) != set_events.end();
}
