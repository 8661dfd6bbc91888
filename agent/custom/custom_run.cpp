#include "custom/custom_run.h"

#include "custom/custom_ops.h"
#include "custom/custom_output.h"
#include "custom/program.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"

#include <atomic>

namespace {

constexpr uint32_t KILLED = 1;                // the exit code of a program that is killed
constexpr uint32_t CLOSING_PATIENCE = 10'000; // milliseconds
constexpr uint64_t UNITS_A_MILLISECOND = 10'000;

// What the two threads share. The reader writes the outcome of a read ahead of read_complete_evt, and the
// main thread looks at it behind that.
struct output_reader {
    waitable *read_complete_evt;
    waitable *data_processed_evt;
    waitable *reader_thread; // absent between runs
    output_pipe *pipe_read_end;
    std::atomic<bool> reader_running;
    char output_buffer[OUTPUT_SIZE + 1];
    char *output_end;
    bool read_ok;
    int32_t read_count;
    uint32_t read_error;
    uint32_t read_length;
    output_reader *next; // among the abandoned
};

// The one of the agent's life, made at the first run.
output_reader *reader;

// Those whose thread did not end in time. It may come alive later, so nobody else uses what it uses.
output_reader *abandoned;

// A run, while it is under way.
struct custom_run {
    custom_check *check;
    started_program *program;
    uint64_t deadline; // milliseconds
    custom_reading reading;
};

} // namespace

// ---- the reader

static uint32_t read_thread(void *argument) {
    auto *own = static_cast<output_reader *>(argument);
    for (own->read_count = 0; own->reader_running; own->read_count++) {
        auto used = static_cast<uint32_t>(own->output_end - own->output_buffer);
        own->read_length = own->read_error = 0;
        own->read_ok = custom_host->ReadFile(own->pipe_read_end, own->output_end, OUTPUT_SIZE - used,
                                             &own->read_length, &own->read_error);
        if (!custom_host->SetEvent(own->read_complete_evt)) {
            own->read_error = last_error();
            break;
        }
        if (custom_host->WaitForSingleObject(own->data_processed_evt, WAIT_WITHOUT_LIMIT) != OBJECT_SIGNALLED)
            break;
    }
    return 0;
}

static void free_reader(output_reader *own) {
    if (own->read_complete_evt != nullptr) custom_host->CloseHandle(own->read_complete_evt);
    if (own->data_processed_evt != nullptr) custom_host->CloseHandle(own->data_processed_evt);
    custom_host->ClosePipe(own->pipe_read_end);
    heap_free(own);
}

using reader_guard = guard<output_reader, free_reader>;

static const char *make_reader() {
    if (reader != nullptr) return nullptr;
    reader_guard made(heap_new<output_reader>());
    if (made == nullptr) return format_error("Could not create read_complete_evt: %s", "Out of memory");
    made->read_complete_evt = custom_host->CreateEventA();
    if (made->read_complete_evt == nullptr)
        return format_error("Could not create read_complete_evt: %s", last_error_text());
    made->data_processed_evt = custom_host->CreateEventA();
    if (made->data_processed_evt == nullptr)
        return format_error("Could not create data_processed_evt: %s", last_error_text());
    reader = made.release();
    return nullptr;
}

static void close_pipe() {
    custom_host->ClosePipe(reader->pipe_read_end);
    reader->pipe_read_end = nullptr;
}

static void signal_data_processed() {
    if (!custom_host->SetEvent(reader->data_processed_evt))
        fatal("Could not signal data_processed_event for custom_check");
}

static void log_end_of_thread(uint32_t answer) {
    if (answer == OBJECT_SIGNALLED)
        agent_log(LOG_TRACE, "Thread terminated");
    else if (answer == OBJECT_TIMEOUT)
        agent_log(LOG_ERROR, "Reader thread did not terminate in 10 seconds");
    else if (answer == OBJECT_FAILED)
        agent_log(LOG_ERROR, "Waiting for the thread failed: %s", last_error_text());
    else
        agent_log(LOG_ERROR, "Unknown return value %u from WaitForSingleObject in close_thread", answer);
}

