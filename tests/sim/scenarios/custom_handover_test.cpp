#include "custom/custom_run.h"
#include "devtree/check_table.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "sim/host_sim.h"

#include <gtest/gtest.h>

// One run of a program under every order in which its two threads can go on: each choice of the scheduler is
// made in each way. The outcome is the same in all of them.

namespace {

// Walks the tree of choices from the first to the last leaf.
struct choices {
    std::vector<std::pair<size_t, size_t>> made; // which, of how many
    size_t at = 0;

    size_t choose(size_t count) {
        if (at == made.size()) made.emplace_back(0, count);
        EXPECT_EQ(made[at].second, count) << "the same choices lead to the same place";
        return made[at++].first;
    }
    // To the next leaf; false behind the last one.
    bool advance() {
        at = 0;
        while (!made.empty() && made.back().first + 1 == made.back().second)
            made.pop_back();
        if (made.empty()) return false;
        made.back().first++;
        return true;
    }
};

struct outcome {
    std::string failure;
    int32_t value = 0;
    std::vector<std::string> lines;
    bool operator==(const outcome &) const = default;
};

// The lines that tell of the output.
bool tells(const sim_line &line) {
    return line.level == LOG_DETAIL && (line.text.starts_with("c*") || line.text.starts_with("c :"));
}

outcome run_once(const sim_program &program, choices *way) {
    host_sim sim;
    outcome seen;
    sim.programs.known["program"] = program;
    sim.scheduler.choose = [way](size_t count) { return way->choose(count); };
    bool done = false;
    sim.start_thread([&] {
        log_to_stderr();
        log_set_level(LOG_TRACE);
        custom_check check = {};
        check.name = text_copy("c");
        check.command = text_copy("program");
        check.timeout = 2;
        check.type = CUSTOM_Integer;
        EXPECT_EQ(tn_regcomp(&check.result_regex, "^Result: (-?[0-9]+)$"), 0);
        resnode result = {};
        const char *failure = run_custom_check(&check, &result);
        seen.failure = failure == nullptr ? "" : failure == CHECK_NO_RESULT ? "none" : failure;
        seen.value = result.value;
        // A second run, in one order, finds nothing of the first one, however that has left the events.
        sim.scheduler.choose = [](size_t) -> size_t { return 0; };
        const char *again = run_custom_check(&check, &result);
        EXPECT_EQ(seen.failure, again == nullptr ? "" : again);
        heap_free(check.name);
        heap_free(check.command);
        tn_regfree(&check.result_regex);
        custom_run_reset();
        done = true;
    });
    sim.run_until([&] { return done; }, 60);
    EXPECT_TRUE(done);
    EXPECT_FALSE(sim.scheduler.stuck);
    EXPECT_TRUE(sim.blocks.empty());
    EXPECT_TRUE(sim.handles.empty());
    EXPECT_EQ(sim.programs.open, 0);
    EXPECT_EQ(sim.programs.count_left(), 0U);
    EXPECT_FALSE(sim.logged_part("did not terminate"));
    for (const sim_line &line : sim.log)
        if (tells(line)) seen.lines.push_back(line.text);
    sim.scheduler.choose = nullptr;
    return seen;
}

// Where threads change slowly, the first of the orders have to do.
uint64_t most_orders() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(_WIN32)
    return 1000;
#else
    return UINT64_MAX;
#endif
}

// How many ways there were.
uint64_t walk(const sim_program &program, const outcome &expected) {
    choices way;
    uint64_t walked = 0;
    do {
        outcome seen = run_once(program, &way);
        EXPECT_EQ(seen.failure, expected.failure);
        EXPECT_EQ(seen.value, expected.value);
        EXPECT_EQ(seen.lines, expected.lines);
        walked++;
    } while (!testing::Test::HasFailure() && walked < most_orders() && way.advance());
    return walked;
}

} // namespace

static void expect_same(const sim_program &program, const outcome &expected) {
    outcome twice = expected; // the second run's lines follow
    twice.lines.insert(twice.lines.end(), expected.lines.begin(), expected.lines.end());
    printf("%llu orders\n", 0ULL + walk(program, twice));
}

TEST(handover, of_an_end_without_output_is_the_same_in_every_order) {
    expect_same({.ends_at_ms = 0}, {.failure = "Custom check returned no value"});
}

TEST(handover, of_one_read_is_the_same_in_every_order) {
    expect_same({.output = {{0, "Result: 7\n"}}}, {.value = 7, .lines = {"c*: Result: 7"}});
}

TEST(handover, of_two_reads_is_the_same_in_every_order) {
    expect_same({.output = {{0, "Resu"}, {1, "lt: 7"}}, .ends_at_ms = 1},
                {.value = 7, .lines = {"c*: Result: 7"}});
}

TEST(handover, of_a_time_out_is_the_same_in_every_order) {
    expect_same({.ends_at_ms = NEVER}, {.failure = "Timeout (2 s)"});
}

TEST(handover, of_a_time_out_behind_a_read_is_the_same_in_every_order) {
    expect_same({.output = {{0, "a\n"}}, .ends_at_ms = NEVER},
                {.failure = "Timeout (2 s)", .lines = {"c : a"}});
}

TEST(handover, of_a_time_out_behind_the_output_is_the_same_in_every_order) {
    expect_same({.ends_at_ms = NEVER, .closes_at_ms = 0}, {.failure = "Timeout (2 s)"});
}

TEST(handover, of_a_refused_value_is_the_same_in_every_order) {
    expect_same({.output = {{0, "Result: -7\n"}}, .ends_at_ms = NEVER},
                {.failure = "c: Error parsing result \"-7\": Negative numbers are not supported",
                 .lines = {"c*: Result: -7"}});
}

TEST(handover, of_a_refused_value_with_more_behind_it_is_the_same_in_every_order) {
    expect_same({.output = {{0, "Result: -7\n"}, {1, "x\n"}}, .ends_at_ms = NEVER},
                {.failure = "c: Error parsing result \"-7\": Negative numbers are not supported",
                 .lines = {"c*: Result: -7"}});
}
