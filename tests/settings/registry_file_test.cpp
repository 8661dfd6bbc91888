#include "settings/registry_file.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/files.h"
#include "platform/heap.h"
#include "settings/scripted_places.h"
#include "settings/settings.h"

#include <cstring>
#include <gtest/gtest.h>

static constexpr const char *SETTINGS = "SOFTWARE\\Tarnix\\TNAgent";
static constexpr const char *STATE = "/var/lib/tarnix/variables";
static constexpr const char *BESIDE = "/var/lib/tarnix/variables.new";

class registry_files : public testing::Test {
protected:
    test_host host;
    scripted_places places;

    void SetUp() override {
        registry_host = &registry_file_ops;
        registry_file_reset();
        user_hive_flag = 0;
        places.found = {.user_settings = "/home/u/.config/tarnix/tnagent.conf",
                        .machine_settings = "/etc/tarnix/tnagent.conf",
                        .variables = "/var/lib/tarnix/variables",
                        .user_variables = "/home/u/.local/state/tarnix/variables",
                        .logfile = "/var/log/tarnix/agent.log"};
    }
    void TearDown() override {
        host.fail_allocation = 0;
        EXPECT_EQ(host.blocks, 0);
        EXPECT_TRUE(host.open_files.empty());
    }

    // The code of the first call that fails while "a" becomes `value` in the variables file; 0 for none.
    static uint32_t store(const char *value) {
        registry_key *parent = nullptr, *key = nullptr;
        uint32_t code =
            registry_host->RegOpenKeyExA(MACHINE_HIVE, "SOFTWARE\\Tarnix", REGISTRY_WRITE, &parent);
        if (code != 0) return code;
        code = registry_host->RegCreateKeyExA(parent, "TNAgent\\Variables", &key);
        if (code == 0) {
            code = registry_host->RegSetValueExA(key, "a", value, static_cast<uint32_t>(strlen(value) + 1));
            if (code == 0) code = registry_host->RegFlushKey(key);
            registry_host->RegCloseKey(key);
        }
        registry_host->RegCloseKey(parent);
        return code;
    }
};

TEST_F(registry_files, give_the_settings_of_user_and_machine) {
    host.write_file("/home/u/.config/tarnix/tnagent.conf", "name = of the user\n");
    host.write_file("/etc/tarnix/tnagent.conf", "name = of the machine\ndomain = example\nserver_list = a\n");
    config_guard config(read_config(""));
    ASSERT_NE(config, nullptr);
    EXPECT_STREQ(config->name, "of the user");
    EXPECT_STREQ(config->domain, "example");
    EXPECT_EQ(user_hive_flag, 1U);
    EXPECT_STREQ(config->variable_file, "/home/u/.local/state/tarnix/variables");
}

TEST_F(registry_files, give_the_settings_of_the_machine_alone) {
    host.write_file("/etc/tarnix/tnagent.conf", "domain = example\nserver_list = a\n");
    config_guard config(read_config(""));
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(user_hive_flag, 0U);
    EXPECT_STREQ(config->variable_file, STATE);
}

TEST_F(registry_files, ask_no_other_file_than_the_named_one) {
    host.write_file("/etc/tarnix/tnagent.conf", "domain = example\nserver_list = a\n");
    host.write_file("/my.conf", "domain = mine\n");
    EXPECT_EQ(read_config("/my.conf"), nullptr);
    EXPECT_EQ(read_config(""), nullptr); // as start-up asks next
    host.write_file("/my.conf", "domain = mine\nserver_list = b\n");
    config_guard config(read_config("/my.conf"));
    ASSERT_NE(config, nullptr);
    EXPECT_STREQ(config->domain, "mine");
    EXPECT_EQ(user_hive_flag, 0U);
}

