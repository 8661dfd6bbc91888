#include "server/check_plan.h"

#include "server/check_path.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

namespace {

// Used where a rule asks for a check and says nothing about its frequency.
constexpr int32_t USUAL_FREQUENCY_S = 60;

// The scanned type of a log.
constexpr uint32_t LOG_TYPE = 9;

// How a check of this scanned type is configured; none for logs, which have a policy of their own, and
// actions.
std::optional<check_kind> kind_of(uint32_t type) {
    switch (type) {
    case 0: // continuous
    case 4: // seconds
        return check_kind::continuous;
    case 7:
        return check_kind::real_continuous;
    case 1:  // enumeration
    case 2:  // enumeration
    case 3:  // two states
    case 5:  // drive status
    case 10: // bay state
    case 11: // fan state
    case 12: // power supply state
    case 13: // volume state
        return check_kind::enumeration;
    default:
        return std::nullopt;
    }
}

// From bytes to the unit of the device, where it counts in kilobytes.
double in_unit_of(const device &what, double bytes) {
    return what.unit == "kB" ? bytes / 1024 : bytes;
}

// A share of an unknown or empty whole is no limit.
std::optional<double> worked_out(const std::optional<limit_rule> &rule, const device &what) {
    if (!rule || rule->off) return std::nullopt;
    if (!rule->share) return rule->bytes ? in_unit_of(what, rule->number) : rule->number;
    if (!what.hint_max || !std::isfinite(*what.hint_max) || *what.hint_max <= 0) return std::nullopt;
    double limit = rule->number * *what.hint_max;
    if (!rule->at_most) return limit;
    return std::min(limit, rule->bytes ? in_unit_of(what, *rule->at_most) : *rule->at_most);
}

void set_severities(const std::optional<std::vector<uint32_t>> &values, uint32_t severity,
                    std::vector<uint32_t> *out) {
    if (!values) return;
    for (uint32_t value : *values) {
        out->resize(std::max<size_t>(out->size(), value + 1), STATUS_GOOD);
        (*out)[value] = severity;
    }
}

check_limits limits_for(check_kind kind, const check_rule &rule, const device &what) {
    check_limits limits;
    if (kind == check_kind::enumeration) {
        set_severities(rule.warn_values, STATUS_WARNING, &limits.severities);
        set_severities(rule.alert_values, STATUS_ALERT, &limits.severities);
        return limits;
    }
    limits.alert_high = worked_out(rule.alert_high, what);
    limits.alert_low = worked_out(rule.alert_low, what);
    limits.warn_high = worked_out(rule.warn_high, what);
    limits.warn_low = worked_out(rule.warn_low, what);
    return limits;
}

// Whether any rule asks for the check.
bool is_wanted(const check_rule &rule) {
    bool spoken_of = rule.frequency || rule.warn_low || rule.alert_low || rule.warn_high || rule.alert_high ||
                     rule.warn_values || rule.alert_values;
    return rule.enabled.value_or(spoken_of);
}

void flatten_groups(const std::vector<device_group> &groups, std::vector<std::string> &path,
                    std::vector<offered_device> *out) {
    for (const device_group &group : groups) {
        path.push_back(group.id);
        for (const device &what : group.devices) {
            offered_device offered = {path, what};
            offered.path.push_back(what.id);
            out->push_back(std::move(offered));
        }
        flatten_groups(group.groups, path, out);
        path.pop_back();
    }
}

std::optional<int32_t> silence_limit(const std::optional<int32_t> &wanted) {
    return wanted == SILENCE_OFF ? std::nullopt : wanted;
}

check_conf log_check(const log_policy &wanted, const std::string &id) {
    return {.frequency = wanted.frequency.value_or(USUAL_FREQUENCY_S),
            .id = id,
            .kind = check_kind::log,
            .log = {.separator = wanted.separator.value_or(""),
                    .inclusion = wanted.inclusion.value_or(SEPARATOR_DROPPED),
                    .rules = wanted.rules.value_or(std::vector<log_rule>()),
                    .warn_silence = silence_limit(wanted.warn_silence),
                    .alert_silence = silence_limit(wanted.alert_silence)}};
}

bool passes_on(const planned_check &check) {
    for (const log_rule &rule : check.conf.log.rules)
        if (!rule.destination.empty()) return true;
    return false;
}

// What a device gets that some rule asks for; none where none does.
std::optional<check_conf> plan_check(const policy &rules, const offered_device &offered) {
    if (offered.what.type == LOG_TYPE && is_log(offered.path)) {
        log_policy wanted = log_policy_for(rules, log_path(offered.path));
        return wanted.enabled.value_or(true) ? std::optional(log_check(wanted, offered.what.id))
                                             : std::nullopt;
    }
    std::optional<check_kind> kind = kind_of(offered.what.type);
    check_rule rule = rule_for(rules, plain_check_name(offered.path), offered.what.comment);
    if (!kind || !is_wanted(rule)) return std::nullopt;
    return check_conf{.frequency = rule.frequency.value_or(USUAL_FREQUENCY_S),
                      .id = offered.what.id,
                      .kind = *kind,
                      .limits = limits_for(*kind, rule, offered.what)};
}

// A log's rules find a forward group by the conf_id.
void add_forward_groups(const policy &rules, std::vector<planned_check> *out) {
    for (const log_policy &group : rules.forwards) {
        planned_check &check = out->emplace_back();
        check.path = {"log", "/forward", group.name};
        check.conf = log_check(group, group.name);
        check.conf.conf_id = group.name;
    }
}

check_conf_group &group_named(std::vector<check_conf_group> &groups, const std::string &id) {
    for (check_conf_group &group : groups)
        if (group.id == id) return group;
    return groups.emplace_back(check_conf_group{.id = id});
}

} // namespace

std::vector<offered_device> flatten_tree(const std::vector<device_group> &tree) {
    std::vector<offered_device> devices;
    std::vector<std::string> path;
    flatten_groups(tree, path, &devices);
    return devices;
}

std::vector<planned_check> plan_checks(const policy &rules, const std::vector<offered_device> &devices) {
    std::vector<planned_check> checks;
    std::set<std::vector<std::string>> seen;
    bool need_forwards = false;
    for (const offered_device &offered : devices) {
        std::optional<check_conf> conf = plan_check(rules, offered);
        if (!conf || !seen.insert(offered.path).second) continue;
        planned_check &check = checks.emplace_back();
        check.path = offered.path;
        check.conf = *conf;
        check.unit = offered.what.unit;
        check.description = offered.what.description;
        need_forwards = need_forwards || passes_on(check);
    }
    if (need_forwards) add_forward_groups(rules, &checks);
    return checks;
}

std::vector<check_conf_group> group_checks(const std::vector<planned_check> &checks) {
    std::vector<check_conf_group> tree;
    for (const planned_check &check : checks) {
        std::vector<check_conf_group> *level = &tree;
        check_conf_group *group = nullptr;
        for (size_t i = 0; i + 1 < check.path.size(); i++) {
            group = &group_named(*level, check.path[i]);
            level = &group->groups;
        }
        if (group != nullptr) group->checks.push_back(check.conf);
    }
    return tree;
}
