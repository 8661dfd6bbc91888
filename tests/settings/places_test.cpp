#include "settings/places.h"

#include "settings/scripted_places.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

class unix_places_of : public testing::Test {
protected:
    unix_user root = {.is_root = true, .home = "/root", .user_id = 0};
    unix_user someone = {.is_root = false, .home = "/home/u", .user_id = 1000};
    places found;

    const places &of(const unix_user &user) {
        unix_places(&user, &found);
        return found;
    }
};

TEST_F(unix_places_of, root_are_those_of_the_system) {
    of(root);
    EXPECT_STREQ(found.machine_settings, "/etc/tarnix/tnagent.conf");
    EXPECT_STREQ(found.user_settings, "/root/.config/tarnix/tnagent.conf");
    EXPECT_STREQ(found.variables, "/var/lib/tarnix/variables");
    EXPECT_STREQ(found.user_variables, "/root/.local/state/tarnix/variables");
    EXPECT_STREQ(found.logfile, "/var/log/tarnix/agent.log");
    EXPECT_STREQ(found.run_folder, "/run/tarnix");
}

TEST_F(unix_places_of, other_users_lie_in_their_home) {
    of(someone);
    EXPECT_STREQ(found.machine_settings, "");
    EXPECT_STREQ(found.user_settings, "/home/u/.config/tarnix/tnagent.conf");
    EXPECT_STREQ(found.variables, "/home/u/.local/state/tarnix/variables");
    EXPECT_STREQ(found.user_variables, "/home/u/.local/state/tarnix/variables");
    EXPECT_STREQ(found.logfile, "/home/u/.local/state/tarnix/agent.log");
    EXPECT_STREQ(found.run_folder, "/tmp/tarnix-1000");
}

TEST_F(unix_places_of, users_with_folders_of_their_own_lie_there) {
    someone.config_home = "/c";
    someone.state_home = "/s";
    someone.runtime_home = "/r";
    of(someone);
    EXPECT_STREQ(found.user_settings, "/c/tarnix/tnagent.conf");
    EXPECT_STREQ(found.variables, "/s/tarnix/variables");
    EXPECT_STREQ(found.user_variables, "/s/tarnix/variables");
    EXPECT_STREQ(found.logfile, "/s/tarnix/agent.log");
    EXPECT_STREQ(found.run_folder, "/r/tarnix");
}

TEST_F(unix_places_of, root_with_such_folders_use_them_for_the_user_alone) {
    root.config_home = "/c";
    root.state_home = "/s";
    root.runtime_home = "/r";
    of(root);
    EXPECT_STREQ(found.user_settings, "/c/tarnix/tnagent.conf");
    EXPECT_STREQ(found.machine_settings, "/etc/tarnix/tnagent.conf");
    EXPECT_STREQ(found.variables, "/var/lib/tarnix/variables");
    EXPECT_STREQ(found.user_variables, "/s/tarnix/variables");
    EXPECT_STREQ(found.logfile, "/var/log/tarnix/agent.log");
    EXPECT_STREQ(found.run_folder, "/run/tarnix");
}

TEST_F(unix_places_of, a_service_are_those_of_its_manager) {
    for (unix_user *user : {&root, &someone}) {
        user->configuration_directory = "/etc/conf:/etc/second";
        user->state_directory = "/var/state";
        user->logs_directory = "/var/logs:/x";
        user->runtime_directory = "/run/first:/run/second";
        user->config_home = "/c";
        user->state_home = "/s";
        user->runtime_home = "/r";
        of(*user);
        EXPECT_STREQ(found.machine_settings, "/etc/conf/tnagent.conf");
        EXPECT_STREQ(found.user_settings, "/c/tarnix/tnagent.conf");
        EXPECT_STREQ(found.variables, "/var/state/variables");
        EXPECT_STREQ(found.user_variables, "/var/state/variables");
        EXPECT_STREQ(found.logfile, "/var/logs/agent.log");
        EXPECT_STREQ(found.run_folder, "/run/first");
    }
}

TEST_F(unix_places_of, empty_variables_count_as_not_set) {
    for (const char **variable :
         {&someone.config_home, &someone.state_home, &someone.runtime_home, &someone.configuration_directory,
          &someone.state_directory, &someone.logs_directory, &someone.runtime_directory})
        *variable = "";
    of(someone);
    EXPECT_STREQ(found.machine_settings, "");
    EXPECT_STREQ(found.user_settings, "/home/u/.config/tarnix/tnagent.conf");
    EXPECT_STREQ(found.variables, "/home/u/.local/state/tarnix/variables");
    EXPECT_STREQ(found.logfile, "/home/u/.local/state/tarnix/agent.log");
    EXPECT_STREQ(found.run_folder, "/tmp/tarnix-1000");
}

TEST_F(unix_places_of, users_without_a_home_are_none) {
    someone.home = nullptr;
    of(someone);
    EXPECT_STREQ(found.user_settings, "");
    EXPECT_STREQ(found.variables, "");
    EXPECT_STREQ(found.logfile, "");
    root.home = "";
    of(root);
    EXPECT_STREQ(found.user_settings, "");
    EXPECT_STREQ(found.variables, "/var/lib/tarnix/variables");
    EXPECT_STREQ(found.user_variables, "");
}

TEST_F(unix_places_of, names_that_are_too_long_are_none) {
    std::string home(PLACE_SIZE - 1 - strlen("/.local/state/tarnix/variables"), 'h');
    someone.home = home.c_str();
    of(someone);
    EXPECT_EQ(found.variables, home + "/.local/state/tarnix/variables"); // just fits
    home += 'h';
    someone.home = home.c_str();
    of(someone);
    EXPECT_STREQ(found.variables, "");
    EXPECT_EQ(found.user_settings, home + "/.config/tarnix/tnagent.conf");
}

TEST(default_places, are_those_of_the_host) {
    scripted_places script;
    script.found = {.variables = "/v", .user_variables = "/u", .logfile = "/l"};
    EXPECT_STREQ(default_logfile(), "/l");
    EXPECT_STREQ(default_variable_file(false), "/v");
    EXPECT_STREQ(default_variable_file(true), "/u");
}
