#include "devtree/check_table.h"

#include "devtree/fake_checks.h"
#include "devtree/live_trees.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <cstring>

check_entry *check_table;

devtree *active_tree;
devtree *action_tree;
clinfo *host_info;

check_entry *find_check_entry(const char *name) {
    for (check_entry *entry = check_table; entry->name != nullptr; entry++)
        if (text_equal(entry->name, name)) return entry;
    return nullptr;
}

static bool names_family(const char *token, size_t length, const char *family) {
    return (length == 1 && *token == '*') ||
           (strlen(family) == length && strncmp(token, family, length) == 0);
}

static bool is_disabled(const char *disable_checks, const char *family) {
    for (const char *token = disable_checks; *token != '\0';) {
        size_t length = strcspn(token, ", ");
        if (length > 0 && names_family(token, length, family)) return true;
        token += length;
        token += strspn(token, ", ");
    }
    return false;
}

// Without the setting the flag stays as it is.
static bool update_disabled(check_entry *entry) {
    const char *setting = config_in_force->disable_checks;
    if (setting == nullptr) return false;
    if (!is_disabled(setting, entry->name)) {
        entry->flags &= ~CHECK_DISABLED;
        return false;
    }
    entry->flags |= CHECK_DISABLED;
    agent_log(LOG_WARNING, "Scanning of %s disabled by configuration", entry->name);
    return true;
}

static void scan_family(check_entry *entry, devtree *root) {
    if (update_disabled(entry) || entry->scan == nullptr) return;
    agent_log(LOG_TRACE, "Scanning %s", entry->name);
    if (auto *failure = entry->scan(root)) agent_log(LOG_WARNING, "scan[%s]: %s", entry->name, failure);
}

static void scan_regression(devtree *root) {
    if (auto *failure = scan_fake_memory(root)) agent_log(LOG_WARNING, "REGRESS ERROR: %s", failure);
}

devtree *scan_devices() {
    devtree root = {};
    if (regression_flag != 0)
        scan_regression(&root);
    else if (fake_results_flag == 0)
        for (check_entry *entry = check_table; entry->name != nullptr; entry++)
            scan_family(entry, &root);
    // The root ends here, and nothing may follow a link to it.
    for (devtree *group = root.children; group != nullptr; group = group->next)
        group->parent = nullptr;
    return root.children;
}
