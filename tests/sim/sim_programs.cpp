#include "sim/sim_programs.h"

#include "sim/host_sim.h"
#include "sim/sim_services.h"
#include "sim/sim_waitable.h"

#include <algorithm>
#include <memory>

struct output_pipe {
    sim_run *run = nullptr;
    bool write_end_open = true; // the agent's own
    size_t taken = 0;
    bool cancelled = false;
    output_pipe *other = nullptr; // absent at the read end
};

struct started_program {
    sim_run *run;
};

static std::list<std::unique_ptr<output_pipe>> pipes;
static std::list<std::unique_ptr<started_program>> programs;

static int64_t now_ms() {
    return the_sim->scheduler.now_ms;
}

static bool fail_with(uint32_t code) {
    the_sim->last_error = code;
    return false;
}

// Whoever else can go on may do so here.
static void yield() {
    if (the_sim->scheduler.in_agent()) the_sim->scheduler.yield();
}

// ---- one program

static int64_t end_of(const sim_run *run) {
    int64_t end = run->program.ends_at_ms == NEVER ? NEVER : run->started_ms + run->program.ends_at_ms;
    return std::min(end, run->killed_ms);
}

static int64_t close_of(const sim_run *run) {
    if (run->program.closes_at_ms == WITH_ITS_END) return end_of(run);
    int64_t close = run->program.closes_at_ms == NEVER ? NEVER : run->started_ms + run->program.closes_at_ms;
    return std::min(close, run->killed_ms);
}

static std::string written(const sim_run *run) {
    std::string text;
    for (const sim_output &piece : run->program.output)
        if (int64_t at = run->started_ms + piece.at_ms; at <= now_ms() && at <= close_of(run))
            text += piece.text;
    return text;
}

static void announce(const sim_run *run) {
    for (const sim_output &piece : run->program.output)
        the_sim->scheduler.wake_at(run->started_ms + piece.at_ms);
    for (int64_t moment : {end_of(run), close_of(run)})
        if (moment != NEVER) the_sim->scheduler.wake_at(moment);
}

size_t sim_programs::count(const std::string &command) const {
    return static_cast<size_t>(
        std::count_if(runs.begin(), runs.end(), [&](const sim_run &run) { return run.command == command; }));
}

size_t sim_programs::count_left() const {
    return static_cast<size_t>(std::count_if(runs.begin(), runs.end(), [&](const sim_run &run) {
        return run.watched && end_of(&run) > now_ms();
    }));
}

void sim_programs::bury() {
    open_at_end = open;
    open = 0;
    pipes.clear();
    programs.clear();
}

// ---- events and the thread

static uint64_t system_time() {
    return static_cast<uint64_t>(now_ms()) * 10'000;
}

static waitable *create_event() {
    return sim_waits.CreateEventA(false, false);
}

static bool set_event(waitable *event) {
    if (sim_fails("SetEvent")) return fail_with(9);
    set_sim_event(event);
    yield();
    return true;
}

static bool reset_event(waitable *event) {
    if (sim_fails("ResetEvent")) return fail_with(9);
    event->signalled = false;
    return true;
}

static waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    waitable *thread = sim_threads.CreateThread(body, argument);
    if (thread == nullptr) return nullptr;
    the_sim->start_thread([thread] {
        thread->body(thread->argument);
        thread->signalled = true;
    });
    yield();
    return thread;
}

static uint32_t wait_for(waitable *object, uint32_t milliseconds) {
    if (sim_fails("WaitForSingleObject", milliseconds)) {
        fail_with(22);
        return OBJECT_FAILED;
    }
    int64_t deadline = milliseconds == WAIT_WITHOUT_LIMIT ? NEVER : now_ms() + milliseconds;
    yield();
    if (!the_sim->scheduler.wait_until([object] { return object->signalled; }, deadline))
        return OBJECT_TIMEOUT;
    if (!object->manual_reset) object->signalled = false;
    return OBJECT_SIGNALLED;
}

// A thread's handle is closed behind its end.
static void close_handle(waitable *object) {
    if (object->body != nullptr) the_sim->scheduler.wait_until([object] { return object->signalled; }, NEVER);
    sim_waits.CloseHandle(object);
}

