// The trees of checks and of actions that come from the server.

#include "devtree/naming.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "protocol/list_bounds.h"
#include "protocol/lists.h"
#include "protocol/tags.h"

static constexpr const char *DEVNODE_LIST_END = "List not terminated correctly in read_devnode_list";

// Thresholds.

const char *read_check_value_int(io *stream, int32_t *out) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    switch (tag) {
    case BE_INTEGER:
        return read_signed_int(stream, INT32_MIN, INT32_MAX, out, tag);
    case BE_NULL:
        *out = -1;
        return read_null(stream, tag);
    case BE_REAL:
        return "Got real when expected int in read_check_value_int";
    default:
        return "Unexpected tag in read_check_value_int";
    }
}

const char *read_check_value_real(io *stream, double *out) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    switch (tag) {
    case BE_REAL:
        return read_real(stream, out, tag);
    case BE_NULL:
        *out = -1.0;
        return read_null(stream, tag);
    case BE_INTEGER:
        return "Got int when expected real in read_check_value_real";
    default:
        return "Unexpected tag in read_check_value_real";
    }
}

const char *read_check_value_time(io *stream, int64_t *out, int64_t tag) {
    auto known = static_cast<uint32_t>(tag);
    if (tag < 0)
        if (auto *failure = read_tag(stream, &known)) return failure;
    if (known == BE_NULL) {
        *out = -1;
        return read_null(stream, known);
    }
    if (known != BE_INTEGER) return "Unexpected tag in read_check_value_time";
    int32_t seconds = 0;
    auto *failure = read_signed_int(stream, INT32_MIN, INT32_MAX, &seconds, known);
    *out = seconds;
    return failure;
}

// One check.

static const char *read_continuous(io *stream, devnode *device, uint32_t tag) {
    device->type = TYPE_CONTINUOUS;
    if (auto *failure = read_continuous_conf_incomplete(stream, tag)) return failure;
    auto &limits = device->limits.continuous;
    for (int32_t *limit : {&limits.alert_high, &limits.alert_low, &limits.warn_high, &limits.warn_low})
        if (auto *failure = read_check_value_int(stream, limit)) return failure;
    if (auto *failure = skip_to_eol(stream)) return failure;
    agent_log(LOG_DETAIL, "Configured CONTINUOUS check");
    return nullptr;
}

static const char *read_real_continuous(io *stream, devnode *device, uint32_t tag) {
    device->type = TYPE_REAL_CONTINUOUS;
    if (auto *failure = read_real_continuous_conf_incomplete(stream, tag)) return failure;
    auto &limits = device->limits.real;
    for (double *limit :
         {&limits.real_alert_high, &limits.real_alert_low, &limits.real_warn_high, &limits.real_warn_low})
        if (auto *failure = read_check_value_real(stream, limit)) return failure;
    if (auto *failure = skip_to_eol(stream)) return failure;
    agent_log(LOG_DETAIL, "Configured REAL CONTINUOUS check");
    return nullptr;
}

static void mark_place(devnode *device, uint32_t place, uint32_t mark) {
    uint32_t bit = 1U << (place & 31U);
    if (mark == STATUS_WARNING) device->limits.bitmap.warn_mask |= bit;
    if (mark == STATUS_ALERT) device->limits.bitmap.alert_mask |= bit;
}

static const char *read_places(io *stream, devnode *device) {
    if (auto *failure =
            read_list_start(stream, "Expected BE_SEQ", "List not started correctly in read_devnode_list"))
        return failure;
    for (uint32_t place = 0;; place++) {
        uint32_t tag;
        uint32_t mark = 0;
        if (auto *failure = read_tag(stream, &tag)) return failure;
        if (tag == 0) return read_list_end(stream, DEVNODE_LIST_END);
        if (auto *failure = read_enumerated(stream, &mark, BE_ENUMERATED, tag)) return failure;
        mark_place(device, place, mark);
    }
}

