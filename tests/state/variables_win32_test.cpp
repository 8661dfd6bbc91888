// The store above the real registry: what the host's own rules make of it.

#include "state/variables.h"

#include "fakes/scratch_hives_win32.h"
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "settings/places.h"
#include "settings/settings.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

class stored_variables : public testing::Test {
protected:
    test_host host;
    scratch_hives hives;

    void SetUp() override {
        registry_host = &registry_ops_host;
        user_hive_flag = 0;
        var_reset();
    }
    void TearDown() override {
        var_reset();
        user_hive_flag = 0;
        registry_host = nullptr;
        EXPECT_EQ(host.blocks, 0);
    }

    static void make_product_key(HKEY hive) {
        HKEY made = nullptr;
        ASSERT_EQ(RegCreateKeyA(hive, "SOFTWARE\\Tarnix", &made), ERROR_SUCCESS);
        RegCloseKey(made);
    }
    static void set(const char *key, const std::string &value) {
        EXPECT_SUCCESS(var_set(var_make(key, value.c_str())));
    }
    static std::string get(const char *key) {
        const variable *found = var_get(key);
        return found != nullptr ? found->value : "(absent)";
    }
    static void restart() {
        var_reset();
        EXPECT_SUCCESS(var_read_all());
    }
};

TEST_F(stored_variables, need_the_key_of_the_product) {
    EXPECT_FAILURE(var_read_all(), "Cannot open variables registrykey. returncode ");
    set("a", "1");
    EXPECT_FAILURE(var_flush(1), "Cannot open variables path for write returncode ");
}

TEST_F(stored_variables, are_not_there_at_a_first_start_and_then_are) {
    make_product_key(HKEY_LOCAL_MACHINE);
    EXPECT_FAILURE(var_read_all(), "Couldn't create the variable registrykey during read");
    EXPECT_FAILURE(var_read_all(), "Couldn't create the variable registrykey during read");
    set("host_id", "17");
    EXPECT_SUCCESS(var_flush(0));
    restart();
    EXPECT_EQ(get("host_id"), "17");
}

TEST_F(stored_variables, come_back_as_they_were) {
    make_product_key(HKEY_LOCAL_MACHINE);
    std::string longest(1023, 'v');
    set("empty", "");
    set("longest", longest);
    set("C:\\log\\a.log", "12345");
    EXPECT_SUCCESS(var_flush(1));
    restart();
    EXPECT_EQ(get("empty"), "");
    EXPECT_EQ(get("longest"), longest);
    EXPECT_EQ(get("C:\\log\\a.log"), "12345");
}

TEST_F(stored_variables, are_not_read_where_one_is_too_long) {
    make_product_key(HKEY_LOCAL_MACHINE);
    set("a", std::string(1024, 'v'));
    EXPECT_SUCCESS(var_flush(1));
    var_reset();
    EXPECT_FAILURE(var_read_all(), "Cannot read variabel key");
}

TEST_F(stored_variables, of_the_user_lie_in_the_users_hive) {
    make_product_key(HKEY_CURRENT_USER);
    make_product_key(HKEY_LOCAL_MACHINE);
    user_hive_flag = 1;
    set("a", "user");
    EXPECT_SUCCESS(var_flush(1));
    restart();
    EXPECT_EQ(get("a"), "user");
    user_hive_flag = 0;
    var_reset();
    EXPECT_FAILURE(var_read_all(), "Couldn't create the variable registrykey during read");
}

TEST_F(stored_variables, of_an_earlier_run_stay_where_they_are_not_set_again) {
    make_product_key(HKEY_LOCAL_MACHINE);
    set("kept", "1");
    set("changed", "1");
    EXPECT_SUCCESS(var_flush(1));
    var_reset();
    set("changed", "2");
    EXPECT_SUCCESS(var_flush(1));
    restart();
    EXPECT_EQ(get("kept"), "1");
    EXPECT_EQ(get("changed"), "2");
}

class stored_settings : public stored_variables {};

TEST_F(stored_settings, are_read_from_the_user_before_the_machine) {
    HKEY key = nullptr;
    for (auto [hive, domain] :
         {std::pair{HKEY_CURRENT_USER, "of the user"}, {HKEY_LOCAL_MACHINE, "of the machine"}}) {
        ASSERT_EQ(RegCreateKeyA(hive, "SOFTWARE\\Tarnix\\TNAgent", &key), ERROR_SUCCESS);
        RegSetValueExA(key, "domain", 0, REG_SZ, reinterpret_cast<const BYTE *>(domain),
                       static_cast<DWORD>(strlen(domain) + 1));
        if (hive == HKEY_LOCAL_MACHINE)
            RegSetValueExA(key, "server_list", 0, REG_SZ, reinterpret_cast<const BYTE *>(" s1,s2 "), 8);
        RegCloseKey(key);
    }
    places_host = &places_ops_host;
    config_guard config(read_config("ignored"));
    ASSERT_NE(config, nullptr);
    EXPECT_STREQ(config->domain, "of the user");
    EXPECT_STREQ(config->server_list, "s1,s2");
    EXPECT_STREQ(config->logfile, "c:\\temp\\agent.log");
    EXPECT_STREQ(config->variable_file, "c:\\temp\\agent.log");
    EXPECT_EQ(user_hive_flag, 1U);
    EXPECT_TRUE(host.logged(1, "Found key in current user's registry - will store variables there too"));
    places_host = nullptr;
}

TEST_F(stored_settings, are_absent_without_their_key) {
    error_host = &error_ops_host;
    EXPECT_EQ(read_config(""), nullptr);
    std::string words = error_text(ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(host.logged(1, "Cannot open path \"SOFTWARE\\Tarnix\\TNAgent\": " + words));
    EXPECT_TRUE(host.logged(-1, "Cannot open path \"SOFTWARE\\Tarnix\\TNAgent\": " + words));
}
