// The records of the protocol as the server holds them, in the order of their fields on the wire.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

// Version of the protocol: the high byte must be the same on both sides.
inline constexpr int32_t PROTOCOL_VERSION = 514;
// From the version above this one on, the server acknowledges the agent's public value.
inline constexpr int32_t VERSION_WITHOUT_KEY_ACK = 512;

// Tag codes, as protocol/ber.h tells.
enum : uint32_t {
    TAG_CLIENT_WANTS = 3,
    TAG_SERVER_OFFERS = 11,
    TAG_NEGOTIATE_ACK = 19,
    TAG_NEGOTIATE_NACK = 27,
    TAG_KEY_PARAMETERS = 35,
    TAG_SPORADIC_NUMBER = 43,
    TAG_AUTH_CHALLENGE = 51,
    TAG_AUTH_RESPONSE = 59,
    TAG_CONFIGURE_REQ = 67,
    TAG_CONFIGURE_RESP = 75,
    TAG_CHECKIN_REQ = 83,
    TAG_CHECKIN_RESP = 91,
    TAG_UPGRADE_REQ = 99,
    TAG_UPGRADE_RESP = 107,
    TAG_TIME_REQ = 187,
    TAG_TIME_RESP = 195,
    TAG_DOWNTIME_REQ = 243,
    TAG_DOWNTIME_RESP = 251,
    TAG_SCAN_REQ = 259,
    TAG_SCAN_RESP = 267,
    TAG_PRIVATE_KEY = 13, // client_private_key and server_private_key
    TAG_CONTINUOUS_CONF = 5,
    TAG_ENUM_CONF = 13,
    TAG_REAL_CONF = 29,
    TAG_LOG_CONF = 37,
};

enum : uint32_t { STATUS_GOOD = 0, STATUS_WARNING = 1, STATUS_ALERT = 2, STATUS_ERROR = 3 };

// Who an agent says it is.
struct client_wants {
    int32_t version = 0;
    std::string name, domain, id;
    bool has_master_key = false, has_hallmark = false, testing = false;
};

struct build_numbers {
    int32_t package_id = 0, major = 0, minor = 0, build = 0, caps = 0;
};

struct host_line {
    std::string label, value;
};

// One thing that can be watched. Without a hint all three parts of it are absent.
struct device {
    std::string id, name, comment;
    uint32_t type = 0;
    std::string unit;
    std::optional<double> hint_value, hint_min, hint_max;
    int32_t description = 0;
};

struct device_group {
    std::string id, name;
    std::vector<device> devices;
    std::vector<device_group> groups;
    std::string name_template;
    bool of_instances = false;
};

// The texts for good, warning and alert, by number.
struct check_description {
    int32_t id = 0;
    std::string good, warning, alert;
};

struct configure_req {
    build_numbers build;
    std::vector<host_line> host_info;
    std::vector<device_group> tree;
    std::vector<check_description> descriptions;
};

// NULL, an integer, a real or a log's text.
using result_value = std::variant<std::monostate, int32_t, double, std::string>;

struct check_result {
    int32_t check_time = 0; // by the server's clock
    std::string comment;
    uint32_t status = STATUS_GOOD;
    std::vector<std::string> path; // the groups from the top, then the check
    result_value value;
    std::optional<std::string> conf_id;
};

struct time_req {
    int32_t seconds = 0, microseconds = 0;
};

enum class check_kind { continuous, real_continuous, enumeration, log };

// Limits of a configured check: a value below a low or above a high one is bad. An absent limit is off.
struct check_limits {
    std::optional<double> alert_high, alert_low, warn_high, warn_low;
    std::vector<uint32_t> severities; // of an enumeration: one status for each value from 0 on
};

// What is done with a record that a clause matches: to report it, to report its status alone, or to pass it
// on to a forward group, for good, as a copy, or to come back where nothing matched there.
enum log_decision : uint32_t {
    DECISION_LOG,
    DECISION_QUIET,
    DECISION_MOVETO,
    DECISION_COPYTO,
    DECISION_CALL
};

struct log_rule {
    std::string clause;
    uint32_t status = STATUS_GOOD; // up to STATUS_ALERT
    uint32_t decision = DECISION_LOG;
    std::string destination; // of the last three: the conf_id of a forward group
};

// Where a separator goes: to the record that it closes, to the one that it opens, or nowhere.
enum separator_inclusion : uint32_t { SEPARATOR_CLOSES, SEPARATOR_OPENS, SEPARATOR_DROPPED };

// How a log is cut into records, and which of them are reported.
struct log_conf {
    std::string separator; // an expression
    uint32_t inclusion = SEPARATOR_DROPPED;
    std::vector<log_rule> rules;                        // the first that matches decides
    std::optional<int32_t> warn_silence, alert_silence; // seconds
};

struct check_conf {
    int32_t frequency = 0; // seconds
    std::string id;
    check_kind kind = check_kind::continuous;
    check_limits limits;
    log_conf log;
    std::string conf_id; // "" for none
};

struct check_conf_group {
    std::string id;
    std::vector<check_conf> checks;
    std::vector<check_conf_group> groups;
};

struct server_address {
    std::string name;
    int32_t port = 0;
};

struct configure_resp {
    std::string id;
    int32_t checkin_frequency = 0; // seconds
    std::vector<server_address> servers;
    std::vector<check_conf_group> checks;
};

struct checkin_resp {
    bool ack = false, conf_changed = false, upgrade = false;
    std::vector<std::string> actions; // to be started by their names
    bool scan = false;
};
