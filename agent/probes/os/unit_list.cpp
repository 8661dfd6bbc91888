#include "probes/os/unit_list.h"

#include "platform/text.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char SUFFIX[] = ".service";
constexpr size_t TEXT_LIMIT = 256;

struct state_row {
    const char *active_state;
    service_state state;
};

constexpr state_row STATES[] = {
    {"active", SERVICE_IS_RUNNING},
    {"reloading", SERVICE_IS_RUNNING},
    {"activating", SERVICE_IS_STARTING},
    {"deactivating", SERVICE_IS_STOPPING},
};

} // namespace

uint32_t state_of_unit(const char *active_state) {
    for (const state_row &row : STATES)
        if (text_equal(row.active_state, active_state)) return row.state;
    return SERVICE_IS_STOPPED;
}

// A template's name has nothing between the "@" and the suffix.
static bool is_service_name(const char *name) {
    constexpr size_t SUFFIX_LENGTH = sizeof SUFFIX - 1;
    size_t length = strlen(name);
    if (length <= SUFFIX_LENGTH || !text_equal(name + length - SUFFIX_LENGTH, SUFFIX)) return false;
    return name[length - SUFFIX_LENGTH - 1] != '@';
}

bool is_service_unit(const char *name, const char *load_state) {
    return is_service_name(name) && text_equal(load_state, "loaded");
}

static bool make_room(unit_list *list) {
    if (list->count < list->room) return true;
    uint32_t room = std::max<uint32_t>(64, list->room * 2);
    auto *units = heap_array<unit_record>(room);
    if (units == nullptr) return false;
    if (list->count > 0) memcpy(units, list->units, list->count * sizeof *units);
    heap_free(list->units);
    list->units = units;
    list->room = room;
    return true;
}

static bool add_unit(unit_list *list, const char *name, const char *description, uint32_t state) {
    text_guard own_name(text_copy(name));
    text_guard own_description(text_copy(description[0] != '\0' ? description : name));
    if (own_name == nullptr || own_description == nullptr || !make_room(list)) return false;
    list->units[list->count++] = {.name = own_name.release(),
                                  .description = own_description.release(),
                                  .state = state,
                                  .hash = text_hash(name)};
    return true;
}

bool add_loaded_unit(unit_list *list, const char *name, const char *description, const char *load_state,
                     const char *active_state) {
    if (!is_service_unit(name, load_state)) return true;
    return add_unit(list, name, description, state_of_unit(active_state));
}

static bool has_unit(const unit_list &list, const char *name) {
    uint32_t hash = text_hash(name);
    for (uint32_t i = 0; i < list.count; i++)
        if (list.units[i].hash == hash && text_equal(list.units[i].name, name)) return true;
    return false;
}

bool is_new_unit_file(const unit_list &list, const char *path, const char *file_state,
                      const char **out_name) {
    const char *slash = strrchr(path, '/');
    *out_name = slash != nullptr ? slash + 1 : path;
    if (text_starts_with(file_state, "masked") || text_equal(file_state, "alias")) return false;
    return is_service_name(*out_name) && !has_unit(list, *out_name);
}

bool add_unit_file(unit_list *list, const char *name, const char *description) {
    return add_unit(list, name, description, SERVICE_IS_STOPPED);
}

// Copies to the end of the line, or of the last line that a backslash joins to it by a blank.
static void copy_value(const char *at, char *out, size_t size) {
    at += strspn(at, " \t");
    size_t length = 0;
    for (; *at != '\0' && *at != '\n' && length + 1 < size; at++) {
        bool joins = at[0] == '\\' && at[1] == '\n';
        if (joins) at++;
        out[length++] = joins ? ' ' : *at;
    }
    while (length > 0 && is_blank(out[length - 1]))
        length--;
    out[length] = '\0';
}

// Behind the equals sign of a line with this key, or absent.
static const char *value_of(const char *line, const char *key) {
    size_t length = strlen(key);
    if (strncmp(line, key, length) != 0) return nullptr;
    line += length;
    line += strspn(line, " \t");
    return *line == '=' ? line + 1 : nullptr;
}

bool parse_unit_description(const char *text, char *out, size_t size) {
    bool in_unit = false;
    out[0] = '\0';
    for (const char *line = text; *line != '\0'; line += strcspn(line, "\n"), line += *line == '\n') {
        line += strspn(line, " \t");
        if (*line == '[') in_unit = text_starts_with(line, "[Unit]");
        const char *value = in_unit ? value_of(line, "Description") : nullptr;
        if (value != nullptr) copy_value(value, out, size);
    }
    return out[0] != '\0';
}

// How much of a text is told.
static uint32_t told_length(const char *text) {
    return static_cast<uint32_t>(strnlen(text, TEXT_LIMIT));
}

static uint32_t room_of(const unit_record &unit) {
    return static_cast<uint32_t>(sizeof(service_record)) + told_length(unit.name) + 1 +
           told_length(unit.description) + 1;
}

// Texts are put from the end of the batch towards its front.
static const char *put_text(char **end, const char *text) {
    uint32_t length = told_length(text);
    *end -= length + 1;
    copy_bounded(*end, text, length + 1);
    return *end;
}

bool fill_service_batch(const unit_list &list, service_record *batch, uint32_t size, uint32_t *out_needed,
                        uint32_t *out_count, uint32_t *resume) {
    char *end = reinterpret_cast<char *>(batch) + size;
    uint32_t left = size;
    uint32_t at = *resume;
    *out_count = 0;
    for (; at < list.count && room_of(list.units[at]) <= left; at++) {
        const unit_record &unit = list.units[at];
        left -= room_of(unit);
        service_record *record = &batch[(*out_count)++];
        *record = {.service_name = put_text(&end, unit.name),
                   .display_name = put_text(&end, unit.description),
                   .status = {.type = SERVICE_WIN32_KINDS, .current_state = unit.state}};
    }
    bool last = at >= list.count;
    *resume = last ? 0 : at;
    *out_needed = 0;
    for (; at < list.count; at++)
        *out_needed += room_of(list.units[at]);
    return last;
}

void drop_units(unit_list *list) {
    for (uint32_t i = 0; i < list->count; i++) {
        heap_free(list->units[i].name);
        heap_free(list->units[i].description);
    }
    heap_free(list->units);
    *list = {};
}