// ---- the pipe

static bool create_pipe(output_pipe **out_read, output_pipe **out_write) {
    if (sim_fails("CreatePipe")) return fail_with(24);
    *out_read = pipes.emplace_back(std::make_unique<output_pipe>()).get();
    *out_write = pipes.emplace_back(std::make_unique<output_pipe>()).get();
    (*out_write)->other = *out_read;
    the_sim->programs.open += 2;
    return true;
}

static bool has_ended(const output_pipe *end) {
    return !end->write_end_open && (end->run == nullptr || close_of(end->run) <= now_ms());
}

static bool read_file(output_pipe *end, void *buffer, uint32_t size, uint32_t *out_length,
                      uint32_t *out_error) {
    *out_error = 5;
    if (sim_fails("ReadFile of a program")) return false;
    yield();
    auto left = [end] { return written(end->run).size() - end->taken; };
    the_sim->scheduler.wait_until([=] { return end->cancelled || left() > 0 || has_ended(end); }, NEVER);
    *out_error = end->cancelled ? 125 : ERROR_OUTPUT_ENDED;
    if (end->cancelled || left() == 0) return false;
    *out_length =
        static_cast<uint32_t>(written(end->run).copy(static_cast<char *>(buffer), size, end->taken));
    *out_error = 0;
    end->taken += *out_length;
    return true;
}

static void cancel_reads(output_pipe *end) {
    end->cancelled = true;
    yield();
}

static void close_pipe(output_pipe *end) {
    if (end == nullptr) return;
    if (end->other != nullptr) end->other->write_end_open = false;
    the_sim->programs.open--;
    pipes.remove_if([end](const auto &pipe) { return pipe.get() == end; });
    yield();
}

// ---- the program

static bool create_process(const char *command, const char *const *, output_pipe *output,
                           started_program **out) {
    if (sim_fails("CreateProcessA", command)) return fail_with(11);
    auto known = the_sim->programs.known.find(command);
    if (known == the_sim->programs.known.end()) return fail_with(2);
    sim_run *run = &the_sim->programs.runs.emplace_back(sim_run{
        .command = command, .program = known->second, .started_ms = now_ms(), .watched = output != nullptr});
    announce(run);
    if (output == nullptr) return true;
    output->other->run = run;
    *out = programs.emplace_back(std::make_unique<started_program>(started_program{run})).get();
    the_sim->programs.open++;
    yield();
    return true;
}

static uint32_t wait_for_process(started_program *program, uint32_t milliseconds) {
    if (sim_fails("WaitForSingleObject of a program", milliseconds)) {
        fail_with(22);
        return OBJECT_FAILED;
    }
    auto ended = [program] { return end_of(program->run) <= now_ms(); };
    return the_sim->scheduler.wait_until(ended, now_ms() + milliseconds) ? OBJECT_SIGNALLED : OBJECT_TIMEOUT;
}

static void terminate_process(started_program *program, uint32_t) {
    program->run->killed_ms = now_ms();
    yield();
}

static bool exit_code_of(started_program *program, uint32_t *out) {
    if (sim_fails("GetExitCodeProcess")) return fail_with(10);
    *out = program->run->program.exit_code;
    return true;
}

static void close_process(started_program *program) {
    the_sim->programs.open--;
    programs.remove_if([program](const auto &one) { return one.get() == program; });
}

const custom_ops sim_custom = {
    .GetSystemTime = system_time,
    .CreateEventA = create_event,
    .SetEvent = set_event,
    .ResetEvent = reset_event,
    .CreateThread = create_thread,
    .WaitForSingleObject = wait_for,
    .CloseHandle = close_handle,
    .CreatePipe = create_pipe,
    .ReadFile = read_file,
    .CancelIoEx = cancel_reads,
    .ClosePipe = close_pipe,
    .takes_words = true,
    .CreateProcessA = create_process,
    .WaitForProcess = wait_for_process,
    .TerminateProcess = terminate_process,
    .GetExitCodeProcess = exit_code_of,
    .CloseProcess = close_process,
};
