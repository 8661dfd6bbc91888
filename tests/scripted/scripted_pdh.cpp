// The functions of pdh.dll that the agent imports, as the test wants them.

#include "scripted/scripted_pdh.h"

#include <cstring>
#include <map>
#include <string>

#define EXPORTED extern "C" __declspec(dllexport)

namespace {

constexpr uint32_t OK = 0;
constexpr uint32_t NO_DATA = 0x800007D5;
constexpr uint32_t NO_COUNTER = 0xC0000BB9;
constexpr uint32_t INVALID_HANDLE = 0xC0000BBC;
constexpr uint32_t INVALID_ARGUMENT = 0xC0000BBD;
constexpr uint32_t INVALID_DATA = 0xC0000BC6;
constexpr uint32_t STRING_NOT_FOUND = 0xC0000BD4;
constexpr uint32_t FORMAT_DOUBLE = 0x200;

struct counter {
    struct query *owner;
    bool is_rate;
};

struct query {
    int samples;
    int counters;
};

struct formatted_value {
    uint32_t status;
    double value;
};

struct name_row {
    uint32_t index;
    const char *name;
};

constexpr name_row NAMES[] = {{2, "System"},
                              {146, "Kontextwechsel/s"},
                              {238, "Prozessor"},
                              {6, "Prozessorzeit (%)"},
                              {674, "Systembetriebszeit"}};

struct script {
    std::map<std::string, uint32_t> failures;
    double value = 50;
    int queries = 0;
    int counters = 0;
};

script now;

bool fails(const char *function, uint32_t *out_status) {
    auto found = now.failures.find(function);
    if (found == now.failures.end()) return false;
    *out_status = found->second;
    now.failures.erase(found);
    return true;
}

void fail_next(const char *function, uint32_t status) {
    now.failures[function] = status;
}

void show(double value) {
    now.value = value;
}

int32_t open_queries() {
    return now.queries;
}

int32_t open_counters() {
    return now.counters;
}

void reset() {
    now = {};
}

} // namespace

EXPORTED const scripted_pdh the_script = {.fail_next = fail_next,
                                          .show = show,
                                          .open_queries = open_queries,
                                          .open_counters = open_counters,
                                          .reset = reset};

EXPORTED uint32_t PdhOpenQueryA(const char *source, uintptr_t, void **out) {
    uint32_t status = OK;
    if (source != nullptr) return INVALID_ARGUMENT;
    if (fails("PdhOpenQueryA", &status)) return status;
    *out = new query{};
    now.queries++;
    return OK;
}

EXPORTED uint32_t PdhAddCounterA(void *to, const char *path, uintptr_t, void **out) {
    uint32_t status = OK;
    if (fails("PdhAddCounterA", &status)) return status;
    bool is_rate = strcmp(path, "\\System\\Kontextwechsel/s") == 0;
    bool is_known = is_rate || strcmp(path, "\\System\\Systembetriebszeit") == 0 ||
                    strcmp(path, "\\Prozessor(_Total)\\Prozessorzeit (%)") == 0;
    if (!is_known) return NO_COUNTER;
    auto *owner = static_cast<query *>(to);
    owner->counters++;
    *out = new counter{.owner = owner, .is_rate = is_rate};
    now.counters++;
    return OK;
}

EXPORTED uint32_t PdhRemoveCounter(void *removed) {
    auto *one = static_cast<counter *>(removed);
    one->owner->counters--;
    delete one;
    now.counters--;
    return OK;
}

EXPORTED uint32_t PdhCloseQuery(void *closed) {
    delete static_cast<query *>(closed);
    now.queries--;
    return OK;
}

EXPORTED uint32_t PdhCollectQueryData(void *collected) {
    uint32_t status = OK;
    if (fails("PdhCollectQueryData", &status)) return status;
    auto *one = static_cast<query *>(collected);
    if (one == nullptr) return INVALID_HANDLE;
    if (one->counters == 0) return NO_DATA;
    one->samples++;
    return OK;
}

EXPORTED uint32_t PdhGetFormattedCounterValue(void *asked, uint32_t format, uint32_t *type,
                                              formatted_value *out) {
    uint32_t status = OK;
    if (fails("PdhGetFormattedCounterValue", &status)) return status;
    if (format != FORMAT_DOUBLE || type != nullptr) return INVALID_ARGUMENT;
    auto *one = static_cast<counter *>(asked);
    if (one->owner->samples < (one->is_rate ? 2 : 1)) return INVALID_DATA;
    *out = {.status = OK, .value = now.value};
    return OK;
}

EXPORTED uint32_t PdhLookupPerfNameByIndexA(const char *machine, uint32_t index, char *name, uint32_t *size) {
    uint32_t status = OK;
    if (machine != nullptr) return INVALID_ARGUMENT;
    if (fails("PdhLookupPerfNameByIndexA", &status)) return status;
    for (const name_row &row : NAMES) {
        if (row.index != index) continue;
        if (strlen(row.name) >= *size) return INVALID_ARGUMENT;
        strcpy(name, row.name);
        *size = static_cast<uint32_t>(strlen(row.name)) + 1;
        return OK;
    }
    return INVALID_ARGUMENT;
}

EXPORTED uint32_t PdhLookupPerfIndexByNameA(const char *machine, const char *name, uint32_t *out_index) {
    uint32_t status = OK;
    if (machine != nullptr) return INVALID_ARGUMENT;
    if (fails("PdhLookupPerfIndexByNameA", &status)) return status;
    for (const name_row &row : NAMES) {
        if (strcmp(row.name, name) != 0) continue;
        *out_index = row.index;
        return OK;
    }
    return STRING_NOT_FOUND;
}
