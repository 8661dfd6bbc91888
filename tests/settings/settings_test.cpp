#include "settings/settings.h"

#include "fakes/scripted_registry.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "settings/scripted_places.h"

#include <gtest/gtest.h>

static constexpr const char *SETTINGS = "SOFTWARE\\Tarnix\\TNAgent";
static constexpr const char *FOUND_IN_USER_HIVE =
    "Found key in current user's registry - will store variables there too";

class settings : public testing::Test {
protected:
    test_host host;
    scripted_registry registry;
    scripted_places places;

    void SetUp() override {
        user_hive_flag = 0;
        host.error_words[REGISTRY_NOT_FOUND] = "The system cannot find the file specified.";
        registry.keys[{MACHINE_HIVE, SETTINGS}];
        places.found = {.variables = "/system/variables",
                        .user_variables = "/user/variables",
                        .logfile = "/system/agent.log"};
    }
    void TearDown() override {
        EXPECT_EQ(registry.open_keys, 0);
        EXPECT_EQ(host.blocks, 0);
    }

    void set(const char *key, const std::string &value) { registry.set(MACHINE_HIVE, SETTINGS, key, value); }
    void set_required() {
        set("server_list", "a,b:17");
        set("domain", "example");
    }

    // The settings with this value beside the required ones.
    config_guard with(const char *key, const std::string &value) {
        set_required();
        set(key, value);
        return config_guard(read_config(""));
    }

    std::string value_of(const std::string &bytes) {
        registry.keys[{MACHINE_HIVE, SETTINGS}] = {{"key", bytes}};
        text_guard value(read_reg_value(MACHINE_HIVE, SETTINGS, "key", false));
        return value != nullptr ? value.get() : "(absent)";
    }
};

TEST_F(settings, value_loses_blanks_at_both_ends) {
    EXPECT_EQ(value_of(std::string("\t  a b \r\n \0", 11)), "a b");
    EXPECT_EQ(value_of(std::string("  a b  ")), "a b"); // stored without a terminator
    EXPECT_EQ(value_of(std::string("ab\0", 3)), "ab");
}

TEST_F(settings, value_of_blanks_is_empty) {
    EXPECT_EQ(value_of(std::string("   \0", 4)), "");
    EXPECT_EQ(value_of("   "), "");
    EXPECT_EQ(value_of(std::string("\0", 1)), "");
}

TEST_F(settings, value_of_no_bytes_is_empty) {
    EXPECT_EQ(value_of(""), "");
}

TEST_F(settings, value_holds_1024_bytes) {
    std::string longest(1024, 'v');
    EXPECT_EQ(value_of(longest), longest);
    EXPECT_EQ(value_of(longest.substr(1) + '\0'), longest.substr(1));
    EXPECT_EQ(value_of(longest + '\0'), "(absent)");
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Cannot read key \"key\": system error 234"));
}

TEST_F(settings, value_is_absent_where_its_path_is) {
    EXPECT_EQ(read_reg_value(USER_HIVE, SETTINGS, "key", false), nullptr);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Cannot open path \"SOFTWARE\\Tarnix\\TNAgent\": "
                                        "The system cannot find the file specified."));
    EXPECT_EQ(read_reg_value(USER_HIVE, SETTINGS, "key", true), nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Cannot open path \"SOFTWARE\\Tarnix\\TNAgent\": "
                                       "The system cannot find the file specified."));
}

TEST_F(settings, value_is_absent_where_nobody_set_it) {
    EXPECT_EQ(read_reg_value(MACHINE_HIVE, SETTINGS, "key", false), nullptr);
    EXPECT_TRUE(
        host.logged(LOG_NORMAL, "Cannot read key \"key\": The system cannot find the file specified."));
    EXPECT_EQ(read_reg_value(MACHINE_HIVE, SETTINGS, "key", true), nullptr);
    EXPECT_TRUE(
        host.logged(LOG_TRACE, "Cannot read key \"key\": The system cannot find the file specified."));
}

