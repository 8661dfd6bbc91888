#include "sim/sim_services.h"

#include "fakes/calendar.h"
#include "sim/host_sim.h"
#include "sim/sim_waitable.h"

#include <cstring>

// ---- clock and chance

static int64_t sim_time() {
    return the_sim->wall_time();
}

static bool sim_localtime(int64_t time, tm *out) {
    if (sim_fails("localtime")) return false;
    return utc_calendar(time, out);
}

static void sim_sleep(uint32_t milliseconds) {
    sim_note("Sleep", milliseconds);
    the_sim->scheduler.sleep_until(the_sim->scheduler.now_ms + milliseconds);
}

static bool sim_random_bytes(void *buffer, size_t count) {
    if (sim_fails("random_bytes", static_cast<int64_t>(count))) return false;
    for (size_t i = 0; i < count; i++)
        static_cast<unsigned char *>(buffer)[i] = static_cast<unsigned char>(the_sim->scheduler.chance());
    return true;
}

// ---- errors

static uint32_t sim_last_error() {
    return the_sim->last_error;
}

// The simulated machine has the numbers of a Linux, whichever host it is simulated on.
static const char *sim_words(uint32_t code) {
    static constexpr struct {
        uint32_t code;
        const char *words;
    } rows[] = {
        {2, "No such file or directory"},
        {5, "Input/output error"},
        {9, "Bad file descriptor"},
        {11, "Resource temporarily unavailable"},
        {13, "Permission denied"},
        {17, "File exists"},
        {21, "Is a directory"},
        {22, "Invalid argument"},
        {24, "Too many open files"},
        {28, "No space left on device"},
        {32, "Broken pipe"},
        {104, "Connection reset by peer"},
        {105, "No buffer space available"},
        {111, "Connection refused"},
        {115, "Operation now in progress"},
    };
    for (const auto &row : rows)
        if (row.code == code) return row.words;
    return "unknown error";
}

static bool sim_format_message(uint32_t code, char *buffer, uint32_t size, uint32_t *out_error) {
    *out_error = 0;
    snprintf(buffer, size, "%s", sim_words(code));
    return true;
}

// ---- heap

static void *sim_allocate(size_t size) {
    if (sim_fails("allocate", static_cast<int64_t>(size))) return nullptr;
    void *block = heap_ops_host.allocate(size);
    the_sim->blocks.insert(block);
    return block;
}

static void sim_release(void *block) {
    if (block != nullptr) the_sim->blocks.erase(block);
    heap_ops_host.release(block);
}

// ---- the host's event log, and the end

static void *sim_register_source(const char *) {
    return sim_fails("RegisterEventSourceA") ? nullptr : the_sim;
}

static void sim_report(void *, bool, uint32_t, const char *message) {
    sim_note("ReportEventA", message);
    the_sim->events.push_back(message);
}

static void sim_deregister_source(void *) {}

static void sim_exit(int status) {
    sim_note("exit", status);
    throw agent_ended{status};
}

static uint32_t sim_process_id() {
    return 4711;
}

static bool sim_program_path(char *buffer, size_t size) {
    if (sim_fails("GetModuleFileNameA")) return false;
    snprintf(buffer, size, "%s", the_sim->program.c_str());
    return true;
}

// ---- waits

static waitable *sim_create_event(bool manual_reset, bool signalled) {
    if (sim_fails("CreateEventA")) return nullptr;
    auto *event = new waitable{.manual_reset = manual_reset, .signalled = signalled};
    the_sim->handles[event] = true;
    return event;
}

void set_sim_event(waitable *event) {
    if (event != nullptr) event->signalled = true;
}

static void sim_reset_event(waitable *event) {
    event->signalled = false;
}

static void sim_close_handle(waitable *object) {
    the_sim->handles.erase(object);
    delete object;
}

static int32_t first_signalled(uint32_t count, waitable *const *objects) {
    for (uint32_t i = 0; i < count; i++)
        if (objects[i]->signalled) return static_cast<int32_t>(i);
    return WAIT_OBJECT_TIMEOUT;
}

