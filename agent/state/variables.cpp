#include "state/variables.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/heap.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

constexpr const char *STORE_PATH = "SOFTWARE\\Tarnix";
constexpr const char *STORE_SUBKEY = "TNAgent\\Variables";
constexpr int64_t FLUSH_DELAY = 30; // seconds
constexpr int64_t NEW_KEY = 1;      // a point of time whose delay has long passed

std::mutex lock;
variable *variables;

// The same entries by the hash of their key, of equal keys the one first that stands first in the list. A
// host with a thousand logs has ten thousand entries, and each check of a log asks for six.
constexpr uint32_t FIRST_BUCKETS = 64;
variable *first_buckets[FIRST_BUCKETS];
variable **buckets = first_buckets;
uint32_t bucket_count = FIRST_BUCKETS, variable_count;

int64_t dirty_since; // 0 when memory and storage agree

struct open_store {
    registry_key *parent;
    registry_key *key;
    ~open_store() {
        if (key != nullptr) registry_host->RegCloseKey(key);
        if (parent != nullptr) registry_host->RegCloseKey(parent);
    }
};

using variable_guard = guard<variable, var_free>;

} // namespace

const char *var_set_file(const char *path) {
    if (registry_host->use_variables_file != nullptr) registry_host->use_variables_file(path);
    return nullptr;
}

static registry_hive store_hive() {
    return user_hive_flag != 0 ? USER_HIVE : MACHINE_HIVE;
}

static bool open_parent(registry_access access, open_store *store) {
    return registry_host->RegOpenKeyExA(store_hive(), STORE_PATH, access, &store->parent) == 0;
}

static bool open_subkey(open_store *store) {
    return registry_host->RegCreateKeyExA(store->parent, STORE_SUBKEY, &store->key) == 0;
}

// The place of this key's chain.
static variable **bucket_of(const char *key) {
    return &buckets[text_hash(key) & (bucket_count - 1)];
}

static void chain_first(variable *entry) {
    variable **bucket = bucket_of(entry->key);
    entry->next_of_equal = *bucket;
    *bucket = entry;
}

static void chain_last(variable *entry) {
    variable **link = bucket_of(entry->key);
    while (*link != nullptr)
        link = &(*link)->next_of_equal;
    entry->next_of_equal = nullptr;
    *link = entry;
}

// Without memory the chains become longer.
static void grow_buckets() {
    auto **grown = heap_array<variable *>(2 * size_t{bucket_count});
    if (grown == nullptr) return;
    if (buckets != first_buckets) heap_free(buckets);
    buckets = grown;
    bucket_count *= 2;
    for (variable *entry = variables; entry != nullptr; entry = entry->next)
        chain_last(entry);
}

static void put_first(variable *entry) {
    if (variable_count++ >= bucket_count) grow_buckets();
    entry->next = variables;
    entry->link = &variables;
    if (variables != nullptr) variables->link = &entry->next;
    variables = entry;
    chain_first(entry);
}

static const char *load_value(registry_key *key, const char *name) {
    char data[REGISTRY_VALUE_LIMIT + 1] = {};
    uint32_t size = REGISTRY_VALUE_LIMIT;
    if (registry_host->RegQueryValueExA(key, name, data, &size) != 0) return "Cannot read variabel key";
    variable_guard entry(var_new());
    if (entry == nullptr) return "Memory allocation error while parsing variables file";
    entry->key = text_copy(name);
    if (entry->key == nullptr) return "Memory allocation error when duplicating key in variables parser";
    entry->value = text_copy(data);
    if (entry->value == nullptr) return "Memory allocation error when duplicating value in variables parser";
    put_first(entry.release());
    return nullptr;
}

const char *var_read_all() {
    std::lock_guard held(lock);
    open_store store = {};
    if (!open_parent(REGISTRY_QUERY, &store)) return "Cannot open variables registrykey. returncode ";
    if (!open_subkey(&store)) return "Couldn't create the variable registrykey during read";
    uint32_t count = 0;
    if (registry_host->RegQueryInfoKeyA(store.key, &count) != 0)
        return "Cannot get registry info on variables key";
    // Backwards and to the head, so that the list ends up in the registry's order.
    for (int64_t index = count; index >= 0; index--) {
        char name[REGISTRY_VALUE_LIMIT] = {};
        if (registry_host->RegEnumValueA(store.key, static_cast<uint32_t>(index), name, sizeof name) != 0)
            continue;
        if (auto *failure = load_value(store.key, name)) return failure;
    }
    return nullptr;
}

