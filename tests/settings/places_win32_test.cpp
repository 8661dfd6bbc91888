#include "settings/places.h"

#include <gtest/gtest.h>

TEST(places_ops_host, has_one_name_for_log_and_variables) {
    places found;
    places_ops_host.find(&found);
    EXPECT_STREQ(found.logfile, "c:\\temp\\agent.log");
    EXPECT_STREQ(found.variables, "c:\\temp\\agent.log");
    EXPECT_STREQ(found.user_variables, "c:\\temp\\agent.log");
}

TEST(places_ops_host, has_no_settings_files) {
    places found;
    places_ops_host.find(&found);
    EXPECT_STREQ(found.user_settings, "");
    EXPECT_STREQ(found.machine_settings, "");
    EXPECT_STREQ(found.run_folder, "");
}
