#include "protocol/configure.h"

#include "devtree/check_table.h"
#include "devtree/fake_checks.h"
#include "devtree/live_trees.h"
#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "protocol/agent_side.h"
#include "protocol/authentication.h"
#include "protocol/server_tree.h"
#include "state/variables.h"

// What the scan of the one family finds: a group of this name with one device, if there is one.
static const char *found_group;

static const char *scan_family(devtree *root) {
    if (found_group == nullptr) return nullptr;
    devnode *device = alloc_devnode();
    device->id = text_copy("disk");
    device->type = TYPE_CONTINUOUS;
    device->description = 1;
    devtree_add_devices(devtree_child(root, found_group, "Disks"), device);
    return nullptr;
}

static check_entry families[] = {{"fs", scan_family, nullptr, 0}, {}};

static std::string wire_server(const std::string &name, int port) {
    return wire_list(wire_text(name) + wire_integer(port));
}

class configure_test : public agent_side {
protected:
    configure_test() {
        check_table = families;
        config_in_force = config;
        fake_checks_reset();
        found_group = "fs";
    }
    ~configure_test() override {
        free_devtree(active_tree);
        free_clinfo_list(host_info);
        active_tree = nullptr;
        host_info = nullptr;
        config_in_force = nullptr;
        check_table = nullptr;
    }

    // One exchange, with these bytes as all that the server says.
    std::string exchange(const std::string &reply, bool scan = false) {
        memory_io stream(reply);
        std::string failure = noted_failure(configure_exchange(stream, config, scan));
        sent = stream.written;
        flushes = stream.flushes;
        left = hex(stream.left());
        EXPECT_EQ(stream.closes, 0);
        return failure;
    }
    // A sound reply from its parts.
    static std::string reply(const std::string &servers = "", const std::string &groups = "",
                             const std::string &id = "agent", int frequency = 60) {
        return wire_record("69",
                           wire_text(id) + wire_integer(frequency) + wire_list(servers) + wire_list(groups));
    }
    // The reply up to its list of servers.
    static std::string begun(const std::string &rest) {
        return wire_open("69", wire_text("agent") + wire_integer(60)) + rest;
    }

    std::string sent;
    int flushes = 0;
    std::string left;
};

using configure_request = configure_test;
using scan_notice = configure_test;
using configure_response = configure_test;
using node_identity = configure_test;
using server_list_reply = configure_test;
using new_tree = configure_test;
using log_rule_resolution = configure_test;

static constexpr const char *BUILD = "68{34 3 8 5153 0 ";
static const std::string NO_NACK = wire_record("7F 21", wire_bool(false));

// What the agent sends.

TEST_F(configure_request, tells_the_build_and_two_empty_lists_without_a_scan) {
    EXPECT_EQ(exchange(reply()), "(none)");
    EXPECT_EQ(wire_words(sent), BUILD + std::string("{} {} {}}"));
    EXPECT_EQ(flushes, 1);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Registering buildno 5153"));
    EXPECT_EQ(host.count_logged("hardware scan"), 0);
}

TEST_F(configure_request, tells_the_lines_of_the_host) {
    host_info = alloc_clinfo();
    host_info->label = text_copy("OS");
    host_info->value = text_copy("Linux");
    host_info->next = alloc_clinfo();
    host_info->next->value = text_copy("more");
    EXPECT_EQ(exchange(reply()), "(none)");
    EXPECT_EQ(wire_words(sent), BUILD + std::string("{{\"OS\" \"Linux\"} {\"\" \"more\"}} {} {}}"));
}

TEST_F(configure_request, tells_devices_and_descriptions_with_a_scan) {
    EXPECT_EQ(exchange(NO_NACK + reply(), true), "(none)");
    std::string words = wire_words(sent);
    EXPECT_TRUE(words.starts_with("7F 20{} " + std::string(BUILD) +
                                  "{} {{\"fs\" \"Disks\" {{\"disk\" \"\" \"\" #0 \"\" null null null 1}} {} "
                                  "\"\" false}} {{1 \"Free space is fine\""))
        << words;
    EXPECT_TRUE(
        words.ends_with("{30 \"Vdevice OK\" \"Vdevice status suspicious\" \"Vdevice status critical\"}}}"));
    EXPECT_EQ(flushes, 2);
    for (const char *text :
         {"Commencing hardware scan", "Hardware scan complete", "Agent has devices to monitor"})
        EXPECT_TRUE(host.logged(LOG_DETAIL, text)) << text;
}

