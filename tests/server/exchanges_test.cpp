#include "server/server_world.h"

#include "server/limits.h"

#include "fakes/test_host.h"

namespace {

using exchanges = server_world;

const std::string &host_tree() {
    static const std::string tree =
        encode_group("fs", encode_device("/", 7, "kB", encode_hint(1000))) +
        encode_group("mem", encode_device("swap", 7, "kB", encode_hint(0)) +
                                encode_device("phys", 7, "kB", encode_hint(2000))) +
        encode_group("system", encode_device("uptime", 4, "s", NO_HINT) +
                                   encode_device("idle", 0, "%", encode_hint(10000))) +
        encode_group("proc", encode_device("init", 1, "", NO_HINT));
    return tree;
}

sent_result phys(int64_t time, double value, const std::string &comment = "") {
    return {.time = time, .path = {"mem", "phys"}, .value = encode_real(value), .comment = comment};
}

sent_result idle(int64_t time, int64_t value) {
    return {.time = time, .path = {"system", "idle"}, .value = encode_integer(value)};
}

constexpr const char *RESULTS = "SELECT name, check_time, status, value, comment, conf_id FROM results"
                                " JOIN checks ON checks.id = check_id ORDER BY results.id";
constexpr const char *UNSETTLED = "SELECT count(*) FROM results WHERE unsettled <> 0";

// The three booleans of a checkin_resp and the one behind its list.
std::string flags_of(const wire_value &reply) {
    std::string text;
    for (size_t i : {0, 1, 2, 4})
        text += reply[i].truth() ? '1' : '0';
    return text;
}

// A store that fails where a test wants it to.
struct failing_store : sqlite_store {
    bool fail_results = false, fail_checks = false, fail_downtime = false;

    const char *save_delivery(const delivery &arrived, stored_delivery *out) override {
        return fail_results ? "the disk is full" : sqlite_store::save_delivery(arrived, out);
    }
    const char *save_checks(int64_t agent_id, const std::vector<planned_check> &checks) override {
        return fail_checks ? "the disk is full" : sqlite_store::save_checks(agent_id, checks);
    }
    const char *save_downtime(int64_t agent_id, int32_t minutes, int64_t at) override {
        return fail_downtime ? "the disk is full" : sqlite_store::save_downtime(agent_id, minutes, at);
    }
};

} // namespace

// Time

TEST_F(exchanges, tell_the_time) {
    auto agent = open();
    (*agent)->send(encode_record(wire::time_req, encode_integer(5) + encode_integer(0)));
    wire_value reply = (*agent)->expect(wire::time_resp);
    EXPECT_EQ(reply[0].integer(), now);
    EXPECT_EQ(reply[1].integer(), 250000);
}

// Registration

TEST_F(exchanges, register_without_a_scan) {
    auto agent = open();
    wire_value reply = (*agent)->configure();
    EXPECT_EQ(reply[0].content, rows("SELECT host_id FROM agents")[0]);
    EXPECT_EQ(reply[1].integer(), 30);
    EXPECT_TRUE(reply[2].parts.empty());
    EXPECT_TRUE(reply[3].parts.empty());
    EXPECT_EQ((*agent)->ask_time(now), now);
    agent->close();
    EXPECT_EQ(observer.notes,
              (std::vector<std::string>{"registered web1 build 5153 from 10.0.0.7 with a new key",
                                        "configured web1 0"}));
}

TEST_F(exchanges, send_the_policys_servers_and_frequency) {
    set_policy(R"(checkin = "5 min"
servers = ["one:99", "two"])");
    auto agent = open();
    wire_value reply = (*agent)->configure();
    EXPECT_EQ(reply[1].integer(), 300);
    ASSERT_EQ(reply[2].parts.size(), 2U);
    EXPECT_EQ(reply[2][0][0].content, "one");
    EXPECT_EQ(reply[2][0][1].integer(), 99);
    EXPECT_EQ(reply[2][1][1].integer(), 3241);
}

TEST_F(exchanges, keep_what_the_agent_tells_of_its_host) {
    auto agent = open();
    std::string heading = encode_record(wire::sequence, encode_text("Hardware") + encode_text(""));
    std::string line = encode_record(wire::sequence, encode_text("Hostname") + encode_text("web1.example"));
    (*agent)->configure("", heading + line);
    agent->close();
    EXPECT_EQ(rows("SELECT label, value FROM host_info ORDER BY position"),
              (std::vector<std::string>{"Hardware|", "Hostname|web1.example"}));
    EXPECT_EQ(rows("SELECT package_id, version, address FROM agents"),
              std::vector<std::string>{"34|3.8 build 5153|10.0.0.7"});
}

