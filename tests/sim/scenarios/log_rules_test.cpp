#include "sim/log_scenario.h"

// What becomes of the entries of followed logs: rules, targets, silence, and a server that changes its mind.

using log_entries = log_scenario;

static wire::rule send(uint32_t decision, const std::string &destination, const std::string &regex = "'.'") {
    return {.regex = regex, .status = 0, .decision = decision, .destination = destination};
}

TEST_F(log_entries, go_through_the_rules_in_their_order) {
    follow_app({{.regex = "'debug'", .status = 0, .decision = QUIET},
                {.regex = "'error' and not 'harmless'", .status = 2, .decision = REPORT},
                {.regex = "'warn'", .status = 1, .decision = REPORT}});
    append("debug error\nharmless error\nreal error\nwarning\nnews\n");
    settle();
    EXPECT_EQ(entries(), (texts{"real error", "warning"}));
    EXPECT_EQ(log_results(server, APP)[0].status, 2U);
    EXPECT_EQ(log_results(server, APP)[1].status, 1U);
}

TEST_F(log_entries, are_reported_by_the_targets_that_several_logs_share) {
    constexpr const char *OTHER = "/srv/other.log";
    sim.disk.put(OTHER, "");
    follow({app({send(COPY, "archive"), send(MOVE, "errors", "'error'"), REPORT_ALL}),
            followed_log(OTHER, PERIOD, {send(CALL, "errors"), REPORT_ALL})},
           {forward_target("errors", {{.regex = "'error'", .status = 2, .decision = REPORT}}),
            forward_target("archive", {REPORT_ALL})});
    append("app error\napp news\n");
    sim.disk.append(OTHER, "other news\nother error\n");
    settle();
    EXPECT_EQ(entries(), texts{"app news"});
    EXPECT_EQ(entries_of(server, OTHER), texts{"other news"});
    EXPECT_EQ(entries_at(server, "errors"), (texts{"app error", "other error"}));
    EXPECT_EQ(entries_at(server, "archive"), (texts{"app error", "app news"}));
}

TEST_F(log_entries, that_run_in_a_circle_are_told_once_each) {
    follow({app({send(MOVE, "a")})},
           {forward_target("a", {send(COPY, "b"), REPORT_ALL}), forward_target("b", {send(CALL, "a")})});
    append("one\ntwo\n");
    settle();
    settle();
    EXPECT_EQ(entries_at(server, "a"), (texts{"Cycle detected: app.log -> a -> b -> a: one", "one",
                                              "Cycle detected: app.log -> a -> b -> a: two", "two"}));
    EXPECT_EQ(sim.count_logged("Log forwarding cycle detected: "), 2);
    EXPECT_TRUE(sim.logged(2, "Log forwarding cycle detected: app.log -> a -> b -> a: two"));
}

TEST_F(log_entries, whose_target_is_unknown_are_told_and_go_on) {
    follow_app({send(COPY, "nowhere"), send(CALL, "nobody"), REPORT_ALL});
    EXPECT_TRUE(sim.logged(3, "Could not resolve nowhere"));
    EXPECT_TRUE(sim.logged(3, "Could not resolve nobody"));
    append("one\n");
    settle();
    EXPECT_EQ(entries(), texts{"one"});
    EXPECT_EQ(sim.count_logged("Missing log forward destination"), 2);
    EXPECT_TRUE(sim.logged(2, "Missing log forward destination"));
}