static const char *read_enum(io *stream, devnode *device, uint32_t tag) {
    device->type = TYPE_BITMAP;
    if (auto *failure = read_enum_conf_incomplete(stream, tag)) return failure;
    device->limits.bitmap = {.warn_mask = 0, .alert_mask = 0};
    if (auto *failure = read_places(stream, device)) return failure;
    if (auto *failure = skip_to_eol(stream)) return failure;
    agent_log(LOG_DETAIL, "Configured ENUM check");
    return nullptr;
}

static const char *read_log(io *stream, devnode *device, uint32_t tag) {
    if (auto *failure = read_log_conf(stream, tag)) return failure;
    device->type = TYPE_LOG;
    agent_log(LOG_DETAIL, "Configured LOG check");
    return nullptr;
}

static const char *unknown_type(const devnode *device, uint32_t tag) {
    text_guard name(devnode_full_name(device));
    return format_error("Got unknown type %d in read_devnode(%s)", static_cast<int>(tag), name.get());
}

static const char *read_kind(io *stream, devnode *device) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    switch (tag) {
    case TAG_CONTINUOUS_CONF:
        return read_continuous(stream, device, tag);
    case TAG_ENUM_CONF:
        return read_enum(stream, device, tag);
    case TAG_LOG_CONF:
        return read_log(stream, device, tag);
    case TAG_REAL_CONTINUOUS_CONF:
        return read_real_continuous(stream, device, tag);
    case TAG_ADV_LOG_CONF:
        return read_adv_log_check(stream, device, tag);
    default:
        return unknown_type(device, tag);
    }
}

static const char *read_conf_id(io *stream, devnode *device) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag == 0) {
        if (auto *failure = read_list_end(stream, "List not terminated correctly - checkconf postlude"))
            return failure;
        agent_log(LOG_TRACE, "No ID for check...");
        return nullptr;
    }
    if (auto *failure = read_string(stream, NAME_LIMIT, &device->conf_id, tag)) return failure;
    agent_log(LOG_TRACE, "Got ID: %s", device->conf_id);
    return skip_to_eol(stream);
}

const char *read_devnode(io *stream, devnode *device, uint32_t tag) {
    check_conf record;
    if (auto *failure = read_check_conf_incomplete(stream, &record, tag)) return failure;
    device->id = record.id;
    device->frequency = record.frequency;
    if (device->frequency < 1) {
        agent_log(LOG_WARNING, "Error: Frequency for check set to %d. Forcing to 1.", device->frequency);
        device->frequency = 1;
    }
    if (auto *failure = read_kind(stream, device)) return failure;
    return read_conf_id(stream, device);
}

// Lists.

namespace {

// What differs between the lists of one kind of record. `read` links the record to its parent as well.
template <class T>
struct list_kind {
    const char *wrong_tag;
    const char *not_indefinite;
    const char *out_of_memory;
    const char *not_terminated;
    T *(*make)();
    const char *(*read)(io *stream, T *record, devtree *parent, uint32_t tag);
};

} // namespace

template <auto Free, class T>
static const char *read_linked(io *stream, devtree *parent, T **out, const list_kind<T> &kind) {
    *out = nullptr;
    list_level here;
    if (auto *failure = read_list_start(stream, kind.wrong_tag, kind.not_indefinite)) return failure;
    guard<T, Free> first;
    T *last = nullptr;
    for (;;) {
        uint32_t tag;
        if (auto *failure = read_tag(stream, &tag)) return failure;
        if (tag == 0) break;
        T *record = tree_is_full() ? nullptr : kind.make();
        if (record == nullptr) return kind.out_of_memory;
        if (last == nullptr)
            first.reset(record);
        else
            last->next = record;
        last = record;
        if (auto *failure = kind.read(stream, record, parent, tag)) return failure;
    }
    if (auto *failure = read_list_end(stream, kind.not_terminated)) return failure;
    *out = first.release();
    return nullptr;
}

