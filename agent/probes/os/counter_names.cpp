#include "probes/os/counter_names.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/heap.h"
#include "platform/text.h"
#include "probes/os/name_index.h"
#include "probes/os/perf_counter_ops.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t FIRST_TRY_SIZE = 1024;
constexpr size_t INDEX_SIZE = 11; // ten digits and the end

struct name_table {
    char *text;
    uint32_t size;
    name_index indexes; // of the pairs, the name behind each; empty until one is looked for
};

name_table names;

struct name_pair {
    const char *index;
    const char *name;
};

} // namespace

static bool keep_names(const char *text, uint32_t size) {
    auto *copy = static_cast<char *>(heap_alloc(size));
    if (copy == nullptr) return false;
    memcpy(copy, text, size);
    names = {.text = copy, .size = size};
    return true;
}

// The block counts as the table from here on, also where the second read fails: every later translation then
// takes it for loaded and finds nothing in it.
static bool load_large_table(uint32_t size) {
    auto *block = static_cast<char *>(heap_alloc(size));
    if (block == nullptr) return false;
    names = {.text = block, .size = size};
    uint32_t status = perf_counter_host->RegQueryValueExA("Counter 009", block, &size);
    if (status == PDH_OK) return true;
    agent_log(LOG_ERROR, "Second try gave: %s", error_text(status));
    return false;
}

bool load_counter_names() {
    if (names.text != nullptr) return true;
    char buffer[FIRST_TRY_SIZE];
    uint32_t size = sizeof buffer;
    uint32_t status = perf_counter_host->RegQueryValueExA("Counter 009", buffer, &size);
    if (status == PDH_OK) return keep_names(buffer, size);
    if (status == ERROR_MORE_DATA) return load_large_table(size);
    agent_log(LOG_ERROR, "Error: %s", error_text(status));
    return false;
}

// Reads one text of the table. The host's word for its end is not relied on.
static const char *read_entry(uint32_t *position) {
    const char *entry = names.text + *position;
    uint32_t left = names.size - *position;
    size_t length = strnlen(entry, left);
    if (length == 0 || length == left) return nullptr;
    *position += static_cast<uint32_t>(length) + 1;
    return entry;
}

static bool next_pair(uint32_t *position, name_pair *out) {
    out->index = read_entry(position);
    if (out->index == nullptr) return false;
    out->name = read_entry(position);
    return out->name != nullptr;
}

const char *find_name_index(const char *name) {
    name_pair pair;
    for (uint32_t position = 0; next_pair(&position, &pair);)
        if (strcmp(pair.name, name) == 0) return pair.index;
    return nullptr;
}

// Hosts have thousands of names, and a browser looks one up for each counter of each instance.
static bool index_pairs() {
    name_index indexes = {};
    name_pair pair;
    uint32_t number = 0;
    for (uint32_t position = 0; next_pair(&position, &pair);) {
        if (index_name(&indexes, pair.index, &number)) continue;
        free_name_index(&indexes);
        return false;
    }
    names.indexes = indexes;
    return true;
}

const char *find_index_name(const char *index) {
    name_pair pair;
    if (names.indexes.count != 0 || index_pairs()) {
        const indexed_name *found = find_indexed_name(&names.indexes, index, strlen(index), 0);
        return found != nullptr ? found->name + strlen(found->name) + 1 : nullptr;
    }
    for (uint32_t position = 0; next_pair(&position, &pair);)
        if (strcmp(pair.index, index) == 0) return pair.name;
    return nullptr;
}

bool translate_counter_name_to_national(char *buffer, uint32_t size, const char *english) {
    if (!load_counter_names()) return false;
    const char *found = find_name_index(english);
    if (found == nullptr) {
        agent_log(LOG_WARNING, "translate_counter_name_to_national \"%s\": not found", english);
        return false;
    }
    int32_t index = parse_atoi(found);
    if (perf_counter_host->PdhLookupPerfNameByIndexA(static_cast<uint32_t>(index), buffer, &size) != PDH_OK) {
        agent_log(LOG_WARNING,
                  "translate_counter_name_to_national \"%s\": error from PdhLookupPerfNameByIndex (index %d)",
                  english, index);
        return false;
    }
    agent_log(LOG_TRACE, "translate_counter_name_to_national \"%s\": \"%s\"", english, buffer);
    return true;
}

bool translate_counter_name_to_english(char *buffer, uint32_t size, const char *national) {
    copy_bounded(buffer, "", size);
    if (!load_counter_names()) return false;
    uint32_t index = 0;
    if (perf_counter_host->PdhLookupPerfIndexByNameA(national, &index) != PDH_OK) {
        agent_log(LOG_WARNING,
                  "translate_counter_name_to_english \"%s\": error from PdhLookupPerfIndexByName", national);
        return false;
    }
    char digits[INDEX_SIZE];
    snprintf(digits, sizeof digits, "%u", index);
    const char *found = find_index_name(digits);
    if (found == nullptr) {
        agent_log(LOG_WARNING, "translate_counter_name_to_english \"%s\": not found", national);
        return false;
    }
    copy_bounded(buffer, found, size);
    agent_log(LOG_TRACE, "translate_counter_name_to_english \"%s\": \"%s\"", national, buffer);
    return true;
}

void counter_names_reset() {
    heap_free(names.text);
    free_name_index(&names.indexes);
    names = {};
}
