#include "logcheck/log_scan.h"

#include "logcheck/log_find.h"
#include "logcheck/log_path.h"
#include "logcheck/log_scan_ops.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <cstring>

namespace {

constexpr const char *NO_MEMORY_FOR_GROUP = "Couldn't allocate devtree_child mem";
constexpr uint32_t DESCRIPTION_LOG = 20;

} // namespace

// ---- folders

static void trace_lines(const log_match *match) {
    agent_log(LOG_TRACE, "Matching line list ---------------");
    for (const log_conf_line *line = match->lines; line != nullptr; line = line->next)
        log_chain_trace(line->parts);
    agent_log(LOG_TRACE, "End of matching line list --------");
}

// `cwd` with the name behind it, ending in a separator again.
static char *path_below(const char *cwd, const char *name) {
    text_guard path(log_path_join(cwd, name));
    return path != nullptr ? log_path_join(path.get(), "") : nullptr;
}

static void scan_folder(const char *cwd, devtree *child, const log_match *match) {
    text_guard path(path_below(cwd, match->name));
    if (path == nullptr) {
        agent_log(LOG_ERROR, "Out of memory constructing new cwd for scan");
        return;
    }
    const char *failure = log_scan_level(path.get(), child, match);
    if (failure != nullptr) agent_log(LOG_NORMAL, "Error \"%s\" scanning \"%s\"", failure, path.get());
}

// Takes a child out of its group's list. False where it isn't there.
static bool unlink_child(devtree *group, const devtree *child) {
    devtree **link = &group->children;
    while (*link != nullptr && *link != child)
        link = &(*link)->next;
    if (*link == nullptr) return false;
    *link = child->next;
    return true;
}

static void append_children(devtree *group, devtree *children) {
    devtree **link = &group->children;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = children;
}

namespace {

// Groups with something in them, in the order in which they were done.
struct done_groups {
    devtree_guard first;
    devtree *last = nullptr;
};

} // namespace

// A folder without logs leaves no trace.
static void put_aside(devtree *group, devtree *child, done_groups *done) {
    if (!unlink_child(group, child)) {
        agent_log(LOG_WARNING, "Could not find log node \"%s\"", child->id);
        return;
    }
    child->next = nullptr;
    if (child->children == nullptr && child->devices == nullptr) {
        free_devtree(child);
        return;
    }
    if (done->last != nullptr)
        done->last->next = child;
    else
        done->first.reset(child);
    done->last = child;
}

// What is done is kept out of the group until all is: no name comes twice, and looking for the next one in a
// list of all of them would make a folder of many slow.
static const char *scan_folders(const char *cwd, devtree *group, const log_match *first) {
    const char *failure = nullptr;
    done_groups done;
    for (const log_match *match = first; match != nullptr; match = match->next) {
        if (match->kind != MATCH_FOLDER) continue;
        agent_log(LOG_TRACE, "Adding path part \"%s\"", match->name);
        trace_lines(match);
        devtree *child = devtree_child(group, match->name, match->name);
        if (child == nullptr) {
            failure = NO_MEMORY_FOR_GROUP;
            continue;
        }
        scan_folder(cwd, child, match);
        put_aside(group, child, &done);
    }
    append_children(group, done.first.release());
    return failure;
}

// ---- checks

// A name that the wire does not take would keep all devices from the server.
static void add_device(devtree *group, const char *name) {
    if (strlen(name) > NAME_LIMIT) {
        agent_log(LOG_WARNING, "Log name too long: %s", name);
        return;
    }
    devnode_guard device(alloc_devnode());
    device->id = text_copy(name);
    device->name = text_copy(name);
    device->comment = text_copy(name);
    device->unit = text_copy("");
    device->type = TYPE_ADV_LOG;
    device->description = DESCRIPTION_LOG;
    if (device->id != nullptr && device->name != nullptr && device->comment != nullptr &&
        device->unit != nullptr)
        devtree_add_devices(group, device.release());
    else
        agent_log(LOG_ERROR, "Out of memory attempting to allocate match component for \"%s\"", name);
}

