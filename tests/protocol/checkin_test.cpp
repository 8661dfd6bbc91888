#include "protocol/checkin.h"

#include "devtree/check_table.h"
#include "devtree/live_trees.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/text.h"
#include "protocol/agent_side.h"
#include "protocol/authentication.h"
#include "protocol/configure.h"
#include "protocol/server_tree.h"
#include "protocol/time_sync.h"

#include <map>
#include <utility>

static agent_config *downloaded;

class checkin_exchange : public served_agent {
protected:
    checkin_exchange() {
        have_met();
        config_in_force = config;
        downloaded = nullptr;
        behind_opening = [this](server_side &server) { add_checkin(server); };
    }
    ~checkin_exchange() override {
        free_devtree(active_tree);
        free_devtree(action_tree);
        active_tree = action_tree = nullptr;
        config_in_force = nullptr;
    }

    // The steps of a checkin: each takes its time and gives the answer that is set.
    void add_checkin(server_side &server) {
        server.then([this, &server] {
            request("time", server);
            server.send(wire_record("78", wire_integer(host.now) + wire_integer(0)));
        });
        server.then([this, &server] {
            request("checkin", server);
            if (reply.empty()) return server.close();
            server.send(reply);
            if (!configuration.empty())
                server.next([this, &server] {
                    request("configure", server);
                    server.send(configuration);
                });
        });
    }
    void request(const std::string &name, server_side &server) {
        requests[name] = server.take().words();
        host.now += delays[name];
    }
    static std::string answer(bool acknowledged, bool changed = false, bool upgrade = false,
                              const std::string &actions = "", bool scan = false) {
        return wire_record("6B", wire_bool(acknowledged) + wire_bool(changed) + wire_bool(upgrade) +
                                     wire_list(actions) + wire_bool(scan));
    }
    static std::string tree_reply(const std::string &groups) {
        return wire_record("69", wire_text("agent") + wire_integer(60) + wire_list("") + wire_list(groups));
    }
    std::string check_in() {
        acked = 7;
        std::string failure = noted_failure(checkin(config, &acked));
        EXPECT_EQ(sockets.open_connections(), 0);
        return failure;
    }

    // The level of the line of success of a checkin that took so long.
    int32_t level_of(int32_t period, int seconds) {
        host.log.clear();
        config->checkin_freq = period;
        delays = {{"checkin", seconds}};
        EXPECT_EQ(check_in(), "(none)");
        int32_t level = -99;
        for (const logged_line &line : host.log) {
            if (!line.text.starts_with("Checkin success")) continue;
            EXPECT_EQ(level, -99);
            level = line.level;
        }
        return level;
    }

    // A group g with a device a below it, and so many results.
    static devtree *tree_with(int results, uint32_t type = TYPE_CONTINUOUS) {
        devtree *group = heap_new<devtree>();
        group->id = text_copy("g");
        devnode *device = alloc_devnode();
        device->id = text_copy("a");
        device->type = type;
        devtree_add_devices(group, device);
        for (int i = 1; i <= results; i++) {
            resnode *result = alloc_resnode();
            result->value = i;
            result->check_time = 1000;
            append_result(device, result);
        }
        return group;
    }
    static int queued(const devtree *tree) {
        int count = 0;
        for (const resnode *result = tree->devices->results; result != nullptr; result = result->next)
            count++;
        return count;
    }
    int sent_results() {
        size_t count = 0;
        for (size_t at = 0; (at = requests["checkin"].find("{1000 ", at)) != std::string::npos; at++)
            count++;
        return static_cast<int>(count);
    }

    std::string reply = answer(true);
    std::string configuration;
    std::map<std::string, std::string> requests;
    std::map<std::string, int64_t> delays;
    int32_t acked = 7;
};

using checkin_delivery = checkin_exchange;
using checkin_acknowledgement = checkin_exchange;
using checkin_actions = checkin_exchange;
using checkin_configuration = checkin_exchange;
using checkin_upgrade = checkin_exchange;
using checkin_success_line = checkin_exchange;
using checkin_failure = checkin_exchange;
using checkin_limit = checkin_exchange;

// The delivery.

TEST_F(checkin_delivery, of_nothing_sends_an_empty_list_and_is_acknowledged) {
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(requests["time"], "77{1000000000 0}");
    EXPECT_EQ(requests["checkin"], "6A{{}}");
    EXPECT_EQ(acked, 1);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Checking in 0 results"));
}