// Leaves all that the thread may still use to it; the next run makes anew what it needs.
static void abandon_reader() {
    reader->next = abandoned;
    abandoned = reader;
    reader = nullptr;
}

// The end of the pipe fails all reads from now on, and is closed when nobody can be reading from it.
static void close_thread() {
    agent_log(LOG_TRACE, "close_thread() invoked");
    reader->reader_running = false;
    custom_host->CancelIoEx(reader->pipe_read_end);
    agent_log(LOG_TRACE, "Closed pipe, now setting event");
    signal_data_processed();
    agent_log(LOG_TRACE, "Waiting for thread to terminate");
    uint32_t answer = custom_host->WaitForSingleObject(reader->reader_thread, CLOSING_PATIENCE);
    log_end_of_thread(answer);
    custom_host->CloseHandle(reader->reader_thread);
    reader->reader_thread = nullptr;
    if (answer == OBJECT_SIGNALLED)
        close_pipe();
    else
        abandon_reader();
}

// ---- the start

// On success the write end is the caller's, and the read end the reader's.
static const char *make_pipe(output_pipe **write_end) {
    output_pipe *read_end = nullptr;
    if (!custom_host->CreatePipe(&read_end, write_end)) return "Error creating pipes";
    reader->pipe_read_end = read_end;
    if (custom_host->DuplicateHandle == nullptr || custom_host->DuplicateHandle(&reader->pipe_read_end))
        return nullptr;
    custom_host->ClosePipe(*write_end);
    close_pipe();
    return "Error duplicating handle";
}

static void kill_program(custom_run *run) {
    custom_host->TerminateProcess(run->program, KILLED);
    custom_host->CloseProcess(run->program);
}

static const char *start_reader(custom_run *run) {
    reader->output_end = reader->output_buffer;
    reader->reader_running = true;
    if (!custom_host->ResetEvent(reader->read_complete_evt))
        agent_log(LOG_ERROR, "Could not reset read_complete_evt: %s", last_error_text());
    if (!custom_host->ResetEvent(reader->data_processed_evt))
        agent_log(LOG_ERROR, "Could not reset data_processed_evt: %s", last_error_text());
    reader->reader_thread = custom_host->CreateThread(read_thread, reader);
    if (reader->reader_thread != nullptr) return nullptr;
    const char *failure = format_error("Could not create read_thread when executing custom check %s: %s",
                                       run->check->name, last_error_text());
    kill_program(run);
    close_pipe();
    return failure;
}

// The agent's own write end goes at once, so that the pipe breaks when the program and its children have
// closed theirs.
static const char *start_run(custom_run *run) {
    output_pipe *write_end = nullptr;
    if (auto *failure = make_pipe(&write_end)) return failure;
    const char *failure = start_program(run->check->command, write_end, &run->program);
    if (failure != nullptr) failure = format_error("Failed executing '%s': %s", run->check->command, failure);
    custom_host->ClosePipe(write_end);
    if (failure == nullptr) return start_reader(run);
    close_pipe();
    return failure;
}

// ---- the run

static uint64_t milliseconds_now() {
    return custom_host->GetSystemTime() / UNITS_A_MILLISECOND;
}

// Ends the run, and hands its failure through.
static const char *give_up(custom_run *run, const char *failure) {
    kill_program(run);
    close_thread();
    return failure;
}

static const char *time_out(custom_run *run) {
    return give_up(run, format_error("Timeout (%d s)", run->check->timeout));
}

