// The variables above the registry of files.

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "settings/registry_file.h"
#include "settings/settings.h"
#include "state/variables.h"

#include <gtest/gtest.h>

static constexpr const char *PATH = "/var/lib/tarnix/variables";

class variables_in_a_file : public testing::Test {
protected:
    test_host host;

    void SetUp() override {
        user_hive_flag = 0;
        registry_host = &registry_file_ops;
        registry_file_reset();
        var_reset();
        EXPECT_SUCCESS(var_set_file(PATH));
    }
    void TearDown() override {
        var_reset();
        registry_file_reset();
        EXPECT_EQ(host.blocks, 0);
        EXPECT_TRUE(host.open_files.empty());
    }

    static void set(const char *key, const char *value) { EXPECT_SUCCESS(var_set(var_make(key, value))); }
    static std::string get(const char *key) {
        const variable *found = var_get(key);
        return found != nullptr ? found->value : "(absent)";
    }
    static void restart() {
        var_reset();
        EXPECT_SUCCESS(var_read_all());
    }
};

TEST_F(variables_in_a_file, have_both_failures_of_a_first_start) {
    EXPECT_FAILURE(var_read_all(), "Cannot open variables registrykey. returncode ");
    host.write_file("/var/lib/tarnix/other", "");
    EXPECT_FAILURE(var_read_all(), "Couldn't create the variable registrykey during read");
    EXPECT_FALSE(host.has_file(PATH));
}

TEST_F(variables_in_a_file, outlive_a_restart) {
    set("host_id", "17");
    set("logs.C:\\x", "tab\t and line\n");
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(host.read_file(PATH), "logs.C:\\\\x\ttab\\t and line\\n\nhost_id\t17\n");
    restart();
    EXPECT_EQ(get("host_id"), "17");
    EXPECT_EQ(get("logs.C:\\x"), "tab\t and line\n");
}

TEST_F(variables_in_a_file, keep_their_order_over_a_restart) {
    for (const char *key : {"a", "b", "c"})
        set(key, "1");
    EXPECT_SUCCESS(var_flush(0));
    std::string before = host.read_file(PATH);
    restart();
    set("a", "1");
    EXPECT_SUCCESS(var_flush(1));
    EXPECT_EQ(host.read_file(PATH), before);
}

TEST_F(variables_in_a_file, return_with_their_last_flushed_value_after_a_deletion) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    var_delete("a");
    set("b", "2");
    EXPECT_SUCCESS(var_flush(1));
    restart();
    EXPECT_EQ(get("a"), "1");
}

TEST_F(variables_in_a_file, of_1024_characters_make_the_next_read_fail) {
    std::string fits(1023, '\x01'); // four characters each in the file
    set("a", fits.c_str());
    EXPECT_SUCCESS(var_flush(0));
    restart();
    EXPECT_EQ(get("a"), fits);
    set("a", (fits + "v").c_str());
    EXPECT_SUCCESS(var_flush(1));
    var_reset();
    EXPECT_FAILURE(var_read_all(), "Cannot read variabel key");
}

TEST_F(variables_in_a_file, stay_dirty_with_the_old_file_whole_where_a_step_fails) {
    set("a", "old");
    EXPECT_SUCCESS(var_flush(0));
    for (const char *step : {"open", "write", "sync", "rename"}) {
        set("a", "new");
        host.broken[step]["/var/lib/tarnix/variables.new"] = 28;
        EXPECT_FAILURE(var_flush(1), "Couldn't create registryvalue in key variables");
        EXPECT_EQ(host.read_file(PATH), "a\told\n") << step;
        host.broken.clear();
        EXPECT_SUCCESS(var_flush(1)); // still to be done
        EXPECT_EQ(host.read_file(PATH), "a\tnew\n") << step;
        set("a", "old");
        EXPECT_SUCCESS(var_flush(1));
    }
}

TEST_F(variables_in_a_file, cannot_be_opened_where_no_folder_can_be_made) {
    set("a", "1");
    host.broken["mkdir"]["/var"] = 13;
    EXPECT_FAILURE(var_flush(0), "Cannot open variables path for write returncode ");
    host.broken.clear();
    EXPECT_SUCCESS(var_flush(0));
}

TEST_F(variables_in_a_file, are_not_written_over_where_they_cannot_be_read) {
    host.write_file(PATH, "kept\t1\n");
    set("a", "1");
    host.broken["read"][PATH] = 5;
    EXPECT_FAILURE(var_flush(0), "Couldn't create the variable registrykey during flush");
    host.broken.clear();
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(host.read_file(PATH), "kept\t1\na\t1\n");
}

TEST_F(variables_in_a_file, pass_over_a_damaged_line) {
    host.write_file(PATH, "a\t1\ndamage\nb\t2\n");
    restart();
    EXPECT_EQ(get("a"), "1");
    EXPECT_EQ(get("b"), "2");
    EXPECT_TRUE(host.logged(LOG_WARNING, "/var/lib/tarnix/variables, line 2: no variable, passed over"));
}

TEST_F(variables_in_a_file, are_flushed_or_stay_dirty_when_memory_is_out) {
    host.write_file(PATH, "a\told\n");
    restart();
    for (uint32_t n = 1;; n++) {
        set("a", "new");
        host.write_file(PATH, "a\told\n");
        host.fail_allocation = n;
        const char *failure = var_flush(1);
        bool failed = host.fail_allocation == 0;
        host.fail_allocation = 0;
        EXPECT_EQ(host.read_file(PATH), failure != nullptr ? "a\told\n" : "a\tnew\n") << n;
        if (!failed) break;
        EXPECT_SUCCESS(var_flush(1));
        EXPECT_EQ(host.read_file(PATH), failure != nullptr ? "a\tnew\n" : host.read_file(PATH)) << n;
    }
}