TEST_F(exchanges, give_a_registering_agent_what_the_store_has_for_it) {
    register_agent(host_tree());
    auto agent = open();
    wire_value reply = (*agent)->configure();
    ASSERT_EQ(reply[3].parts.size(), 3U);
    EXPECT_EQ(reply[3][0][0].content, "fs");
}

TEST_F(exchanges, take_no_tree_that_was_not_asked_for) {
    auto agent = open();
    (*agent)->configure(host_tree());
    EXPECT_TRUE(rows("SELECT * FROM devices").empty());
}

// Checkin and configuration

TEST_F(exchanges, ask_a_new_agent_for_a_scan) {
    open();
    auto agent = open();
    (*agent)->ask_time(now);
    EXPECT_EQ(flags_of((*agent)->checkin({})), "1101");
    agent->close();
    EXPECT_EQ(agent->stages.back(), session_stage::scan);
}

TEST_F(exchanges, answer_the_notice_of_a_scan) {
    auto agent = open();
    (*agent)->ask_time(now);
    (*agent)->checkin({});
    (*agent)->send(encode_record(wire::scan_req, ""));
    EXPECT_FALSE((*agent)->expect(wire::scan_resp)[0].truth());
    (*agent)->configure(host_tree());
    agent->close();
    EXPECT_TRUE(observer.noted("offered web1 4 6"));
}

TEST_F(exchanges, configure_the_families_that_the_policy_knows) {
    open();
    auto agent = open();
    (*agent)->ask_time(now);
    (*agent)->checkin({});
    wire_value reply = (*agent)->configure(host_tree());
    ASSERT_EQ(reply[3].parts.size(), 3U);
    const wire_value &fs = reply[3][0];
    EXPECT_EQ(fs[0].content, "fs");
    EXPECT_TRUE(fs[2].parts.empty());
    const wire_value &root = fs[1][0];
    EXPECT_EQ(root[0].integer(), 60);
    EXPECT_EQ(root[1].content, "/");
    EXPECT_EQ(root[2].identifier, wire::real_continuous);
    EXPECT_EQ(root.parts.size(), 3U); // no id of the check behind it
    const wire_value &limits = root[2];
    EXPECT_TRUE(limits[0].is_null());
    EXPECT_DOUBLE_EQ(limits[1].real(), 50);
    EXPECT_TRUE(limits[2].is_null());
    EXPECT_DOUBLE_EQ(limits[3].real(), 100);
    const wire_value &idle_check = reply[3][2][1][1];
    EXPECT_EQ(idle_check[1].content, "idle");
    EXPECT_EQ(idle_check[2].identifier, wire::continuous);
    EXPECT_EQ(idle_check[2][1].integer(), 200);
    EXPECT_EQ(idle_check[2][3].integer(), 1000);
}

TEST_F(exchanges, configure_enumerations_by_value) {
    set_policy(R"([[check]]
name = "proc.init"
warn_values = [2]
alert_values = [0])");
    register_agent(host_tree());
    auto agent = open();
    wire_value reply = (*agent)->configure();
    const wire_value &check = reply[3][3][1][0];
    EXPECT_EQ(check[2].identifier, wire::enumeration);
    ASSERT_EQ(check[2][0].parts.size(), 3U);
    EXPECT_EQ(check[2][0][0].content, "\x02");
    EXPECT_EQ(check[2][0][1].content, "");
    EXPECT_EQ(check[2][0][2].content, "\x01");
}

// A host with one log, whose path is /log/app.
static std::string log_tree() {
    std::string folder = encode_group("log", encode_device("app", 9, "", NO_HINT));
    return encode_group("log", "", encode_group("/", "", folder) + encode_group("/forward", ""));
}