TEST_F(configure_request, tells_what_it_does_in_order) {
    EXPECT_EQ(exchange(wire_record("7F 21", wire_bool(true)) + reply(), true), "(none)");
    const std::vector<std::string> lines = {
        "HWScan. Server returned NACK",
        "Registering buildno 5153",
        "Commencing hardware scan",
        "Scanning fs",
        "Hardware scan complete",
        "Agent has devices to monitor",
        "host_id: 5", // the store tells what it writes
        "Server sent no LogCheck group",
        "Instructed by server to perform 0 checks",
    };
    EXPECT_EQ(host.told(), lines);
}

TEST_F(configure_request, ends_the_agent_when_the_scan_finds_nothing) {
    found_group = nullptr;
    expect_fatal([&] { exchange(NO_NACK + reply(), true); },
                 "This agent is not able to monitor *anything* on this host");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Hardware scan complete"));
    EXPECT_EQ(host.count_logged("Agent has devices to monitor"), 0);
}

TEST_F(configure_request, may_offer_nothing_with_fake_results) {
    fake_results_flag = 1;
    EXPECT_EQ(exchange(NO_NACK + reply(), true), "(none)");
    std::string words = wire_words(sent);
    EXPECT_TRUE(words.starts_with("7F 20{} " + std::string(BUILD) + "{} {} {{1 \"Free space is fine\""))
        << words;
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Agent has devices to monitor"));
}

TEST_F(configure_request, passes_every_failure_of_the_stream_on) {
    host_info = alloc_clinfo();
    memory_io whole(NO_NACK + reply());
    EXPECT_SUCCESS(configure_exchange(whole, config, true));
    for (uint32_t call = 1; call <= whole.calls; call++) {
        configure_reset();
        memory_io stream(NO_NACK + reply());
        stream.fail_call = call;
        std::string failure = noted_failure(configure_exchange(stream, config, true));
        EXPECT_NE(failure.find(MEMORY_IO_FAILED), std::string::npos) << call << " " << failure;
    }
}

TEST_F(configure_request, tells_that_it_could_not_be_sent) {
    memory_io stream(reply());
    stream.fail_call = 1;
    EXPECT_FAILURE(configure_exchange(stream, config, false),
                   "Error at send CONFIGURE: the stream has failed");
    stream.fail_call = 3;
    EXPECT_FAILURE(configure_exchange(stream, config, false),
                   "Error at send CONFIGURE: configure_req.packageId: the stream has failed");
}

// The notice of a scan.

TEST_F(scan_notice, is_answered) {
    EXPECT_EQ(exchange(NO_NACK + reply(), true), "(none)");
    EXPECT_EQ(host.count_logged("HWScan"), 0);
}

TEST_F(scan_notice, is_sent_with_every_scan) {
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(exchange(NO_NACK + reply("", wire_group("g", "")), true), "(none)");
        EXPECT_TRUE(wire_words(sent).starts_with("7F 20{} " + std::string(BUILD)));
    }
}

