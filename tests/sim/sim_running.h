// What runs on a simulated host: its processes and its services.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct sim_service {
    std::string display_name;
    uint32_t state;
};

struct sim_running {
    std::vector<std::string> processes = {"init", "worker", "worker", "mail server"};
    std::map<std::string, sim_service> services = {{"mail", {"Mail transfer", 4}},
                                                   {"print", {"Printing", 1}}};
    bool has_service_manager = true;
};

struct processes_ops;
struct services_ops;
extern const processes_ops sim_processes;
extern const services_ops sim_service_manager;