TEST_F(checkin_delivery, sends_results_and_drops_them) {
    active_tree = tree_with(2);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(requests["checkin"], "6A{{{1000 \"\" #0 {\"g\" \"a\"} 1} {1000 \"\" #0 {\"g\" \"a\"} 2}}}");
    EXPECT_EQ(queued(active_tree), 0);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Checking in 2 results"));
}

TEST_F(checkin_delivery, sends_no_more_than_the_limit) {
    active_tree = tree_with(120);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(sent_results(), 50);
    EXPECT_EQ(queued(active_tree), 70);
    EXPECT_EQ(active_tree->devices->results->value, 51);
    EXPECT_EQ(results_limit, 100U);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Checking in, got 120 results, throttling to max 50"));
}

TEST_F(checkin_delivery, of_just_the_limit_is_not_throttled) {
    active_tree = tree_with(50);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Checking in 50 results"));
    EXPECT_EQ(host.count_logged("throttling"), 0);
}

TEST_F(checkin_delivery, sends_the_results_of_actions_behind_the_others) {
    active_tree = tree_with(1);
    action_tree = tree_with(1, TYPE_ACTION);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(requests["checkin"], "6A{{{1000 \"\" #0 {\"g\" \"a\"} 1} {1000 \"\" #0 {\"g\" \"a\"} null}}}");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Checking in 1 results")); // actions are not counted
    EXPECT_EQ(queued(action_tree), 0);
}

TEST_F(checkin_delivery, shares_the_limit_between_both_trees) {
    active_tree = tree_with(48);
    action_tree = tree_with(5, TYPE_ACTION);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(sent_results(), 50);
    EXPECT_EQ(queued(active_tree), 0);
    EXPECT_EQ(queued(action_tree), 3);
}

TEST_F(checkin_delivery, corrects_the_time_by_the_offset_just_measured) {
    active_tree = tree_with(1);
    delays["time"] = 100;
    active_tree->devices->results->check_time = 1'000'000'000;
    EXPECT_EQ(check_in(), "(none)");
    // Asked at 0, answered and read at 100: half of that is between.
    EXPECT_EQ(time_offset, -50);
    EXPECT_EQ(requests["checkin"], "6A{{{1000000050 \"\" #0 {\"g\" \"a\"} 1}}}");
    EXPECT_EQ(active_tree->devices->results, nullptr);
}

// The acknowledgement.

TEST_F(checkin_acknowledgement, that_is_refused_keeps_everything) {
    active_tree = tree_with(3);
    action_tree = tree_with(1, TYPE_ACTION);
    action_tree->devices->next_check = 5;
    reply = answer(false);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(acked, 0);
    EXPECT_EQ(queued(active_tree), 3);
    EXPECT_EQ(queued(action_tree), 1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "Checkin was not acknowledged by server."));
    EXPECT_EQ(results_limit, 100U); // the attempt is a success all the same
    std::string first = requests["checkin"];
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(requests["checkin"], first);
}

TEST_F(checkin_acknowledgement, prunes_actions_that_have_run) {
    action_tree = tree_with(1, TYPE_ACTION);
    action_tree->devices->next_check = 5;
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(action_tree, nullptr);
}

TEST_F(checkin_acknowledgement, keeps_actions_that_have_not_run) {
    action_tree = tree_with(0, TYPE_ACTION);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_STREQ(action_tree->devices->id, "a");
}

// Actions.

TEST_F(checkin_actions, stand_in_front_of_those_that_are_there) {
    action_tree = tree_with(0, TYPE_ACTION);
    reply = answer(true, false, false, wire_action_group("new", "", wire_action("x")));
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_STREQ(action_tree->id, "new");
    EXPECT_STREQ(action_tree->devices->id, "x");
    EXPECT_EQ(action_tree->devices->type, TYPE_ACTION);
    EXPECT_STREQ(action_tree->next->id, "g");
    EXPECT_EQ(action_tree->next->next, nullptr);
}

TEST_F(checkin_actions, of_several_top_groups_keep_the_first) {
    action_tree = tree_with(0, TYPE_ACTION);
    reply = answer(true, false, false,
                   wire_action_group("first", "", wire_action("x")) +
                       wire_action_group("second", "", wire_action("y")));
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_STREQ(action_tree->id, "first");
    EXPECT_STREQ(action_tree->next->id, "g");
}

