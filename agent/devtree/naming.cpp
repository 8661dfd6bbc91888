#include "devtree/naming.h"

#include "platform/fatal.h"
#include "platform/text.h"

#include <cstring>

static constexpr const char *OUT_OF_MEMORY = "alloc_str() ran out of memory!";

char *escape_component(const char *text, char sep) {
    auto *escaped = static_cast<char *>(heap_alloc(2 * strlen(text) + 1));
    if (escaped == nullptr) return nullptr;
    char *out = escaped;
    for (; *text != '\0'; text++) {
        if (*text == sep || *text == '\\') *out++ = '\\';
        *out++ = *text;
    }
    return escaped;
}

namespace {

// The buffer has a fixed size. Names on the wire are short enough for it; deeper trees are cut.
struct name_buffer {
    char *text;
    size_t length;
};

void append(name_buffer *name, const char *part) {
    size_t length = strnlen(part, FULL_NAME_SIZE - 1 - name->length);
    memcpy(name->text + name->length, part, length);
    name->length += length;
}

void append_escaped(name_buffer *name, const char *component) {
    text_guard escaped(escape_component(component, '.'));
    if (escaped == nullptr) fatal(OUT_OF_MEMORY);
    append(name, escaped.get());
}

void append_groups(name_buffer *name, const devtree *group) {
    if (group == nullptr) return;
    append_groups(name, group->parent);
    append_escaped(name, group->id);
    append(name, ".");
}

} // namespace

static text_guard group_names(const devnode *device, name_buffer *name) {
    text_guard text(static_cast<char *>(heap_alloc(FULL_NAME_SIZE)));
    if (text == nullptr) fatal(OUT_OF_MEMORY);
    *name = {.text = text.get(), .length = 0};
    append_groups(name, device->parent);
    return text;
}

char *devnode_full_name(const devnode *device) {
    name_buffer name;
    text_guard text = group_names(device, &name);
    append_escaped(&name, device->id);
    return text.release();
}

char *devnode_plain_name(const devnode *device) {
    name_buffer name;
    text_guard text = group_names(device, &name);
    append(&name, device->id);
    return text.release();
}