TEST_F(exchanges, configure_a_log_with_its_rules) {
    set_policy(R"([[log]]
path = "/log/app"
frequency = 20
separator = "\r?\n"
inclusion = "closes"
warn_silence = 3600
rules = [{clause = "'bad' and not 'x'", status = "alert"}, {clause = "'odd'", decision = "quiet", status = "warn"}])");
    register_agent(log_tree());
    auto agent = open();
    wire_value reply = (*agent)->configure();
    ASSERT_EQ(reply[3].parts.size(), 1U);
    const wire_value &family = reply[3][0];
    EXPECT_EQ(family[0].content, "log");
    ASSERT_EQ(family[2].parts.size(), 1U); // no group without a need for it
    const wire_value &check = family[2][0][2][0][1][0];
    ASSERT_EQ(check.parts.size(), 3U);
    EXPECT_EQ(check[0].integer(), 20);
    EXPECT_EQ(check[1].content, "app");
    const wire_value &log = check[2];
    EXPECT_EQ(log.identifier, "\xA4");
    ASSERT_EQ(log.parts.size(), 5U);
    EXPECT_EQ(log[0].content, "\r?\n");
    EXPECT_EQ(log[1].identifier, wire::enumerated);
    EXPECT_EQ(log[1].content, "");
    ASSERT_EQ(log[2].parts.size(), 2U);
    EXPECT_EQ(log[2].identifier, wire::sequence);
    const wire_value &rule = log[2][1];
    EXPECT_EQ(rule.identifier, wire::sequence);
    ASSERT_EQ(rule.parts.size(), 4U);
    EXPECT_EQ(rule[0].content, "'odd'");
    EXPECT_EQ(rule[1].content, "\x01"); // warn
    EXPECT_EQ(rule[2].content, "\x01"); // quiet
    EXPECT_EQ(rule[3].identifier, wire::text);
    EXPECT_EQ(rule[3].content, "");
    EXPECT_EQ(log[2][0][1].content, "\x02");
    EXPECT_EQ(log[3].integer(), 3600);
    EXPECT_TRUE(log[4].is_null()); // both silences always stand there
}

TEST_F(exchanges, send_forward_groups_with_the_name_that_rules_give) {
    set_policy(R"([[forward]]
name = "ops"
rules = [{clause = "'x'"}]
[[log]]
path = "*"
rules = [{clause = "'bad'", decision = "moveto", destination = "ops"}])");
    register_agent(log_tree());
    auto agent = open();
    wire_value reply = (*agent)->configure();
    const wire_value &groups = reply[3][0][2];
    ASSERT_EQ(groups.parts.size(), 2U);
    const wire_value &rule = groups[0][2][0][1][0][2][2][0];
    EXPECT_EQ(rule[2].content, "\x02");
    EXPECT_EQ(rule[3].content, "ops");
    EXPECT_EQ(groups[1][0].content, "/forward");
    const wire_value &group = groups[1][1][0];
    ASSERT_EQ(group.parts.size(), 4U);
    EXPECT_EQ(group[0].integer(), 60);
    EXPECT_EQ(group[1].content, "ops");
    EXPECT_EQ(group[2].identifier, "\xA4");
    EXPECT_EQ(group[2][0].content, "");
    EXPECT_EQ(group[2][1].content, "\x02");
    EXPECT_EQ(group[3].identifier, wire::text);
    EXPECT_EQ(group[3].content, "ops");
}

TEST_F(exchanges, keep_logs_and_what_they_tell) {
    register_agent(log_tree());
    EXPECT_EQ(rows("SELECT path, name, family, kind, frequency FROM checks"),
              std::vector<std::string>{"log./.log.app|log./.log.app|log|log|30"});
    std::vector<std::string> path = {"log", "/", "log", "app"};
    deliver({{.time = now, .path = path, .value = encode_text("an error\tof \xFF"), .status = 2},
             {.time = now, .path = path, .value = encode_text(""), .status = 1},
             {.time = now, .path = path, .value = encode_text(std::string(65536, 'x')), .status = 0}});
    EXPECT_EQ(rows("SELECT status, typeof(value), length(CAST(value AS BLOB)) FROM results ORDER BY id"),
              (std::vector<std::string>{"2|text|13", "1|text|0", "0|text|65536"}));
    EXPECT_EQ(rows("SELECT value FROM results ORDER BY id")[0], "an error\tof \xFF");
}

