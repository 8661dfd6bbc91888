#include "protocol/record_cases.h"

#include "crypto/bignum.h"
#include "fakes/hex.h"
#include "platform/heap.h"
#include "protocol/records.h"
#include "protocol/wire.h"

// Words of what was read, which is freed.

static std::string words_of(int32_t value) {
    return std::to_string(value);
}

static std::string words_of(uint32_t value) {
    return "#" + std::to_string(value);
}

static std::string truth(int32_t value) {
    return value == 1 ? "true" : value == 0 ? "false" : "neither";
}

static std::string words_of(char *text) {
    text_guard owner(text);
    return text != nullptr ? "\"" + std::string(text) + "\"" : "(none)";
}

static std::string words_of(bignum *number) {
    bignum_guard owner(number);
    if (number == nullptr) return "(none)";
    std::string content(1024, '\0');
    size_t size = content.size();
    if (bn_get_data(number, content.data(), &size) != nullptr) return "(too long)";
    std::string words = "0x";
    for (char c : hex(content.substr(0, size)))
        if (c != ' ') words.push_back(c);
    return words;
}

// Values of words.

namespace {

struct field_values {
    const field_words &words;

    int32_t integer(size_t i) const { return static_cast<int32_t>(std::stoll(words[i])); }
    int32_t boolean(size_t i) const { return words[i] == "true"; }
    uint32_t enumerated(size_t i) const { return static_cast<uint32_t>(std::stoul(words[i].substr(1))); }
};

// Holds texts and numbers while they are written.
struct borrowed {
    std::vector<std::string> texts;
    bignum_guard number;

    explicit borrowed(const field_words &words) {
        for (const std::string &word : words)
            texts.push_back(word.starts_with('"') ? word.substr(1, word.size() - 2) : word);
        if (words.size() != 1 || !words[0].starts_with("0x")) return;
        std::string content = bytes(words[0].substr(2));
        number.reset(bn_new_small(0));
        static_cast<void>(bn_set_data(number.get(), content.data(), content.size()));
    }
    const char *text(size_t i) const { return texts[i].c_str(); }
};

} // namespace

// Adapters: a record's writer taking words, a record's reader giving words.

#define READER(function, record, ...)                                                                        \
    [](io *stream, uint32_t tag, field_words *out) {                                                         \
        record r;                                                                                            \
        auto *failure = function(stream, &r, tag);                                                           \
        *out = {__VA_ARGS__};                                                                                \
        return failure;                                                                                      \
    }

#define EMPTY_READER(function) [](io *stream, uint32_t tag, field_words *) { return function(stream, tag); }

#define WRITER(function, record, ...)                                                                        \
    [](io *stream, const field_words &words) {                                                               \
        field_values v{words};                                                                               \
        borrowed b(words);                                                                                   \
        static_cast<void>(v);                                                                                \
        record r = {__VA_ARGS__};                                                                            \
        return function(stream, &r);                                                                         \
    }

#define EMPTY_WRITER(function) [](io *stream, const field_words &) { return function(stream); }

// The table.

using enum field_type;

static constexpr bool OPEN = true;
static constexpr bool CLOSED = false;

static const std::vector<field_case> build_fields = {{"packageId", integer},
                                                     {"majorVersion", integer},
                                                     {"minorVersion", integer},
                                                     {"buildNumber", integer},
                                                     {"agentCaps", integer}};

