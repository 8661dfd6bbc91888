// Processes and services in the life of an agent.
#include "sim/scenario.h"

#include <algorithm>

namespace {

struct running : scenario {
    // "time value status comment" of each result, times in seconds since the start.
    std::vector<std::string> told(const std::string &path) const {
        std::vector<std::string> rows;
        for (const wire::result &result : server.results(path))
            rows.push_back(std::to_string(result.time - SIM_START) + " " + std::to_string(result.value) +
                           " " + std::to_string(result.status) + " " + result.comment);
        return rows;
    }
    void end_process(const std::string &name) {
        auto &all = sim.running.processes;
        all.erase(std::find(all.begin(), all.end(), name));
    }
    // What the tree has of a family.
    int64_t offered(const std::string &family) {
        auto paths = wire::device_paths(server.tree());
        return std::count_if(paths.begin(), paths.end(),
                             [&](const std::string &path) { return path.starts_with(family + "/"); });
    }
};

using texts = std::vector<std::string>;

// A process that is missing is an alert, one that runs is good.
const std::vector<uint32_t> PLACES = {2, 0};

} // namespace

TEST_F(running, a_process_is_missing_when_its_last_twin_has_ended) {
    begin({{"proc", {wire::bitmap("worker", 60, PLACES)}}});
    sim.run_for(90);
    end_process("worker");
    sim.run_for(60);
    end_process("worker");
    sim.run_for(60);
    sim.running.processes.push_back("worker");
    sim.run_for(60);
    ASSERT_TRUE(checkins(2));
    texts rows = told("proc/worker");
    rows.resize(5);
    EXPECT_EQ(rows, (texts{"0 1 0 Available", "60 1 0 Available", "120 1 0 Available", "180 0 2 Missing",
                           "240 1 0 Available"}));
}

TEST_F(running, processes_are_seen_in_the_old_way_too) {
    sim.settings["use_psapi"] = "true";
    begin({{"proc", {wire::bitmap("INIT", 60, PLACES), wire::bitmap("gone", 60, PLACES)}}});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(offered("proc"), 4);
    EXPECT_EQ(told("proc/INIT")[0], "0 1 0 Available");
    EXPECT_EQ(told("proc/gone")[0], "0 0 2 Missing");
    EXPECT_TRUE(sim.logged(-1, "In scan_processes_old"));
}

TEST_F(running, a_service_is_told_by_its_state_and_a_missing_one_is_a_failure) {
    begin({{"scm", {wire::bitmap("mail", 60, PLACES), wire::bitmap("none", 60, PLACES)}}});
    sim.run_for(30);
    sim.running.services["mail"].state = 3;
    sim.run_for(60);
    sim.running.services.erase("mail");
    sim.run_for(60);
    ASSERT_TRUE(checkins(2));
    texts rows = told("scm/mail");
    ASSERT_GE(rows.size(), 3U);
    EXPECT_EQ(rows[0], "0 1 0 The service is running");
    EXPECT_EQ(rows[1], "60 0 2 The service is stopping");
    EXPECT_TRUE(rows[2].starts_with("120 0 3 Error opening the service: ")) << rows[2];
    EXPECT_TRUE(told("scm/none")[0].starts_with("0 0 3 Error opening the service: "));
}

TEST_F(running, a_host_without_a_service_manager_offers_no_services) {
    sim.running.has_service_manager = false;
    begin({{"scm", {wire::bitmap("mail", 60, PLACES)}}});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(offered("scm"), 0);
    EXPECT_EQ(sim.count_logged("scan[scm]"), 0);
    EXPECT_TRUE(told("scm/mail")[0].starts_with("0 0 3 Error opening the Service Control Manager: "));
}

TEST_F(running, five_thousand_processes_and_five_hundred_services_reach_the_server) {
    for (int i = 0; i < 4996; i++)
        sim.running.processes.push_back("process " + std::to_string(i));
    for (int i = 0; i < 498; i++)
        sim.running.services["service " + std::to_string(i)] = {"A service", 4};
    begin({{"proc", {wire::bitmap("process 4995", 60, PLACES)}}});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(offered("proc"), 5000);
    EXPECT_EQ(offered("scm"), 500);
    EXPECT_EQ(told("proc/process 4995")[0], "0 1 0 Available");
}

TEST_F(running, names_that_are_too_long_keep_nothing_else_from_the_server) {
    sim.running.processes.push_back(std::string(200, 'p'));
    sim.running.services[std::string(200, 's')] = {"Long", 4};
    sim.running.services["long"] = {std::string(200, 'd'), 4};
    begin({{"proc", {wire::bitmap(std::string(128, 'p'), 60, PLACES)}}});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(offered("proc"), 5);
    EXPECT_EQ(offered("scm"), 3);
    EXPECT_EQ(told("proc/" + std::string(128, 'p'))[0], "0 1 0 Available");
}
