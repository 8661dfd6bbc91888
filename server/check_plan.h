// Which of the devices that an agent offers are checked, how often and against which limits.
#pragma once

#include "server/policy.h"
#include "server/records.h"

#include <string>
#include <vector>

struct offered_device {
    std::vector<std::string> path; // the groups from the top, then the device
    device what;
};

struct planned_check {
    std::vector<std::string> path;
    check_conf conf;
    std::string unit;
    int32_t description = 0;
};

// All devices of a tree, in its order.
std::vector<offered_device> flatten_tree(const std::vector<device_group> &tree);

// The checks of the devices that the policy knows. A path that occurs twice is checked once. Where a log's
// rule passes records on, the policy's forward groups follow, all of them, since their rules may name each
// other.
std::vector<planned_check> plan_checks(const policy &rules, const std::vector<offered_device> &devices);

// The tree to send. Groups stand in the order in which the checks name them.
std::vector<check_conf_group> group_checks(const std::vector<planned_check> &checks);
