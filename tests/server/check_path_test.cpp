#include "server/check_path.h"

#include <gtest/gtest.h>

TEST(plain_check_name, joins_ids_with_points) {
    EXPECT_EQ(plain_check_name({"fs", "/var"}), "fs./var");
    EXPECT_EQ(plain_check_name({"perf", "Disk", "0", "Reads"}), "perf.Disk.0.Reads");
}

TEST(plain_check_name, escapes_the_groups_alone) {
    EXPECT_EQ(plain_check_name({"fs", "C:\\"}), "fs.C:\\");
    EXPECT_EQ(plain_check_name({"a.b\\c", "d.e"}), "a\\.b\\\\c.d.e");
}

TEST(full_check_name, escapes_the_check_as_well) {
    EXPECT_EQ(full_check_name({"fs", "C:\\"}), "fs.C:\\\\");
}

TEST(full_check_name, tells_paths_apart_that_look_alike) {
    EXPECT_NE(full_check_name({"a", "b.c"}), full_check_name({"a", "b", "c"}));
    EXPECT_NE(full_check_name({"a.b", "c"}), full_check_name({"a", "b", "c"}));
}

TEST(name_matches, takes_a_name_for_itself_only) {
    EXPECT_TRUE(name_matches("fs./var", "fs./var"));
    EXPECT_FALSE(name_matches("fs./var", "fs./var/log"));
    EXPECT_FALSE(name_matches("fs./var/log", "fs./var"));
    EXPECT_FALSE(name_matches("", "x"));
}

TEST(name_matches, lets_a_star_stand_for_anything) {
    EXPECT_TRUE(name_matches("fs.*", "fs./var"));
    EXPECT_TRUE(name_matches("*", ""));
    EXPECT_TRUE(name_matches("*.idle", "system.idle"));
    EXPECT_TRUE(name_matches("a*b*c", "a-b-b-c"));
    EXPECT_FALSE(name_matches("a*b*c", "a-b-b"));
    EXPECT_FALSE(name_matches("fs.*", "mem.phys"));
}

TEST(name_matches, takes_no_exponential_time) {
    std::string pattern;
    for (int i = 0; i < 64; i++)
        pattern += "*a";
    EXPECT_FALSE(name_matches(pattern + "b", std::string(5000, 'a')));
}

TEST(is_log, knows_the_family) {
    EXPECT_TRUE(is_log({"log", "/", "messages"}));
    EXPECT_FALSE(is_log({"log"}));
    EXPECT_FALSE(is_log({"fs", "/"}));
}

TEST(log_path, is_written_as_on_the_host) {
    EXPECT_EQ(log_path({"log", "/", "var", "log", "syslog"}), "/var/log/syslog");
    EXPECT_EQ(log_path({"log", "/", "messages"}), "/messages");
    EXPECT_EQ(log_path({"log", "C:", "logs", "app.log"}), "C:\\logs\\app.log");
    EXPECT_EQ(log_path({"log", "C:"}), "C:");
    EXPECT_EQ(log_path({"log", "eventlog", "System"}), "eventlog/System");
    EXPECT_EQ(log_path({"log", "System"}), "System");
    EXPECT_EQ(log_path({"log", "/forward", "security"}), "/forward/security");
}

TEST(log_path_matches, lets_a_star_pass_slashes) {
    EXPECT_TRUE(log_path_matches("/var/log/*", "/var/log/apache2/error.log"));
    EXPECT_TRUE(log_path_matches("*.log", "C:\\logs\\app.log"));
    EXPECT_FALSE(log_path_matches("/var/log/*", "/srv/var/log/a"));
}

TEST(log_path_matches, folds_case_but_behind_a_slash) {
    EXPECT_FALSE(log_path_matches("/var/log/Syslog", "/var/log/syslog"));
    EXPECT_TRUE(log_path_matches("c:\\Logs\\*", "C:\\logs\\APP.log"));
    EXPECT_TRUE(log_path_matches("eventlog/system", "eventlog/System"));
}