// Whether there was a read that went well. Otherwise the output has ended, or `*failure` the run.
static bool wait_for_read(custom_run *run, const char **failure) {
    auto left = static_cast<int32_t>(run->deadline - milliseconds_now()); // wraps in 32 bits
    uint32_t answer = OBJECT_TIMEOUT;
    if (left < 0) {
        agent_log(LOG_TRACE, "Timeout without sleep");
    } else {
        agent_log(LOG_TRACE, "Sleeping for %d milliseconds", left);
        answer = custom_host->WaitForSingleObject(reader->read_complete_evt, static_cast<uint32_t>(left));
        agent_log(LOG_TRACE, "Finished sleeping: %d", static_cast<int32_t>(answer));
    }
    if (answer == OBJECT_TIMEOUT) {
        agent_log(LOG_TRACE, "Sleep timed out");
        *failure = time_out(run);
        return false;
    }
    if (answer != OBJECT_SIGNALLED) {
        *failure = give_up(run, format_error("Waiting for output failed: %s", last_error_text()));
        return false;
    }
    agent_log(LOG_TRACE, "Data on pipe: status=%d, %d bytes, err=%d", reader->read_ok,
              static_cast<int32_t>(reader->read_length), static_cast<int32_t>(reader->read_error));
    if (!reader->read_ok && reader->read_error != ERROR_OUTPUT_ENDED)
        agent_log(LOG_ERROR, "ReadFile[%d] returned error %d", reader->read_count,
                  static_cast<int32_t>(reader->read_error));
    return reader->read_ok;
}

static const char *read_output(custom_run *run) {
    const char *failure = nullptr;
    while (wait_for_read(run, &failure)) {
        reader->output_end += reader->read_length;
        *reader->output_end = '\0';
        failure = process_output(run->check, reader->output_buffer, &reader->output_end, &run->reading);
        signal_data_processed();
        if (failure != nullptr) return give_up(run, failure);
    }
    return failure;
}

// A last line without a line feed. It is shorter than the buffer, so that one fits behind it. A run that was
// given up has a failure, and does not come here.
static const char *process_last_line(custom_run *run) {
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
    if (reader->output_end == reader->output_buffer) return nullptr;
    *reader->output_end++ = '\n';
    return process_output(run->check, reader->output_buffer, &reader->output_end, &run->reading);
}

static const char *wait_for_end(custom_run *run, uint32_t *exit_code) {
    uint32_t limit = static_cast<uint32_t>(run->check->timeout) * 1000; // wraps in 32 bits
    uint32_t answer = custom_host->WaitForProcess(run->program, limit);
    if (answer == OBJECT_TIMEOUT) return time_out(run);
    if (answer != OBJECT_SIGNALLED)
        return give_up(run, format_error("Waiting for termination failed: %s", last_error_text()));
    if (!custom_host->GetExitCodeProcess(run->program, exit_code))
        return give_up(run, format_error("Custom check %s: Abnormal termination", run->check->name));
    agent_log(LOG_DETAIL, "Exit code: %i", static_cast<int32_t>(*exit_code));
    custom_host->CloseProcess(run->program);
    close_thread();
    return nullptr;
}

const char *run_custom_check(custom_check *check, resnode *result) {
    custom_run run = {.check = check};
    uint32_t exit_code = 0;
    set_program_error_mode();
    if (auto *failure = make_reader()) return failure;
    if (auto *failure = start_run(&run)) return failure;
    int64_t limit = int64_t{check->timeout} * 1000;
    run.deadline = milliseconds_now() + static_cast<uint64_t>(limit);
    if (auto *failure = read_output(&run)) return failure;
    const char *failure_of_last_line = process_last_line(&run);
    if (auto *failure = wait_for_end(&run, &exit_code)) return failure;
    if (failure_of_last_line != nullptr) return failure_of_last_line;
    return custom_result(result, check, &run.reading, exit_code);
}

void custom_run_reset() {
    if (reader != nullptr) free_reader(reader);
    reader = nullptr;
    while (abandoned != nullptr) {
        output_reader *next = abandoned->next;
        free_reader(abandoned);
        abandoned = next;
    }
}
