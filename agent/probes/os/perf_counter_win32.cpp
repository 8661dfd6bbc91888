#include "probes/os/perf_counter_ops.h"

#include <windows.h>

#include <pdh.h>

static uint32_t open_query(pdh_query **out) {
    PDH_HQUERY query = nullptr;
    auto status = static_cast<uint32_t>(PdhOpenQueryA(nullptr, 0, &query));
    *out = static_cast<pdh_query *>(query);
    return status;
}

static uint32_t add_counter(pdh_query *query, const char *path, pdh_counter **out) {
    PDH_HCOUNTER counter = nullptr;
    auto status = static_cast<uint32_t>(PdhAddCounterA(query, path, 0, &counter));
    *out = static_cast<pdh_counter *>(counter);
    return status;
}

static uint32_t remove_counter(pdh_counter *counter) {
    return static_cast<uint32_t>(PdhRemoveCounter(counter));
}

static uint32_t close_query(pdh_query *query) {
    return static_cast<uint32_t>(PdhCloseQuery(query));
}

static uint32_t collect(pdh_query *query) {
    return static_cast<uint32_t>(PdhCollectQueryData(query));
}

static uint32_t format_value(pdh_counter *counter, uint32_t format, double *out) {
    PDH_FMT_COUNTERVALUE value = {};
    auto status = static_cast<uint32_t>(PdhGetFormattedCounterValue(counter, format, nullptr, &value));
    if (status == 0) *out = value.doubleValue;
    return status;
}

static uint32_t name_by_index(uint32_t index, char *name, uint32_t *size) {
    DWORD length = *size;
    auto status = static_cast<uint32_t>(PdhLookupPerfNameByIndexA(nullptr, index, name, &length));
    *size = length;
    return status;
}

static uint32_t index_by_name(const char *name, uint32_t *out_index) {
    DWORD index = 0;
    auto status = static_cast<uint32_t>(PdhLookupPerfIndexByNameA(nullptr, name, &index));
    *out_index = index;
    return status;
}

static uint32_t query_value(const char *name, char *buffer, uint32_t *size) {
    DWORD length = *size;
    LSTATUS status = RegQueryValueExA(HKEY_PERFORMANCE_DATA, name, nullptr, nullptr,
                                      reinterpret_cast<BYTE *>(buffer), &length);
    *size = length;
    return static_cast<uint32_t>(status);
}

// The three functions that list what there is are looked up at run time, since a library that stands in for
// the host's may lack them. It may also export a name without a function behind it, whose call raises an
// exception; that, too, means that the function is missing.

static constexpr DWORD NO_FUNCTION_BEHIND = 0x80000100;

static thread_local void *landing_place[5]; // of the call under way
static thread_local bool is_calling;

[[noreturn]] static void land() {
    __builtin_longjmp(landing_place, 1);
}

// Goes on in land(), on an aligned stack below the one of the call, instead of where it was raised.
static LONG CALLBACK leave_call(EXCEPTION_POINTERS *raised) {
    if (raised->ExceptionRecord->ExceptionCode != NO_FUNCTION_BEHIND || !is_calling)
        return EXCEPTION_CONTINUE_SEARCH;
    raised->ContextRecord->Rip = reinterpret_cast<DWORD64>(land);
    raised->ContextRecord->Rsp = (raised->ContextRecord->Rsp & ~DWORD64{15}) - 8;
    return EXCEPTION_CONTINUE_EXECUTION;
}

// A call as plain data, so that nothing is left undone where it does not come back.
struct late_call {
    FARPROC function;
    uint32_t (*run)(const late_call *call);
    void *arguments;
};

__attribute__((noinline)) static uint32_t run_guarded(const late_call *call) {
    if (__builtin_setjmp(landing_place) != 0) return PDH_FUNCTION_NOT_FOUND;
    return call->run(call);
}