static const char *add_event_logs(devtree *group, const log_match *first) {
    devtree *event_logs = nullptr;
    for (const log_match *match = first; match != nullptr; match = match->next) {
        if (match->kind != MATCH_EVENT_LOG) continue;
        agent_log(LOG_TRACE, "Adding eventlog part \"%s\"", match->name);
        if (event_logs == nullptr) event_logs = devtree_child(group, "eventlog", "eventlog");
        if (event_logs == nullptr) return NO_MEMORY_FOR_GROUP;
        event_logs->name_template = "Eventlog %0r";
        add_device(event_logs, match->name);
    }
    return nullptr;
}

static bool file_exists(const char *cwd, const char *name) {
    text_guard path(log_path_join(cwd, name));
    if (path == nullptr) {
        agent_log(LOG_ERROR, "Out of memory constructing new cwd for scan");
        return false;
    }
    path_facts facts = {};
    if (!log_scan_host->GetFileAttributesA(path.get(), &facts)) {
        agent_log(LOG_TRACE, "Unable to open file part \"%s\" (%d) -> ignoring", name,
                  static_cast<int32_t>(last_error()));
        return false;
    }
    bool plain = !facts.folder && !facts.device;
    agent_log(LOG_TRACE,
              plain ? "Accepted file part \"%s\" because it exists" : "Ignoring non-file part \"%s\"", name);
    return plain;
}

static bool accept_file(const char *cwd, const log_match *match) {
    if (match->strict != 0) return file_exists(cwd, match->name);
    agent_log(LOG_TRACE, "No strict file match enforcement on \"%s\"", match->name);
    return true;
}

static void add_files(const char *cwd, devtree *group, const log_match *first) {
    for (const log_match *match = first; match != nullptr; match = match->next) {
        if (match->kind != MATCH_FILE || !accept_file(cwd, match)) continue;
        agent_log(LOG_TRACE, "Adding file part \"%s\"", match->name);
        add_device(group, match->name);
    }
}

// ---- the scan

const char *log_scan_level(const char *cwd, devtree *group, const log_match *match) {
    agent_log(LOG_TRACE, "Entering recursive fs scan with cwd \"%s\"", cwd);
    log_match_list found = {};
    log_matches_guard freeing(&found);
    find_log_matches(cwd, match, &found);
    agent_log(LOG_TRACE, "In cwd \"%s\" - finished actual scan.", cwd);
    const char *failure = scan_folders(cwd, group, found.first);
    const char *event_failure = add_event_logs(group, found.first);
    add_files(cwd, group, found.first);
    agent_log(LOG_TRACE, "Leaving recursive fs scan from cwd \"%s\"", cwd);
    return event_failure != nullptr ? event_failure : failure;
}

static void read_configuration(const char *path) {
    if (path == nullptr) {
        agent_log(LOG_NORMAL, "No log check configuration");
        return;
    }
    log_conf_line *list = log_conf_read(path);
    if (list == nullptr) {
        agent_log(LOG_ERROR, "Unable to read new log check configuration! Keeping old configuration");
        return;
    }
    log_conf_free(log_conf_current);
    log_conf_current = list;
    agent_log(LOG_NORMAL, "Read new log check configuration");
}

const char *scan_log(devtree *root) {
    read_configuration(config_in_force->log_chk_conf);
    devtree *group = devtree_child(root, "log", "Log checks");
    if (group == nullptr) return NO_MEMORY_FOR_GROUP;
    group->name_template = "Log check %c,1l,\\,0r,";
    const log_match all = {.lines = log_conf_current};
    const char *failure = log_scan_level("", group, &all);
    devtree *forward = devtree_child(group, "/forward", "Forward LogChecks");
    if (forward == nullptr) return NO_MEMORY_FOR_GROUP;
    forward->name_template = "Forward LogCheck %0r";
    return failure;
}