static const char *read_check(io *stream, devnode *device, devtree *parent, uint32_t tag) {
    device->parent = parent; // ahead of the reading: a failure may name the check
    return read_devnode(stream, device, tag);
}

const char *read_devnode_list(io *stream, devtree *parent, devnode **out) {
    static constexpr list_kind<devnode> checks = {
        .wrong_tag = "Wrong tag in read_devnode_list",
        .not_indefinite = "Not indefinite length in read_devnode_list",
        .out_of_memory = "Out of memory in read_devtree_list",
        .not_terminated = DEVNODE_LIST_END,
        .make = alloc_devnode,
        .read = read_check,
    };
    return read_linked<free_devnode_list>(stream, parent, out, checks);
}

static const char *read_action(io *stream, devnode *device, devtree *parent, uint32_t tag) {
    action_conf record;
    if (auto *failure = read_action_conf(stream, &record, tag)) return failure;
    device->id = record.id;
    device->frequency = -1;
    device->next_check = 0;
    device->type = TYPE_ACTION;
    device->parent = parent;
    return nullptr;
}

const char *read_action_list(io *stream, devtree *parent, devnode **out) {
    static constexpr list_kind<devnode> actions = {
        .wrong_tag = "Wrong tag in read_action_list",
        .not_indefinite = "Not indefinite length in read_action_list",
        .out_of_memory = "Out of memory in read_action_list",
        .not_terminated = "List not terminated correctly in read_action_list",
        .make = alloc_devnode,
        .read = read_action,
    };
    return read_linked<free_devnode_list>(stream, parent, out, actions);
}

// Groups, of checks and of actions.

const char *read_devtree(io *stream, devtree *group, uint32_t tag) {
    check_conf_group record;
    if (auto *failure = read_check_conf_group_incomplete(stream, &record, tag)) return failure;
    group->id = record.id;
    if (auto *failure = read_devnode_list(stream, group, &group->devices)) return failure;
    if (auto *failure = read_devtree_list(stream, group, &group->children)) return failure;
    return skip_to_eol(stream);
}

static const char *read_check_group(io *stream, devtree *group, devtree *parent, uint32_t tag) {
    auto *failure = read_devtree(stream, group, tag);
    group->parent = parent;
    return failure;
}

const char *read_devtree_list(io *stream, devtree *parent, devtree **out) {
    static constexpr list_kind<devtree> groups = {
        .wrong_tag = "Wrong tag in read_devtree_list",
        .not_indefinite = "Not indefinite length in read_devtree_list",
        .out_of_memory = "Out of memory in read_devtree_list",
        .not_terminated = "List not terminated correctly in read_devtree_list",
        .make = heap_new<devtree>,
        .read = read_check_group,
    };
    return read_linked<free_devtree>(stream, parent, out, groups);
}

// In the reverse order of read_devtree: first the subgroups.
const char *read_action_conf_group(io *stream, devtree *group, uint32_t tag) {
    action_conf_group record;
    if (auto *failure = read_action_conf_group_incomplete(stream, &record, tag)) return failure;
    group->id = record.id;
    if (auto *failure = read_action_conf_list(stream, group, &group->children)) return failure;
    if (auto *failure = read_action_list(stream, group, &group->devices)) return failure;
    return skip_to_eol(stream);
}

static const char *read_action_group(io *stream, devtree *group, devtree *parent, uint32_t tag) {
    auto *failure = read_action_conf_group(stream, group, tag);
    group->parent = parent;
    return failure;
}

const char *read_action_conf_list(io *stream, devtree *parent, devtree **out) {
    static constexpr list_kind<devtree> groups = {
        .wrong_tag = "Wrong tag in read_action_conf_list",
        .not_indefinite = "Not indefinite length in read_action_conf_list",
        .out_of_memory = "read_action_conf_group_list", // the whole text
        .not_terminated = "List not terminated correctly in read_action_conf_list",
        .make = heap_new<devtree>,
        .read = read_action_group,
    };
    return read_linked<free_devtree>(stream, parent, out, groups);
}
