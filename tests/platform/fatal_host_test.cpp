#include "platform/fatal.h"

#include <gtest/gtest.h>

TEST(event_ops_host, reports_without_failing_where_nobody_listens) {
    void *source = event_ops_host.RegisterEventSourceA("Tarnix");
    ASSERT_NE(source, nullptr);
    event_ops_host.ReportEventA(source, true, EVENT_ID_ERROR, "100% of a test");
    event_ops_host.ReportEventA(source, false, EVENT_ID_INFORMATION, "%s of a test");
    event_ops_host.DeregisterEventSource(source);
}

TEST(process_ops_host, ends_with_the_status) {
    EXPECT_EXIT(process_ops_host.exit(3), testing::ExitedWithCode(3), "");
}