static int32_t sim_wait(uint32_t count, waitable *const *objects, uint32_t milliseconds) {
    if (sim_fails("WaitForMultipleObjects", milliseconds)) return WAIT_OBJECT_FAILED;
    the_sim->scheduler.wait_until([=] { return first_signalled(count, objects) >= 0; },
                                  the_sim->scheduler.now_ms + milliseconds);
    int32_t index = first_signalled(count, objects);
    if (index >= 0 && !objects[index]->manual_reset) objects[index]->signalled = false;
    return index;
}

// ---- signals

static void sim_install_signals(const signal_events &events) {
    the_sim->signals = events;
}

static void sim_remove_signals() {
    the_sim->signals = {};
}

// ---- regular expressions: the host's engine, which may refuse

static std::map<void *, tn_regex> compiled; // not freed yet

static int sim_regcomp(tn_regex *out, const char *pattern) {
    if (sim_fails("regcomp", pattern)) return TN_REG_UNUSABLE;
    int code = regex_ops_host.regcomp(out, pattern);
    if (code == 0) compiled[out->compiled] = *out;
    return code;
}

static int sim_regexec(const tn_regex *regex, const char *text, size_t count, tn_match *matches) {
    return regex_ops_host.regexec(regex, text, count, matches);
}

static size_t sim_regerror(int code, const tn_regex *regex, char *buffer, size_t size) {
    return regex_ops_host.regerror(code, regex, buffer, size);
}

static void sim_regfree(tn_regex *regex) {
    compiled.erase(regex->compiled);
    regex_ops_host.regfree(regex);
}

// ---- places

static void sim_find_places(places *out) {
    const std::string &home = the_sim->home;
    unix_user user = {.is_root = true, .home = home.empty() ? nullptr : home.c_str()};
    unix_places(&user, out);
}

void sim_services_bury() {
    while (!compiled.empty()) {
        tn_regex left = compiled.begin()->second;
        sim_regfree(&left);
    }
    the_sim->blocks_at_end = the_sim->blocks.size();
    for (void *block : the_sim->blocks)
        heap_ops_host.release(block);
    the_sim->blocks.clear();
    the_sim->events_at_end = the_sim->handles.size();
    for (const auto &[event, known] : the_sim->handles)
        delete event;
    the_sim->handles.clear();
    if (the_sim->channel.pipe != nullptr) sim_command_pipe.CloseHandle(the_sim->channel.pipe);
    sim_remove_signals();
}

const clock_ops sim_clock = {.time = sim_time, .localtime = sim_localtime, .Sleep = sim_sleep};
const random_ops sim_random = {.random_bytes = sim_random_bytes};
const crash_ops sim_crash = {.install = [](const char *folder) { sim_note("install", folder); }};
const error_ops sim_errors = {.GetLastError = sim_last_error, .FormatMessageA = sim_format_message};
const heap_ops sim_heap = {.allocate = sim_allocate, .release = sim_release};
const event_ops sim_events = {.RegisterEventSourceA = sim_register_source,
                              .ReportEventA = sim_report,
                              .DeregisterEventSource = sim_deregister_source};
const process_ops sim_process = {.exit = sim_exit,
                                 .GetCurrentProcessId = sim_process_id,
                                 .GetModuleFileNameA = sim_program_path,
                                 .program_suffix = ""};
const waits_ops sim_waits = {.CreateEventA = sim_create_event,
                             .SetEvent = set_sim_event,
                             .ResetEvent = sim_reset_event,
                             .CloseHandle = sim_close_handle,
                             .WaitForMultipleObjects = sim_wait};
const regex_ops sim_regex = {
    .regcomp = sim_regcomp, .regexec = sim_regexec, .regerror = sim_regerror, .regfree = sim_regfree};
const places_ops sim_places = {.find = sim_find_places};
const signals_ops sim_signals = {.install = sim_install_signals, .remove = sim_remove_signals};
