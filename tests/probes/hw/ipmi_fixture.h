// The channel to a scripted BMC, up or down, for tests of what stands on it.
#pragma once

#include "fakes/test_host.h"
#include "probes/hw/ipmi_channel.h"
#include "probes/hw/ipmi_sensors.h"
#include "probes/hw/scripted_channel.h"
#include "probes/hw/sdr.h"
#include "probes/hw/sensor_record.h"

#include <gtest/gtest.h>

struct ipmi_fixture : testing::Test {
    test_host host;
    scripted_channel channel;
    little_bmc &bmc = channel.bmc;

    ipmi_fixture() {
        ipmi_sensors_reset();
        channel.failing_allocation = &host.fail_allocation;
    }
    ~ipmi_fixture() override {
        if (active_bmcs != nullptr) release_bmcs();
        ipmi_sensors_reset();
        EXPECT_EQ(channel.objects, 0) << "objects that were not released";
        EXPECT_EQ(channel.texts, 0) << "texts that were not freed";
    }
    // Brings the channel up and forgets how.
    void come_up() {
        EXPECT_SUCCESS(init_bmcs());
        channel.steps.clear();
        host.log.clear();
    }
};
