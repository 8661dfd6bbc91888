#include "devtree/check_device.h"

#include "devtree/check_table.h"
#include "devtree/fake_checks.h"
#include "devtree/retention.h"
#include "devtree/trees.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "settings/settings.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>

// What the check function does and answers.
static std::function<const char *(devnode *, resnode *)> check;
static const char *run_script(devnode *device, resnode *result) {
    return check(device, result);
}

class checks : public testing::Test {
protected:
    test_host host;
    agent_config config = {};
    check_entry table[4] = {{.name = "fs", .check = run_script},
                            {.name = "log", .check = run_script, .flags = CHECK_SELF_QUEUE},
                            {.name = "gone"},
                            {}};
    devtree_guard top;
    devnode *device = nullptr;

    void SetUp() override {
        check_table = table;
        config_in_force = &config;
        fake_checks_reset();
        retention_reset();
        check = [](devnode *, resnode *) { return nullptr; };
        use("fs", TYPE_CONTINUOUS);
    }
    void TearDown() override {
        fake_checks_reset();
        config_in_force = nullptr;
        check_table = nullptr;
        top.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    void use(const char *family, uint32_t type) {
        top.reset(top_group(family));
        device = add_device(devtree_child(top.get(), "inner", ""), "C:\\", type);
    }
    // The check answers this text.
    static void answer(const char *text) {
        check = [text](devnode *, resnode *) { return text; };
    }
    resnode_guard run() { return resnode_guard(check_device(device)); }
};

TEST_F(checks, find_their_family_by_the_top_group) {
    devnode *seen = nullptr;
    check = [&seen](devnode *asked, resnode *result) {
        seen = asked;
        result->value = 5;
        return nullptr;
    };
    resnode_guard result = run();
    EXPECT_EQ(seen, device);
    EXPECT_EQ(result->value, 5);
    EXPECT_EQ(result->status, STATUS_GOOD);
}

TEST_F(checks, are_of_the_present_time) {
    host.now = 777;
    int64_t time = 0;
    check = [&time](devnode *, resnode *result) {
        time = result->check_time;
        return nullptr;
    };
    EXPECT_EQ(run()->check_time, 777);
    EXPECT_EQ(time, 777); // the check function knows it
}

TEST_F(checks, of_an_unknown_family_are_errors) {
    use("strange", TYPE_CONTINUOUS);
    resnode_guard result = run();
    EXPECT_EQ(result->status, STATUS_ERROR);
    EXPECT_STREQ(result->comment, "Unknown device");
    EXPECT_EQ(result->check_time, host.now);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Unknown device in check_device(): strange.inner.C:\\\\"));
}

TEST_F(checks, of_an_unknown_action_are_errors_too) {
    use("strange", TYPE_ACTION);
    EXPECT_EQ(run()->status, STATUS_ERROR);
}

TEST_F(checks, of_a_family_without_a_check_are_unknown) {
    use("gone", TYPE_CONTINUOUS);
    EXPECT_STREQ(run()->comment, "Unknown device");
}

TEST_F(checks, of_a_lone_device_are_unknown) {
    devnode_guard lone(alloc_devnode());
    lone->id = text_copy("x");
    resnode_guard result(check_device(lone.get()));
    EXPECT_STREQ(result->comment, "Unknown device");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Unknown device in check_device(): x"));
}

TEST_F(checks, of_a_disabled_family_are_errors_and_do_not_run) {
    table[0].flags = CHECK_DISABLED;
    check = [](devnode *, resnode *) {
        ADD_FAILURE() << "ran";
        return nullptr;
    };
    resnode_guard result = run();
    EXPECT_EQ(result->status, STATUS_ERROR);
    EXPECT_STREQ(result->comment, "Disabled by configuration");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error checking fs.inner.C:\\\\: Disabled by configuration"));
    use("gone", TYPE_CONTINUOUS);
    table[2].flags = CHECK_DISABLED;
    EXPECT_STREQ(run()->comment, "Disabled by configuration");
}

TEST_F(checks, that_queue_themselves_get_no_result) {
    use("log", TYPE_ADV_LOG);
    bool absent = false;
    check = [&absent](devnode *asked, resnode *result) {
        absent = result == nullptr;
        add_result(asked, 1, 42);
        return nullptr;
    };
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(absent);
    EXPECT_EQ(queue_of(device), "42");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(checks, that_queue_themselves_leave_their_errors_in_the_log) {
    use("log", TYPE_ADV_LOG);
    answer("Could not open log file");
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error checking log.inner.C:\\\\: Could not open log file"));
    EXPECT_EQ(queue_of(device), "");
    host.log.clear();
    answer(CHECK_NO_RESULT);
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(host.log.empty());
    table[1].flags |= CHECK_DISABLED;
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error checking log.inner.C:\\\\: Disabled by configuration"));
}

TEST_F(checks, of_actions_never_give_a_result) {
    use("fs", TYPE_ACTION);
    check = [](devnode *, resnode *result) {
        result->comment = text_copy("ran");
        return nullptr;
    };
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(host.log.empty());
    answer("no such program");
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Message for AgentAction: no such program"));
    host.log.clear();
    answer(CHECK_NO_RESULT);
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(host.log.empty());
}

TEST_F(checks, that_give_no_real_number_are_errors) {
    for (double value : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        use("fs", TYPE_REAL_CONTINUOUS);
        check = [value](devnode *, resnode *result) {
            result->real_value = value;
            return nullptr;
        };
        resnode_guard result = run();
        EXPECT_EQ(result->status, STATUS_ERROR);
        EXPECT_STREQ(result->comment, "Gave neither error nor valid result");
        EXPECT_EQ(result->real_value, 0.0);
    }
    EXPECT_TRUE(
        host.logged(LOG_WARNING, "Error checking fs.inner.C:\\\\: Gave neither error nor valid result"));
}

TEST_F(checks, that_give_a_real_number_have_the_status_of_their_limits) {
    use("fs", TYPE_REAL_CONTINUOUS);
    device->limits.real = {-1.0, 2.0, -1.0, -1.0};
    check = [](devnode *, resnode *result) {
        result->real_value = 2.5;
        return nullptr;
    };
    resnode_guard result = run();
    EXPECT_EQ(result->status, STATUS_WARNING);
    EXPECT_EQ(result->real_value, 2.5);
}

TEST_F(checks, that_fail_tell_their_own_error_whatever_the_number) {
    use("fs", TYPE_REAL_CONTINUOUS);
    check = [](devnode *, resnode *result) {
        result->real_value = std::nan("");
        return "counter is gone";
    };
    EXPECT_STREQ(run()->comment, "counter is gone");
}

TEST_F(checks, of_another_type_do_not_look_at_the_real_value) {
    check = [](devnode *, resnode *result) {
        result->real_value = std::nan("");
        return nullptr;
    };
    EXPECT_EQ(run()->status, STATUS_GOOD);
}

TEST_F(checks, without_a_result_give_none) {
    answer(CHECK_NO_RESULT);
    EXPECT_EQ(run(), nullptr);
    EXPECT_TRUE(host.log.empty());
    use("fs", TYPE_REAL_CONTINUOUS);
    check = [](devnode *, resnode *result) {
        result->real_value = std::nan(""); // a number that is not asked for
        return CHECK_NO_RESULT;
    };
    EXPECT_EQ(run(), nullptr);
}

TEST_F(checks, that_fail_are_errors_without_a_value) {
    check = [](devnode *, resnode *result) {
        result->value = 5;
        result->real_value = 5.0;
        return format_error("drive %d is gone", 7);
    };
    resnode_guard result = run();
    EXPECT_EQ(result->status, STATUS_ERROR);
    EXPECT_EQ(result->value, 0);
    EXPECT_EQ(result->real_value, 0.0);
    EXPECT_STREQ(result->comment, "drive 7 is gone");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error checking fs.inner.C:\\\\: drive 7 is gone"));
}

TEST_F(checks, that_fail_keep_the_comment_of_the_check) {
    check = [](devnode *, resnode *result) {
        result->comment = text_copy("in its own words");
        return "in other words";
    };
    resnode_guard result = run();
    EXPECT_STREQ(result->comment, "in its own words");
    EXPECT_EQ(result->status, STATUS_ERROR);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error checking fs.inner.C:\\\\: in other words"));
}

TEST_F(checks, carry_127_characters_of_an_error) {
    std::string text(127, 'e');
    answer(text.c_str());
    EXPECT_EQ(run()->comment, text);
    EXPECT_EQ(host.count_logged("Truncating"), 0);
    std::string longer = text + "x";
    answer(longer.c_str());
    EXPECT_EQ(run()->comment, text);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Truncating error description: \"" + longer + "\""));
}

