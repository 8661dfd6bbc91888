#include "logcheck/log_find.h"

#include "logcheck/log_scan_ops.h"
#include "logcheck/log_wildcard.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/registry.h"
#include "platform/text.h"

const log_scan_ops *log_scan_host;

static constexpr uint32_t NO_MORE_ITEMS = 259;

static const char *shown_text(const log_path_part *part) {
    return part != nullptr ? part->text : "(null)";
}

// ---- the entries of a folder

// "**" stands for no folder, too: the file must then match what follows.
static void test_file_below_marker(const log_path_part *head, const char *name, log_match_list *found) {
    const log_path_part *next = head->next;
    if (!log_wildcard_match(name, next->text)) return;
    agent_log(LOG_TRACE, "Inserting part \"%s\"(\"%s\")->\"%s\" as recdir file match", name, head->text,
              next->text);
    add_log_match(found, MATCH_FILE, 1, name, next);
}

// What an entry is goes by the entry and not by what the line still asks for: a file in the middle of a line
// is taken as a log.
static void test_entry(const log_path_part *head, const folder_entry &entry, log_match_list *found) {
    const char *name = entry.name;
    bool any_depth = head->kind == PART_ANY_DEPTH;
    // A link may lead to a folder above it, and round and round.
    if (any_depth && entry.folder && entry.link) return;
    if (any_depth && entry.folder) {
        agent_log(LOG_TRACE, "Inserting empty match for \"%s\"", name);
        add_log_match(found, MATCH_FOLDER, 1, name, head);
    }
    if (!log_wildcard_match(name, head->text)) return;
    agent_log(LOG_TRACE, "Entry \"%s\" matched \"%s\"", name, head->text);
    if (any_depth && !entry.folder) {
        test_file_below_marker(head, name, found);
        return;
    }
    agent_log(LOG_TRACE, "Inserting part \"%s\"(\"%s\")->\"%s\" as wildcard match", name, head->text,
              shown_text(head->next));
    add_log_match(found, entry.folder ? MATCH_FOLDER : MATCH_FILE, 1, name, head->next);
}

static void list_folder(const char *cwd, const log_path_part *head, log_match_list *found) {
    agent_log(LOG_TRACE, "Will scan \"%s*\" for part \"%s\"", cwd, head->text);
    folder_entry entry = {};
    folder_search *search = log_scan_host->FindFirstFileA(cwd, &entry);
    if (search == nullptr) {
        agent_log(LOG_NORMAL, "Error scanning \"%s\": %d", cwd, static_cast<int32_t>(last_error()));
        return;
    }
    do {
        if (!text_equal(entry.name, ".") && !text_equal(entry.name, "..")) test_entry(head, entry, found);
    } while (log_scan_host->FindNextFileA(search, &entry));
    log_scan_host->FindClose(search);
}

// ---- event logs

static void list_keys(registry_key *key, const log_path_part *rest, log_match_list *found) {
    char name[2048];
    uint32_t error = 0;
    for (uint32_t index = 0; error == 0; index++) {
        error = registry_host->RegEnumKeyExA(key, index, name, sizeof name);
        if (error == 0) add_log_match(found, MATCH_EVENT_LOG, 0, name, rest);
    }
    if (error == NO_MORE_ITEMS) return;
    agent_log(LOG_NORMAL, "Unable to enumerate event log sources (error %d)", static_cast<int32_t>(error));
}

// The pattern is not compared: any wildcard means every event log. A host that cannot list keys has none.
static void list_event_logs(const log_path_part *head, log_match_list *found) {
    if (registry_host->RegEnumKeyExA == nullptr) return;
    registry_key *key = nullptr;
    uint32_t error = registry_host->RegOpenKeyExA(
        MACHINE_HIVE, "SYSTEM\\CurrentControlSet\\Services\\Eventlog", REGISTRY_READ, &key);
    if (error != 0) {
        agent_log(LOG_NORMAL, "Unable to open event log registry key (error %d)",
                  static_cast<int32_t>(error));
        return;
    }
    list_keys(key, head->next, found);
    registry_host->RegCloseKey(key);
}

// ---- one line

static void take_plain_name(const log_path_part *head, uint32_t strict, log_match_list *found) {
    agent_log(LOG_TRACE, "Inserting part as non-wildcard match:");
    log_chain_trace(head);
    add_log_match(found, head->next != nullptr ? MATCH_FOLDER : MATCH_FILE, strict, head->text, head->next);
}

static void consider_line(const char *cwd, const log_path_part *head, uint32_t strict,
                          log_match_list *found) {
    agent_log(LOG_TRACE, "In cwd \"%s\" will consider part \"%s\"", cwd, head->text);
    log_chain_trace(head);
    if (head->kind == PART_ANY_DEPTH) {
        agent_log(LOG_TRACE, "\"%s\" is a recdir wildcard", head->text);
        list_folder(cwd, head, found);
    } else if (!log_has_wildcard(head->text)) {
        take_plain_name(head, strict, found);
    } else if (head->kind == PART_EVENT_LOG) {
        list_event_logs(head, found);
    } else {
        agent_log(LOG_TRACE, "\"%s\" contains wildcard", head->text);
        list_folder(cwd, head, found);
    }
}

void find_log_matches(const char *cwd, const log_match *match, log_match_list *found) {
    for (const log_conf_line *line = match->lines; line != nullptr; line = line->next)
        consider_line(cwd, line->parts, match->strict, found);
}
