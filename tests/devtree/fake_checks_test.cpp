#include "devtree/fake_checks.h"

#include "devtree/check_table.h"
#include "devtree/trees.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/clock.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

class fake_checks : public testing::Test {
protected:
    test_host host;
    check_entry table[2] = {};
    devtree_guard top;
    devnode *device = nullptr;

    void SetUp() override {
        check_table = table;
        fake_checks_reset();
        freed_states = 0;
        top.reset(top_group("any"));
        use(TYPE_CONTINUOUS);
    }
    void TearDown() override {
        fake_checks_reset();
        check_table = nullptr;
        top.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    void use(uint32_t type, int32_t frequency = 60) {
        device = add_device(top.get(), "x", type);
        device->frequency = frequency;
    }
};

using regression = fake_checks;
using fake_results = fake_checks;

TEST_F(regression, offers_the_devices_it_was_told) {
    fake_device_count = 3;
    EXPECT_SUCCESS(scan_fake_memory(top.get()));
    const devtree *group = top->children;
    EXPECT_STREQ(group->id, "mem");
    EXPECT_STREQ(group->name, "Free Memory");
    EXPECT_EQ(shape_of(group), "mem[fakephys3 fakephys2 fakephys1]") << "each goes in front of the others";
    const devnode *second = group->devices->next;
    EXPECT_STREQ(second->name, "Faked physical memory 2");
    EXPECT_STREQ(second->comment, "Faked Physical memory for regression test use. Number 2");
    EXPECT_STREQ(second->unit, "kB");
    EXPECT_EQ(second->type, TYPE_CONTINUOUS);
    EXPECT_EQ(second->description, 2U);
    EXPECT_EQ(second->limits.hint.hint_present, 0U);
    EXPECT_EQ(second->parent, group);
}

TEST_F(regression, offers_a_group_without_devices) {
    fake_device_count = 0;
    EXPECT_SUCCESS(scan_fake_memory(top.get()));
    EXPECT_EQ(shape_of(top->children), "mem");
}

TEST_F(regression, offers_nothing_when_memory_is_out) {
    for (uint32_t n = 1; n <= 3; n++) {
        host.fail_allocation = n;
        EXPECT_FAILURE(scan_fake_memory(top.get()), "Couldn't allocate devtree_child mem");
    }
    EXPECT_EQ(top->children, nullptr);
}

TEST_F(regression, ends_where_a_device_finds_no_memory) {
    fake_device_count = 2;
    devtree_child(top.get(), "mem", "");
    for (uint32_t n = 1; n <= 10; n++) {
        host.fail_allocation = n;
        expect_fatal([this] { static_cast<void>(scan_fake_memory(top.get())); },
                     n % 5 == 1 ? "alloc_devnode() ran out of memory!" : "Out of memory");
    }
}

// The result of the next check.
static resnode wave(devnode *device) {
    resnode result = {};
    EXPECT_EQ(regression_wave(device, &result), 0);
    return result;
}

TEST_F(regression, starts_at_the_top_of_the_curve) {
    EXPECT_EQ(wave(device).value, 20000);
}

TEST_F(regression, turns_once_in_an_hour_whatever_the_frequency) {
    for (int32_t frequency : {1, 60, 300, 900}) {
        use(TYPE_CONTINUOUS, frequency);
        int count = 3600 / frequency;
        for (int i = 0; i < 3 * count; i++) {
            double turn = 2 * std::numbers::pi * (i % count) / count;
            EXPECT_NEAR(wave(device).value, (cos(turn) + 1.0) * 10000.0, 1.01) << frequency << " " << i;
        }
    }
}

TEST_F(regression, is_at_0_at_the_half_turn) {
    use(TYPE_CONTINUOUS, 900);
    wave(device);
    wave(device);
    EXPECT_EQ(wave(device).value, 0);
}

TEST_F(regression, repeats_itself_exactly) {
    use(TYPE_CONTINUOUS, 7);
    devnode *other = add_device(top.get(), "y");
    other->frequency = 7;
    for (int i = 0; i < 1000; i++)
        EXPECT_EQ(wave(device).value, wave(other).value);
}

TEST_F(regression, spaces_its_results_from_the_first_check_on) {
    host.now = 5000;
    EXPECT_EQ(wave(device).check_time, 5000);
    host.now = 9000; // the made-up clock stands apart from it
    EXPECT_EQ(wave(device).check_time, 5060);
    EXPECT_EQ(wave(device).check_time, 5120);
}

TEST_F(regression, runs_from_start_to_end) {
    fake_start_time = 1'000'000;
    fake_end_time = 1'003'600;
    use(TYPE_CONTINUOUS, 600);
    std::vector<int64_t> times;
    resnode result = {};
    while (regression_wave(device, &result) == 0)
        times.push_back(result.check_time);
    EXPECT_EQ(times, (std::vector<int64_t>{1000000, 1000600, 1001200, 1001800, 1002400, 1003000}));
    EXPECT_EQ(regression_wave(device, &result), -1); // and stays at its end
}

TEST_F(regression, gives_each_device_its_own_run) {
    fake_start_time = 100;
    fake_end_time = 160;
    resnode result = {};
    wave(device);
    EXPECT_EQ(regression_wave(device, &result), -1);
    EXPECT_EQ(wave(add_device(top.get(), "y")).check_time, 100);
}

TEST_F(regression, ends_with_the_first_result_where_the_end_has_passed) {
    fake_end_time = 17; // and no start
    EXPECT_EQ(wave(device).check_time, host.now);
    resnode result = {};
    EXPECT_EQ(regression_wave(device, &result), -1);
}

TEST_F(regression, keeps_a_state_of_its_own_kind) {
    wave(device);
    EXPECT_EQ(device->state_magic, 0x46414B45U);
    EXPECT_EQ(device->state_free, fake_free_state);
}

TEST_F(regression, ends_the_agent_over_a_foreign_state) {
    place_test_state(device);
    resnode result = {};
    expect_fatal([&] { regression_wave(device, &result); }, "Check state corrupt");
    expect_fatal([this] { fake_free_state(device); }, "Magic mismatch in fake_free_state");
}

TEST_F(regression, ends_the_agent_when_the_state_finds_no_memory) {
    resnode result = {};
    host.fail_allocation = 1;
    expect_fatal([&] { regression_wave(device, &result); }, "Out of memory");
}

TEST_F(regression, has_defaults) {
    EXPECT_EQ(regression_flag, 0U);
    EXPECT_EQ(fake_results_flag, 0U);
    EXPECT_EQ(fake_device_count, 1U);
    EXPECT_EQ(fake_start_time, -1);
    EXPECT_EQ(fake_end_time, -1);
    EXPECT_EQ(fake_repeat_count, 1000U);
    EXPECT_EQ(fake_idle_flag, 0U);
}

// The next made-up result of the device.
static resnode_guard make_up(devnode *device) {
    resnode *result = alloc_resnode();
    EXPECT_EQ(fake_result(device, result), result);
    return resnode_guard(result);
}

TEST_F(fake_results, follow_the_type) {
    for (uint32_t type = 0; type < 17; type++) {
        use(type);
        resnode *result = alloc_resnode();
        result->value = 99;
        result->real_value = 99.0;
        resnode_guard made(fake_result(device, result));
        int32_t value = type == 0                                            ? 117
                        : type == 1 || type == 3 || type == 13 || type == 14 ? 1
                        : type == 15                                         ? 5
                                                                             : 0;
        EXPECT_EQ(made->value, value) << type;
        EXPECT_EQ(made->real_value, type == 7 ? 117.0 : 0.0) << type;
        EXPECT_EQ(made->log_text != nullptr, type == 9) << type;
        EXPECT_STREQ(made->comment, "Fake result") << type;
        EXPECT_EQ(made->status, STATUS_GOOD) << type;
    }
}

TEST_F(fake_results, keep_a_state_of_their_own_kind) {
    make_up(device);
    EXPECT_EQ(device->state_magic, 64110U);
    EXPECT_EQ(device->state_free, free_fake_state);
}

TEST_F(fake_results, end_the_agent_over_a_foreign_state) {
    place_test_state(device);
    resnode_guard result(alloc_resnode());
    expect_fatal([&] { fake_result(device, result.get()); }, "Check state corrupt");
    expect_fatal([this] { free_fake_state(device); }, "Magic mismatch in free_fake_state");
}

TEST_F(fake_results, end_the_agent_when_the_state_finds_no_memory) {
    resnode_guard result(alloc_resnode());
    host.fail_allocation = 1;
    expect_fatal([&] { fake_result(device, result.get()); }, "Out of memory");
}

// A seed whose first draw is 0 in 997 and whose second is this one in 97.
static uint32_t seed_for(int32_t second) {
    for (uint32_t seed = 0;; seed++) {
        tn_srand(seed);
        if (tn_rand() % 997 == 0 && tn_rand() % 97 == second) return seed;
    }
}

TEST_F(fake_results, draw_a_warning_an_alert_or_good) {
    std::pair<int32_t, uint32_t> drawn[] = {{0, STATUS_WARNING}, {1, STATUS_ALERT},   {2, STATUS_GOOD},
                                            {1, STATUS_ALERT},   {0, STATUS_WARNING}, {96, STATUS_GOOD}};
    for (auto [number, status] : drawn) {
        tn_srand(seed_for(number));
        EXPECT_EQ(make_up(device)->status, status) << number;
    }
}

TEST_F(fake_results, keep_a_status_until_another_is_drawn) {
    tn_srand(seed_for(1));
    EXPECT_EQ(make_up(device)->status, STATUS_ALERT);
    for (uint32_t seed = 0, kept = 0; kept < 50; seed++) {
        tn_srand(seed);
        if (tn_rand() % 997 == 0) continue;
        tn_srand(seed);
        EXPECT_EQ(make_up(device)->status, STATUS_ALERT);
        kept++;
    }
    use(TYPE_CONTINUOUS); // another device has a status of its own
    EXPECT_EQ(make_up(device)->status, STATUS_GOOD);
}

TEST_F(fake_results, follow_the_draws_for_a_long_time) {
    constexpr int count = 300000;
    std::vector<uint32_t> expected;
    tn_srand(5);
    uint32_t status = STATUS_GOOD;
    for (int i = 0; i < count; i++) {
        if (tn_rand() % 997 == 0) {
            int32_t drawn = tn_rand() % 97;
            status = drawn == 0 ? STATUS_WARNING : drawn == 1 ? STATUS_ALERT : STATUS_GOOD;
        }
        expected.push_back(status);
    }
    tn_srand(5);
    for (int i = 0; i < count; i++)
        ASSERT_EQ(make_up(device)->status, expected[static_cast<size_t>(i)]) << i;
}

TEST_F(fake_results, change_their_status_with_the_stated_chance) {
    constexpr int count = 3'000'000;
    tn_srand(1);
    int changed = 0, bad = 0;
    fake_result(device, resnode_guard(alloc_resnode()).get());
    resnode result = {};
    for (int i = 0; i < count; i++) {
        uint32_t before = result.status;
        fake_result(device, &result);
        changed += result.status != before && result.status != STATUS_GOOD;
        bad += result.status != STATUS_GOOD;
    }
    heap_free(result.comment);
    // 3 million checks, one in 997 draws, two of 97 draws are bad: 62 of them, each for some thousand checks.
    EXPECT_GT(changed, 40);
    EXPECT_LT(changed, 85);
    EXPECT_GT(bad, 40 * 600);
    EXPECT_LT(bad, 85 * 1400);
}

TEST_F(fake_results, have_a_huge_log_text_with_the_stated_chance) {
    use(TYPE_ADV_LOG);
    constexpr int count = 20000;
    tn_srand(1);
    int huge = 0;
    for (int i = 0; i < count; i++) {
        resnode_guard result = make_up(device);
        std::string text = result->log_text;
        if (text == "Fake result") continue;
        huge++;
        size_t size = text.size() + 1;
        EXPECT_EQ(size % 1024, 0U);
        EXPECT_GE(size, 1024U);
        EXPECT_LE(size, 63U * 1024);
        EXPECT_EQ(text, std::string(size - 1, 'a'));
        EXPECT_TRUE(
            host.logged(LOG_WARNING, "Generated huge (" + std::to_string(size) + " bytes) log string"));
    }
    EXPECT_GT(huge, 150); // some 206 of them
    EXPECT_LT(huge, 270);
    EXPECT_EQ(host.count_logged("Generated huge"), huge);
}

TEST_F(fake_results, have_no_huge_log_text_when_memory_is_out) {
    use(TYPE_ADV_LOG);
    make_up(device);
    uint32_t seed = 0; // of a draw for the text and none for the status
    for (;; seed++) {
        tn_srand(seed);
        if (tn_rand() % 997 != 0 && tn_rand() % 97 == 0) break;
    }
    tn_srand(seed);
    resnode_guard result(alloc_resnode());
    host.fail_allocation = 1;
    fake_result(device, result.get());
    EXPECT_EQ(result->log_text, nullptr);
    EXPECT_STREQ(result->comment, "Fake result");
}

static const char *check_uptime(devnode *device, resnode *result) {
    EXPECT_EQ(device->state, nullptr);
    EXPECT_EQ(device->state_magic, NO_STATE_MAGIC);
    place_test_state(device);
    result->value = 3600;
    result->comment = text_copy("of the real check");
    return "and a failure that nobody looks at";
}

TEST_F(fake_results, of_seconds_come_from_the_real_system_check) {
    table[0] = {.name = "system", .check = check_uptime};
    check_entry with_end[2] = {table[0], {}};
    check_table = with_end;
    use(TYPE_SECONDS);
    for (int i = 1; i <= 2; i++) {
        resnode_guard result = make_up(device);
        EXPECT_EQ(result->value, 3600);
        EXPECT_STREQ(result->comment, "Fake result");
        EXPECT_EQ(result->status, STATUS_GOOD);
        EXPECT_EQ(device->state_magic, FAKE_STATE_MAGIC);
        EXPECT_EQ(freed_states, i); // that of the real check goes with it
    }
}

TEST_F(fake_results, of_seconds_are_0_without_a_system_check) {
    use(TYPE_SECONDS);
    EXPECT_EQ(make_up(device)->value, 0);
    check_entry scan_only[2] = {{.name = "system"}, {}};
    check_table = scan_only;
    EXPECT_EQ(make_up(device)->value, 0);
}