TEST_F(log_entries, of_a_whole_buffer_without_an_end_come_in_pieces) {
    follow_app();
    append(std::string(40'000, 'x') + "\nshort\n");
    settle();
    ASSERT_EQ(entries().size(), 4U);
    EXPECT_EQ(entries()[0], std::string(16'384, 'x'));
    EXPECT_EQ(entries()[2], std::string(40'000 - 2 * 16'384, 'x'));
    EXPECT_EQ(entries()[3], "short");
}

// ---- a server that changes its mind

TEST_F(log_entries, wait_through_a_new_configuration_and_come_once) {
    follow_app();
    server.acknowledge = false;
    append("waits\n");
    sim.run_for(PERIOD + 1);
    uint32_t before = server.registrations;
    server.configure(log_tree({app({{.regex = "'.'", .status = 2, .decision = REPORT}})}));
    ASSERT_TRUE(sim.run_until([&] { return server.registrations > before; }, HOUR));
    size_t offered = server.deliveries.size();
    server.acknowledge = true;
    append("new\n");
    settle();
    texts taken;
    std::vector<uint32_t> statuses;
    for (size_t i = offered; i < server.deliveries.size(); i++)
        for (const wire::result &result : server.deliveries[i].results)
            if (!result.text.empty()) {
                taken.push_back(result.text);
                statuses.push_back(result.status);
            }
    EXPECT_EQ(taken, (texts{"waits", "new"}));
    EXPECT_EQ(statuses, (std::vector<uint32_t>{1, 2}));
}

TEST_F(log_entries, go_to_the_targets_of_the_new_configuration) {
    follow({app({send(MOVE, "a")})}, {forward_target("a", {REPORT_ALL}), forward_target("b", {REPORT_ALL})});
    append("one\n");
    settle();
    server.configure(log_tree({app({send(MOVE, "b")})}, {forward_target("b", {REPORT_ALL})}));
    settle();
    append("two\n");
    settle();
    server.configure(log_tree({app({send(MOVE, "b")})}, {forward_target("c", {REPORT_ALL})}));
    settle();
    append("three\n");
    settle();
    EXPECT_EQ(entries_at(server, "a"), texts{"one"});
    EXPECT_EQ(entries_at(server, "b"), texts{"two"});
    EXPECT_EQ(entries_at(server, "c"), texts{});
    EXPECT_TRUE(sim.logged(3, "Could not resolve b"));
}

TEST_F(log_entries, are_followed_on_when_the_server_orders_the_log_again) {
    follow_app();
    append("one\n");
    settle();
    server.configure({{"mem", {wire::continuous("phys", 60)}}});
    settle();
    append("two\n");
    server.configure(log_tree({app()}));
    settle();
    settle();
    EXPECT_EQ(entries(), (texts{"one", "two"})); // by the stored position
}

// ---- results that wait

TEST_F(log_entries, are_kept_through_an_outage_and_come_once) {
    follow_app();
    sim.network.place("server").state = place_state::REFUSES;
    for (int i = 0; i < 10; i++) {
        append(numbered_lines("line", 1 + 30 * i, 30));
        sim.run_for(HOUR);
    }
    sim.network.place("server").state = place_state::UP;
    sim.run_for(30 * MINUTE);
    EXPECT_EQ(entries(), numbered_entries("line", 1, 300));
    EXPECT_TRUE(sim.logged_part("throttling to max 50"));
}

TEST_F(log_entries, come_again_where_only_the_answer_was_lost) {
    follow_app();
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::CLOSE_BEFORE});
    append("one\ntwo\n");
    settle();
    settle();
    EXPECT_EQ(entries(), (texts{"one", "two", "one", "two"}));
}

TEST_F(log_entries, older_than_the_retention_are_dropped) {
    sim.settings["max_data_retention_days"] = "1";
    follow_app();
    sim.network.place("server").state = place_state::REFUSES;
    for (int hour = 0; hour < 48; hour++) {
        append(numbered_lines("hour", hour, 1));
        sim.run_for(HOUR);
    }
    sim.network.place("server").state = place_state::UP;
    sim.run_for(30 * MINUTE);
    EXPECT_EQ(entries(), numbered_entries("hour", 24, 24));
}

// ---- silence

struct silent_log : log_scenario {
    // Looked at every six hours, but warned of behind one hour without an entry, and alerted behind three.
    silent_log() {
        server.checkin_frequency = 600;
        wire::check log = followed_log(APP, 6 * HOUR, {{.regex = "'ok'", .status = 0, .decision = REPORT}});
        log.warning_silence = HOUR;
        log.alert_silence = 3 * HOUR;
        begin(log_tree({log}));
        start = sim.times_logged("Agent will check device app.log").front();
    }
    int64_t start = 0;

    struct told {
        int64_t time; // since the start
        uint32_t status;
        std::string text;
        bool operator==(const told &) const = default;
    };
    std::vector<told> all_told() const {
        std::vector<told> all;
        for (const wire::result &result : log_results(server, APP))
            all.push_back({result.time - start, result.status, result.text});
        return all;
    }
};

TEST_F(silent_log, is_told_at_each_limit_once_whatever_the_period) {
    sim.run_for(2 * DAY);
    EXPECT_EQ(all_told(), (std::vector<told>{{HOUR, 1, "Log silent for 1 hours and 0 minutes"},
                                             {3 * HOUR, 2, "Log silent for 3 hours and 0 minutes"}}));
}

TEST_F(silent_log, is_ended_by_an_entry_that_is_reported) {
    sim.run_for(4 * HOUR);
    append("noise\n");
    sim.run_for(6 * HOUR);
    append("ok\n");
    sim.run_for(9 * HOUR);
    EXPECT_EQ(all_told(), (std::vector<told>{{HOUR, 1, "Log silent for 1 hours and 0 minutes"},
                                             {3 * HOUR, 2, "Log silent for 3 hours and 0 minutes"},
                                             {15 * HOUR, 0, "ok"},
                                             {16 * HOUR, 1, "Log silent for 1 hours and 0 minutes"},
                                             {18 * HOUR, 2, "Log silent for 3 hours and 0 minutes"}}));
}

TEST_F(silent_log, is_not_told_again_by_the_next_process) {
    sim.run_for(2 * HOUR);
    stop();
    sim.start_agent();
    sim.run_for(2 * HOUR);
    EXPECT_EQ(all_told(), (std::vector<told>{{HOUR, 1, "Log silent for 1 hours and 0 minutes"},
                                             {3 * HOUR, 2, "Log silent for 3 hours and 0 minutes"}}));
}
