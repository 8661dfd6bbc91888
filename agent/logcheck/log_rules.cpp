#include "logcheck/log_rules.h"

#include "logcheck/log_silence.h"
#include "logcheck/rule_index.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/fatal.h"
#include "platform/text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

enum : uint32_t { DECISION_LOG, DECISION_QUIET, DECISION_MOVETO, DECISION_COPYTO, DECISION_CALL };

// What a check-in takes of a log result's text.
constexpr size_t LOG_TEXT_LIMIT = 65'536;

enum rule_outcome { GO_ON, STOP };

uint32_t walks_of_entry;

} // namespace

static const char *name_of(const devnode *device) {
    if (device->name != nullptr) return device->name;
    return device->id != nullptr ? device->id : "";
}

static const char *status_word(uint32_t status) {
    static constexpr const char *words[] = {"ok", "warn", "alert"};
    return status < std::size(words) ? words[status] : "<>";
}

static const char *decision_word(uint32_t decision) {
    static constexpr const char *words[] = {"log", "quiet"};
    return decision < std::size(words) ? words[decision] : "<>";
}

static void report(devnode *device, int64_t now, uint32_t status, char *log_text) {
    resnode_guard result(alloc_resnode());
    result->check_time = now;
    result->status = status;
    result->log_text = log_text;
    append_result(device, result.release());
}

// A new text, or absent for an absent one.
static char *text_for_result(const char *text) {
    size_t length = strlen(text);
    if (length > LOG_TEXT_LIMIT) {
        length = LOG_TEXT_LIMIT;
        agent_log(LOG_WARNING, "Truncated long log result");
    }
    char *copy = text_copy_part(text, length);
    if (copy == nullptr) fatal("alloc_resnode() ran out of memory!");
    return copy;
}

// "oldest -> … -> nearest -> device: entry", in a new text.
static text_guard describe_cycle(const char *entry, const devnode *device, const walk_link *chain) {
    size_t size = strlen(name_of(device)) + strlen(": ") + strlen(entry) + 1;
    for (const walk_link *link = chain; link != nullptr; link = link->previous)
        size += strlen(name_of(link->device)) + strlen(" -> ");
    text_guard text(static_cast<char *>(heap_alloc(size)));
    if (text == nullptr) fatal("alloc_resnode() ran out of memory!");
    // From the end to the front, as the chain runs.
    char *front = text.get() + size - strlen(entry) - 1;
    auto put = [&front](const char *part) {
        size_t length = strlen(part);
        front = std::copy_n(part, length, front - length) - length;
    };
    std::copy_n(entry, strlen(entry), front);
    put(": ");
    put(name_of(device));
    for (const walk_link *link = chain; link != nullptr; link = link->previous) {
        put(" -> ");
        put(name_of(link->device));
    }
    return text;
}

static void report_cycle(const char *entry, devnode *device, const walk_link *chain, int64_t now) {
    text_guard path = describe_cycle(entry, device, chain);
    size_t size = strlen("Cycle detected: ") + strlen(path.get()) + 1;
    text_guard whole(static_cast<char *>(heap_alloc(size)));
    if (whole == nullptr) fatal("alloc_resnode() ran out of memory!");
    snprintf(whole.get(), size, "Cycle detected: %s", path.get());
    // A text beyond the limit would make every check-in fail.
    report(device, now, STATUS_ALERT, text_for_result(whole.get()));
    agent_log(LOG_WARNING, "Log forwarding cycle detected: %s", path.get());
}

// Once a second does: a log may report thousands of entries in one.
static void end_silence(devnode *device, int64_t now) {
    if (device->lognode->activity_stored == now) return;
    log_silence_reset(device, now, STATUS_GOOD);
    device->lognode->activity_stored = now;
}

bool rule_is_silent(const logrule *rule) {
    return rule->status == STATUS_GOOD && rule->decision == DECISION_QUIET;
}

static void report_match(const logrule *rule, uint32_t number, const char *entry, devnode *device,
                         int64_t now) {
    agent_log(LOG_TRACE, "  matched rule %d in \"%s\": %s %s", static_cast<int>(number), name_of(device),
              status_word(rule->status), decision_word(rule->decision));
    if (rule_is_silent(rule)) return;
    char *text = nullptr;
    if (rule->decision == DECISION_LOG) {
        text = text_for_result(entry);
        end_silence(device, now);
    }
    report(device, now, rule->status, text);
}