static uint32_t run_late(const char *name, uint32_t (*run)(const late_call *call), void *arguments) {
    late_call call = {
        .function = GetProcAddress(GetModuleHandleA("pdh.dll"), name), .run = run, .arguments = arguments};
    if (call.function == nullptr) return PDH_FUNCTION_NOT_FOUND;
    void *handler = AddVectoredExceptionHandler(1, leave_call);
    is_calling = true;
    uint32_t status = run_guarded(&call);
    is_calling = false;
    RemoveVectoredExceptionHandler(handler);
    return status;
}

template <class Function>
static Function *function_of(const late_call *call) {
    return reinterpret_cast<Function *>(reinterpret_cast<void *>(call->function));
}

struct objects_arguments {
    char *objects;
    DWORD size;
    uint32_t detail;
    bool refresh;
};

static uint32_t run_enum_objects(const late_call *call) {
    auto *with = static_cast<objects_arguments *>(call->arguments);
    return static_cast<uint32_t>(function_of<decltype(PdhEnumObjectsA)>(call)(
        nullptr, nullptr, with->objects, &with->size, with->detail, with->refresh));
}

static uint32_t enum_objects(char *objects, uint32_t *size, uint32_t detail, bool refresh) {
    objects_arguments with = {.objects = objects, .size = *size, .detail = detail, .refresh = refresh};
    uint32_t status = run_late("PdhEnumObjectsA", run_enum_objects, &with);
    *size = with.size;
    return status;
}

struct items_arguments {
    const char *object;
    char *counters;
    DWORD counter_size;
    char *instances;
    DWORD instance_size;
    uint32_t detail;
};

static uint32_t run_enum_items(const late_call *call) {
    auto *with = static_cast<items_arguments *>(call->arguments);
    return static_cast<uint32_t>(function_of<decltype(PdhEnumObjectItemsA)>(call)(
        nullptr, nullptr, with->object, with->counters, &with->counter_size, with->instances,
        &with->instance_size, with->detail, 0));
}

static uint32_t enum_items(const char *object, char *counters, uint32_t *counter_size, char *instances,
                           uint32_t *instance_size, uint32_t detail) {
    items_arguments with = {.object = object,
                            .counters = counters,
                            .counter_size = *counter_size,
                            .instances = instances,
                            .instance_size = *instance_size,
                            .detail = detail};
    uint32_t status = run_late("PdhEnumObjectItemsA", run_enum_items, &with);
    *counter_size = with.counter_size;
    *instance_size = with.instance_size;
    return status;
}

struct description_arguments {
    pdh_counter *counter;
    DWORD size;
    void *description;
};

static uint32_t run_counter_info(const late_call *call) {
    auto *with = static_cast<description_arguments *>(call->arguments);
    return static_cast<uint32_t>(function_of<decltype(PdhGetCounterInfoA)>(call)(
        with->counter, FALSE, &with->size, static_cast<PDH_COUNTER_INFO_A *>(with->description)));
}

static uint32_t counter_info(pdh_counter *counter, uint32_t *size, void *description) {
    description_arguments with = {.counter = counter, .size = *size, .description = description};
    uint32_t status = run_late("PdhGetCounterInfoA", run_counter_info, &with);
    *size = with.size;
    return status;
}

const perf_counter_ops perf_counter_ops_host = {
    .PdhOpenQueryA = open_query,
    .PdhAddCounterA = add_counter,
    .PdhRemoveCounter = remove_counter,
    .PdhCloseQuery = close_query,
    .PdhCollectQueryData = collect,
    .PdhGetFormattedCounterValue = format_value,
    .PdhLookupPerfNameByIndexA = name_by_index,
    .PdhLookupPerfIndexByNameA = index_by_name,
    .RegQueryValueExA = query_value,
    .PdhEnumObjectsA = enum_objects,
    .PdhEnumObjectItemsA = enum_items,
    .PdhGetCounterInfoA = counter_info,
};