TEST_F(registry_files, complain_about_each_settings_file_once) {
    host.write_file("/home/u/.config/tarnix/tnagent.conf", "colour = red\n");
    host.write_file("/etc/tarnix/tnagent.conf", "# ok\nverbose\nserver_list = a\ndomain = x\ndomain = y\n");
    config_guard config(read_config(""));
    EXPECT_STREQ(config->domain, "y");
    EXPECT_EQ(host.count_logged("/home/u/.config/tarnix/tnagent.conf, line 1: unknown setting \"colour\""),
              1);
    EXPECT_EQ(host.count_logged("/etc/tarnix/tnagent.conf, line 2: no \"=\" in \"verbose\""), 1);
    EXPECT_EQ(host.count_logged("/etc/tarnix/tnagent.conf, line 5: setting \"domain\" is given again"), 1);
    EXPECT_EQ(host.count_logged(", line "), 3);
}

TEST_F(registry_files, tell_why_a_settings_file_cannot_be_read) {
    host.write_file("/etc/tarnix/tnagent.conf", "domain = example\n");
    host.error_words[13] = "Permission denied";
    host.broken["open"]["/etc"] = 13;
    EXPECT_EQ(read_reg_value(MACHINE_HIVE, SETTINGS, "domain", false), nullptr);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Cannot open path \"SOFTWARE\\Tarnix\\TNAgent\": Permission denied"));
}

TEST_F(registry_files, give_no_settings_when_memory_is_out) {
    host.write_file("/etc/tarnix/tnagent.conf", "domain = example\n");
    uint32_t n = 1;
    for (;; n++) {
        host.fail_allocation = n;
        text_guard value(read_reg_value(MACHINE_HIVE, SETTINGS, "domain", false));
        if (host.fail_allocation != 0) break;
        EXPECT_EQ(value, nullptr) << n;
    }
    EXPECT_EQ(n, 9U); // the key, the file's text, five of the list, and the value
}

TEST_F(registry_files, replace_the_variables_whole) {
    host.write_file(STATE, "b\tkept\n");
    EXPECT_EQ(store("1"), 0U);
    EXPECT_EQ(host.read_file(STATE), "b\tkept\na\t1\n");
    EXPECT_FALSE(host.has_file(BESIDE));
}

TEST_F(registry_files, leave_the_old_variables_where_a_step_fails) {
    for (const char *step : {"open", "write", "sync", "rename"}) {
        host.write_file(STATE, "a\told\n");
        host.broken[step][BESIDE] = 28;
        EXPECT_EQ(store("new"), 28U) << step;
        EXPECT_EQ(host.read_file(STATE), "a\told\n") << step;
        host.broken.clear();
        EXPECT_EQ(store("new"), 0U) << step; // what the failure left beside is no obstacle
        EXPECT_EQ(host.read_file(STATE), "a\tnew\n") << step;
    }
}

TEST_F(registry_files, leave_the_old_variables_where_a_file_cannot_be_closed) {
    host.write_file(STATE, "a\told\n");
    files_ops files = *files_host;
    static bool (*close_below)(host_file);
    close_below = files.close;
    files.close = [](host_file file) {
        bool beside = the_host->open_files.at(file).first == BESIDE;
        close_below(file);
        the_host->last_error = 5;
        return !beside;
    };
    files_host = &files;
    EXPECT_EQ(store("new"), 5U);
    EXPECT_EQ(host.read_file(STATE), "a\told\n");
}

TEST_F(registry_files, do_not_write_over_variables_that_cannot_be_read) {
    host.write_file(STATE, "b\tkept\n");
    host.broken["open"][STATE] = 13;
    EXPECT_EQ(store("1"), 13U);
    host.broken.clear();
    host.broken["read"][STATE] = 5;
    EXPECT_EQ(store("1"), 5U);
    EXPECT_EQ(host.read_file(STATE), "b\tkept\n");
}