// Whether the walk of the target handled the entry; false where there is no target.
static bool walk_target(const logrule *rule, const char *entry, devnode *device, const walk_link *chain) {
    uint32_t depth = chain != nullptr ? chain->depth + 1 : 1;
    if (rule->target == nullptr || depth == WALK_DEPTH_LIMIT || walks_of_entry == WALK_LIMIT) {
        agent_log(LOG_WARNING, "Missing log forward destination");
        return false;
    }
    walk_link here = {.device = device, .previous = chain, .depth = depth};
    return log_rule_walk(entry, rule->target, &here);
}

static rule_outcome apply_rule(const logrule *rule, uint32_t number, const char *entry, devnode *device,
                               const walk_link *chain, int64_t now) {
    auto n = static_cast<int>(number);
    switch (rule->decision) {
    case DECISION_COPYTO:
        agent_log(LOG_TRACE, "  matched copyto rule %d in \"%s\"", n, name_of(device));
        walk_target(rule, entry, device, chain);
        return GO_ON;
    case DECISION_MOVETO:
        agent_log(LOG_TRACE, "  matched moveto rule %d in \"%s\"", n, name_of(device));
        walk_target(rule, entry, device, chain);
        return STOP;
    case DECISION_CALL:
        agent_log(LOG_TRACE, "  matched call rule %d in \"%s\"", n, name_of(device));
        return walk_target(rule, entry, device, chain) ? STOP : GO_ON;
    default:
        report_match(rule, number, entry, device, now);
        return STOP;
    }
}

static rule_outcome apply_rules(const char *entry, devnode *device, const walk_link *chain, int64_t now) {
    if (device->lognode == nullptr || device->lognode->rules == nullptr) return GO_ON;
    rule_findings findings;
    find_rules(entry, device->lognode, &findings);
    uint32_t number = 0;
    for (const logrule *rule = device->lognode->rules; rule != nullptr; rule = rule->next, number++)
        if (rule_holds(&findings, rule) && apply_rule(rule, number, entry, device, chain, now) == STOP)
            return STOP;
    return GO_ON;
}

bool log_rule_walk(const char *entry, devnode *device, const walk_link *chain) {
    int64_t now = time_now();
    walks_of_entry = chain != nullptr ? walks_of_entry + 1 : 1;
    if (device->in_rule_walk != 0) {
        report_cycle(entry, device, chain, now);
        return true;
    }
    device->in_rule_walk = 1;
    rule_outcome outcome = apply_rules(entry, device, chain, now);
    device->in_rule_walk = 0;
    if (outcome == GO_ON) agent_log(LOG_TRACE, "  matched nothing in \"%s\"", name_of(device));
    return outcome == STOP;
}

bool log_entry_walk(const char *entry, devnode *device) {
    agent_log(LOG_TRACE, "Got entry: %s", entry);
    return log_rule_walk(entry, device, nullptr);
}

static devnode *find_target(const devtree *forward_group, const char *conf_id) {
    for (devnode *device = forward_group->devices; device != nullptr; device = device->next)
        if (device->conf_id != nullptr && conf_id != nullptr && text_equal(device->conf_id, conf_id))
            return device;
    return nullptr;
}

static void resolve_device(const devnode *device, const devtree *forward_group) {
    logrule *rule = device->lognode != nullptr ? device->lognode->rules : nullptr;
    for (; rule != nullptr; rule = rule->next) {
        if (rule->decision < DECISION_MOVETO || rule->decision > DECISION_CALL) continue;
        rule->target = find_target(forward_group, rule->destination);
        if (rule->target == nullptr)
            agent_log(LOG_ERROR, "Could not resolve %s",
                      rule->destination != nullptr ? rule->destination : "");
    }
}

static void resolve_group(const devtree *group, const devtree *forward_group) {
    for (const devnode *device = group->devices; device != nullptr; device = device->next)
        resolve_device(device, forward_group);
    for (const devtree *child = group->children; child != nullptr; child = child->next)
        resolve_group(child, forward_group);
}

void log_rule_resolve(devtree *log_group, devtree *forward_group) {
    resolve_group(log_group, forward_group);
}
