#include "server/summary.h"

#include "fakes/test_host.h"
#include "server/server_world.h"

namespace {

class summary_of_store : public server_world {
protected:
    store_summary summary() {
        database reader;
        store_summary found;
        EXPECT_SUCCESS(open_store_for_reading(store_path, &reader));
        EXPECT_SUCCESS(summarize(reader, &found));
        return found;
    }
    void register_host() {
        register_agent(
            encode_group("mem", encode_device("phys", 7, "kB", encode_hint(1000)) +
                                    encode_device("swap", 7, "kB", encode_hint(1000))) +
            encode_group("perf", "", encode_group("Disk", encode_device("Reads", 0, "/s", NO_HINT))));
    }
    sent_result phys(uint32_t status) {
        return {.time = now, .path = {"mem", "phys"}, .value = encode_real(5), .status = status};
    }
};

using names = std::vector<std::string>;

} // namespace

TEST_F(summary_of_store, counts_by_family_and_status) {
    register_host();
    deliver({phys(0), phys(0), phys(1), phys(2), phys(3)});
    store_summary found = summary();
    EXPECT_EQ(found.agents, 1);
    EXPECT_EQ(found.first_result, now);
    ASSERT_EQ(found.families.size(), 2U);
    const family_summary &mem = found.families[0];
    EXPECT_EQ(mem.name, "mem");
    EXPECT_EQ(mem.offered, 2);
    EXPECT_EQ(mem.checks, 2);
    EXPECT_EQ(std::vector<int64_t>(mem.results, mem.results + 4), (std::vector<int64_t>{2, 1, 1, 1}));
    EXPECT_EQ(found.families[1].name, "perf");
    EXPECT_EQ(found.families[1].offered, 1); // a device of a group within belongs to the top one
    EXPECT_EQ(found.families[1].checks, 0);
}

TEST_F(summary_of_store, counts_logs_and_forward_groups) {
    set_policy(R"([[forward]]
name = "ops"
[[log]]
path = "*"
rules = [{clause = "'bad'", decision = "copyto", destination = "ops"}])");
    register_agent(encode_group(
        "log", "", encode_group("/", encode_device("a", 9, "", NO_HINT)) + encode_group("/forward", "")));
    deliver({{.time = now, .path = {"log", "/", "a"}, .value = encode_text("bad"), .status = 2},
             {.time = now, .path = {"log", "/", "a"}, .value = encode_text("")}});
    store_summary found = summary();
    ASSERT_EQ(found.families.size(), 1U);
    const family_summary &log = found.families[0];
    EXPECT_EQ(log.name, "log");
    EXPECT_EQ(log.offered, 1);
    EXPECT_EQ(log.checks, 2);
    EXPECT_EQ(log.results[0], 1);
    EXPECT_EQ(log.results[2], 1);
    EXPECT_EQ(found.silent_checks, names({"web1: log./forward.ops"}));
}

TEST_F(summary_of_store, names_checks_without_a_result) {
    register_host();
    deliver({phys(0)});
    EXPECT_EQ(summary().silent_checks, names({"web1: mem.swap"}));
}

TEST_F(summary_of_store, is_a_table) {
    register_host();
    now = 1'000'000'000;
    deliver({phys(0), phys(3)});
    test_host host; // for the time zone
    EXPECT_EQ(summary_text(summary()),
              "1 agent, results from 2001-09-09 01:46:40 to 2001-09-09 01:46:40\n\n"
              "family        offered   checks  results     good  warning    alert    error\n"
              "mem                 2        2        2        1        0        0        1\n"
              "perf                1        0        0        0        0        0        0\n"
              "together            3        2        2        1        0        0        1\n"
              "\nchecks without a result so far:\n  web1: mem.swap\n");
}

TEST_F(summary_of_store, says_when_there_is_nothing) {
    EXPECT_EQ(summary_text(summary()).substr(0, 25), "0 agents, no results yet\n");
    EXPECT_EQ(unsatisfied(summary(), {}), names({"(no agent)"}));
}

TEST_F(summary_of_store, is_satisfied_by_any_result_that_is_no_error) {
    for (uint32_t status : {0U, 1U, 2U}) {
        store_summary found = {.agents = 1, .families = {{.name = "mem", .checks = 1}}};
        found.families[0].results[status] = 1;
        EXPECT_TRUE(unsatisfied(found, {"mem"}).empty());
    }
    store_summary errors = {.agents = 1, .families = {{.name = "mem", .checks = 1}}};
    errors.families[0].results[3] = 5;
    EXPECT_EQ(unsatisfied(errors, {}), names({"mem"}));
}

TEST_F(summary_of_store, misses_what_is_required) {
    store_summary found = {.agents = 1,
                           .families = {{.name = "mem", .checks = 1}, {.name = "proc", .offered = 5}}};
    found.families[0].results[0] = 1;
    EXPECT_TRUE(unsatisfied(found, {}).empty());
    EXPECT_EQ(unsatisfied(found, {"mem", "proc", "fs"}), names({"proc", "fs"}));
}

TEST_F(summary_of_store, shortens_a_long_list) {
    store_summary found = {.silent_checks = std::vector<std::string>(25, "web1: x")};
    EXPECT_NE(summary_text(found).find("  and 5 more\n"), std::string::npos);
}