TEST_F(settings, value_is_absent_when_memory_is_out) {
    host.fail_allocation = 1;
    EXPECT_EQ(value_of("value"), "(absent)");
}

TEST_F(settings, of_the_machine_leave_the_variables_there) {
    set("key", "machine");
    text_guard value(read_setting(SETTINGS, "key"));
    EXPECT_STREQ(value.get(), "machine");
    EXPECT_EQ(user_hive_flag, 0U);
    EXPECT_EQ(host.count_logged(FOUND_IN_USER_HIVE), 0);
}

TEST_F(settings, of_the_user_come_before_those_of_the_machine) {
    set("key", "machine");
    registry.set(USER_HIVE, SETTINGS, "key", "user");
    text_guard value(read_setting(SETTINGS, "key"));
    EXPECT_STREQ(value.get(), "user");
    EXPECT_EQ(user_hive_flag, 1U);
    EXPECT_TRUE(host.logged(LOG_NORMAL, FOUND_IN_USER_HIVE));
}

TEST_F(settings, of_the_user_are_told_once) {
    registry.set(USER_HIVE, SETTINGS, "server_list", "a");
    registry.set(USER_HIVE, SETTINGS, "domain", "example");
    config_guard config(read_config(""));
    EXPECT_EQ(host.count_logged(FOUND_IN_USER_HIVE), 1);
}

TEST_F(settings, of_the_user_are_looked_for_silently) {
    text_guard value(read_setting(SETTINGS, "key"));
    EXPECT_EQ(value, nullptr);
    ASSERT_EQ(host.log.size(), 2U);
    EXPECT_EQ(host.log[0].level, LOG_TRACE);
    EXPECT_EQ(host.log[1].level, LOG_NORMAL);
}

TEST_F(settings, are_read_in_their_order) {
    set_required();
    config_guard config(read_config(""));
    EXPECT_EQ(registry.queried, (std::vector<std::string>{"max_data_retention_days",
                                                          "name",
                                                          "server_list",
                                                          "server_port",
                                                          "domain",
                                                          "logfile",
                                                          "variable_file",
                                                          "custom_chk_conf",
                                                          "actions_conf",
                                                          "log_chk_conf",
                                                          "log_days",
                                                          "max_log_files",
                                                          "loglevel",
                                                          "allow_autoupgrade",
                                                          "use_psapi",
                                                          "disable_smart",
                                                          "safte_assume_active",
                                                          "perf_cnt_level",
                                                          "skip_event_source",
                                                          "disable_checks"}));
}

TEST_F(settings, and_the_list_of_their_keys_agree) {
    set_required();
    config_guard config(read_config(""));
    std::vector<std::string> known;
    for (const char *const *key = setting_keys; *key != nullptr; key++)
        known.push_back(*key);
    EXPECT_EQ(known, registry.queried);
}

TEST_F(settings, have_defaults) {
    set_required();
    config_guard config(read_config(""));
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(config->name, nullptr);
    EXPECT_EQ(config->host_id, nullptr);
    EXPECT_EQ(config->servers, nullptr);
    EXPECT_EQ(config->server_port, 3241);
    EXPECT_STREQ(config->logfile, "/system/agent.log");
    EXPECT_STREQ(config->variable_file, "/system/variables");
    EXPECT_EQ(config->custom_chk_conf, nullptr);
    EXPECT_EQ(config->actions_conf, nullptr);
    EXPECT_EQ(config->log_chk_conf, nullptr);
    EXPECT_EQ(config->loglevel, 1);
    EXPECT_EQ(config->log_days, 7);
    EXPECT_EQ(config->max_log_files, 5);
    EXPECT_EQ(config->max_data_retention_days, 7);
    EXPECT_EQ(config->use_psapi, 0U);
    EXPECT_EQ(config->perf_cnt_level, 200U);
    EXPECT_EQ(config->skip_event_source, nullptr);
    EXPECT_EQ(config->allow_autoupgrade, 0U);
    EXPECT_EQ(config->disable_smart, 0U);
    EXPECT_EQ(config->safte_assume_active, 0U);
    EXPECT_EQ(config->safte_assume_inactive, 0U);
    EXPECT_EQ(config->disable_checks, nullptr);
    EXPECT_EQ(config->checkin_freq, 30);
}

