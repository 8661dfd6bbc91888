#include "server/policy.h"

#include "crypto/md5.h"
#include "platform/errors.h"
#include "server/check_path.h"
#include "server/key_exchange.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

const char *const BUILT_IN_POLICY =
    R"(# What every agent is asked to check, unless a policy file says otherwise.

checkin = 30 s
rescan = 1 d
keep_results = 30 d
accept_new = yes
rekey = no
max_agents = 10000
max_downtime = 30 d

[fs]
frequency = 60 s
warn_low = 10 % at most 20 GB
alert_low = 5 % at most 10 GB

[mem]
frequency = 30 s
warn_low = 10 %
alert_low = 5 %

[system.idle]
frequency = 10 s
warn_low = 10 %
alert_low = 2 %

[system.cswitch]
frequency = 30 s

[system.uptime]
frequency = 60 s
warn_low = 10 min
)";

namespace {

// A name and the number that it stands for.
struct word_value {
    const char *word;
    double factor;
};

constexpr word_value TIME_UNITS[] = {{"", 1}, {"s", 1}, {"min", 60}, {"h", 3600}, {"d", 86400}};
constexpr word_value SIZE_UNITS[] = {
    {"kB", 1024.0}, {"MB", 1048576.0}, {"GB", 1073741824.0}, {"TB", 1099511627776.0}};

std::string trimmed(const std::string &text) {
    size_t from = text.find_first_not_of(" \t\r");
    size_t to = text.find_last_not_of(" \t\r");
    return from == std::string::npos ? "" : text.substr(from, to - from + 1);
}

// A '#' begins a comment at the start of a line and behind a blank.
std::string without_comment(const std::string &line) {
    for (size_t i = 0; i < line.size(); i++)
        if (line[i] == '#' && (i == 0 || line[i - 1] == ' ' || line[i - 1] == '\t')) return line.substr(0, i);
    return line;
}

template <size_t N>
const word_value *find_unit(const word_value (&units)[N], const std::string &word) {
    for (const word_value &unit : units)
        if (word == unit.word) return &unit;
    return nullptr;
}

// "12.5 GB": the number, and the word behind it.
bool split_number(const std::string &text, double *out, std::string *out_word) {
    char *end = nullptr;
    double number = strtod(text.c_str(), &end);
    if (end == text.c_str() || !std::isfinite(number) || number < 0) return false;
    *out = number;
    *out_word = trimmed(end);
    return true;
}

bool parse_duration(const std::string &text, double *out) {
    std::string word;
    if (!split_number(text, out, &word)) return false;
    const word_value *unit = find_unit(TIME_UNITS, word);
    *out *= unit != nullptr ? unit->factor : 0;
    return unit != nullptr;
}

template <class Number>
bool parse_seconds(const std::string &text, double least, double most, Number *out, double unit_s = 1) {
    double seconds = 0;
    if (!parse_duration(text, &seconds) || seconds < least || seconds > most) return false;
    *out = static_cast<Number>(seconds / unit_s);
    return true;
}

bool parse_count(const std::string &text, double least, double most, double *out) {
    std::string rest;
    return split_number(text, out, &rest) && rest.empty() && *out >= least && *out <= most &&
           *out == std::floor(*out);
}

bool parse_max_agents(const std::string &text, policy *out) {
    double count = 0;
    bool valid = parse_count(text, 1, 1e9, &count);
    out->max_agents = valid ? static_cast<int64_t>(count) : out->max_agents;
    return valid;
}

bool parse_bool(const std::string &text, bool *out) {
    *out = text == "yes";
    return *out || text == "no";
}

// A plain number, one with a unit of time, or a size, which counts in bytes.
bool parse_amount(const std::string &text, double *out, bool *out_bytes) {
    std::string word;
    if (!split_number(text, out, &word)) return false;
    const word_value *size = find_unit(SIZE_UNITS, word);
    const word_value *time = find_unit(TIME_UNITS, word);
    *out_bytes = size != nullptr;
    if (size == nullptr && time == nullptr) return false;
    *out *= size != nullptr ? size->factor : time->factor;
    return true;
}

// "10 % at most 20 GB", "600", "10 min", "5 GB" or "none".
bool parse_limit(const std::string &text, std::optional<limit_rule> *out) {
    limit_rule limit;
    std::string first = text;
    size_t cap = text.find("at most");
    if (cap != std::string::npos) {
        double amount = 0;
        if (!parse_amount(trimmed(text.substr(cap + strlen("at most"))), &amount, &limit.bytes)) return false;
        limit.at_most = amount;
        first = trimmed(text.substr(0, cap));
    }
    if (text == "none") {
        limit.off = true;
    } else if (!first.empty() && first.back() == '%') {
        std::string word;
        if (!split_number(first, &limit.number, &word) || word != "%" || limit.number > 100) return false;
        limit.number /= 100;
        limit.share = true;
    } else if (cap != std::string::npos || !parse_amount(first, &limit.number, &limit.bytes)) {
        return false;
    }
    *out = limit;
    return true;
}

// "0, 2, 3": values of an enumeration, each 0 to 31.
bool parse_values(const std::string &text, std::optional<std::vector<uint32_t>> *out) {
    std::vector<uint32_t> values;
    std::istringstream words(text == "none" ? "" : text);
    for (std::string word; std::getline(words, word, ',');) {
        double number = 0;
        if (!parse_count(trimmed(word), 0, 31, &number)) return false;
        values.push_back(static_cast<uint32_t>(number));
    }
    *out = values;
    return true;
}

// "host, host:port".
bool parse_servers(const std::string &text, std::vector<server_address> *out) {
    std::vector<server_address> servers;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) {
        word = trimmed(word);
        size_t colon = word.rfind(':');
        server_address server = {.name = word.substr(0, colon), .port = 3241};
        char *end = nullptr;
        if (colon != std::string::npos)
            server.port = static_cast<int32_t>(strtol(word.c_str() + colon + 1, &end, 10));
        if (server.name.empty() || server.name.size() > 256 || (end != nullptr && *end != '\0') ||
            server.port < 1 || server.port > 65535)
            return false;
        servers.push_back(server);
    }
    *out = servers;
    return true;
}

