#include "platform/agent_log.h"
#include "sim/scenario.h"

// Custom checks and actions in the life of the whole agent.

namespace {

struct custom : scenario {
    static constexpr const char *CONF = "/etc/custom.conf";

    custom() {
        sim.settings["custom_chk_conf"] = CONF;
        sim.settings["actions_conf"] = "/etc/actions.conf";
        sim.disk.put(CONF, "[count]\ncommand=count 'a b'\ntype=integer\nunit=%\n"
                           "[alive]\ncommand=alive\n"
                           "[rate]\ncommand=rate\ntype=diff_integer\n"
                           "[slow]\ncommand=slow\ntimeout=5\n");
        sim.disk.put("/etc/actions.conf", "[repair]\ncommand=repair --all\n[other]\ncommand=other\n");
        sim.programs.known = {
            {"count 'a b'", {.output = {{100, "noise\nResu"}, {200, "lt: 42\n"}}, .ends_at_ms = 300}},
            {"alive", {.ends_at_ms = 10}},
            {"rate", {.output = {{0, "Result: 100"}}, .ends_at_ms = 1}},
            {"slow", {.ends_at_ms = NEVER}},
            {"repair --all", {.ends_at_ms = NEVER}},
        };
        server.checkin_frequency = 20;
    }
    ~custom() override { EXPECT_EQ(sim.programs.count_left(), 0U); }

    void order(const std::vector<std::string> &actions) { server.actions = {{"action", actions}}; }
    std::vector<wire::result> results(const std::string &id) { return server.results("custom/" + id); }
    static wire::group checks(std::vector<wire::check> of) {
        return {.id = "custom", .checks = std::move(of)};
    }
};

} // namespace

TEST_F(custom, checks_and_actions_are_offered_in_the_order_of_their_files) {
    begin({checks({wire::bitmap("alive", 10, {})})});
    std::vector<wire::offered_group> tree;
    for (const wire::configuration_request &request : server.requests)
        if (!request.tree.empty()) tree = request.tree;
    std::vector<std::string> offered;
    for (const wire::offered_group &group : tree)
        for (const wire::offered_device &device : group.devices)
            if (group.id == "custom" || group.id == "action")
                offered.push_back(group.name_template + " " + device.id + " " + std::to_string(device.type) +
                                  " " + device.unit);
    EXPECT_EQ(offered, (std::vector<std::string>{"Custom check %0r count 0 1%", "Custom check %0r alive 3 ",
                                                 "Custom check %0r rate 7 ", "Custom check %0r slow 3 ",
                                                 "AgentAction %0r repair 8 ", "AgentAction %0r other 8 "}));
}

TEST_F(custom, checks_deliver_their_values) {
    begin({checks({wire::continuous("count", 10), wire::bitmap("alive", 10, {})})});
    ASSERT_TRUE(checkins(3));
    ASSERT_GE(results("count").size(), 3U);
    EXPECT_EQ(results("count").back().value, 42);
    EXPECT_EQ(results("count").back().status, 0U);
    EXPECT_EQ(results("alive").back().value, 1);
    EXPECT_EQ(results("alive").back().comment, "Success");
    EXPECT_EQ(sim.programs.count("count 'a b'"), sim.times_logged("Executing custom check count").size());
}

TEST_F(custom, check_of_a_rate_needs_two_readings) {
    begin({checks({wire::real("rate", 10)})});
    sim.programs.known["rate"].output = {{0, "Result: 150"}};
    ASSERT_TRUE(checkins(3));
    ASSERT_GE(results("rate").size(), 3U);
    EXPECT_EQ(results("rate")[0].status, 3U);
    EXPECT_TRUE(
        sim.logged(LOG_WARNING, "Error checking custom.rate: Value available after one more reading"));
    EXPECT_EQ(results("rate")[2].real, 0.0);
}

TEST_F(custom, check_of_a_rate_outlives_a_clock_that_is_set_back) {
    begin({checks({wire::real("rate", 10)})});
    ASSERT_TRUE(checkins(2));
    sim.programs.known["rate"].output = {{0, "Result: 90"}};
    sim.set_clock(-3600);
    sim.run_for(2 * HOUR);
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(results("rate").back().status, 0U);
    EXPECT_TRUE(sim.agent_runs());
}