TEST_F(scan_notice, does_not_stop_the_scan_when_refused) {
    EXPECT_EQ(exchange(wire_record("7F 21", wire_bool(true)) + reply(), true), "(none)");
    EXPECT_TRUE(host.logged(LOG_WARNING, "HWScan. Server returned NACK"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Hardware scan complete"));
}

static constexpr const char *NO_SUPPORT = "Couldn't read HWScan response. Server doesn't seem to support "
                                          "HWScan notifications. This feature will be disabled "
                                          "until the agent is restarted";

TEST_F(scan_notice, is_given_up_when_no_answer_comes) {
    EXPECT_EQ(exchange("", true), MEMORY_IO_EMPTY);
    EXPECT_TRUE(host.logged(LOG_WARNING, NO_SUPPORT));
    EXPECT_EQ(wire_words(sent), "7F 20{}");
    // The scan itself is not withdrawn.
    EXPECT_EQ(exchange(reply(), true), "(none)");
    EXPECT_TRUE(wire_words(sent).starts_with("68{"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Hardware scan complete"));
    EXPECT_EQ(host.count_logged("Couldn't read HWScan"), 1);
}

TEST_F(scan_notice, leaves_another_answer_where_it_is) {
    // The unexpected tag is read, and what stands behind it is then taken for the reply's own tag.
    std::string answer = bytes("62") + reply();
    EXPECT_EQ(exchange(answer, true), "(none)");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Got unexpected tag 19 from server"));
    EXPECT_EQ(left, "");
    // The notice stays in use.
    exchange(NO_NACK + reply(), true);
    EXPECT_TRUE(wire_words(sent).starts_with("7F 20{}"));
}

TEST_F(scan_notice, fails_with_an_answer_that_is_not_sound) {
    EXPECT_EQ(exchange(bytes("7F 21 00") + reply(), true), "Definite length read in read_h_w_scan_resp");
    EXPECT_EQ(exchange(wire_record("7F 21", "") + reply(), true),
              "h_w_scan_resp.nack: Wrong tag, expected BE_BOOLEAN");
    // The notice stays in use.
    exchange(NO_NACK + reply(), true);
    EXPECT_TRUE(wire_words(sent).starts_with("7F 20{}"));
}

TEST_F(scan_notice, is_not_sent_without_a_scan) {
    EXPECT_EQ(exchange(reply()), "(none)");
    EXPECT_TRUE(wire_words(sent).starts_with("68{"));
}

// The reply.

TEST_F(configure_response, sets_the_period) {
    EXPECT_EQ(exchange(reply("", "", "agent", 300)), "(none)");
    EXPECT_EQ(config->checkin_freq, 300);
    EXPECT_EQ(exchange(reply("", "", "agent", -1)), "(none)");
    EXPECT_EQ(config->checkin_freq, -1);
}

TEST_F(configure_response, may_be_a_refusal) {
    EXPECT_EQ(exchange(wire_record("63", wire_text("unknown node %d"))), "unknown node %d");
    EXPECT_EQ(exchange(wire_record("63", "")), "negotiate_nack.reason: Wrong tag, expected BE_STRING");
}

TEST_F(configure_response, may_be_a_refusal_in_1024_characters) {
    const std::string reason(1024, 'r');
    EXPECT_EQ(exchange(wire_record("63", wire_text(reason))), reason);
}

TEST_F(configure_response, is_no_other_message) {
    EXPECT_EQ(exchange(wire_record("6B", "")), "Got unexpected tag 91 from server");
    EXPECT_EQ(exchange(WIRE_END), "Got unexpected tag 0 from server");
}

TEST_F(configure_response, may_never_come) {
    EXPECT_EQ(exchange(""), MEMORY_IO_EMPTY);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error reading Configure response"));
}

TEST_F(configure_response, names_the_field_that_is_not_sound) {
    EXPECT_EQ(exchange(reply("", "", "agent", 86401)),
              "configure_resp.checkinFrequency: data out of range in read_signed_int");
    EXPECT_EQ(exchange(reply("", "", std::string(129, 'i'))),
              "configure_resp.id: data out of range in read_string");
    EXPECT_EQ(config->checkin_freq, 60);
    EXPECT_EQ(variable("host_id"), "(none)");
}

TEST_F(configure_response, may_end_with_more_than_is_known) {
    EXPECT_EQ(exchange(begun(wire_list("") + wire_list("") + wire_list(wire_null()) + WIRE_END)), "(none)");
    EXPECT_EQ(left, "");
}

TEST_F(configure_response, fails_wherever_the_stream_ends_and_keeps_nothing) {
    std::string whole = reply(wire_server("other", 5), wire_group("g", wire_simple_check("x")));
    for (size_t length = 0; length < whole.size(); length++)
        EXPECT_NE(exchange(whole.substr(0, length)).find(MEMORY_IO_EMPTY), std::string::npos) << length;
    EXPECT_EQ(active_tree, nullptr);
}

// The id.

TEST_F(node_identity, is_taken_from_the_first_server) {
    EXPECT_EQ(exchange(reply("", "", "agent 7")), "(none)");
    EXPECT_STREQ(config->host_id, "agent 7");
    EXPECT_EQ(variable("host_id"), "agent 7");
    EXPECT_EQ(stored_variables(), "host_id\tagent 7\n"); // a new key goes with the next flush
}

TEST_F(node_identity, stays_when_it_is_the_same) {
    config->host_id = text_copy("agent 7");
    const char *kept = config->host_id;
    EXPECT_EQ(exchange(reply("", "", "agent 7")), "(none)");
    EXPECT_EQ(config->host_id, kept);
    EXPECT_EQ(variable("host_id"), "(none)");
}

TEST_F(node_identity, is_replaced_when_it_differs_in_a_letter) {
    config->host_id = text_copy("agent 7");
    EXPECT_EQ(exchange(reply("", "", "Agent 7")), "(none)");
    EXPECT_STREQ(config->host_id, "Agent 7");
    EXPECT_EQ(variable("host_id"), "Agent 7");
}

TEST_F(node_identity, is_not_written_at_once_when_it_changes) {
    set_variable("host_id", "agent 7");
    EXPECT_SUCCESS(var_flush(1));
    config->host_id = text_copy("agent 7");
    EXPECT_EQ(exchange(reply("", "", "agent 8")), "(none)");
    EXPECT_EQ(variable("host_id"), "agent 8");
    EXPECT_EQ(stored_variables(), "host_id\tagent 7\n");
}

TEST_F(node_identity, may_be_empty) {
    config->host_id = text_copy("agent 7");
    EXPECT_EQ(exchange(reply("", "", "")), "(none)");
    EXPECT_STREQ(config->host_id, "");
    EXPECT_EQ(variable("host_id"), "");
}

TEST_F(node_identity, stays_as_changed_when_the_exchange_fails_later) {
    EXPECT_EQ(exchange(wire_open("69", wire_text("agent 7") + wire_integer(300)) + wire_null()),
              "Wrong tag in registration");
    EXPECT_EQ(variable("host_id"), "agent 7");
    EXPECT_EQ(config->checkin_freq, 300);
}

TEST_F(node_identity, ends_the_agent_when_memory_is_out) {
    host.fail_allocation = 2; // behind the id itself
    expect_fatal([&] { exchange(reply()); }, "Out of memory");
}

TEST_F(node_identity, does_not_mind_a_flush_that_fails) {
    host.broken["open"]["/var/agent"] = 13;
    EXPECT_EQ(exchange(reply()), "(none)");
    EXPECT_EQ(variable("host_id"), "agent");
}

// The list of servers.

TEST_F(server_list_reply, replaces_the_list) {
    EXPECT_EQ(exchange(reply(wire_server("a", 1) + wire_server("b", 65535))), "(none)");
    EXPECT_EQ(config->server_count, 2);
    EXPECT_STREQ(config->servers[0].name, "a");
    EXPECT_EQ(config->servers[0].port, 1);
    EXPECT_STREQ(config->servers[1].name, "b");
    EXPECT_EQ(config->servers[1].port, 65535);
    EXPECT_EQ(config->servers[2].name, nullptr);
    EXPECT_EQ(variable("server_list_cluster"), "a:1,b:65535,");
    EXPECT_EQ(server_changed, 1U);
}

TEST_F(server_list_reply, changes_nothing_when_empty) {
    EXPECT_EQ(exchange(reply()), "(none)");
    EXPECT_STREQ(config->servers[0].name, "server");
    EXPECT_EQ(config->server_count, 1);
    EXPECT_EQ(variable("server_list_cluster"), "(none)");
    EXPECT_EQ(server_changed, 0U);
}

TEST_F(server_list_reply, counts_as_changed_though_it_is_the_same) {
    EXPECT_EQ(exchange(reply(wire_server("server", 3241))), "(none)");
    EXPECT_EQ(server_changed, 1U);
}

TEST_F(server_list_reply, keeps_the_current_place_or_starts_over) {
    server_index = 1;
    EXPECT_EQ(exchange(reply(wire_server("a", 1) + wire_server("b", 2))), "(none)");
    EXPECT_EQ(server_index, 1);
    EXPECT_EQ(exchange(reply(wire_server("a", 1))), "(none)");
    EXPECT_EQ(server_index, 0);
    EXPECT_EQ(server_changed, 1U);
}

// Each entry takes 257 bytes with its port and comma, or what is said.
static std::string long_server(size_t length) {
    return wire_server(std::string(length - 3, 'n'), 7);
}

TEST_F(server_list_reply, holds_1023_characters) {
    EXPECT_EQ(exchange(reply(long_server(256) + long_server(256) + long_server(256) + long_server(255))),
              "(none)");
    EXPECT_EQ(config->server_count, 4);
    EXPECT_EQ(variable("server_list_cluster").size(), 1023U);
}

TEST_F(server_list_reply, drops_an_entry_that_does_not_fit) {
    EXPECT_EQ(exchange(reply(long_server(256) + long_server(256) + long_server(256) + long_server(256))),
              "(none)");
    EXPECT_EQ(config->server_count, 3);
    EXPECT_EQ(variable("server_list_cluster").size(), 768U);
    // The place stays where it was, so that a shorter entry still fits.
    EXPECT_EQ(exchange(reply(long_server(256) + long_server(256) + long_server(256) + long_server(256) +
                             wire_server("short", 9))),
              "(none)");
    EXPECT_EQ(config->server_count, 4);
    EXPECT_STREQ(config->servers[3].name, "short");
}

TEST_F(server_list_reply, is_sound) {
    EXPECT_EQ(exchange(begun(wire_null())), "Wrong tag in registration");
    EXPECT_EQ(exchange(begun(WIRE_END)), "Wrong tag in registration");
    EXPECT_EQ(exchange(begun(bytes("30 00"))), "Not indefinite length in registration");
    EXPECT_EQ(exchange(begun(bytes("30 80 00 01"))), "List not terminated correctly in registration");
    EXPECT_EQ(exchange(begun(bytes("30 80 00 80"))), "List not terminated correctly in registration");
    EXPECT_EQ(exchange(reply(wire_null())), "Wrong tag (40) encountered in read_server_name_port");
    EXPECT_EQ(exchange(reply(wire_server("a", 0))),
              "server_name_port.port: data out of range in read_signed_int");
    EXPECT_EQ(exchange(reply(wire_server("a", 1) + wire_server(std::string(257, 'n'), 1))),
              "server_name_port.name: data out of range in read_string");
    EXPECT_STREQ(config->servers[0].name, "server");
}

TEST_F(server_list_reply, with_a_port_in_a_name_ends_the_agent_and_leaves_the_old_list) {
    expect_fatal([&] { exchange(reply(wire_server("a:b", 1))); }, "Could not parse port number");
    EXPECT_STREQ(config->servers[0].name, "server");
}

TEST_F(server_list_reply, ends_the_agent_when_memory_for_the_variable_is_out) {
    config->host_id = text_copy("agent");
    // Ahead of it: the id, the entry's name, the list, and the two texts of its one server.
    host.fail_allocation = 6;
    expect_fatal([&] { exchange(reply(wire_server("a", 1))); }, "Out of memory");
    EXPECT_EQ(variable("server_list_cluster"), "(none)");
}

TEST_F(server_list_reply, stays_as_changed_when_the_exchange_fails_later) {
    EXPECT_EQ(exchange(begun(wire_list(wire_server("a", 1)) + wire_null())),
              "Wrong tag in read_devtree_list");
    EXPECT_STREQ(config->servers[0].name, "a");
}

// The tree.

static void queue_result(devnode *device, int32_t value) {
    resnode *result = alloc_resnode();
    result->value = value;
    append_result(device, result);
}

TEST_F(new_tree, replaces_the_old_one_and_takes_its_results) {
    std::string groups = wire_group("g", wire_simple_check("x") + wire_simple_check("y"));
    EXPECT_EQ(exchange(reply("", groups)), "(none)");
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Instructed by server to perform 2 checks"));
    queue_result(active_tree->devices, 7);
    EXPECT_EQ(exchange(reply("", wire_group("g", wire_simple_check("z") + wire_simple_check("x")))),
              "(none)");
    EXPECT_STREQ(active_tree->devices->next->id, "x");
    EXPECT_EQ(active_tree->devices->next->results->value, 7);
    EXPECT_EQ(active_tree->devices->next->next_check, 0);
}

TEST_F(new_tree, may_be_empty) {
    EXPECT_EQ(exchange(reply("", wire_group("g", wire_simple_check("x")))), "(none)");
    EXPECT_EQ(exchange(reply()), "(none)");
    EXPECT_EQ(active_tree, nullptr);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Instructed by server to perform 0 checks"));
}

TEST_F(new_tree, that_cannot_be_read_leaves_the_old_one) {
    EXPECT_EQ(exchange(reply("", wire_group("g", wire_simple_check("x")))), "(none)");
    EXPECT_EQ(exchange(reply("", wire_group("h", wire_null()))),
              "Wrong tag (40) encountered in read_check_conf_incomplete");
    EXPECT_STREQ(active_tree->id, "g");
    EXPECT_EQ(host.count_logged("Instructed by server"), 1);
}

TEST_F(new_tree, whose_record_does_not_end_drops_both) {
    EXPECT_EQ(exchange(reply("", wire_group("g", wire_simple_check("x")))), "(none)");
    EXPECT_EQ(exchange(begun(wire_list("") + wire_list(wire_group("h", "")) + bytes("00 01"))),
              "List not terminated correctly in skip_to_eol");
    EXPECT_EQ(active_tree, nullptr);
    EXPECT_EQ(host.count_logged("Instructed by server"), 1);
}

// Log rules.

static std::vector<std::pair<devtree *, devtree *>> resolved;

static void note_resolution(devtree *log_group, devtree *forward_group) {
    EXPECT_EQ(log_group, active_tree->next); // the new tree is in force by then
    resolved.push_back({log_group, forward_group});
}

TEST_F(log_rule_resolution, is_told_without_a_log_group) {
    log_rule_resolve_hook = note_resolution;
    resolved.clear();
    for (const std::string &groups :
         {std::string(), wire_group("Log", ""), wire_group("g", "", wire_group("log", ""))}) {
        host.log.clear();
        EXPECT_EQ(exchange(reply("", groups)), "(none)");
        EXPECT_TRUE(host.logged(LOG_DETAIL, "Server sent no LogCheck group"));
        EXPECT_EQ(host.count_logged("forward group"), 0);
    }
    EXPECT_TRUE(resolved.empty());
}

TEST_F(log_rule_resolution, is_told_without_a_forward_group) {
    log_rule_resolve_hook = note_resolution;
    resolved.clear();
    for (const std::string &children : {std::string(), wire_group("forward", "")}) {
        host.log.clear();
        EXPECT_EQ(exchange(reply("", wire_group("g", "") + wire_group("log", "", children))), "(none)");
        EXPECT_TRUE(host.logged(LOG_DETAIL, "Server sent no LogCheck forward group"));
    }
    EXPECT_TRUE(resolved.empty());
}

TEST_F(log_rule_resolution, gets_the_first_group_of_each_name) {
    log_rule_resolve_hook = note_resolution;
    resolved.clear();
    std::string children = wire_group("a", "") + wire_group("/forward", "") + wire_group("/forward", "");
    EXPECT_EQ(
        exchange(reply("", wire_group("g", "") + wire_group("log", "", children) + wire_group("log", ""))),
        "(none)");
    ASSERT_EQ(resolved.size(), 1U);
    EXPECT_EQ(resolved[0].second, active_tree->next->children->next);
    EXPECT_EQ(host.count_logged("Server sent no"), 0);
}

TEST_F(log_rule_resolution, is_harmless_while_nobody_resolves) {
    EXPECT_EQ(exchange(reply("", wire_group("log", "", wire_group("/forward", "")))), "(none)");
}
