#include "devtree/retention.h"

#include "devtree/trees.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

static constexpr int64_t DAY = 86400;
static constexpr const char *WARNING = "WARNING: Max data retention time exceeded, discarding data!";

class retention : public testing::Test {
protected:
    test_host host;
    agent_config config = {};
    devnode_guard device;

    void SetUp() override {
        config.max_data_retention_days = 7;
        config_in_force = &config;
        retention_reset();
        device.reset(alloc_devnode());
        device->id = text_copy("cpu");
    }
    void TearDown() override {
        config_in_force = nullptr;
        device.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    // Queues a result of this age for each.
    void queue(std::initializer_list<int64_t> ages) {
        int32_t number = 0;
        for (int64_t age : ages)
            add_result(device.get(), host.now - age, ++number);
    }
    std::string left() {
        discard_old_results(device.get());
        return queue_of(device.get());
    }
};

TEST_F(retention, drops_what_is_older_than_the_limit) {
    queue({8 * DAY, 7 * DAY + 1, 7 * DAY, DAY});
    EXPECT_EQ(left(), "3 4");
    EXPECT_TRUE(host.logged(LOG_TRACE, "cpu: Discarded 2 records"));
}

TEST_F(retention, stops_at_the_first_that_is_young) {
    queue({8 * DAY, DAY, 8 * DAY});
    EXPECT_EQ(left(), "2 3");
}

TEST_F(retention, says_nothing_where_nothing_is_dropped) {
    queue({DAY});
    EXPECT_EQ(left(), "1");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(retention, leaves_an_empty_queue_ready_for_use) {
    queue({8 * DAY, 8 * DAY});
    EXPECT_EQ(left(), "");
    EXPECT_EQ(device->results_tail, &device->results);
    queue({0});
    EXPECT_EQ(left(), "1");
}

TEST_F(retention, leaves_the_tail_of_what_is_kept) {
    queue({8 * DAY, DAY});
    left();
    queue({0});
    EXPECT_EQ(left(), "2 1");
}

TEST_F(retention, keeps_all_with_0_or_fewer_days) {
    queue({10000 * DAY});
    for (int32_t days : {0, -1, INT32_MIN}) {
        config.max_data_retention_days = days;
        EXPECT_EQ(left(), "1") << days;
    }
}

TEST_F(retention, multiplies_in_32_bits) {
    queue({0});
    config.max_data_retention_days = 24855;
    EXPECT_EQ(left(), "1");
    config.max_data_retention_days = 24856; // a limit that has wrapped lies ahead
    EXPECT_EQ(left(), "");
}

TEST_F(retention, warns_only_after_an_hour_without_a_discard) {
    auto discard = [this](int64_t later) {
        host.now += later;
        queue({8 * DAY});
        left();
        return host.count_logged(WARNING);
    };
    EXPECT_EQ(discard(0), 1);
    EXPECT_TRUE(host.logged(LOG_DETAIL, WARNING));
    EXPECT_EQ(discard(3600), 1);
    EXPECT_EQ(discard(3600), 1); // each discard counts the hour afresh
    EXPECT_EQ(discard(3601), 2);
}