TEST_F(exchanges, keep_the_tree_as_it_was_offered) {
    open();
    auto agent = open();
    (*agent)->ask_time(now);
    (*agent)->checkin({});
    std::string inner = encode_group("C:\\", encode_device("reads", 0, "/s", NO_HINT));
    std::string texts = encode_record(wire::sequence, encode_integer(1) + encode_text("g") +
                                                          encode_text("w") + encode_text("a"));
    (*agent)->configure(encode_group("block", "", inner), "", texts);
    agent->close();
    EXPECT_EQ(rows("SELECT g.key, p.key, g.name, g.name_template, g.of_instances FROM groups g"
                   " JOIN groups p ON p.id = g.parent_id"),
              std::vector<std::string>{"C:\\|block|C:\\ name|%0r|0"});
    EXPECT_EQ(rows("SELECT key, name, comment, type, unit, hint_max, description FROM devices"),
              std::vector<std::string>{"reads|reads name|reads comment|0|/s||1"});
    EXPECT_EQ(rows("SELECT number, good, warning, alert FROM descriptions"),
              std::vector<std::string>{"1|g|w|a"});
    std::vector<offered_device> devices;
    ASSERT_EQ(store.load_offer(1, &devices), nullptr);
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].path, (std::vector<std::string>{"block", "C:\\", "reads"}));
}

TEST_F(exchanges, replace_an_older_tree) {
    register_agent(host_tree());
    now += 86400;
    auto agent = open();
    (*agent)->ask_time(now);
    (*agent)->checkin({});
    (*agent)->configure(encode_group("mem", encode_device("phys", 7, "kB", encode_hint(2000))));
    agent->close();
    EXPECT_EQ(rows("SELECT key FROM groups"), std::vector<std::string>{"mem"});
    EXPECT_EQ(rows("SELECT name FROM checks WHERE configured"), std::vector<std::string>{"mem.phys"});
    EXPECT_EQ(rows("SELECT count(*) FROM checks"), std::vector<std::string>{"5"});
}

TEST_F(exchanges, keep_the_checks_that_were_sent) {
    register_agent(host_tree());
    EXPECT_EQ(
        rows("SELECT name, family, kind, frequency, alert_low, warn_low, unit FROM checks ORDER BY name"),
        (std::vector<std::string>{
            "fs./|fs|real continuous|60|50.0|100.0|kB", "mem.phys|mem|real continuous|30|100.0|200.0|kB",
            "mem.swap|mem|real continuous|30|||kB", "system.idle|system|continuous|10|200.0|1000.0|%",
            "system.uptime|system|continuous|60||600.0|s"}));
}

TEST_F(exchanges, leave_an_agent_alone_that_has_its_configuration) {
    register_agent(host_tree());
    EXPECT_EQ(flags_of(deliver({})), "1000");
}

TEST_F(exchanges, configure_again_when_the_answer_was_lost) {
    open();
    {
        auto agent = open();
        (*agent)->ask_time(now);
        (*agent)->checkin({});
        (*agent)->configure(host_tree());
        agent->close(peer_end::lost);
    }
    EXPECT_EQ(flags_of(deliver({})), "1100");
}

TEST_F(exchanges, configure_again_when_the_policy_has_changed) {
    register_agent(host_tree());
    set_policy(R"([[check]]
name = "fs"
frequency = 20)");
    auto agent = open();
    (*agent)->ask_time(now);
    EXPECT_EQ(flags_of((*agent)->checkin({})), "1100");
    wire_value reply = (*agent)->configure();
    EXPECT_EQ(reply[3][0][1][0][0].integer(), 20);
    agent->close();
    EXPECT_EQ(flags_of(deliver({})), "1000");
}

TEST_F(exchanges, ask_for_a_scan_once_a_day) {
    register_agent(host_tree());
    now += 86399;
    EXPECT_EQ(flags_of(deliver({})), "1000");
    now += 1;
    EXPECT_EQ(flags_of(deliver({})), "1101");
}

TEST_F(exchanges, are_patient_with_a_scan_that_does_not_come) {
    open();
    EXPECT_EQ(flags_of(deliver({})), "1101");
    now += 599;
    EXPECT_EQ(flags_of(deliver({})), "1100");
    now += 1;
    EXPECT_EQ(flags_of(deliver({})), "1101");
}

TEST_F(exchanges, ask_an_agent_for_a_scan_that_has_started_afresh) {
    open();
    EXPECT_EQ(flags_of(deliver({})), "1101");
    {
        auto agent = open();
        (*agent)->configure();
    }
    EXPECT_EQ(flags_of(deliver({})), "1101");
}

