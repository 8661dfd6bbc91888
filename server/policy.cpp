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

# Load, as numbers to look back at. Of the hundreds of counters the others are for a policy of one's own.
[[check]]
name = "perf.System.Processes"
frequency = "60 s"

[[check]]
name = "perf.System.Processor Queue Length"
frequency = "30 s"

[[check]]
name = "perf.Memory.Pages/sec"
frequency = "30 s"

# Programs that most hosts cannot do without.
[[check]]
name = "proc.systemd"
frequency = "60 s"
alert_values = [0]

[[check]]
name = "proc.cron*"
frequency = "60 s"
warn_values = [0]

[[check]]
name = "proc.lsass.exe"
frequency = "60 s"
alert_values = [0]

[[check]]
name = "proc.services.exe"
frequency = "60 s"
alert_values = [0]

# What ran when the host was scanned shall go on running.
[[check]]
name = "scm"
comment = "The service is running"
frequency = "60 s"
warn_values = [0]

# Those that come with a login or a question, and go by themselves.
[[check]]
name = "scm.user*@*"
enabled = false

[[check]]
name = "scm.run-*"
enabled = false

[[check]]
name = "scm.systemd-hostnamed.service"
enabled = false

[[check]]
name = "scm.systemd-localed.service"
enabled = false

[[check]]
name = "scm.systemd-timedated.service"
enabled = false

[[check]]
name = "scm.packagekit.service"
enabled = false

[[check]]
name = "scm.fwupd.service"
enabled = false

[[check]]
name = "scm.TrustedInstaller"
enabled = false

[[check]]
name = "scm.sppsvc"
enabled = false

[[check]]
name = "scm.wuauserv"
enabled = false

[[check]]
name = "scm.BITS"
enabled = false

[[check]]
name = "ifthrough.*.Bytes Received/sec"
frequency = "60 s"
warn_high = "90 %"

[[check]]
name = "ifthrough.*.Bytes Sent/sec"
frequency = "60 s"
warn_high = "90 %"

[[check]]
name = "ifevents.*.Packets Received Errors"
frequency = "60 s"

# The host's ends of containers and virtual machines, which come and go with them.
[[check]]
name = "if*.veth*.*"
enabled = false

[[check]]
name = "if*.cali*.*"
enabled = false

[[check]]
name = "if*.tap*.*"
enabled = false

[[check]]
name = "if*.vnet*.*"
enabled = false

[[check]]
name = "block.physical.*.idle"
frequency = "60 s"
warn_low = "5 %"

[[check]]
name = "block.physical.*.read_bytes"
frequency = "60 s"

[[check]]
name = "block.physical.*.write_bytes"
frequency = "60 s"

# Drives: beyond its lifetime, and about to fail.
[[check]]
name = "smart"
frequency = "10 min"
warn_values = [1]
alert_values = [2]

# Enclosures. A slot may be empty.
[[check]]
name = "safte.*.slot.*"
frequency = "2 min"
warn_values = [1, 2, 7]
alert_values = [3]

[[check]]
name = "safte.*.fan.*"
frequency = "2 min"
warn_values = [2]
alert_values = [1]

[[check]]
name = "safte.*.psu.*"
frequency = "2 min"
warn_values = [1, 4]
alert_values = [2, 3]

[[check]]
name = "safte.*.temp.*"
frequency = "2 min"
warn_high = "50"
alert_high = "60"

# Sensors of the board. What of their numbers is too much, each board knows for itself; what has two states or is
# a drive bay is told here.
[[check]]
name = "ipmisens"
frequency = "2 min"

[[check]]
name = "ipmisens.chassisstatus.*"
alert_values = [1]

[[check]]
name = "ipmisens.E04.*.S0D.*"
warn_values = [1, 2]
alert_values = [3]

# Volumes: without all of their drives or too hot, and failed. One that is expanding is well.
[[check]]
name = "csmiplus"
frequency = "2 min"
warn_values = [2, 3, 4, 5, 8]
alert_values = [1, 6, 7, 9, 11]

# Programs of the host's own administrator: a failure of one that says yes or no is an alert.
[[check]]
name = "custom"
frequency = "60 s"
alert_values = [0]

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

check_rule rule_for(const policy &rules, const std::string &check_name, const std::string &comment) {
    check_rule found = {.pattern = check_name};
    for (const check_rule &rule : rules.rules) {
        if (!name_matches(rule.pattern, check_name)) continue;
        if (rule.comment && !name_matches(*rule.comment, comment)) continue;
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
