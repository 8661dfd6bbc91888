#include "server/policy_values.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int32_t USUAL_PORT = 3241;
constexpr size_t MAX_SERVER_NAME = 256;
constexpr const char *CAP_WORDS = "at most";

// A name and the number that it stands for.
struct word_value {
    const char *word;
    double factor;
};

constexpr word_value TIME_UNITS[] = {{"", 1}, {"s", 1}, {"min", 60}, {"h", 3600}, {"d", 86400}};
constexpr word_value SIZE_UNITS[] = {
    {"kB", 1024.0}, {"MB", 1048576.0}, {"GB", 1073741824.0}, {"TB", 1099511627776.0}};

std::string trimmed(const std::string &text) {
    size_t from = text.find_first_not_of(" \t");
    size_t to = text.find_last_not_of(" \t");
    return from == std::string::npos ? "" : text.substr(from, to - from + 1);
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

bool parse_share(const std::string &text, double *out) {
    std::string word;
    if (!split_number(text, out, &word) || word != "%" || *out > 100) return false;
    *out /= 100;
    return true;
}

} // namespace

bool parse_duration(const std::string &text, double *out) {
    std::string word;
    double number = 0;
    if (!split_number(text, &number, &word)) return false;
    const word_value *unit = find_unit(TIME_UNITS, word);
    if (unit != nullptr) *out = number * unit->factor;
    return unit != nullptr;
}

bool parse_count(const std::string &text, double least, double most, double *out) {
    std::string rest;
    double number = 0;
    if (!split_number(text, &number, &rest) || !rest.empty()) return false;
    if (number < least || number > most || number != std::floor(number)) return false;
    *out = number;
    return true;
}

bool parse_limit(const std::string &text, limit_rule *out) {
    limit_rule limit;
    std::string first = text;
    size_t cap = text.find(CAP_WORDS);
    if (cap != std::string::npos) {
        double amount = 0;
        if (!parse_amount(trimmed(text.substr(cap + strlen(CAP_WORDS))), &amount, &limit.bytes)) return false;
        limit.at_most = amount;
        first = trimmed(text.substr(0, cap));
    }
    limit.off = text == "none";
    limit.share = !first.empty() && first.back() == '%';
    if (limit.share && !parse_share(first, &limit.number)) return false;
    bool is_amount = !limit.off && !limit.share;
    if (is_amount && (limit.at_most || !parse_amount(first, &limit.number, &limit.bytes))) return false;
    *out = limit;
    return true;
}

bool parse_server(const std::string &text, server_address *out) {
    size_t colon = text.rfind(':');
    double port = USUAL_PORT;
    std::string name = trimmed(text.substr(0, colon));
    if (name.empty() || name.size() > MAX_SERVER_NAME) return false;
    if (colon != std::string::npos && !parse_count(text.substr(colon + 1), 1, 65535, &port)) return false;
    *out = {.name = name, .port = static_cast<int32_t>(port)};
    return true;
}
