#include "devtree/limits.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"

#include <cmath>
#include <gtest/gtest.h>

class limits : public testing::Test {
protected:
    test_host host;
    devnode device = {};
    resnode result = {};

    void continuous(int32_t alert_low, int32_t warn_low, int32_t warn_high, int32_t alert_high) {
        device.type = TYPE_CONTINUOUS;
        device.limits.continuous = {
            .warn_low = warn_low, .warn_high = warn_high, .alert_low = alert_low, .alert_high = alert_high};
    }
    void real(double alert_low, double warn_low, double warn_high, double alert_high) {
        device.type = TYPE_REAL_CONTINUOUS;
        device.limits.real = {.real_warn_low = warn_low,
                              .real_warn_high = warn_high,
                              .real_alert_low = alert_low,
                              .real_alert_high = alert_high};
    }
    void bitmap(uint32_t type, uint32_t warn_mask, uint32_t alert_mask) {
        device.type = type;
        device.limits.bitmap = {.warn_mask = warn_mask, .alert_mask = alert_mask};
    }

    // The statuses of these values, a digit each.
    std::string of(std::initializer_list<int32_t> values) {
        std::string statuses;
        for (int32_t value : values) {
            result.value = value;
            statuses += std::to_string(evaluate_limits(&device, &result));
        }
        return statuses;
    }
    std::string of_real(std::initializer_list<double> values) {
        std::string statuses;
        for (double value : values) {
            result.real_value = value;
            statuses += std::to_string(evaluate_limits(&device, &result));
        }
        return statuses;
    }
};

TEST_F(limits, compare_strictly) {
    continuous(5, 10, 20, 25);
    EXPECT_EQ(of({4, 5, 9, 10, 15, 20, 21, 25, 26}), "211000112");
}

TEST_F(limits, are_off_below_0) {
    continuous(-1, -1, -1, -1);
    EXPECT_EQ(of({INT32_MIN, -1, 0, INT32_MAX}), "0000");
    continuous(-1, 10, -1, -1);
    EXPECT_EQ(of({INT32_MIN, 9, 10, INT32_MAX}), "1100");
    continuous(-1, -1, -1, 25);
    EXPECT_EQ(of({0, 25, 26}), "002");
}

TEST_F(limits, of_0_take_part) {
    continuous(-1, -1, 0, 0);
    EXPECT_EQ(of({-1, 0, 1}), "002");
    continuous(0, 0, -1, -1);
    EXPECT_EQ(of({-1, 0}), "20");
}

TEST_F(limits, alert_over_a_warning_whatever_their_order) {
    continuous(10, 5, -1, -1);
    EXPECT_EQ(of({4, 7, 10}), "220");
}

TEST_F(limits, serve_every_other_type_as_continuous_ones) {
    for (uint32_t type : {4U, 6U, 8U, 9U, 14U, 99U}) {
        continuous(-1, 10, -1, -1);
        device.type = type;
        EXPECT_EQ(of({9, 10}), "10") << type;
    }
}

TEST_F(limits, trace_a_continuous_check) {
    continuous(1, 2, 3, 4);
    of({-7});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Continuous check -7: 1 2 3 4"));
}

TEST_F(limits, of_reals_compare_strictly) {
    real(0.5, 1.0, 2.0, 2.5);
    EXPECT_EQ(of_real({0.49, 0.5, 0.99, 1.0, 1.5, 2.0, 2.01, 2.5, 2.51}), "211000112");
}

TEST_F(limits, of_reals_are_off_below_0) {
    real(-1.0, -0.5, -1.0, -1.0);
    EXPECT_EQ(of_real({-10.0, 0.0, 1e300}), "000");
    real(-1.0, -1.0, 0.0, -1.0);
    EXPECT_EQ(of_real({-0.1, 0.0, 0.1}), "001");
}

TEST_F(limits, of_reals_look_at_the_real_value) {
    real(-1.0, -1.0, 2.0, -1.0);
    result.value = 1000;
    EXPECT_EQ(of_real({1.0}), "0");
}

TEST_F(limits, trace_a_real_check) {
    real(1.0, 2.0, 3.0, 4.0);
    of_real({2.5});
    EXPECT_TRUE(host.logged(LOG_TRACE, "RealContinuous check 2.500000: 1.000000 2.000000 3.000000 4.000000"));
}

TEST_F(limits, of_bitmaps_name_values) {
    bitmap(TYPE_BITMAP, 0b0110, 0b1100);
    EXPECT_EQ(of({0, 1, 2, 3, 4}), "01220"); // an alert overrides a warning
    bitmap(TYPE_BITMAP, 0x80000000, 0);
    EXPECT_EQ(of({31, 30}), "10");
}

TEST_F(limits, of_bitmaps_look_at_five_bits_of_the_value) {
    bitmap(TYPE_BITMAP, 0b10, 0);
    EXPECT_EQ(of({33, 32, 1, -31, INT32_MIN}), "10110");
}

TEST_F(limits, serve_every_bitmap_type) {
    for (uint32_t type : {1U, 2U, 3U, 5U, 10U, 11U, 12U, 13U}) {
        bitmap(type, 0, 0b10);
        EXPECT_EQ(of({0, 1}), "02") << type;
    }
}

TEST_F(limits, trace_a_bitmap_check) {
    bitmap(TYPE_BITMAP, 6, 0xFFFFFFFF);
    of({2});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Using bitmap, value = 2, warn = 6, alert = -1"));
}