TEST_F(exchanges, refuse_a_configuration_that_cannot_be_kept) {
    failing_store broken;
    ASSERT_EQ(broken.open(":memory:"), nullptr);
    ports.store = &broken;
    broken.fail_checks = true;
    auto agent = open();
    (*agent)->send(encode_record(
        wire::configure_req, encode_integer(1) + encode_integer(1) + encode_integer(1) + encode_integer(1) +
                                 encode_integer(1) + encode_record(wire::sequence, "") +
                                 encode_record(wire::sequence, "") + encode_record(wire::sequence, "")));
    EXPECT_EQ((*agent)->expect(wire::negotiate_nack)[0].content,
              "The server cannot keep the configuration now");
    agent->close();
    EXPECT_TRUE(observer.noted("failed web1@office: the disk is full"));
}

// Results

TEST_F(exchanges, store_results_of_every_kind) {
    register_agent(host_tree());
    deliver({{.time = now, .path = {"mem", "phys"}, .value = encode_real(1.5), .status = 2, .comment = "low"},
             {.time = now + 1, .path = {"system", "idle"}, .value = encode_integer(-7), .conf_id = "conf"},
             {.time = -5, .path = {"log", "C:\\", "x.log"}, .value = encode_text("a line"), .status = 1},
             {.time = 0, .path = {"action", "go"}, .value = encode_null(), .status = 3}});
    EXPECT_EQ(rows(RESULTS),
              (std::vector<std::string>{"mem.phys|" + std::to_string(now) + "|2|1.5|low|",
                                        "system.idle|" + std::to_string(now + 1) + "|0|-7||conf",
                                        "log.C:\\\\.x.log|-5|1|a line||", "action.go|0|3|||"}));
    EXPECT_EQ(observer.fresh.size(), 4U);
}

TEST_F(exchanges, store_results_before_they_are_acknowledged) {
    register_agent(host_tree());
    auto agent = open();
    (*agent)->ask_time(now);
    (*agent)->checkin({phys(now, 5)});
    EXPECT_EQ(rows(RESULTS).size(), 1U); // with the connection still open
}

TEST_F(exchanges, do_not_acknowledge_what_could_not_be_stored) {
    failing_store broken;
    ASSERT_EQ(broken.open(":memory:"), nullptr);
    ports.store = &broken;
    open();
    broken.fail_results = true;
    EXPECT_EQ(flags_of(deliver({phys(now, 5)})).substr(0, 1), "0");
    EXPECT_TRUE(observer.noted("failed web1@office: the disk is full"));
    EXPECT_TRUE(observer.fresh.empty());
    broken.fail_results = false;
    EXPECT_EQ(flags_of(deliver({phys(now, 5)})).substr(0, 1), "1");
    EXPECT_EQ(observer.fresh.size(), 1U);
}

TEST_F(exchanges, store_nothing_of_a_delivery_that_breaks_off) {
    register_agent(host_tree());
    auto agent = open();
    (*agent)->ask_time(now);
    std::string whole =
        encode_record(wire::checkin_req, encode_record(wire::sequence, encode_result(phys(now, 5))));
    (*agent)->send(whole.substr(0, whole.size() - 16));
    agent->close();
    EXPECT_TRUE(rows(RESULTS).empty());
}

TEST_F(exchanges, store_equal_results_of_one_delivery) {
    register_agent(host_tree());
    deliver({phys(now, 5), phys(now, 5), phys(now, 6)});
    EXPECT_EQ(rows(RESULTS).size(), 3U);
}

TEST_F(exchanges, store_equal_results_of_two_deliveries) {
    register_agent(host_tree());
    deliver({phys(now, 5)});
    deliver({phys(now, 5)});
    EXPECT_EQ(rows(RESULTS).size(), 2U);
}

TEST_F(exchanges, store_once_what_comes_again_because_the_answer_was_lost) {
    register_agent(host_tree());
    deliver_and_lose_reply({phys(now, 5, "newest"), idle(now, 9000)});
    observer.fresh.clear();
    deliver({phys(now, 5), phys(now + 20, 5, "newest"), idle(now, 9000)});
    EXPECT_EQ(rows(RESULTS).size(), 3U);
    ASSERT_EQ(observer.fresh.size(), 1U);
    EXPECT_EQ(observer.fresh[0].check_time, now + 20);
}

