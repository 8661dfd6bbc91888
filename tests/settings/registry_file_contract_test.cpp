// The registry made of files: the same tests above the files in memory and above the real ones.

#include "settings/registry_file.h"

#include "fakes/temp_folder.h"
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/heap.h"
#include "settings/scripted_places.h"

#include <gtest/gtest.h>
#include <optional>

static constexpr const char *SETTINGS = "SOFTWARE\\Tarnix\\TNAgent";
static constexpr const char *PRODUCT_KEY = "SOFTWARE\\Tarnix";
static constexpr const char *VARIABLES = "TNAgent\\Variables";

// One host's number for a missing folder is that for a missing file, another's its own.
static bool is_missing_folder(const std::string &result) {
    return result == "parent 2" || result == "parent 3";
}

class registry_file_contract : public testing::TestWithParam<const char *> {
protected:
    test_host host;
    scripted_places places;
    std::optional<temp_folder> real_folder;
    std::string folder = "/contract";

    bool is_real() const { return GetParam() == std::string("real"); }

    void SetUp() override {
        registry_host = &registry_file_ops;
        registry_file_reset();
        if (is_real()) {
            files_host = &files_ops_host;
            error_host = &error_ops_host;
            folder = real_folder.emplace().path;
        } else {
            ASSERT_TRUE(files_host->CreateDirectoryA(folder.c_str()));
        }
        place(places.found.user_settings, "user.conf");
        place(places.found.machine_settings, "machine.conf");
        place(places.found.variables, "system/state/variables");
        place(places.found.user_variables, "home/state/variables");
    }
    void TearDown() override {
        EXPECT_EQ(host.blocks, 0);
        EXPECT_TRUE(host.open_files.empty());
    }

    std::string path(const char *name) const { return folder + "/" + name; }
    void place(char *out, const char *name) const { snprintf(out, PLACE_SIZE, "%s", path(name).c_str()); }

    void write(const char *name, const std::string &content) {
        host_file file = files_host->open(path(name).c_str(), FILE_REPLACE);
        ASSERT_NE(file, NO_FILE);
        EXPECT_TRUE(file_write_all(file, content.data(), content.size()));
        files_host->close(file);
    }
    std::string content_of(const char *name) {
        text_guard text(file_read_text(path(name).c_str(), 1U << 20, nullptr));
        return text != nullptr ? text.get() : "(none)";
    }

    // What a program gets for a setting: its value, or "code N" of the call that failed.
    static std::string setting(registry_hive hive, const char *name) {
        registry_key *key = nullptr;
        uint32_t code = registry_host->RegOpenKeyExA(hive, SETTINGS, REGISTRY_QUERY, &key);
        if (code != 0) return "no key, code " + std::to_string(code);
        std::string value = value_of(key, name);
        registry_host->RegCloseKey(key);
        return value;
    }
    static std::string value_of(registry_key *key, const char *name) {
        char buffer[REGISTRY_VALUE_LIMIT];
        uint32_t size = sizeof buffer;
        uint32_t code = registry_host->RegQueryValueExA(key, name, buffer, &size);
        if (code != 0) return "code " + std::to_string(code);
        EXPECT_EQ(size, strlen(buffer) + 1);
        return buffer;
    }