TEST_F(checks, that_succeed_have_the_status_of_their_limits) {
    device->limits.continuous.warn_low = 10;
    check = [](devnode *, resnode *result) {
        result->value = 9;
        result->status = STATUS_ERROR; // not for the check function to say
        result->comment = text_copy("kept");
        return nullptr;
    };
    resnode_guard result = run();
    EXPECT_EQ(result->status, STATUS_WARNING);
    EXPECT_STREQ(result->comment, "kept");
}

TEST_F(checks, end_the_agent_when_a_result_finds_no_memory) {
    host.fail_allocation = 1;
    expect_fatal([this] { check_device(device); }, "alloc_resnode() ran out of memory!");
}

TEST_F(checks, are_made_up_in_fake_results_mode) {
    use("strange", TYPE_CONTINUOUS);
    fake_results_flag = regression_flag = 1; // and it wins
    device->limits.continuous.alert_high = 1;
    resnode_guard result = run();
    EXPECT_EQ(result->value, 117);
    EXPECT_EQ(result->status, STATUS_GOOD); // no limits are applied
    EXPECT_EQ(result->check_time, host.now);
    EXPECT_STREQ(result->comment, "Fake result");
}

TEST_F(checks, are_made_up_in_regression_mode_with_real_limits) {
    use("strange", TYPE_CONTINUOUS);
    regression_flag = 1;
    fake_idle_flag = 1;
    device->limits.continuous.alert_high = 19999;
    resnode_guard result = run();
    EXPECT_EQ(result->value, 20000);
    EXPECT_EQ(result->status, STATUS_ALERT);
    EXPECT_EQ(result->comment, nullptr);
    EXPECT_EQ(fake_idle_flag, 0U);
}