TEST_F(exchanges, store_once_through_several_lost_answers) {
    register_agent(host_tree());
    deliver_and_lose_reply({phys(now, 1)});
    deliver_and_lose_reply({phys(now, 1), phys(now + 10, 2)});
    deliver_and_lose_reply({phys(now, 1), phys(now + 10, 2), phys(now + 20, 3)});
    deliver({phys(now, 1), phys(now + 10, 2), phys(now + 20, 3)});
    EXPECT_EQ(rows(RESULTS).size(), 3U);
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"0"});
}

// Behind a failure the agent sends fifty results, and more of them once that has worked.
TEST_F(exchanges, store_once_what_comes_again_in_parts) {
    register_agent(host_tree());
    std::vector<sent_result> queue;
    for (int i = 0; i < 120; i++)
        queue.push_back(phys(now + i, i));
    deliver_and_lose_reply(queue);
    deliver({queue.begin(), queue.begin() + 50});
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"70"});
    std::vector<sent_result> rest(queue.begin() + 50, queue.end());
    rest.push_back(phys(now + 500, 1));
    deliver(rest);
    EXPECT_EQ(rows(RESULTS).size(), 121U);
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"0"});
}

TEST_F(exchanges, know_results_again_when_the_agents_clock_was_set) {
    register_agent(host_tree());
    deliver_and_lose_reply({phys(now, 5)}); // by clocks that agree
    agent_ahead = 3600;                     // the clock was set, the result in the queue was not
    deliver({phys(now - 3600, 5)});
    EXPECT_EQ(rows(RESULTS).size(), 1U);
}

TEST_F(exchanges, store_all_when_the_agent_had_read_the_answer_after_all) {
    register_agent(host_tree());
    deliver_and_lose_reply({phys(now, 5), idle(now, 9000)});
    deliver({phys(now + 30, 5), idle(now + 30, 9000)});
    EXPECT_EQ(rows(RESULTS).size(), 4U);
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"0"});
}

TEST_F(exchanges, expect_nothing_again_from_an_agent_that_has_started_afresh) {
    register_agent(host_tree());
    deliver_and_lose_reply({phys(now, 5)});
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"1"});
    {
        auto agent = open();
        (*agent)->configure();
    }
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"0"});
    deliver({phys(now, 5)});
    EXPECT_EQ(rows(RESULTS).size(), 2U);
}

TEST_F(exchanges, settle_a_delivery_when_the_agent_goes_on) {
    open();
    auto agent = open();
    (*agent)->ask_time(now);
    (*agent)->checkin({phys(now, 5)});
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"1"});
    (*agent)->configure(host_tree());
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"0"});
}

TEST_F(exchanges, keep_the_results_of_agents_apart) {
    register_agent(host_tree());
    deliver_and_lose_reply({phys(now, 5)});
    agent_secrets of_first = secrets;
    secrets = {};
    {
        auto other = open("web2");
        (*other)->ask_time(now);
        (*other)->checkin({phys(now, 5)});
    }
    EXPECT_EQ(rows(RESULTS).size(), 2U);
    secrets = of_first;
    deliver({phys(now, 5)});
    EXPECT_EQ(rows(RESULTS).size(), 2U);
}

TEST_F(exchanges, take_no_checkin_without_the_time) {
    auto agent = open();
    (*agent)->send_checkin({});
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("a checkin without the exchange of time before it"));
}

TEST_F(exchanges, give_memory_back_behind_each_message) {
    register_agent(host_tree());
    auto agent = open();
    (*agent)->ask_time(now);
    (*agent)->checkin(std::vector<sent_result>(1000, phys(now, 5)));
    (*agent)->ask_time(now);
    (*agent)->ask_time(now); // once it is answered, what came before it is done with
    EXPECT_LT(memory.in_use(), 1000U);
    agent->close();
    EXPECT_EQ(memory.in_use(), 0U);
}

// Downtime and upgrade

TEST_F(exchanges, grant_a_downtime) {
    auto agent = open();
    wire_value reply = (*agent)->request_downtime(30);
    EXPECT_TRUE(reply[0].truth());
    EXPECT_EQ(reply[1].content.substr(0, 15), "Downtime until ");
    agent->close();
    EXPECT_EQ(rows("SELECT requested_at, minutes, ends_at FROM downtimes"),
              std::vector<std::string>{std::to_string(now) + "|30|" + std::to_string(now + 1800)});
    EXPECT_TRUE(observer.noted("downtime web1 30 " + std::to_string(now + 1800)));
}