TEST_F(checkin_actions, are_lost_with_an_attempt_that_fails_behind_them) {
    reply = wire_open("6B", wire_bool(true) + wire_bool(false) + wire_bool(false) +
                                wire_list(wire_action_group("new", "", wire_action("x")))) +
            wire_null();
    EXPECT_EQ(check_in(), "Wrong tag, expected BE_BOOLEAN");
    EXPECT_EQ(action_tree, nullptr);
    reply = answer(true, true, false, wire_action_group("new", "", wire_action("x")));
    configuration = wire_record("63", wire_text("no"));
    EXPECT_EQ(check_in(), "no");
    EXPECT_EQ(action_tree, nullptr);
}

// A new configuration.

TEST_F(checkin_configuration, replaces_the_tree_without_a_scan) {
    active_tree = tree_with(0);
    reply = answer(true, true);
    configuration = tree_reply(wire_group("h", ""));
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(requests["configure"], "68{34 3 8 5153 0 {} {} {}}");
    EXPECT_STREQ(active_tree->id, "h");
}

TEST_F(checkin_configuration, shows_the_devices_when_the_server_wants_a_scan) {
    static check_entry families[] = {{"fs",
                                      [](devtree *root) -> const char * {
                                          devtree_child(root, "fs", "Disks");
                                          return nullptr;
                                      },
                                      nullptr, 0},
                                     {}};
    check_table = families;
    reply = answer(true, true, false, "", true);
    configuration = wire_record("7F 21", wire_bool(false));
    behind_opening = [this](server_side &server) {
        add_checkin(server);
        server.then([this, &server] {
            requests["devices"] = server.take().words();
            server.send(tree_reply(""));
        });
    };
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(requests["configure"], "7F 20{}");
    EXPECT_TRUE(
        requests["devices"].starts_with("68{34 3 8 5153 0 {} {{\"fs\" \"Disks\" {} {} \"\" false}} {{1 "));
    check_table = nullptr;
}

TEST_F(checkin_configuration, does_not_come_for_a_scan_alone) {
    reply = answer(true, false, false, "", true);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_FALSE(requests.contains("configure"));
}

TEST_F(checkin_configuration, carries_results_across_that_were_not_acknowledged) {
    active_tree = tree_with(2);
    reply = answer(false, true);
    configuration = tree_reply(wire_group("g", wire_simple_check("a")));
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(acked, 0);
    EXPECT_EQ(queued(active_tree), 2);
    EXPECT_EQ(active_tree->devices->frequency, 60);
}

TEST_F(checkin_configuration, that_fails_leaves_the_acknowledgement_standing) {
    active_tree = tree_with(2);
    reply = answer(true, true);
    configuration = wire_record("63", wire_text("not now"));
    EXPECT_EQ(check_in(), "not now");
    EXPECT_EQ(acked, 1);
    EXPECT_EQ(queued(active_tree), 0);
    EXPECT_EQ(results_limit, 50U);
}

// The news of an upgrade.

TEST_F(checkin_upgrade, starts_a_download_where_it_is_allowed) {
    start_download_hook = [](agent_config *settings) { downloaded = settings; };
    config->allow_autoupgrade = 1;
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(downloaded, nullptr);
    reply = answer(true, false, true);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(downloaded, config);
}

TEST_F(checkin_upgrade, is_told_where_it_is_not_allowed) {
    start_download_hook = [](agent_config *settings) { downloaded = settings; };
    reply = answer(true, false, true);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(downloaded, nullptr);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Server has upgrade, but i am not allowed to download it"));
}

TEST_F(checkin_upgrade, is_harmless_while_nobody_downloads) {
    config->allow_autoupgrade = 1;
    reply = answer(true, false, true);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(host.count_logged("not allowed"), 0);
}

// The line of success.

TEST_F(checkin_success_line, tells_the_seconds_of_each_stage) {
    auto connect = sockets.on_connect;
    sockets.on_connect = [&](scripted_connection &connection) {
        host.now += 1;
        connect(connection);
    };
    delays = {{"time", 2}, {"checkin", 4}, {"configure", 8}};
    reply = answer(true, true);
    configuration = tree_reply("");
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(host.count_logged("Checkin success, conn: 1s, setup: 2s, data: 0s, ack: 4s, finish: 8s"), 1);
}