const std::vector<record_case> record_cases = {
    {"client_wants",
     "60",
     3,
     OPEN,
     {{"version", integer, 0, 65535}},
     WRITER(write_client_wants_incomplete, client_wants, v.integer(0)),
     nullptr},
    {"client_private_key",
     "A1",
     13,
     CLOSED,
     {{"name", text, 0, 256},
      {"domain", text, 0, 1024},
      {"id", text, 0, 128},
      {"hasMasterKey", boolean},
      {"hasHallmark", boolean},
      {"testing", boolean}},
     WRITER(write_client_private_key, client_private_key, b.text(0), b.text(1), b.text(2), v.boolean(3),
            v.boolean(4), v.boolean(5)),
     nullptr},
    {"server_offers",
     "61",
     11,
     OPEN,
     {{"version", integer, 0, 65535}},
     nullptr,
     READER(read_server_offers_incomplete, server_offers, words_of(r.version))},
    {"server_private_key",
     "A1",
     13,
     CLOSED,
     {{"hasMasterKey", boolean}, {"hasHallmark", boolean}},
     nullptr,
     READER(read_server_private_key, server_private_key, truth(r.hasMasterKey), truth(r.hasHallmark))},
    {"negotiate_ack",
     "62",
     19,
     CLOSED,
     {},
     EMPTY_WRITER(write_negotiate_ack),
     EMPTY_READER(read_negotiate_ack)},
    {"negotiate_nack",
     "63",
     27,
     CLOSED,
     {{"reason", text, 0, 1024}},
     nullptr,
     READER(read_negotiate_nack, negotiate_nack, words_of(r.reason))},
    {"diffie_hellmann_parameters",
     "64",
     35,
     CLOSED,
     {{"modulus", number}, {"generator", number}},
     nullptr,
     READER(read_diffie_hellmann_parameters, diffie_hellmann_parameters, words_of(r.modulus),
            words_of(r.generator))},
    {"sporadic_bignum",
     "65",
     43,
     CLOSED,
     {{"num", number}},
     WRITER(write_sporadic_bignum, sporadic_bignum, b.number.get()),
     READER(read_sporadic_bignum, sporadic_bignum, words_of(r.num))},
    {"auth_challenge",
     "66",
     51,
     CLOSED,
     {{"num", number}},
     WRITER(write_auth_challenge, auth_challenge, b.number.get()),
     READER(read_auth_challenge, auth_challenge, words_of(r.num))},
    {"auth_response",
     "67",
     59,
     CLOSED,
     {{"num", number}},
     WRITER(write_auth_response, auth_response, b.number.get()),
     READER(read_auth_response, auth_response, words_of(r.num))},
    {"configure_req", "68", 67, OPEN, build_fields,
     WRITER(write_configure_req_incomplete, configure_req, v.integer(0), v.integer(1), v.integer(2),
            v.integer(3), v.integer(4)),
     nullptr},
    {"configure_resp",
     "69",
     75,
     OPEN,
     {{"id", text, 0, 128}, {"checkinFrequency", integer, -1, 86400}},
     nullptr,
     READER(read_configure_resp_incomplete, configure_resp, words_of(r.id), words_of(r.checkinFrequency))},
    {"checkin_req", "6A", 83, OPEN, {}, EMPTY_WRITER(write_checkin_req_incomplete), nullptr},
    {"checkin_resp",
     "6B",
     91,
     OPEN,
     {{"checkinAck", boolean}, {"confChanged", boolean}, {"upgradeAvailable", boolean}},
     nullptr,
     READER(read_checkin_resp_incomplete, checkin_resp, truth(r.checkinAck), truth(r.confChanged),
            truth(r.upgradeAvailable))},
    {"upgrade_req", "6C", 99, CLOSED, build_fields,
     WRITER(write_upgrade_req, upgrade_req, v.integer(0), v.integer(1), v.integer(2), v.integer(3),
            v.integer(4)),
     nullptr},
    {"server_time_req",
     "77",
     187,
     CLOSED,
     {{"agentTimeSec", integer}, {"agentTimeUSec", integer, 0, 999999}},
     WRITER(write_server_time_req, server_time_req, v.integer(0), v.integer(1)),
     nullptr},
    {"server_time_resp",
     "78",
     195,
     CLOSED,
     {{"serverTimeSec", integer}, {"serverTimeUSec", integer, 0, 999999}},
     nullptr,
     READER(read_server_time_resp, server_time_resp, words_of(r.serverTimeSec), words_of(r.serverTimeUSec))},
    {"downtime_req",
     "7E",
     243,
     CLOSED,
     {{"downtimeInMinutes", integer}},
     WRITER(write_downtime_req, downtime_req, v.integer(0)),
     nullptr},
    {"downtime_resp",
     "7F 1F",
     251,
     CLOSED,
     {{"success", boolean}, {"message", text, 0, 1024}},
     nullptr,
     READER(read_downtime_resp, downtime_resp, truth(r.success), words_of(r.message))},
    {"h_w_scan_req", "7F 20", 259, CLOSED, {}, EMPTY_WRITER(write_h_w_scan_req), nullptr},
    {"h_w_scan_resp",
     "7F 21",
     267,
     CLOSED,
     {{"nack", boolean}},
     nullptr,
     READER(read_h_w_scan_resp, h_w_scan_resp, truth(r.nack))},
    {"host_info_line",
     "30",
     129,
     CLOSED,
     {{"label", text, 0, 128}, {"value", text, 0, 1024}},
     WRITER(write_host_info_line, host_info_line, b.text(0), b.text(1)),
     nullptr},
    {"server_name_port",
     "30",
     129,
     CLOSED,
     {{"name", text, 0, 256}, {"port", integer, 1, 65535}},
     nullptr,
     READER(read_server_name_port, server_name_port, words_of(r.name), words_of(r.port))},
    {"check_group",
     "30",
     129,
     OPEN,
     {{"id", text, 0, 128}, {"name", text, 0, 128}},
     WRITER(write_check_group_incomplete, check_group, b.text(0), b.text(1)),
     nullptr},
    {"check",
     "30",
     129,
     OPEN,
     {{"id", text, 0, 128},
      {"name", text, 0, 128},
      {"comment", text, 0, 512},
      {"type", enumerated},
      {"unit", text, 0, 128}},
     WRITER(write_check_incomplete, check, b.text(0), b.text(1), b.text(2), v.enumerated(3), b.text(4)),
     nullptr},
    {"check_description",
     "30",
     129,
     CLOSED,
     {{"id", integer},
      {"descriptionGood", text, 0, 128},
      {"descriptionWarn", text, 0, 128},
      {"descriptionAlert", text, 0, 128}},
     WRITER(write_check_description, check_description, v.integer(0), b.text(1), b.text(2), b.text(3)),
     nullptr},
    {"check_conf_group",
     "30",
     129,
     OPEN,
     {{"id", text, 0, 128}},
     nullptr,
     READER(read_check_conf_group_incomplete, check_conf_group, words_of(r.id))},
    {"check_conf",
     "30",
     129,
     OPEN,
     {{"frequency", integer, -1, 86400}, {"id", text, 0, 128}},
     nullptr,
     READER(read_check_conf_incomplete, check_conf, words_of(r.frequency), words_of(r.id))},
    {"continuous_conf", "A0", 5, OPEN, {}, nullptr, EMPTY_READER(read_continuous_conf_incomplete)},
    {"enum_conf", "A1", 13, OPEN, {}, nullptr, EMPTY_READER(read_enum_conf_incomplete)},
    {"log_conf", "A2", 21, CLOSED, {}, nullptr, EMPTY_READER(read_log_conf)},
    {"real_continuous_conf", "A3", 29, OPEN, {}, nullptr, EMPTY_READER(read_real_continuous_conf_incomplete)},
    {"adv_log_conf",
     "A4",
     37,
     OPEN,
     {{"recordSeparator", text, 0, 1024}, {"separatorInclusion", enumerated}},
     nullptr,
     READER(read_adv_log_conf_incomplete, adv_log_conf, words_of(r.recordSeparator),
            words_of(r.separatorInclusion))},
    {"rule",
     "30",
     129,
     CLOSED,
     {{"regex", text, 0, 1024},
      {"status", enumerated},
      {"decision", enumerated},
      {"destination", text, 0, 32}},
     nullptr,
     READER(read_rule, rule, words_of(r.regex), words_of(r.status), words_of(r.decision),
            words_of(r.destination))},
    {"action_conf_group",
     "30",
     129,
     OPEN,
     {{"id", text, 0, 128}},
     nullptr,
     READER(read_action_conf_group_incomplete, action_conf_group, words_of(r.id))},
    {"action_conf",
     "30",
     129,
     CLOSED,
     {{"id", text, 0, 128}},
     nullptr,
     READER(read_action_conf, action_conf, words_of(r.id))},
    {"check_result",
     "30",
     129,
     OPEN,
     {{"checkTime", integer}, {"comment", text, 0, 128}, {"status", enumerated}},
     WRITER(write_check_result_incomplete, check_result, v.integer(0), b.text(1), v.enumerated(2)),
     nullptr},
};