TEST_F(exchanges, grant_no_downtime_without_sense) {
    set_policy(R"(max_downtime = "1 h")");
    for (int64_t minutes : {0, -5, 61, INT32_MIN, INT32_MAX}) {
        auto agent = open();
        wire_value reply = (*agent)->request_downtime(minutes);
        EXPECT_FALSE(reply[0].truth()) << minutes;
        EXPECT_EQ(reply[1].content, "A downtime takes 1 to 60 minutes");
    }
    EXPECT_TRUE(rows("SELECT * FROM downtimes").empty());
    auto agent = open();
    EXPECT_TRUE((*agent)->request_downtime(60)[0].truth());
}

TEST_F(exchanges, grant_no_downtime_that_cannot_be_kept) {
    failing_store broken;
    ASSERT_EQ(broken.open(":memory:"), nullptr);
    broken.fail_downtime = true;
    ports.store = &broken;
    auto agent = open();
    wire_value reply = (*agent)->request_downtime(30);
    EXPECT_FALSE(reply[0].truth());
    EXPECT_EQ(reply[1].content, "The server cannot keep the downtime now");
}

TEST_F(exchanges, close_on_who_asks_for_an_upgrade) {
    auto agent = open();
    (*agent)->ask_upgrade();
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("the agent asked for an upgrade that was not offered"));
}

// Misbehaviour

TEST_F(exchanges, end_with_a_message_that_is_no_agents) {
    auto agent = open();
    (*agent)->send(encode_record(wire::checkin_resp, ""));
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("a message with tag 91, which is no agent's"));
}

// Processes by the thousand, each with its counters, beside services, mounts and interfaces.
TEST_F(exchanges, take_the_tree_of_a_very_large_host) {
    constexpr int PROCESSES = 5000;
    std::string counters;
    for (int i = 0; i < 12; i++)
        counters += encode_device("% Some Time of Counter " + std::to_string(i), 7, "1%", encode_hint(100));
    std::string names;
    std::string instances;
    for (int i = 0; i < PROCESSES; i++) {
        std::string name = "worker process " + std::to_string(i);
        names += encode_device(name, 1, "", NO_HINT);
        instances += encode_group(name, counters);
    }
    register_agent(encode_group("proc", names) +
                   encode_group("perf", "", encode_group("Process", "", instances)));
    EXPECT_EQ(rows("SELECT count(*) FROM devices"), std::vector<std::string>{std::to_string(PROCESSES * 13)});
    EXPECT_FALSE(observer.noted("failed"));
}

TEST_F(exchanges, end_with_too_many_messages) {
    auto agent = open();
    for (int i = 0; i < MAX_MESSAGES; i++)
        (*agent)->ask_time(now);
    (*agent)->send(encode_record(wire::time_req, encode_integer(1) + encode_integer(0)));
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("too many messages"));
}

TEST_F(exchanges, end_with_what_needs_too_much_memory) {
    memory_pool tight(4U << 20);
    ports.memory = &tight;
    sent_result large = {
        .time = now, .path = {"log", "x"}, .value = encode_text(std::string(LOG_TEXT_LIMIT, 'x'))};
    {
        auto agent = open();
        (*agent)->ask_time(now);
        (*agent)->send_checkin(std::vector<sent_result>(64, large));
        EXPECT_TRUE((*agent)->is_closed());
    }
    EXPECT_TRUE(observer.noted("too much data in one message"));
    EXPECT_EQ(tight.in_use(), 0U);
    EXPECT_EQ(flags_of(deliver(std::vector<sent_result>(50, large))).substr(0, 1),
              "1"); // as behind any failure
    static_assert(CONNECTION_MEMORY > 4U << 20);
}

TEST_F(exchanges, survive_noise_in_the_place_of_a_message) {
    uint32_t state = 1;
    for (int round = 0; round < 50; round++) {
        auto agent = open();
        std::string noise;
        for (int i = 0; i < 256; i++) {
            state = state * 1103515245U + 12345U;
            noise += static_cast<char>(state >> 16);
        }
        (*agent)->send(noise);
        agent->close();
    }
    EXPECT_EQ(memory.in_use(), 0U);
    EXPECT_EQ(flags_of(deliver({})).substr(0, 1), "1");
}