static const char *write_values(registry_key *key) {
    for (const variable *entry = variables; entry != nullptr; entry = entry->next) {
        auto length = static_cast<uint32_t>(strlen(entry->value));
        agent_log(LOG_TRACE, "%s: %d", entry->key, static_cast<int>(length));
        uint32_t code = registry_host->RegSetValueExA(key, entry->key, entry->value, length + 1);
        // Where values reach storage together, that is a part of setting the last one.
        if (code == 0 && entry->next == nullptr && registry_host->RegFlushKey != nullptr)
            code = registry_host->RegFlushKey(key);
        if (code != 0) return "Couldn't create registryvalue in key variables";
    }
    return nullptr;
}

const char *var_flush(int force) {
    std::lock_guard held(lock);
    if (dirty_since == 0) return nullptr;
    if (force == 0 && dirty_since + FLUSH_DELAY > time_now()) return nullptr;
    open_store store = {};
    if (!open_parent(REGISTRY_WRITE, &store)) return "Cannot open variables path for write returncode ";
    if (!open_subkey(&store)) return "Couldn't create the variable registrykey during flush";
    if (auto *failure = write_values(store.key)) return failure;
    dirty_since = 0;
    return nullptr;
}

variable *var_new() {
    return heap_new<variable>();
}

void var_free(variable *entry) {
    if (entry == nullptr) return;
    heap_free(entry->key);
    heap_free(entry->value);
    heap_free(entry);
}

variable *var_make(const char *key, const char *value) {
    variable_guard entry(var_new());
    if (entry == nullptr) return nullptr;
    entry->key = text_copy(key);
    entry->value = text_copy(value);
    return entry->key != nullptr && entry->value != nullptr ? entry.release() : nullptr;
}

// The link of the chain that holds the entry of this key, or the one behind the last.
static variable **find_in_chain(const char *key) {
    variable **link = bucket_of(key);
    while (*link != nullptr && strcmp((*link)->key, key) != 0)
        link = &(*link)->next_of_equal;
    return link;
}

variable *var_get(const char *key) {
    std::lock_guard held(lock);
    return *find_in_chain(key);
}

char *var_value(const char *key) {
    std::lock_guard held(lock);
    const variable *entry = *find_in_chain(key);
    return entry != nullptr ? text_copy(entry->value) : nullptr;
}

// Puts the entry in the place of another.
static void replace(variable **found, variable *entry) {
    variable *old = *found;
    entry->next = old->next;
    entry->link = old->link;
    entry->next_of_equal = old->next_of_equal;
    *entry->link = *found = entry;
    if (entry->next != nullptr) entry->next->link = &entry->next;
    var_free(old);
}

const char *var_set(variable *entry) {
    if (entry == nullptr) return "Out of memory when cloning variable";
    std::lock_guard held(lock);
    variable **found = find_in_chain(entry->key);
    if (*found != nullptr) {
        replace(found, entry);
        if (dirty_since == 0) dirty_since = time_now();
        return nullptr;
    }
    put_first(entry);
    if (dirty_since == 0) dirty_since = NEW_KEY;
    return nullptr;
}

void var_delete(const char *key) {
    std::lock_guard held(lock);
    variable **chained = find_in_chain(key);
    variable *found = *chained;
    if (found == nullptr) return;
    *chained = found->next_of_equal;
    *found->link = found->next;
    if (found->next != nullptr) found->next->link = found->link;
    variable_count--;
    var_free(found);
}

void var_reset() {
    std::lock_guard held(lock);
    while (variable *first = variables) {
        variables = first->next;
        var_free(first);
    }
    if (buckets != first_buckets) heap_free(buckets);
    buckets = first_buckets;
    std::fill_n(first_buckets, FIRST_BUCKETS, nullptr);
    bucket_count = FIRST_BUCKETS;
    variable_count = 0;
    dirty_since = 0;
}