TEST_F(custom, check_times_out_whatever_becomes_of_the_clock) {
    sim.programs.known["slow"].output = {{2000, "x"}, {4000, "y"}};
    begin({checks({wire::bitmap("slow", 3600, {})})});
    size_t before = sim.times_logged("Executing custom check slow").size();
    ASSERT_TRUE(sim.run_until([&] { return sim.times_logged("Executing custom check slow").size() > before; },
                              2 * HOUR));
    sim.set_clock(-DAY);
    int64_t from = sim.scheduler.now_ms;
    ASSERT_TRUE(sim.run_until([&] { return sim.programs.count_left() == 0; }, 10));
    EXPECT_LE(sim.scheduler.now_ms - from, 5000);
}

TEST_F(custom, check_that_is_slow_is_killed_and_delays_the_others) {
    begin({checks({wire::bitmap("slow", 60, {}), wire::bitmap("alive", 10, {})})});
    ASSERT_TRUE(checkins(4));
    ASSERT_GE(results("slow").size(), 1U);
    EXPECT_EQ(results("slow")[0].status, 3U);
    EXPECT_EQ(results("slow")[0].comment, "Timeout (5 s)");
    EXPECT_GT(results("alive").size(), 3U);
}

TEST_F(custom, check_whose_child_keeps_the_output_runs_into_the_deadline) {
    sim.programs.known["alive"] = {.ends_at_ms = 10, .closes_at_ms = NEVER};
    begin({checks({wire::bitmap("alive", 60, {})})});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(results("alive").back().comment, "Timeout (10 s)");
}

TEST_F(custom, check_may_last_twice_its_timeout) {
    sim.programs.known["slow"] = {.ends_at_ms = 9000, .closes_at_ms = 4900};
    begin({checks({wire::bitmap("slow", 60, {})})});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(results("slow").back().comment, "Success");
}

TEST_F(custom, check_that_is_disabled_says_so) {
    sim.settings["disable_checks"] = "custom";
    begin({checks({wire::bitmap("alive", 10, {})})});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(results("alive").back().comment, "Disabled by configuration");
    EXPECT_EQ(sim.programs.count("alive"), 0U);
}

TEST_F(custom, file_that_goes_bad_takes_its_checks_with_it_at_the_next_scan) {
    begin({checks({wire::bitmap("alive", 10, {})})});
    ASSERT_TRUE(checkins(2));
    sim.disk.put(CONF, "[alive]\ncommand=alive\n[bad\n");
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(results("alive").back().comment, "Success");
    server.scan_wanted = true;
    ASSERT_TRUE(checkins(4));
    EXPECT_TRUE(sim.logged(LOG_ERROR, "Cannot read custom checks: Expected [checkname], got [bad"));
    EXPECT_EQ(results("alive").back().comment, "Cannot find custom check name \"alive\"");
}

TEST_F(custom, action_is_started_once_by_each_order) {
    begin({checks({wire::bitmap("alive", 10, {})})});
    order({"repair"});
    ASSERT_TRUE(checkins(4));
    EXPECT_EQ(sim.programs.count("repair --all"), 1U);
    EXPECT_TRUE(sim.logged(LOG_NORMAL, "Executing AgentAction repair"));
    order({"repair"});
    ASSERT_TRUE(checkins(4));
    EXPECT_EQ(sim.programs.count("repair --all"), 2U);
    EXPECT_GT(results("alive").size(), 4U) << "it holds nobody up";
    EXPECT_TRUE(server.results("action/repair").empty());
}

TEST_F(custom, action_that_cannot_be_started_counts_as_run) {
    begin({checks({wire::bitmap("alive", 10, {})})});
    order({"nothing", "other", "repair"});
    ASSERT_TRUE(checkins(4));
    EXPECT_EQ(
        sim.times_logged("Message for AgentAction: Cannot find AgentAction with the name \"nothing\"").size(),
        1U);
    EXPECT_EQ(sim.times_logged("AgentAction other failed with error: AgentAction \"other\", failed executing "
                               "\"other\": No such file or directory")
                  .size(),
              1U);
    EXPECT_EQ(sim.programs.count("repair --all"), 1U);
}

TEST_F(custom, check_under_way_comes_to_its_end_ahead_of_a_stop) {
    begin({checks({wire::bitmap("slow", 30, {})})});
    ASSERT_TRUE(sim.run_until([&] { return sim.programs.count_left() == 1; }, HOUR));
    stop();
    EXPECT_EQ(sim.programs.count_left(), 0U);
}
