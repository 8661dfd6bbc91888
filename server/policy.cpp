#include "server/policy.h"

#include "platform/errors.h"
#include "server/check_path.h"

#include <fstream>
#include <iterator>

const char *const BUILT_IN_POLICY =
    R"(# What every agent is asked to check, unless a policy file says otherwise.

checkin = "30 s"
rescan = "1 d"
keep_results = "30 d"
accept_new = true
rekey = false
max_agents = 10000
max_downtime = "30 d"

[[check]]
name = "fs"
frequency = "60 s"
warn_low = "10 % at most 20 GB"
alert_low = "5 % at most 10 GB"

[[check]]
name = "mem"
frequency = "30 s"
warn_low = "10 %"
alert_low = "5 %"

[[check]]
name = "system.idle"
frequency = "10 s"
warn_low = "10 %"
alert_low = "2 %"

[[check]]
name = "system.cswitch"
frequency = "30 s"

[[check]]
name = "system.uptime"
frequency = "60 s"
warn_low = "10 min"

# Any log: a record a line. What looks like an error is an alert, what looks like a warning is one, and of the
# rest nothing is told.
[[log]]
path = "*"
frequency = "30 s"
separator = "\r?\n"
inclusion = "dropped"
warn_silence = "off"
alert_silence = "off"

[[log.rules]]
clause = """
'[[:<:]]([Ee]rrors?|ERR(ORS?)?|[Ff]ail(ed|ures?)|FAIL(ED|URES?)?|[Ff]atal|FATAL)[[:>:]]'
and not '[[:<:]](0|[Nn]o) ([Ee]rrors?|[Ff]ailures?)[[:>:]]'
or '[[:<:]]([Cc]ritical|CRIT(ICAL)?|[Pp]anic|PANIC|[Ee]mergency|EMERG(ENCY)?|ALERT|SEVERE|[Ss]egfault)[[:>:]]'"""
status = "alert"

[[log.rules]]
clause = "'[[:<:]]([Ww]arn(ings?)?|WARN(INGS?)?)[[:>:]]'"
status = "warn"
)";

namespace {

template <class Value>
void override_with(std::optional<Value> &target, const std::optional<Value> &later) {
    if (later) target = later;
}

template <class Value>
void fill_up(std::optional<Value> &target, const std::optional<Value> &other) {
    if (!target) target = other;
}

} // namespace

const char *load_policy(const std::string &path, policy *out) {
    if (auto *failure = read_policy(BUILT_IN_POLICY, out)) return failure;
    if (path.empty()) return nullptr;
    std::ifstream file(path);
    file.peek(); // a folder shows itself here
    if (!file.is_open() || file.bad()) return format_error("cannot read the policy %s", path.c_str());
    std::string text((std::istreambuf_iterator<char>(file)), {});
    if (auto *failure = read_policy(text, out)) return format_error("%s, %s", path.c_str(), failure);
    return nullptr;
}

check_rule rule_for(const policy &rules, const std::string &check_name) {
    check_rule found = {.pattern = check_name};
    for (const check_rule &rule : rules.rules) {
        if (!name_matches(rule.pattern, check_name)) continue;
        override_with(found.enabled, rule.enabled);
        override_with(found.frequency, rule.frequency);
        override_with(found.warn_low, rule.warn_low);
        override_with(found.alert_low, rule.alert_low);
        override_with(found.warn_high, rule.warn_high);
        override_with(found.alert_high, rule.alert_high);
        override_with(found.warn_values, rule.warn_values);
        override_with(found.alert_values, rule.alert_values);
    }
    return found;
}

log_policy log_policy_for(const policy &rules, const std::string &path) {
    for (const log_policy &entry : rules.logs) {
        if (!log_path_matches(entry.name, path)) continue;
        log_policy found = entry;
        const log_policy &last = rules.logs.back();
        fill_up(found.frequency, last.frequency);
        fill_up(found.separator, last.separator);
        fill_up(found.inclusion, last.inclusion);
        fill_up(found.rules, last.rules);
        fill_up(found.warn_silence, last.warn_silence);
        fill_up(found.alert_silence, last.alert_silence);
        return found;
    }
    return {.name = path, .enabled = false};
}