    // Opens both keys of the variables, hands the inner one to `use`, and closes them. "parent N" or "key N"
    // is the code of the one that did not open.
    template <class Use>
    static std::string with_variables(registry_hive hive, registry_access access, Use use) {
        registry_key *parent = nullptr, *key = nullptr;
        uint32_t code = registry_host->RegOpenKeyExA(hive, PRODUCT_KEY, access, &parent);
        if (code != 0) return "parent " + std::to_string(code);
        code = registry_host->RegCreateKeyExA(parent, VARIABLES, &key);
        std::string result = code != 0 ? "key " + std::to_string(code) : use(key);
        if (code == 0) registry_host->RegCloseKey(key);
        registry_host->RegCloseKey(parent);
        return result;
    }
    using pairs = std::vector<std::pair<std::string, std::string>>;
    static std::string store(registry_hive hive, const pairs &values) {
        return with_variables(hive, REGISTRY_WRITE, [&values](registry_key *key) -> std::string {
            for (const auto &[name, value] : values)
                EXPECT_EQ(registry_host->RegSetValueExA(key, name.c_str(), value.c_str(),
                                                        static_cast<uint32_t>(value.size() + 1)),
                          0U);
            return "flush " + std::to_string(registry_host->RegFlushKey(key));
        });
    }
    // The variables in the registry's order, as "name=value|name=value".
    static std::string load(registry_hive hive) {
        return with_variables(hive, REGISTRY_QUERY, [](registry_key *key) {
            uint32_t count = 0;
            EXPECT_EQ(registry_host->RegQueryInfoKeyA(key, &count), 0U);
            std::string all;
            char name[REGISTRY_VALUE_LIMIT];
            for (uint32_t i = 0; i < count; i++) {
                EXPECT_EQ(registry_host->RegEnumValueA(key, i, name, sizeof name), 0U);
                all += std::string(i != 0 ? "|" : "") + name + "=" + value_of(key, name);
            }
            EXPECT_NE(registry_host->RegEnumValueA(key, count, name, sizeof name), 0U);
            return all;
        });
    }
};

INSTANTIATE_TEST_SUITE_P(hosts, registry_file_contract, testing::Values("memory", "real"),
                         [](const auto &each) { return std::string(each.param); });

TEST_P(registry_file_contract, each_hive_has_a_settings_file) {
    write("user.conf", "name = u\n");
    write("machine.conf", "name = m\ndomain = d\n");
    EXPECT_EQ(setting(USER_HIVE, "name"), "u");
    EXPECT_EQ(setting(MACHINE_HIVE, "name"), "m");
    EXPECT_EQ(setting(MACHINE_HIVE, "domain"), "d");
    EXPECT_EQ(setting(USER_HIVE, "domain"), "code 2");
}

TEST_P(registry_file_contract, a_missing_settings_file_is_a_missing_key) {
    EXPECT_EQ(setting(USER_HIVE, "name"), "no key, code 2");
    places.found.machine_settings[0] = '\0';
    EXPECT_EQ(setting(MACHINE_HIVE, "name"), "no key, code 2");
}

TEST_P(registry_file_contract, a_named_file_stands_for_both_hives) {
    write("user.conf", "name = u\n");
    write("machine.conf", "name = m\n");
    std::string named = path("named.conf");
    registry_host->use_settings_file(named.c_str());
    EXPECT_EQ(setting(USER_HIVE, "name"), "no key, code 2");
    EXPECT_EQ(setting(MACHINE_HIVE, "name"), "no key, code 2"); // no other file is asked
    write("named.conf", "name = n\n");
    EXPECT_EQ(setting(USER_HIVE, "name"), "no key, code 2");
    EXPECT_EQ(setting(MACHINE_HIVE, "name"), "n");
}

TEST_P(registry_file_contract, a_value_has_the_limit_of_a_registry) {
    std::string fits(1023, 'v');
    write("machine.conf", "name = " + fits + "\ndomain = " + fits + "v\n");
    EXPECT_EQ(setting(MACHINE_HIVE, "name"), fits);
    EXPECT_EQ(setting(MACHINE_HIVE, "domain"), "code 75");
}

TEST_P(registry_file_contract, a_first_start_finds_no_folder) {
    EXPECT_PRED1(is_missing_folder, load(MACHINE_HIVE));
}

TEST_P(registry_file_contract, a_first_start_may_find_a_folder_without_a_file) {
    ASSERT_TRUE(files_host->CreateDirectoryA(path("system").c_str()));
    ASSERT_TRUE(files_host->CreateDirectoryA(path("system/state").c_str()));
    EXPECT_EQ(load(MACHINE_HIVE), "key 2");
}

