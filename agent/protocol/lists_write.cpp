// The tree of devices that goes to the server.

#include "platform/agent_log.h"
#include "platform/text.h"
#include "protocol/ber.h"
#include "protocol/descriptions.h"
#include "protocol/lists.h"

#include <cstring>

static const char *write_hint(io *stream, bool present, double value) {
    return present && is_finite(value) ? write_real(stream, value) : write_null(stream);
}

static const char *write_hints(io *stream, const devnode *device) {
    const auto &hint = device->limits.hint;
    bool present = hint.hint_present != 0;
    for (double value : {hint.hint_value, hint.hint_min, hint.hint_max})
        if (auto *failure = write_hint(stream, present, value)) return failure;
    return nullptr;
}

const char *write_devnode(io *stream, const devnode *device) {
    check record = {.id = device->id,
                    .name = device->name,
                    .comment = device->comment,
                    .type = device->type,
                    .unit = device->unit};
    if (auto *failure = write_check_incomplete(stream, &record)) return failure;
    if (auto *failure = write_hints(stream, device)) return failure;
    bool known = device->description >= 1 && device->description <= DESCRIPTION_COUNT;
    if (device->type != TYPE_ACTION && !known)
        agent_log(LOG_ERROR, "item->description out of bounds for item with name %s",
                  device->name != nullptr ? device->name : "(null)");
    if (auto *failure =
            write_signed_int(stream, INT32_MIN, INT32_MAX, static_cast<int32_t>(device->description)))
        return failure;
    return write_eoc(stream);
}

static const char *write_devices(io *stream, const devnode *first) {
    if (auto *failure = write_seq_begin(stream)) return failure;
    for (const devnode *device = first; device != nullptr; device = device->next)
        if (auto *failure = write_devnode(stream, device)) return failure;
    return write_eoc(stream);
}

const char *write_devtree(io *stream, const devtree *group) {
    check_group record = {.id = group->id, .name = group->name};
    if (auto *failure = write_check_group_incomplete(stream, &record)) return failure;
    if (auto *failure = write_devices(stream, group->devices)) return failure;
    if (auto *failure = write_devtree_list(stream, group->children)) return failure;
    if (auto *failure = write_string(stream, NAME_LIMIT, group->name_template)) return failure;
    if (auto *failure = write_bool(stream, (group->group_flags & GROUP_OF_INSTANCES) != 0)) return failure;
    return write_eoc(stream);
}

const char *write_devtree_list(io *stream, const devtree *first) {
    if (auto *failure = write_seq_begin(stream)) return failure;
    for (const devtree *group = first; group != nullptr; group = group->next) {
        if (strlen(group->id) > NAME_LIMIT) {
            agent_log(LOG_WARNING, "Check group name too long: %s", group->id);
            continue;
        }
        if (auto *failure = write_devtree(stream, group)) return failure;
    }
    return write_eoc(stream);
}

const char *write_check_descriptions(io *stream, const check_description *table, int32_t count) {
    if (auto *failure = write_seq_begin(stream)) return failure;
    for (int32_t i = 0; i < count; i++)
        if (auto *failure = write_check_description(stream, &table[i])) return failure;
    return write_eoc(stream);
}
