// The functions of pdh.dll that the agent calls, as the test wants them.

#include "scripted/scripted_pdh.h"

#include <cstring>
#include <map>
#include <string>

#define EXPORTED extern "C" __declspec(dllexport)

namespace {

constexpr uint32_t OK = 0;
constexpr uint32_t MORE_DATA = 0x800007D2;
constexpr uint32_t NO_DATA = 0x800007D5;
constexpr uint32_t NO_OBJECT = 0xC0000BB8;
constexpr uint32_t NO_COUNTER = 0xC0000BB9;
constexpr uint32_t INVALID_HANDLE = 0xC0000BBC;
constexpr uint32_t INVALID_ARGUMENT = 0xC0000BBD;
constexpr uint32_t INVALID_DATA = 0xC0000BC6;
constexpr uint32_t STRING_NOT_FOUND = 0xC0000BD4;
constexpr uint32_t FORMAT_DOUBLE = 0x200;

struct counter {
    struct query *owner;
    bool is_rate;
    uint32_t type;
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
                              {674, "Systembetriebszeit"},
                              {510, "Netzwerkschnittstelle"},
                              {520, "Aktuelle Bandbreite"},
                              {388, "Bytes gesamt/s"},
                              {400, "Pakete/s"},
                              {234, "Physikalischer Datentr\xE4ger"},
                              {198, "Leerlaufzeit (%)"}};

// What can be enumerated.
struct counter_row {
    const char *name;
    uint32_t type;
};

struct object_row {
    const char *name;
    uint32_t detail;
    counter_row counters[4];
    const char *instances[4];
};

constexpr object_row OBJECTS[] = {
    {"System",
     100,
     {{"Kontextwechsel/s", 0x10410500}, {"Systembetriebszeit", 0x30240500}, {"Nur deutsch", 0x00010100}},
     {}},
    {"Prozessor", 200, {{"Prozessorzeit (%)", 0x21510500}}, {"0", "1", "_Total"}},
    {"Netzwerkschnittstelle",
     100,
     {{"Bytes gesamt/s", 0x10410500}, {"Pakete/s", 0x10410500}, {"Aktuelle Bandbreite", 0x00010100}},
     {"Intel[R] PRO_1000", "Intel[R] PRO_1000"}},
    {"Physikalischer Datentr\xE4ger", 100, {{"Leerlaufzeit (%)", 0x20570500}}, {"0 C: D:", "1", "_Total"}},
    {"Leer", 100, {}, {}},
};

struct script {
    std::map<std::string, uint32_t> failures;
    double value = 50;
    int queries = 0;
    int counters = 0;
    int refreshes = 0;
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

int32_t refreshes() {
    return now.refreshes;
}

void reset() {
    now = {};
}

} // namespace

EXPORTED const scripted_pdh the_script = {.fail_next = fail_next,
                                          .show = show,
                                          .open_queries = open_queries,
                                          .open_counters = open_counters,
                                          .refreshes = refreshes,
                                          .reset = reset};

EXPORTED uint32_t PdhOpenQueryA(const char *source, uintptr_t, void **out) {
    uint32_t status = OK;
    if (source != nullptr) return INVALID_ARGUMENT;
    if (fails("PdhOpenQueryA", &status)) return status;
    *out = new query{};
    now.queries++;
    return OK;
}

// The n-th instance of a name is "name#n".
static std::string numbered_instance(const object_row &object, size_t place) {
    int before = 0;
    for (size_t i = 0; i < place; i++)
        before += strcmp(object.instances[i], object.instances[place]) == 0;
    return before == 0 ? object.instances[place] : object.instances[place] + ("#" + std::to_string(before));
}

static const counter_row *find_counter(const std::string &path) {
    for (const object_row &object : OBJECTS) {
        for (const counter_row &row : object.counters) {
            if (row.name == nullptr) break;
            std::string start = std::string("\\") + object.name;
            if (object.instances[0] == nullptr && path == start + "\\" + row.name) return &row;
            for (size_t i = 0; i < 4 && object.instances[i] != nullptr; i++)
                if (path == start + "(" + numbered_instance(object, i) + ")\\" + row.name) return &row;
        }
    }
    return nullptr;
}

EXPORTED uint32_t PdhAddCounterA(void *to, const char *path, uintptr_t, void **out) {
    uint32_t status = OK;
    if (fails("PdhAddCounterA", &status)) return status;
    const counter_row *row = find_counter(path);
    if (row == nullptr) return NO_COUNTER;
    auto *owner = static_cast<query *>(to);
    owner->counters++;
    *out = new counter{.owner = owner, .is_rate = row->type >> 28 == 1, .type = row->type};
    now.counters++;
    return OK;
}

static uint32_t give_list(const std::string &names, char *buffer, uint32_t *size) {
    std::string whole = names + '\0';
    bool fits = buffer != nullptr && whole.size() <= *size;
    if (fits) memcpy(buffer, whole.data(), whole.size());
    *size = static_cast<uint32_t>(whole.size());
    return fits ? OK : MORE_DATA;
}

EXPORTED uint32_t PdhEnumObjectsA(const char *source, const char *machine, char *objects, uint32_t *size,
                                  uint32_t detail, int32_t refresh) {
    uint32_t status = OK;
    if (source != nullptr || machine != nullptr) return INVALID_ARGUMENT;
    if (fails("PdhEnumObjectsA", &status)) return status;
    if (refresh != 0) now.refreshes++;
    std::string names;
    for (const object_row &object : OBJECTS)
        if (object.detail <= detail) names += object.name + std::string(1, '\0');
    return give_list(names, objects, size);
}

EXPORTED uint32_t PdhEnumObjectItemsA(const char *source, const char *machine, const char *name,
                                      char *counters, uint32_t *counter_size, char *instances,
                                      uint32_t *instance_size, uint32_t, uint32_t flags) {
    uint32_t status = OK;
    if (source != nullptr || machine != nullptr || flags != 0) return INVALID_ARGUMENT;
    if (fails("PdhEnumObjectItemsA", &status)) return status;
    for (const object_row &object : OBJECTS) {
        if (strcmp(object.name, name) != 0) continue;
        std::string rows;
        std::string names;
        for (const counter_row &row : object.counters)
            if (row.name != nullptr) rows += row.name + std::string(1, '\0');
        for (const char *instance : object.instances)
            if (instance != nullptr) names += instance + std::string(1, '\0');
        uint32_t first = give_list(rows, counters, counter_size);
        uint32_t second = give_list(names, instances, instance_size);
        return first != OK ? first : second;
    }
    return NO_OBJECT;
}

// The host's record is longer than its first two words, which alone are filled here.
EXPORTED uint32_t PdhGetCounterInfoA(void *asked, uint8_t explain, uint32_t *size, uint32_t *description) {
    constexpr uint32_t WHOLE = 200;
    uint32_t status = OK;
    if (explain != 0) return INVALID_ARGUMENT;
    if (fails("PdhGetCounterInfoA", &status)) return status;
    bool fits = description != nullptr && *size >= WHOLE;
    *size = WHOLE;
    if (!fits) return MORE_DATA;
    memset(description, 0xEE, WHOLE);
    description[0] = WHOLE;
    description[1] = static_cast<counter *>(asked)->type;
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
