#include "logcheck/log_path.h"

#include "platform/fatal.h"
#include "platform/heap.h"

#include <algorithm>
#include <cstring>

const log_path_style *log_path_style_in_force = &ROOT_PATHS;

static bool ends_in_separator(const char *text, size_t length) {
    return length != 0 && text[length - 1] == log_path_style_in_force->separator;
}

char *log_path_join(const char *above, const char *name) {
    size_t length = strlen(above);
    size_t gap = length == 0 || ends_in_separator(above, length) ? 0 : 1;
    size_t name_length = strlen(name);
    auto *path = heap_array<char>(length + gap + name_length + 1);
    if (path == nullptr) return nullptr;
    char *end = std::copy_n(above, length, path);
    if (gap != 0) *end++ = log_path_style_in_force->separator;
    std::copy_n(name, name_length, end);
    return path;
}

// What a group adds to the path: its id, and a separator unless it is the root, which is one already.
static size_t group_length(const devtree *group) {
    size_t length = strlen(group->id);
    return length + (ends_in_separator(group->id, length) ? 0 : 1);
}

static char *put_in_front_of(char *at, const devtree *group) {
    size_t length = group_length(group);
    at -= length;
    at[length - 1] = log_path_style_in_force->separator;
    memcpy(at, group->id, strlen(group->id));
    return at;
}

char *log_file_path(const devnode *device) {
    size_t length = 0;
    for (const devtree *group = device->parent; group->parent != nullptr; group = group->parent)
        length += group_length(group);
    size_t id_length = strlen(device->id);
    auto *path = static_cast<char *>(heap_alloc(length + id_length + 1));
    if (path == nullptr) fatal("Out of memory");
    char *at = path + length;
    memcpy(at, device->id, id_length);
    for (const devtree *group = device->parent; group->parent != nullptr; group = group->parent)
        at = put_in_front_of(at, group);
    return path;
}