TEST_P(registry_file_contract, writing_makes_folder_and_file) {
    EXPECT_EQ(store(MACHINE_HIVE, {{"host_id", "17"}, {"name_conf", ""}}), "flush 0");
    EXPECT_EQ(content_of("system/state/variables"), "host_id\t17\nname_conf\t\n");
    EXPECT_EQ(content_of("system/state/variables.new"), "(none)");
    EXPECT_EQ(load(MACHINE_HIVE), "host_id=17|name_conf=");
    EXPECT_PRED1(is_missing_folder, load(USER_HIVE));
}

TEST_P(registry_file_contract, each_hive_has_a_variables_file) {
    EXPECT_EQ(store(USER_HIVE, {{"a", "user"}}), "flush 0");
    EXPECT_EQ(store(MACHINE_HIVE, {{"a", "machine"}}), "flush 0");
    EXPECT_EQ(load(USER_HIVE), "a=user");
    EXPECT_EQ(load(MACHINE_HIVE), "a=machine");
}

TEST_P(registry_file_contract, a_named_variables_file_stands_for_both_hives) {
    std::string named = path("named/variables");
    registry_host->use_variables_file(named.c_str());
    EXPECT_EQ(store(USER_HIVE, {{"a", "1"}}), "flush 0");
    EXPECT_EQ(content_of("named/variables"), "a\t1\n");
    EXPECT_EQ(load(MACHINE_HIVE), "a=1");
}

TEST_P(registry_file_contract, what_is_set_merges_into_the_file) {
    store(MACHINE_HIVE, {{"a", "1"}, {"b", "2"}, {"c", "3"}});
    EXPECT_EQ(store(MACHINE_HIVE, {{"d", "4"}, {"b", "two"}}), "flush 0");
    EXPECT_EQ(load(MACHINE_HIVE), "a=1|b=two|c=3|d=4");
}

TEST_P(registry_file_contract, what_is_not_flushed_is_not_stored) {
    store(MACHINE_HIVE, {{"a", "1"}});
    with_variables(MACHINE_HIVE, REGISTRY_WRITE, [](registry_key *key) -> std::string {
        EXPECT_EQ(registry_host->RegSetValueExA(key, "a", "2", 2), 0U);
        return "";
    });
    EXPECT_EQ(load(MACHINE_HIVE), "a=1");
}

TEST_P(registry_file_contract, values_keep_every_byte) {
    std::string bytes;
    for (int c = 1; c < 256; c++)
        bytes += static_cast<char>(c);
    EXPECT_EQ(store(MACHINE_HIVE, {{"first_bin:" + bytes, bytes}}), "flush 0");
    EXPECT_EQ(load(MACHINE_HIVE), "first_bin:" + bytes + "=" + bytes);
}

TEST_P(registry_file_contract, a_long_value_is_written_and_not_read) {
    std::string fits(1023, 'v');
    store(MACHINE_HIVE, {{"a", fits}, {"b", fits + "v"}});
    EXPECT_EQ(load(MACHINE_HIVE), "a=" + fits + "|b=code 75");
}

TEST_P(registry_file_contract, a_long_name_is_not_listed) {
    std::string fits(1023, 'n');
    store(MACHINE_HIVE, {{fits, "1"}, {fits + "n", "2"}});
    with_variables(MACHINE_HIVE, REGISTRY_QUERY, [&fits](registry_key *key) -> std::string {
        char name[REGISTRY_VALUE_LIMIT];
        EXPECT_EQ(registry_host->RegEnumValueA(key, 0, name, sizeof name), 0U);
        EXPECT_EQ(name, fits);
        EXPECT_NE(registry_host->RegEnumValueA(key, 1, name, sizeof name), 0U);
        return "";
    });
}

TEST_P(registry_file_contract, a_folder_in_the_place_of_the_file_is_not_written_over) {
    write("plain", "kept");
    std::string below = path("plain/variables");
    registry_host->use_variables_file(below.c_str());
    EXPECT_EQ(load(MACHINE_HIVE).substr(0, 6), "parent");
    EXPECT_EQ(store(MACHINE_HIVE, {{"a", "1"}}).substr(0, 6), "parent");
    EXPECT_EQ(content_of("plain"), "kept");
}