TEST_F(checkin_success_line, leaves_the_flush_of_the_variables_out) {
    set_variable("position", "5");
    clock_ops slow = *clock_host; // writing the file takes 100 seconds
    slow.time = [] {
        return the_host->now + (the_host->read_file("/var/agent/variables").empty() ? 0 : 100);
    };
    const clock_ops *kept = std::exchange(clock_host, &slow);
    EXPECT_EQ(check_in(), "(none)");
    clock_host = kept;
    EXPECT_NE(stored_variables(), "");
    EXPECT_TRUE(
        host.logged(LOG_DETAIL, "Checkin success, conn: 0s, setup: 0s, data: 0s, ack: 0s, finish: 0s"));
}

TEST_F(checkin_success_line, ends_what_is_told_in_order) {
    reply = answer(false, true, true);
    configuration = tree_reply("");
    EXPECT_EQ(check_in(), "(none)");
    const std::vector<std::string> lines = {
        "Time offset is 0",
        "Checking in 0 results",
        "Checkin was not acknowledged by server.",
        "Registering buildno 5153",
        "host_id: 5", // the store tells what it writes
        "hallmark: 32",
        "hostkey: 1",
        "Server sent no LogCheck group",
        "Instructed by server to perform 0 checks",
        "Server has upgrade, but i am not allowed to download it",
        "Checkin success, conn: 0s, setup: 0s, data: 0s, ack: 0s, finish: 0s",
    };
    EXPECT_EQ(host.told(), lines);
}

TEST_F(checkin_success_line, is_normal_from_half_of_the_period_on) {
    EXPECT_EQ(level_of(60, 29), LOG_DETAIL);
    EXPECT_EQ(level_of(60, 30), LOG_NORMAL);
    EXPECT_EQ(level_of(60, 40), LOG_NORMAL);
}

TEST_F(checkin_success_line, counts_the_connecting_as_well) {
    auto connect = sockets.on_connect;
    sockets.on_connect = [&](scripted_connection &connection) {
        host.now += 1;
        connect(connection);
    };
    EXPECT_EQ(level_of(60, 28), LOG_DETAIL);
    EXPECT_EQ(level_of(60, 29), LOG_NORMAL);
}

TEST_F(checkin_success_line, takes_60_seconds_for_an_unset_period) {
    EXPECT_EQ(level_of(-1, 29), LOG_DETAIL);
    EXPECT_EQ(level_of(-1, 30), LOG_NORMAL);
}

TEST_F(checkin_success_line, halves_the_period_downwards) {
    EXPECT_EQ(level_of(5, 1), LOG_DETAIL);
    EXPECT_EQ(level_of(5, 2), LOG_NORMAL);
    EXPECT_EQ(level_of(1, 0), LOG_NORMAL);
}

// Failures.

TEST_F(checkin_failure, to_connect_is_told_as_it_always_was) {
    set_servers("nowhere");
    EXPECT_EQ(check_in(), "Error resolving \"nowhere\": Host not found");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "setup_connection falied"));
    EXPECT_EQ(acked, 0);
}

TEST_F(checkin_failure, of_the_opening_closes_the_stream) {
    opening.closes_at = "offers";
    EXPECT_EQ(check_in(), "Peer closed connection unexpectedly");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "setup_connection falied"));
    EXPECT_EQ(sockets.last().closes, 1);
}

TEST_F(checkin_failure, of_the_time_exchange_closes_the_stream_once) {
    behind_opening = [](server_side &server) {
        server.then([&server] {
            server.take();
            server.close();
        });
    };
    EXPECT_EQ(check_in(), "Peer closed connection unexpectedly");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Server does not support time synchronization"));
    EXPECT_EQ(sockets.last().closes, 1);
}

TEST_F(checkin_failure, of_the_reply_keeps_the_results) {
    active_tree = tree_with(2);
    reply.clear();
    EXPECT_EQ(check_in(), "Peer closed connection unexpectedly");
    EXPECT_EQ(acked, 0);
    EXPECT_EQ(queued(active_tree), 2);
    EXPECT_EQ(sockets.last().closes, 1);
}