TEST_F(settings, take_each_value_to_its_field) {
    set_required();
    for (auto [key, value] : {std::pair{"name", "agent"},
                              {"logfile", "L"},
                              {"variable_file", "V"},
                              {"custom_chk_conf", "C"},
                              {"actions_conf", "A"},
                              {"log_chk_conf", "K"},
                              {"skip_event_source", "S"},
                              {"disable_checks", "fs"},
                              {"server_port", "17"},
                              {"log_days", "1"},
                              {"max_log_files", "2"},
                              {"loglevel", "-1"},
                              {"max_data_retention_days", "4"},
                              {"use_psapi", "true"},
                              {"allow_autoupgrade", "True"},
                              {"disable_smart", "TRUE"}})
        set(key, value);
    config_guard config(read_config(""));
    ASSERT_NE(config, nullptr);
    EXPECT_STREQ(config->name, "agent");
    EXPECT_STREQ(config->domain, "example");
    EXPECT_STREQ(config->server_list, "a,b:17");
    EXPECT_STREQ(config->logfile, "L");
    EXPECT_STREQ(config->variable_file, "V");
    EXPECT_STREQ(config->custom_chk_conf, "C");
    EXPECT_STREQ(config->actions_conf, "A");
    EXPECT_STREQ(config->log_chk_conf, "K");
    EXPECT_STREQ(config->skip_event_source, "S");
    EXPECT_STREQ(config->disable_checks, "fs");
    EXPECT_EQ(config->server_port, 17);
    EXPECT_EQ(config->log_days, 1);
    EXPECT_EQ(config->max_log_files, 2);
    EXPECT_EQ(config->loglevel, -1);
    EXPECT_EQ(config->max_data_retention_days, 4);
    EXPECT_EQ(config->use_psapi, 1U);
    EXPECT_EQ(config->allow_autoupgrade, 1U);
    EXPECT_EQ(config->disable_smart, 1U);
}

TEST_F(settings, need_servers_and_a_domain) {
    set("domain", "example");
    set("name", "agent");
    EXPECT_EQ(read_config(""), nullptr);
    registry.keys[{MACHINE_HIVE, SETTINGS}].clear();
    set("server_list", "a");
    EXPECT_EQ(read_config(""), nullptr);
}

TEST_F(settings, take_an_empty_list_of_servers_and_an_empty_domain) {
    set("server_list", "  ");
    set("domain", "");
    config_guard config(read_config(""));
    ASSERT_NE(config, nullptr);
    EXPECT_STREQ(config->server_list, "");
    EXPECT_STREQ(config->domain, "");
}

TEST_F(settings, take_an_empty_name_and_empty_disable_checks_for_none) {
    set("disable_checks", " ");
    config_guard config = with("name", "   ");
    EXPECT_EQ(config->name, nullptr);
    EXPECT_EQ(config->disable_checks, nullptr);
}

TEST_F(settings, read_what_is_no_number_as_0) {
    set("max_log_files", "");
    config_guard config = with("log_days", "week");
    EXPECT_EQ(config->log_days, 0);
    EXPECT_EQ(config->max_log_files, 0);
}

TEST_F(settings, keep_a_port_within_16_bits) {
    for (auto [text, port] : {std::pair{"0", 3241},
                              {"abc", 3241},
                              {"70000", 4464},
                              {"65536", 3241},
                              {"65535", 65535},
                              {"-1", 65535},
                              {"17x", 17}})
        EXPECT_EQ(with("server_port", text)->server_port, port) << text;
}