using setting_parser = bool (*)(const std::string &text, policy *out);
using rule_parser = bool (*)(const std::string &text, check_rule *out);

template <class Parser>
struct keyword {
    const char *name;
    Parser parse;
    const char *expected;
};

constexpr keyword<setting_parser> SETTINGS[] = {
    {"checkin", [](auto &t, policy *p) { return parse_seconds(t, 10, 86400, &p->checkin_frequency); },
     "10 s to 1 d"},
    {"rescan", [](auto &t, policy *p) { return parse_seconds(t, 60, 1e9, &p->rescan_s); }, "1 min or more"},
    {"keep_results", [](auto &t, policy *p) { return parse_seconds(t, 0, 1e9, &p->keep_results_s); },
     "a time, or 0 for ever"},
    {"accept_new", [](auto &t, policy *p) { return parse_bool(t, &p->accept_new); }, "yes or no"},
    {"rekey", [](auto &t, policy *p) { return parse_bool(t, &p->rekey); }, "yes or no"},
    {"max_agents", parse_max_agents, "a number from 1 on"},
    {"max_downtime", [](auto &t, policy *p) { return parse_seconds(t, 60, 1e9, &p->max_downtime_min, 60); },
     "1 min or more"},
    {"servers", [](auto &t, policy *p) { return parse_servers(t, &p->servers); }, "host:port, host:port"},
};

constexpr const char *A_LIMIT = "a number, a share like \"10 % at most 20 GB\", or none";
constexpr const char *VALUES = "numbers from 0 to 31";

constexpr keyword<rule_parser> RULE_SETTINGS[] = {
    {"enabled", [](auto &t, check_rule *r) { return parse_bool(t, &r->enabled.emplace()); }, "yes or no"},
    {"frequency", [](auto &t, check_rule *r) { return parse_seconds(t, 1, 86400, &r->frequency.emplace()); },
     "1 s to 1 d"},
    {"warn_low", [](auto &t, check_rule *r) { return parse_limit(t, &r->warn_low); }, A_LIMIT},
    {"alert_low", [](auto &t, check_rule *r) { return parse_limit(t, &r->alert_low); }, A_LIMIT},
    {"warn_high", [](auto &t, check_rule *r) { return parse_limit(t, &r->warn_high); }, A_LIMIT},
    {"alert_high", [](auto &t, check_rule *r) { return parse_limit(t, &r->alert_high); }, A_LIMIT},
    {"warn_values", [](auto &t, check_rule *r) { return parse_values(t, &r->warn_values); }, VALUES},
    {"alert_values", [](auto &t, check_rule *r) { return parse_values(t, &r->alert_values); }, VALUES},
};

template <class Parser, size_t N, class Target>
const char *apply(const keyword<Parser> (&keywords)[N], const std::string &key, const std::string &value,
                  Target *target) {
    for (const keyword<Parser> &known : keywords) {
        if (key != known.name) continue;
        return known.parse(value, target) ? nullptr
                                          : format_error("\"%s\" is not %s", value.c_str(), known.expected);
    }
    return format_error("nothing is called \"%s\" here", key.c_str());
}

const char *read_line(const std::string &line, policy *out, bool *in_rule) {
    if (line.front() == '[') {
        if (line.back() != ']' || line.size() < 3) return "a section is [NAME], and a name may hold *";
        std::string pattern = trimmed(line.substr(1, line.size() - 2));
        bool family = pattern.find_first_of(".*") == std::string::npos;
        out->rules.push_back({.pattern = family ? pattern + ".*" : pattern});
        *in_rule = true;
        return nullptr;
    }
    size_t equals = line.find('=');
    if (equals == std::string::npos) return "neither \"key = value\" nor [NAME]";
    std::string key = trimmed(line.substr(0, equals));
    std::string value = trimmed(line.substr(equals + 1));
    return *in_rule ? apply(RULE_SETTINGS, key, value, &out->rules.back()) : apply(SETTINGS, key, value, out);
}

// Chains the line to those before it.
void add_to_fingerprint(const std::string &line, policy *out) {
    unsigned char digest[MD5_SIZE];
    md5_state state;
    md5_init(&state);
    md5_update(&state, out->fingerprint.data(), out->fingerprint.size());
    md5_update(&state, line.data(), line.size());
    md5_final(&state, digest);
    out->fingerprint = hexadecimal(digest, sizeof digest);
}

template <class Value>
void override_with(std::optional<Value> &target, const std::optional<Value> &later) {
    if (later) target = later;
}

} // namespace

const char *read_policy(const std::string &text, policy *out) {
    std::istringstream lines(text);
    bool in_rule = false;
    int number = 0;
    for (std::string raw; std::getline(lines, raw);) {
        number++;
        std::string line = trimmed(without_comment(raw));
        if (line.empty()) continue;
        if (auto *failure = read_line(line, out, &in_rule))
            return format_error("line %d: %s", number, failure);
        add_to_fingerprint(line, out);
    }
    return nullptr;
}

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
