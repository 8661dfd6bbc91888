// The service that carries commands to the BMC, scripted: it hands them to a little_bmc, fails where a test
// says so, and counts what it has given out.
//
// `scripted_channel channel;` puts it in force and takes it away.
#pragma once

#include "probes/hw/ipmi_channel_ops.h"
#include "probes/hw/little_bmc.h"

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct scripted_channel {
    scripted_channel();
    ~scripted_channel();
    scripted_channel(const scripted_channel &) = delete;
    scripted_channel &operator=(const scripted_channel &) = delete;

    little_bmc bmc;

    // Statuses of the next calls of a step; 0 where there are none. Steps with a name of their own are
    // "Put Command", "Get CompletionCode" and so on; for "SysAllocString" and "SafeArrayCreateVector"
    // anything but 0 is an absent result.
    std::map<std::string, std::deque<uint32_t>> statuses;
    std::set<std::string> class_namespaces = {"ROOT\\WMI"}; // elsewhere the class is an invalid parameter
    std::set<std::string> namespaces = {"ROOT\\WMI", "ROOT\\HARDWARE"};
    uint32_t instances = 1;
    uint32_t next_status = 0;                     // of Next where the count is not 1
    bool gives_parameters = true;                 // GetMethod does
    bool gives_outputs = true;                    // ExecMethod does
    std::map<std::string, uint16_t> output_types; // in the place of the right ones
    std::optional<int32_t> response_size;         // in the place of the right one

    // Where the test's heap counts down to the allocation that fails, so that the service can leave it alone.
    uint32_t *failing_allocation = nullptr;

    // The steps that were made, with what they were about: "ConnectServer ROOT\WMI", "Put Lun 17 0".
    std::vector<std::string> steps;
    bool keeps_steps = true;
    int count(const std::string &step) const;
    int objects = 0; // given out and not released
    int texts = 0;
    int started = 0; // of COM, and not stopped
};

extern const ipmi_channel_ops scripted_channel_ops;
extern scripted_channel *the_channel;