TEST_F(settings, know_true_and_take_the_rest_for_false) {
    for (auto [text, value] : {std::pair{"true", 1U},
                               {"TrUe", 1U},
                               {" true ", 1U},
                               {"1", 0U},
                               {"yes", 0U},
                               {"truex", 0U},
                               {"", 0U}})
        EXPECT_EQ(with("disable_smart", text)->disable_smart, value) << text;
}

TEST_F(settings, assume_enclosures_active_inactive_or_neither) {
    for (auto [text, active, inactive] : {std::tuple{"TRUE", 1U, 0U}, {"False", 0U, 1U}, {"maybe", 0U, 0U}}) {
        config_guard config = with("safte_assume_active", text);
        EXPECT_EQ(config->safte_assume_active, active) << text;
        EXPECT_EQ(config->safte_assume_inactive, inactive) << text;
    }
}

TEST_F(settings, know_four_words_and_numbers_for_the_detail_level) {
    for (auto [text, level] : {std::pair{"novice", 100U},
                               {"ADVANCED", 200U},
                               {"expert", 300U},
                               {"Wizard", 400U},
                               {"250", 250U},
                               {"25x", 200U},
                               {"wizards", 200U},
                               {"-5", 200U},
                               {"0", 0U}})
        EXPECT_EQ(with("perf_cnt_level", text)->perf_cnt_level, level) << text;
}

TEST_F(settings, of_the_user_take_the_variables_with_them) {
    registry.set(USER_HIVE, SETTINGS, "name", "agent");
    set_required();
    config_guard config(read_config(""));
    EXPECT_STREQ(config->variable_file, "/user/variables");
    EXPECT_STREQ(config->logfile, "/system/agent.log");
}

TEST_F(settings, hand_a_named_file_to_the_host) {
    set_required();
    config_guard config(read_config(""));
    EXPECT_EQ(registry.settings_file, nullptr);
    config.reset(read_config("/my.conf"));
    EXPECT_STREQ(registry.settings_file, "/my.conf");
}

TEST_F(settings, pay_a_named_file_no_attention_where_the_host_has_a_registry) {
    registry_ops with_registry = scripted_registry::ops;
    with_registry.use_settings_file = nullptr;
    registry_host = &with_registry;
    set_required();
    config_guard config(read_config("/my.conf"));
    EXPECT_NE(config, nullptr);
}

TEST_F(settings, are_whole_or_absent_when_memory_is_out) {
    set_required();
    set("name", "agent");
    int absent = 0;
    for (uint32_t n = 1;; n++) {
        host.fail_allocation = n;
        config_guard config(read_config(""));
        if (host.fail_allocation != 0) break; // a run without an n-th allocation
        absent += config == nullptr;
        if (config == nullptr) continue;
        EXPECT_NE(config->server_list, nullptr) << n;
        EXPECT_NE(config->domain, nullptr) << n;
        EXPECT_NE(config->logfile, nullptr) << n;
        EXPECT_NE(config->variable_file, nullptr) << n;
    }
    EXPECT_EQ(absent, 5); // the record, both required texts and both places
    host.fail_allocation = 0;
}

TEST_F(settings, name_the_port_of_each_server) {
    set_required();
    set("server_port", "99");
    config_guard config(read_config(""));
    config->servers = parse_server_list(config->server_list);
    uint16_t port = 0;
    EXPECT_STREQ(config_server(config.get(), 0, &port)->name, "a");
    EXPECT_EQ(port, 99);
    EXPECT_STREQ(config_server(config.get(), 1, &port)->name, "b");
    EXPECT_EQ(port, 17);
}

TEST_F(settings, are_freed_when_there_are_none_too) {
    free_config(nullptr);
    free_server_list(nullptr);
}
