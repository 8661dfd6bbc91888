// Events of the host that the tests run on, closed behind each test.
#pragma once

#include "fakes/test_host.h"
#include "platform/waits.h"

#include <gtest/gtest.h>
#include <vector>

class host_waits : public testing::Test {
protected:
    test_host host; // for its heap
    std::vector<waitable *> made;

    void SetUp() override { waits_host = &waits_ops_host; }
    void TearDown() override {
        for (waitable *event : made)
            waits_host->CloseHandle(event);
        EXPECT_EQ(host.blocks, 0);
    }

    waitable *event(bool manual, bool signalled) {
        made.push_back(waits_host->CreateEventA(manual, signalled));
        return made.back();
    }
    static int32_t wait(const std::vector<waitable *> &objects, uint32_t milliseconds) {
        return waits_host->WaitForMultipleObjects(static_cast<uint32_t>(objects.size()), objects.data(),
                                                  milliseconds);
    }
};
