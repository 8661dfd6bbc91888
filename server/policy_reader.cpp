// The TOML document of a policy: which keys stand where, and what their values have to be.
#include "server/policy.h"

#include "crypto/md5.h"
#include "platform/errors.h"
#include "server/clause_check.h"
#include "server/key_exchange.h"
#include "server/limits.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

namespace {

constexpr const char *INCLUSIONS[] = {"closes", "opens", "dropped"};
constexpr const char *STATUSES[] = {"ok", "warn", "alert"};
constexpr const char *DECISIONS[] = {"log", "quiet", "moveto", "copyto", "call"};

constexpr const char *A_TIME = "a time like 90 or \"5 min\"";
constexpr const char *A_PERIOD = "1 s to 1 d";
constexpr const char *A_LIMIT = "a number, a share like \"10 % at most 20 GB\", or \"none\"";
constexpr const char *VALUES = "a list of numbers from 0 to 31";
constexpr const char *A_SILENCE = "1 s or more, or \"off\"";

// Values

// A text without a zero byte, which would end it on its way to the agent.
bool parse_text(const toml::node &value, std::string *out) {
    if (!value.is_string()) return false;
    *out = value.as_string()->get();
    return out->find('\0') == std::string::npos;
}

// What stands for a number or a time: a text, or a bare number.
bool parse_words(const toml::node &value, std::string *out) {
    char number[32] = "";
    if (auto *integer = value.as_integer())
        snprintf(number, sizeof number, "%lld", static_cast<long long>(integer->get()));
    else if (auto *real = value.as_floating_point())
        snprintf(number, sizeof number, "%.17g", real->get());
    else
        return parse_text(value, out);
    *out = number;
    return true;
}

bool parse_bool(const toml::node &value, bool *out) {
    if (!value.is_boolean()) return false;
    *out = value.as_boolean()->get();
    return true;
}

template <class Number>
bool parse_time(const toml::node &value, double least, double most, Number *out, double unit_s = 1) {
    std::string words;
    double seconds = 0;
    if (!parse_words(value, &words) || !parse_duration(words, &seconds)) return false;
    if (seconds < least || seconds > most) return false;
    *out = static_cast<Number>(seconds / unit_s);
    return true;
}

bool parse_period(const toml::node &value, std::optional<int32_t> *out) {
    return parse_time(value, 1, 86400, &out->emplace());
}

bool parse_silence(const toml::node &value, std::optional<int32_t> *out) {
    std::string words;
    if (parse_words(value, &words) && words == "off") {
        *out = SILENCE_OFF;
        return true;
    }
    return parse_time(value, 1, INT32_MAX, &out->emplace());
}

bool parse_number(const toml::node &value, double least, double most, double *out) {
    std::string words;
    return value.is_number() && parse_words(value, &words) && parse_count(words, least, most, out);
}

bool parse_max_agents(const toml::node &value, policy *out) {
    double count = 0;
    bool valid = parse_number(value, 1, 1e9, &count);
    if (valid) out->max_agents = static_cast<int64_t>(count);
    return valid;
}

bool parse_limit(const toml::node &value, std::optional<limit_rule> *out) {
    std::string words;
    return parse_words(value, &words) && parse_limit(words, &out->emplace());
}

bool parse_values(const toml::node &value, std::optional<std::vector<uint32_t>> *out) {
    std::vector<uint32_t> values;
    if (!value.is_array()) return false;
    for (const toml::node &element : *value.as_array()) {
        double number = 0;
        if (!parse_number(element, 0, 31, &number)) return false;
        values.push_back(static_cast<uint32_t>(number));
    }
    *out = values;
    return true;
}

bool parse_servers(const toml::node &value, policy *out) {
    std::vector<server_address> servers;
    if (!value.is_array()) return false;
    for (const toml::node &element : *value.as_array()) {
        std::string words;
        if (!parse_text(element, &words) || !parse_server(words, &servers.emplace_back())) return false;
    }
    out->servers = servers;
    return true;
}

// One of a list of words, as its place in it.
template <size_t N>
bool parse_choice(const toml::node &value, const char *const (&words)[N], uint32_t *out) {
    std::string word;
    if (!parse_text(value, &word)) return false;
    for (uint32_t i = 0; i < N; i++) {
        if (word != words[i]) continue;
        *out = i;
        return true;
    }
    return false;
}

bool parse_text_within(const toml::node &value, size_t most, std::string *out) {
    return parse_text(value, out) && !out->empty() && out->size() <= most;
}

// Keys

template <class Target>
struct keyword {
    const char *name;
    bool (*parse)(const toml::node &value, Target *target); // absent for what is read apart from the rest
    const char *expected;
};

using node = toml::node;

constexpr keyword<policy> SETTINGS[] = {
    {"checkin", [](const node &v, policy *p) { return parse_time(v, 10, 86400, &p->checkin_frequency); },
     "10 s to 1 d"},
    {"rescan", [](const node &v, policy *p) { return parse_time(v, 60, 1e9, &p->rescan_s); },
     "1 min or more"},
    {"keep_results", [](const node &v, policy *p) { return parse_time(v, 0, 1e9, &p->keep_results_s); },
     A_TIME},
    {"accept_new", [](const node &v, policy *p) { return parse_bool(v, &p->accept_new); }, "true or false"},
    {"rekey", [](const node &v, policy *p) { return parse_bool(v, &p->rekey); }, "true or false"},
    {"max_agents", parse_max_agents, "a number from 1 on"},
    {"max_downtime",
     [](const node &v, policy *p) { return parse_time(v, 60, 1e9, &p->max_downtime_min, 60); },
     "1 min or more"},
    {"servers", parse_servers, "a list like [\"host:port\", \"host\"]"},
    {"check", nullptr, nullptr},
    {"log", nullptr, nullptr},
    {"forward", nullptr, nullptr},
};

constexpr keyword<check_rule> CHECK_KEYS[] = {
    {"name", [](const node &v, check_rule *r) { return parse_text_within(v, SIZE_MAX, &r->pattern); },
     "the name of a check, which may hold *"},
    {"comment",
     [](const node &v, check_rule *r) { return parse_text_within(v, SIZE_MAX, &r->comment.emplace()); },
     "the comment of a device, which may hold *"},
    {"enabled", [](const node &v, check_rule *r) { return parse_bool(v, &r->enabled.emplace()); },
     "true or false"},
    {"frequency", [](const node &v, check_rule *r) { return parse_period(v, &r->frequency); }, A_PERIOD},
    {"warn_low", [](const node &v, check_rule *r) { return parse_limit(v, &r->warn_low); }, A_LIMIT},
    {"alert_low", [](const node &v, check_rule *r) { return parse_limit(v, &r->alert_low); }, A_LIMIT},
    {"warn_high", [](const node &v, check_rule *r) { return parse_limit(v, &r->warn_high); }, A_LIMIT},
    {"alert_high", [](const node &v, check_rule *r) { return parse_limit(v, &r->alert_high); }, A_LIMIT},
    {"warn_values", [](const node &v, check_rule *r) { return parse_values(v, &r->warn_values); }, VALUES},
    {"alert_values", [](const node &v, check_rule *r) { return parse_values(v, &r->alert_values); }, VALUES},
};

constexpr keyword<log_policy> LOG_KEYS[] = {
    {"path", [](const node &v, log_policy *l) { return parse_text_within(v, SIZE_MAX, &l->name); },
     "the path of a log, which may hold *"},
    {"enabled", [](const node &v, log_policy *l) { return parse_bool(v, &l->enabled.emplace()); },
     "true or false"},
    {"frequency", [](const node &v, log_policy *l) { return parse_period(v, &l->frequency); }, A_PERIOD},
    {"separator",
     [](const node &v, log_policy *l) {
         return parse_text_within(v, SEPARATOR_LIMIT, &l->separator.emplace());
     },
     "an expression of at most 1024 characters"},
    {"inclusion",
     [](const node &v, log_policy *l) { return parse_choice(v, INCLUSIONS, &l->inclusion.emplace()); },
     "closes, opens or dropped"},
    {"warn_silence", [](const node &v, log_policy *l) { return parse_silence(v, &l->warn_silence); },
     A_SILENCE},
    {"alert_silence", [](const node &v, log_policy *l) { return parse_silence(v, &l->alert_silence); },
     A_SILENCE},
    {"rules", nullptr, nullptr},
};

constexpr keyword<log_policy> FORWARD_KEYS[] = {
    {"name", [](const node &v, log_policy *l) { return parse_text_within(v, DESTINATION_LIMIT, &l->name); },
     "a name of at most 32 characters"},
    {"frequency", [](const node &v, log_policy *l) { return parse_period(v, &l->frequency); }, A_PERIOD},
    {"warn_silence", [](const node &v, log_policy *l) { return parse_silence(v, &l->warn_silence); },
     A_SILENCE},
    {"alert_silence", [](const node &v, log_policy *l) { return parse_silence(v, &l->alert_silence); },
     A_SILENCE},
    {"rules", nullptr, nullptr},
};

constexpr keyword<log_rule> RULE_KEYS[] = {
    {"clause", [](const node &v, log_rule *r) { return parse_text_within(v, CLAUSE_LIMIT, &r->clause); },
     "a text of at most 1024 characters"},
    {"decision", [](const node &v, log_rule *r) { return parse_choice(v, DECISIONS, &r->decision); },
     "log, quiet, moveto, copyto or call"},
    {"status", [](const node &v, log_rule *r) { return parse_choice(v, STATUSES, &r->status); },
     "ok, warn or alert"},
    {"destination",
     [](const node &v, log_rule *r) { return parse_text_within(v, DESTINATION_LIMIT, &r->destination); },
     "a name of at most 32 characters"},
};

const char *at(const node &place, const char *reason) {
    return format_error("line %u: %s", static_cast<unsigned>(place.source().begin.line), reason);
}

// Reads all keys of a table, but those that are read apart.
template <class Target, size_t N>
const char *read_keys(const toml::table &table, const keyword<Target> (&keywords)[N], Target *target) {
    for (auto &&[key, value] : table) {
        const keyword<Target> *known = nullptr;
        for (const keyword<Target> &row : keywords)
            if (key.str() == row.name) known = &row;
        if (known == nullptr) {
            std::string name(key.str());
            return at(value, format_error("nothing is called \"%s\" here", name.c_str()));
        }
        if (known->parse != nullptr && !known->parse(value, target))
            return at(value, format_error("%s is to be %s", known->name, known->expected));
    }
    return nullptr;
}

// Calls `read` with each table of a list like [[check]], which may be absent.
template <class Read>
const char *read_tables(const toml::table &parent, const char *name, Read read) {
    const node *list = parent.get(name);
    if (list == nullptr) return nullptr;
    const toml::array *tables = list->as_array();
    if (tables == nullptr) return at(*list, format_error("%s is to be a list of tables", name));
    for (const node &element : *tables) {
        if (!element.is_table()) return at(element, format_error("%s is to be a list of tables", name));
        if (auto *failure = read(*element.as_table())) return failure;
    }
    return nullptr;
}

const char *need(const toml::table &table, const char *key) {
    return table.contains(key) ? nullptr : at(table, format_error("\"%s\" is missing", key));
}

// Checks

const char *read_check(const toml::table &table, policy *out) {
    check_rule rule;
    if (auto *failure = need(table, "name")) return failure;
    if (auto *failure = read_keys(table, CHECK_KEYS, &rule)) return failure;
    bool is_family = rule.pattern.find_first_of(".*") == std::string::npos;
    if (is_family) rule.pattern += ".*";
    out->rules.push_back(rule);
    return nullptr;
}

// Logs

bool is_forward(const policy &rules, const std::string &name) {
    for (const log_policy &group : rules.forwards)
        if (group.name == name) return true;
    return false;
}

const char *check_destination(const toml::table &table, const log_rule &rule, const policy &rules) {
    const node *destination = table.get("destination");
    const node *status = table.get("status");
    if (rule.decision <= DECISION_QUIET)
        return destination == nullptr ? nullptr
                                      : at(*destination, "only moveto, copyto and call have a destination");
    if (status != nullptr) return at(*status, "only log and quiet have a status");
    if (auto *failure = need(table, "destination")) return failure;
    if (is_forward(rules, rule.destination)) return nullptr;
    return at(*destination, format_error("no forward group is called \"%s\"", rule.destination.c_str()));
}

const char *read_rule(const toml::table &table, const policy &rules, std::vector<log_rule> *out) {
    log_rule rule;
    if (auto *failure = need(table, "clause")) return failure;
    if (auto *failure = read_keys(table, RULE_KEYS, &rule)) return failure;
    if (auto *reason = check_clause(rule.clause))
        return at(*table.get("clause"), format_error("the clause, %s", reason));
    if (auto *failure = check_destination(table, rule, rules)) return failure;
    out->push_back(rule);
    return nullptr;
}

const char *read_rules(const toml::table &table, const policy &rules, log_policy *out) {
    if (!table.contains("rules")) return nullptr;
    auto &list = out->rules.emplace();
    return read_tables(table, "rules", [&](auto &rule) { return read_rule(rule, rules, &list); });
}

const char *read_log(const toml::table &table, const policy &rules, std::vector<log_policy> *out) {
    log_policy entry = {.enabled = true};
    if (auto *failure = need(table, "path")) return failure;
    if (auto *failure = read_keys(table, LOG_KEYS, &entry)) return failure;
    if (entry.separator)
        if (auto *reason = check_separator(*entry.separator))
            return at(*table.get("separator"), format_error("the separator: %s", reason));
    if (auto *failure = read_rules(table, rules, &entry)) return failure;
    out->push_back(entry);
    return nullptr;
}

const char *read_forward(const toml::table &table, policy *out) {
    log_policy group;
    if (auto *failure = need(table, "name")) return failure;
    if (auto *failure = read_keys(table, FORWARD_KEYS, &group)) return failure;
    if (is_forward(*out, group.name))
        return at(table, format_error("there are two forward groups \"%s\"", group.name.c_str()));
    out->forwards.push_back(group);
    return nullptr;
}

// All groups are known before the first rule is read, so that rules may name any of them.
const char *read_forwards(const toml::table &document, policy *out) {
    size_t group = out->forwards.size();
    if (auto *failure =
            read_tables(document, "forward", [&](auto &table) { return read_forward(table, out); }))
        return failure;
    return read_tables(document, "forward",
                       [&](auto &table) { return read_rules(table, *out, &out->forwards[group++]); });
}

// Chains the document, without its comments, to those before it.
void add_to_fingerprint(const toml::table &document, policy *out) {
    std::ostringstream text;
    text << document;
    unsigned char digest[MD5_SIZE];
    md5_state state;
    md5_init(&state);
    md5_update(&state, out->fingerprint.data(), out->fingerprint.size());
    md5_update(&state, text.str().data(), text.str().size());
    md5_final(&state, digest);
    out->fingerprint = hexadecimal(digest, sizeof digest);
}

} // namespace

const char *read_policy(const std::string &text, policy *out) {
    toml::parse_result parsed = toml::parse(text);
    if (!parsed) {
        std::string reason(parsed.error().description());
        return format_error("line %u: %s", static_cast<unsigned>(parsed.error().source().begin.line),
                            reason.c_str());
    }
    const toml::table &document = parsed.table();
    std::vector<log_policy> logs;
    auto read_a_check = [&](auto &table) { return read_check(table, out); };
    auto read_a_log = [&](auto &table) { return read_log(table, *out, &logs); };
    if (auto *failure = read_keys(document, SETTINGS, out)) return failure;
    if (auto *failure = read_tables(document, "check", read_a_check)) return failure;
    if (auto *failure = read_forwards(document, out)) return failure;
    if (auto *failure = read_tables(document, "log", read_a_log)) return failure;
    out->logs.insert(out->logs.begin(), logs.begin(), logs.end());
    add_to_fingerprint(document, out);
    return nullptr;
}