TEST_F(checkin_failure, names_what_is_not_sound_in_the_reply) {
    reply = wire_record("63", wire_text("no"));
    EXPECT_EQ(check_in(), "Wrong tag (27) encountered in read_checkin_resp_incomplete");
    reply = wire_record("6B", wire_bool(true) + wire_bool(true));
    EXPECT_EQ(check_in(), "checkin_resp.upgradeAvailable: Wrong tag, expected BE_BOOLEAN");
    reply = wire_record("6B", wire_bool(true) + wire_bool(false) + wire_bool(false));
    EXPECT_EQ(check_in(), "Wrong tag in read_action_conf_list");
    reply = wire_record("6B", wire_bool(true) + wire_bool(false) + wire_bool(false) + wire_list(""));
    EXPECT_EQ(check_in(), "Wrong tag, expected BE_BOOLEAN");
    reply = answer(true);
    reply.back() = '\x01';
    EXPECT_EQ(check_in(), "List not terminated correctly in skip_to_eol");
    EXPECT_EQ(acked, 0);
}

TEST_F(checkin_failure, waits_ten_minutes_for_the_reply_and_then_its_time_out) {
    behind_opening = [this](server_side &server) {
        server.then([this, &server] {
            request("time", server);
            server.send(wire_record("78", wire_integer(host.now) + wire_integer(0)));
        });
    };
    int64_t start = host.now;
    EXPECT_EQ(check_in(), "Error receiving data: Timeout in socket_recv()");
    EXPECT_EQ(host.now, start + 1200);
}

TEST_F(checkin_failure, of_a_log_text_that_is_too_long_delivers_nothing) {
    active_tree = tree_with(1, TYPE_LOG);
    active_tree->devices->results->log_text = text_copy(std::string(65537, 'l').c_str());
    behind_opening = [this](server_side &server) {
        server.then([this, &server] {
            request("time", server);
            server.send(wire_record("78", wire_integer(host.now) + wire_integer(0)));
        });
    };
    EXPECT_EQ(check_in(), "data out of range in write_string");
    EXPECT_EQ(queued(active_tree), 1);
}

TEST_F(checkin_failure, of_the_flush_is_one_of_the_attempt) {
    active_tree = tree_with(2);
    set_variable("position", "5");
    host.broken["open"]["/var/agent"] = 13;
    EXPECT_EQ(check_in(), "Couldn't create the variable registrykey during flush");
    EXPECT_EQ(acked, 1);
    EXPECT_EQ(queued(active_tree), 0);
    EXPECT_EQ(results_limit, 50U);
    EXPECT_EQ(host.count_logged("Checkin success"), 0);
    EXPECT_EQ(sockets.last().closes, 1);
}

TEST_F(checkin_failure, goes_to_the_next_server) {
    set_servers("nowhere,server");
    EXPECT_EQ(check_in(), "Error resolving \"nowhere\": Host not found");
    EXPECT_EQ(server_index, 1);
    EXPECT_EQ(server_changed, 1U);
    server_changed = 0;
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(server_index, 1);
    EXPECT_EQ(server_changed, 0U);
}

TEST_F(checkin_failure, stays_with_a_single_server) {
    set_servers("nowhere");
    EXPECT_NE(check_in(), "(none)");
    EXPECT_EQ(server_index, 0);
    EXPECT_EQ(server_changed, 0U);
}

TEST_F(checkin_failure, of_one_attempt_alone_changes_neither_server_nor_limit) {
    set_servers("nowhere,server");
    results_limit = 150;
    int32_t taken = 7;
    EXPECT_FAILURE(checkin_attempt(config, &taken), "Error resolving \"nowhere\": Host not found");
    EXPECT_EQ(taken, 0);
    EXPECT_EQ(server_index, 0);
    EXPECT_EQ(results_limit, 150U);
}

// The limit.

TEST_F(checkin_limit, grows_by_50_with_each_good_checkin) {
    for (uint32_t limit : {100U, 150U, 200U}) {
        EXPECT_EQ(check_in(), "(none)");
        EXPECT_EQ(results_limit, limit);
    }
}

TEST_F(checkin_limit, does_not_wrap) {
    results_limit = UINT32_MAX - 50;
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(results_limit, UINT32_MAX);
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(results_limit, UINT32_MAX);
    results_limit = UINT32_MAX - 49;
    EXPECT_EQ(check_in(), "(none)");
    EXPECT_EQ(results_limit, UINT32_MAX - 49);
}

TEST_F(checkin_limit, falls_to_50_behind_a_failure) {
    results_limit = 500;
    reply.clear();
    EXPECT_NE(check_in(), "(none)");
    EXPECT_EQ(results_limit, 50U);
    lift_results_limit();
    EXPECT_EQ(results_limit, UINT32_MAX);
    EXPECT_NE(check_in(), "(none)");
    EXPECT_EQ(results_limit, 50U);
}