TEST_F(checks, end_in_regression_mode) {
    regression_flag = 1;
    fake_start_time = fake_end_time = 1000;
    fake_idle_flag = 1;
    EXPECT_EQ(run(), nullptr);
    EXPECT_EQ(fake_idle_flag, 1U);
}

TEST_F(checks, of_actions_give_no_result_in_regression_mode) {
    use("action", TYPE_ACTION);
    regression_flag = 1;
    EXPECT_EQ(run(), nullptr);
}

TEST_F(checks, queue_their_results_in_order) {
    int32_t number = 0;
    check = [&number](devnode *, resnode *result) {
        result->value = ++number;
        return number == 2 ? CHECK_NO_RESULT : nullptr;
    };
    for (int i = 0; i < 3; i++)
        run_check(device);
    EXPECT_EQ(queue_of(device), "1 3");
}

TEST_F(checks, drop_what_is_too_old_with_and_without_a_result) {
    config.max_data_retention_days = 1;
    for (const char *text : {static_cast<const char *>(nullptr), CHECK_NO_RESULT}) {
        use("fs", TYPE_CONTINUOUS);
        add_result(device, host.now - 100000, 99);
        answer(text);
        run_check(device);
        EXPECT_EQ(queue_of(device), text == nullptr ? "0" : "");
    }
}
