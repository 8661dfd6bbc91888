// What scenarios with followed logs begin with: a log of an application, looked at every ten seconds, and a
// checkin every twenty.
#pragma once

#include "sim/scenario.h"
#include "sim/sim_logs.h"

struct log_scenario : scenario {
    static constexpr const char *APP = "/var/log/app.log";
    static constexpr int32_t PERIOD = 10;

    log_scenario() {
        sim.settings["loglevel"] = "0";
        server.checkin_frequency = 20;
        sim.disk.put(APP, "history\n");
    }

    // Starts the agent, and waits until it knows where the logs end.
    void follow(std::vector<wire::check> logs, std::vector<wire::check> targets = {}) {
        begin(log_tree(std::move(logs), std::move(targets)));
        settle();
    }
    void follow_app(std::vector<wire::rule> rules = {REPORT_ALL}) { follow({app(std::move(rules))}); }
    static wire::check app(std::vector<wire::rule> rules = {REPORT_ALL}) {
        return followed_log(APP, PERIOD, std::move(rules));
    }

    void append(const std::string &text) { sim.disk.append(APP, text); }

    // Lets the agent find all that was written, and deliver it.
    void settle() {
        sim.run_for(PERIOD + 1);
        EXPECT_TRUE(checkins(1));
    }

    std::vector<std::string> entries() const { return entries_of(server, APP); }
};

using texts = std::vector<std::string>;
