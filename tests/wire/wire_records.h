// What passes between agent and server, in decoded form.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace wire {

// ---- what the agent sends

struct client_wants {
    int64_t version;
    std::string name;
    std::string domain;
    std::string id;
    bool has_master_key;
    bool has_hallmark;
    bool testing;
};

struct host_line {
    std::string label;
    std::string value;
    bool operator==(const host_line &) const = default;
};

struct offered_device {
    std::string id;
    std::string name;
    std::string comment;
    uint32_t type;
    std::string unit;
    std::optional<double> hint_value, hint_min, hint_max;
    int64_t description;
    bool operator==(const offered_device &) const = default;
};

struct offered_group {
    std::string id;
    std::string name;
    std::vector<offered_device> devices;
    std::vector<offered_group> groups;
    std::string name_template;
    bool instances;
    bool operator==(const offered_group &) const = default;
};

struct description {
    int64_t id;
    std::string good, warning, alert;
    bool operator==(const description &) const = default;
};

// A configure_req.
struct configuration_request {
    int64_t package_id, major, minor, build, caps;
    std::vector<host_line> host;
    std::vector<offered_group> tree;
    std::vector<description> descriptions;
};

enum class value_kind { NOTHING, INTEGER, REAL, TEXT };

struct result {
    int64_t time; // on the server's clock
    std::string comment;
    uint32_t status;
    std::string path; // the ids with slashes between them, "mem/phys"
    value_kind kind;
    int64_t value;
    double real;
    std::string text;
    std::optional<std::string> conf_id;
};

// ---- what the server orders

inline constexpr double OFF = std::numeric_limits<double>::quiet_NaN(); // goes as a null

struct rule {
    std::string regex;
    uint32_t status;
    uint32_t decision;
    std::string destination;
};

enum class check_kind { CONTINUOUS, BITMAP, LOG, REAL, ADVANCED_LOG };

struct check {
    check_kind kind;
    std::string id;
    int32_t frequency;
    double alert_high = OFF, alert_low = OFF, warn_high = OFF, warn_low = OFF;
    std::vector<uint32_t> statuses; // of a bitmap, by bit
    std::string separator;
    uint32_t separator_inclusion = 0;
    std::vector<rule> rules;
    int64_t warning_silence = -1, alert_silence = -1;
    std::optional<std::string> conf_id;
};

struct group {
    std::string id;
    std::vector<check> checks;
    std::vector<group> groups;
};

struct action_group {
    std::string id;
    std::vector<std::string> actions;
    std::vector<action_group> groups;
};

struct server_place {
    std::string name;
    uint16_t port;
};

check continuous(const std::string &id, int32_t frequency);
check real(const std::string &id, int32_t frequency);
check bitmap(const std::string &id, int32_t frequency, std::vector<uint32_t> statuses);
check plain_log(const std::string &id, int32_t frequency);
check advanced_log(const std::string &id, int32_t frequency, std::vector<rule> rules);

// All devices of a tree by path, "mem/phys".
std::vector<std::string> device_paths(const std::vector<offered_group> &tree);

} // namespace wire