TEST_F(registry_files, do_not_write_over_variables_that_cannot_be_looked_at) {
    host.write_file(STATE, "b\tkept\n");
    files_ops files = *files_host;
    static bool (*facts_below)(const char *, file_facts *);
    facts_below = files.facts_at;
    files.facts_at = [](const char *path, file_facts *out) {
        bool known = strcmp(path, STATE) != 0 && facts_below(path, out);
        if (!known) the_host->last_error = 13;
        return known;
    };
    files_host = &files;
    EXPECT_EQ(store("1"), 13U);
    EXPECT_EQ(host.read_file(STATE), "b\tkept\n");
}

TEST_F(registry_files, store_all_or_nothing_when_memory_is_out) {
    uint32_t n = 1;
    int stored = 0;
    for (;; n++) {
        host.write_file(STATE, "a\told\n");
        host.fail_allocation = n;
        uint32_t code = store("new");
        if (host.fail_allocation != 0) break;
        stored += code == 0;
        EXPECT_EQ(host.read_file(STATE), code == 0 ? "a\tnew\n" : "a\told\n") << n;
    }
    EXPECT_GT(n, 12U);
    EXPECT_EQ(stored, 1); // the folders are there already, and making them is not missed
}

TEST_F(registry_files, store_nothing_where_there_is_no_place_for_variables) {
    places.found.variables[0] = '\0';
    size_t files = host.files.size();
    EXPECT_EQ(store("1"), 2U);
    EXPECT_EQ(host.files.size(), files);
}

TEST_F(registry_files, store_beside_the_program_under_a_plain_name) {
    registry_host->use_variables_file("variables");
    EXPECT_EQ(store("1"), 0U);
    EXPECT_EQ(host.read_file("variables"), "a\t1\n");
}

TEST_F(registry_files, store_in_the_top_folder) {
    host.files["/"] = {};
    registry_host->use_variables_file("/variables");
    EXPECT_EQ(store("1"), 0U);
    EXPECT_EQ(host.read_file("/variables"), "a\t1\n");
}

TEST_F(registry_files, store_under_names_of_any_length) {
    std::string name = "/var/" + std::string(3000, 'n');
    host.write_file("/var/other", "");
    registry_host->use_variables_file(name.c_str());
    EXPECT_EQ(store("1"), 0U);
    EXPECT_EQ(host.read_file(name), "a\t1\n");
}

// A power cut ahead of the n-th call on files: from then on nothing happens any more.

static int calls_left;
static const files_ops *files_below;

static bool has_power() {
    return calls_left-- > 0;
}

static const files_ops cutting_files = {
    .stderr_handle = 2,
    .open = [](const char *path,
               file_mode mode) { return has_power() ? files_below->open(path, mode) : NO_FILE; },
    .read = [](host_file file, void *buffer,
               size_t size) { return has_power() ? files_below->read(file, buffer, size) : -1; },
    .write = [](host_file file, const void *buffer,
                size_t size) { return has_power() ? files_below->write(file, buffer, size) : -1; },
    .sync = [](host_file file) { return has_power() && files_below->sync(file); },
    .close = [](host_file file) { return has_power() && files_below->close(file); },
    .facts_at = [](const char *path,
                   file_facts *out) { return has_power() && files_below->facts_at(path, out); },
    .MoveFileExA = [](const char *from,
                      const char *to) { return has_power() && files_below->MoveFileExA(from, to); },
    .CreateDirectoryA = [](const char *path) { return has_power() && files_below->CreateDirectoryA(path); },
};

TEST_F(registry_files, hold_the_old_or_the_new_variables_after_a_power_cut) {
    files_below = files_host;
    files_host = &cutting_files;
    int cuts = 0;
    for (;; cuts++) {
        host.write_file(STATE, "a\told\n");
        calls_left = cuts;
        uint32_t code = store("new");
        host.cut_power();
        if (code == 0) break;
        ASSERT_EQ(host.read_file(STATE), "a\told\n") << cuts;
    }
    EXPECT_EQ(host.read_file(STATE), "a\tnew\n");
    // Three looks at the folders, one at the folder of the file and one at the file; it is opened, read twice
    // and closed; the new one is opened, written, synced, closed and moved.
    EXPECT_EQ(cuts, 14);
}
