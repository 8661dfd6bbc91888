// Records of an event log, as one read delivers them: whatever their lengths and offsets say, a check of the
// log ends, and nothing outside the bytes is looked at.
#include "fakes/scripted_event_log.h"
#include "fakes/scripted_registry.h"
#include "fuzz/fuzz_host.h"
#include "logcheck/event_line.h"
#include "logcheck/event_log.h"
#include "logcheck/log_state.h"
#include "platform/errors.h"
#include "platform/text.h"

#include <cstring>

namespace {

uint32_t last_code;

const error_ops scripted_errors = {
    .GetLastError = [] { return last_code; },
    .FormatMessageA = [](uint32_t, char *, uint32_t, uint32_t *) { return false; }};

devnode *new_device(devtree *top) {
    top->id = text_copy("log");
    devnode *device = alloc_devnode();
    device->id = text_copy("System");
    devtree_add_devices(top, device);
    return device;
}

// A text of each kind: many inserts, a reference to a parameter.
void add_texts(scripted_event_log *log, scripted_registry *registry) {
    registry->set(MACHINE_HIVE, "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\S",
                  "EventMessageFile", "m");
    std::u16string all;
    for (char16_t tens = u'0'; tens <= u'9'; tens++)
        for (char16_t units = tens == u'0' ? u'1' : u'0'; units <= u'9'; units++)
            all += std::u16string{u'%', tens, units};
    log->modules["m"] = {{1, u"%1 is %2"}, {2, all}, {3, u"%%%%1%1"}};
    log->accounts[sid_bytes(1, 18)] = "SYSTEM";
}

void check_counts(const event_record &record) {
    fuzz_require(record.length >= EVENT_RECORD_SIZE, "a record has its fixed part");
    event_arguments_guard arguments(alloc_event_arguments(&record));
    for (uint32_t i = 0; i < record.insert_count + SPARE_INSERTS; i++)
        for (const char16_t *c = arguments.get()[i]; *c != u'\0'; c++)
            fuzz_require(i < record.insert_count, "spare inserts are empty");
}

// Each record by itself, in bytes that are exactly as long as what is left.
int64_t walk(const std::string &bytes) {
    int64_t records = 0;
    event_record record;
    for (size_t at = 0; at < bytes.size(); at += record.length) {
        std::vector<uint8_t> exact(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end());
        if (!decode_event_record(exact.data(), static_cast<uint32_t>(exact.size()), &record))
            return records + 1; // the reader passes it over
        check_counts(record);
        records++;
    }
    return records;
}

void run(const uint8_t *data, size_t size) {
    scripted_event_log log;
    scripted_registry registry;
    error_host = &scripted_errors;
    log.set_last_error = [](uint32_t code) { last_code = code; };
    add_texts(&log, &registry);
    std::string bytes(reinterpret_cast<const char *>(data), size);
    log.records = {"unread"};
    log.answers[1] = {.error = 122, .needed = static_cast<uint32_t>(size)}; // so that all fits
    log.answers[2] = {.bytes = bytes};
    log.answers[3] = {.error = 38};
    devtree_guard top(heap_new<devtree>());
    devnode *device = new_device(top.get());
    bool is_new;
    log_state_of(device, &is_new)->offset = 1;
    fuzz_require(read_event_log(device, false) == nullptr, "a check ends");
    int64_t read = static_cast<const log_state *>(device->state)->offset - 1;
    fuzz_require(read == walk(bytes), "each record moves the position");
    fuzz_require(log.open_logs == 0 && log.open_modules == 0 && log.open_texts == 0 &&
                     registry.open_keys == 0,
                 "what was opened is closed");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