// Helpers.

std::string function_of(const record_case &record) {
    return record.name + (record.open ? "_incomplete" : "");
}

std::string wire_of_words(const std::string &words) {
    if (words == "true" || words == "false") return wire_bool(words == "true");
    if (words.starts_with("0x")) return wire_number(bytes(words.substr(2)));
    if (words.starts_with('"')) return wire_text(words.substr(1, words.size() - 2));
    if (words.starts_with('#')) return wire_enumerated(static_cast<uint32_t>(std::stoul(words.substr(1))));
    return wire_integer(std::stoll(words));
}

std::string wire_of_record(const record_case &record, const field_words &values) {
    std::string fields;
    for (const std::string &value : values)
        fields += wire_of_words(value);
    return record.open ? wire_open(record.identifier, fields) : wire_record(record.identifier, fields);
}

std::string sample_of(const field_case &field) {
    switch (field.type) {
    case integer:
        return field.minimum > 0 ? "77" : "0";
    case boolean:
        return "true";
    case enumerated:
        return "#2";
    case text:
        return "\"" + field.name + "\"";
    case number:
        return "0x8001";
    }
    return "";
}

field_words samples_of(const record_case &record) {
    field_words values;
    for (const field_case &field : record.fields)
        values.push_back(sample_of(field));
    return values;
}

void PrintTo(const record_case &record, std::ostream *out) {
    *out << record.name;
}
