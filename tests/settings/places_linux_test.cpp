#include "settings/places.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

// The environment as a test needs it, put back behind it.
class environment {
public:
    explicit environment(std::initializer_list<std::pair<const char *, const char *>> wanted) {
        for (auto [name, value] : wanted) {
            const char *before = getenv(name);
            before_.push_back({name, before != nullptr ? before : "", before != nullptr});
            if (value != nullptr)
                setenv(name, value, 1);
            else
                unsetenv(name);
        }
    }
    ~environment() {
        for (const entry &each : before_)
            each.was_set ? setenv(each.name, each.value.c_str(), 1) : unsetenv(each.name);
    }

private:
    struct entry {
        const char *name;
        std::string value;
        bool was_set;
    };
    std::vector<entry> before_;
};

TEST(places_ops_host, follows_the_environment_of_a_service) {
    environment service({{"HOME", "/h"},
                         {"XDG_CONFIG_HOME", "/c"},
                         {"XDG_STATE_HOME", "/s"},
                         {"XDG_RUNTIME_DIR", "/r"},
                         {"CONFIGURATION_DIRECTORY", "/1"},
                         {"STATE_DIRECTORY", "/2"},
                         {"LOGS_DIRECTORY", "/3"},
                         {"RUNTIME_DIRECTORY", "/4"}});
    places found;
    places_ops_host.find(&found);
    EXPECT_STREQ(found.user_settings, "/c/tarnix/tnagent.conf");
    EXPECT_STREQ(found.machine_settings, "/1/tnagent.conf");
    EXPECT_STREQ(found.variables, "/2/variables");
    EXPECT_STREQ(found.logfile, "/3/agent.log");
    EXPECT_STREQ(found.run_folder, "/4");
}

TEST(places_ops_host, follows_the_user_otherwise) {
    environment user({{"HOME", "/h"},
                      {"XDG_CONFIG_HOME", nullptr},
                      {"XDG_STATE_HOME", "/s"},
                      {"XDG_RUNTIME_DIR", nullptr},
                      {"CONFIGURATION_DIRECTORY", nullptr},
                      {"STATE_DIRECTORY", nullptr},
                      {"LOGS_DIRECTORY", nullptr},
                      {"RUNTIME_DIRECTORY", nullptr}});
    places found;
    places_ops_host.find(&found);
    EXPECT_STREQ(found.user_settings, "/h/.config/tarnix/tnagent.conf");
    EXPECT_STREQ(found.user_variables, "/s/tarnix/variables");
    bool is_root = geteuid() == 0;
    EXPECT_STREQ(found.machine_settings, is_root ? "/etc/tarnix/tnagent.conf" : "");
    EXPECT_STREQ(found.variables, is_root ? "/var/lib/tarnix/variables" : "/s/tarnix/variables");
    EXPECT_EQ(found.run_folder, is_root ? "/run/tarnix" : "/tmp/tarnix-" + std::to_string(geteuid()));
}
