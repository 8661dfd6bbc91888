#include "platform/registry.h"

#include "fakes/scratch_hives_win32.h"
#include "fakes/test_host.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

static constexpr const char *PATH = "SOFTWARE\\Tarnix";

class windows_registry : public testing::Test {
protected:
    test_host host; // for its heap
    scratch_hives hives;
    const registry_ops *ops = &registry_ops_host;

    void TearDown() override { EXPECT_EQ(host.blocks, 0); }

    void make_product_key(HKEY hive) {
        HKEY made = nullptr;
        ASSERT_EQ(RegCreateKeyA(hive, PATH, &made), ERROR_SUCCESS);
        RegCloseKey(made);
    }
    registry_key *open(registry_hive hive, registry_access access) {
        registry_key *key = nullptr;
        EXPECT_EQ(ops->RegOpenKeyExA(hive, PATH, access, &key), 0U);
        return key;
    }
    registry_key *open_for_writing() {
        make_product_key(HKEY_LOCAL_MACHINE);
        return open(MACHINE_HIVE, REGISTRY_WRITE);
    }
    std::string value(registry_key *key, const char *name) {
        char buffer[REGISTRY_VALUE_LIMIT];
        uint32_t size = sizeof buffer;
        uint32_t code = ops->RegQueryValueExA(key, name, buffer, &size);
        return code != 0 ? "code " + std::to_string(code) : std::string(buffer, size);
    }
};

TEST_F(windows_registry, has_no_key_that_nobody_made) {
    registry_key *key = nullptr;
    EXPECT_EQ(ops->RegOpenKeyExA(MACHINE_HIVE, PATH, REGISTRY_QUERY, &key), uint32_t{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(ops->RegOpenKeyExA(USER_HIVE, PATH, REGISTRY_WRITE, &key), uint32_t{ERROR_FILE_NOT_FOUND});
}

TEST_F(windows_registry, keeps_the_hives_apart) {
    make_product_key(HKEY_CURRENT_USER);
    registry_key *key = nullptr;
    EXPECT_NE(ops->RegOpenKeyExA(MACHINE_HIVE, PATH, REGISTRY_QUERY, &key), 0U);
    key = open(USER_HIVE, REGISTRY_QUERY);
    ops->RegCloseKey(key);
}

TEST_F(windows_registry, gives_back_a_value_with_its_end) {
    registry_key *key = open_for_writing();
    EXPECT_EQ(ops->RegSetValueExA(key, "name", "web1", 5), 0U);
    EXPECT_EQ(value(key, "name"), std::string("web1", 5));
    EXPECT_EQ(ops->RegSetValueExA(key, "name", "", 1), 0U);
    EXPECT_EQ(value(key, "name"), std::string("", 1));
    EXPECT_EQ(value(key, "other"), "code " + std::to_string(ERROR_FILE_NOT_FOUND));
    ops->RegCloseKey(key);
}

TEST_F(windows_registry, lists_the_keys_below_one_that_is_open_for_reading) {
    registry_key *above = open_for_writing();
    registry_key *below = nullptr;
    EXPECT_EQ(ops->RegCreateKeyExA(above, "Below", &below), 0U);
    ops->RegCloseKey(below);
    ops->RegCloseKey(above);
    above = open(MACHINE_HIVE, REGISTRY_READ);
    char name[16];
    EXPECT_EQ(ops->RegEnumKeyExA(above, 0, name, sizeof name), 0U);
    EXPECT_STREQ(name, "Below");
    EXPECT_EQ(ops->RegEnumKeyExA(above, 0, name, 5), uint32_t{ERROR_MORE_DATA});
    EXPECT_EQ(ops->RegEnumKeyExA(above, 1, name, sizeof name), uint32_t{ERROR_NO_MORE_ITEMS});
    ops->RegCloseKey(above);
}

TEST_F(windows_registry, lists_no_keys_where_only_values_were_asked_for) {
    ops->RegCloseKey(open_for_writing());
    registry_key *above = open(MACHINE_HIVE, REGISTRY_QUERY);
    char name[16];
    EXPECT_EQ(ops->RegEnumKeyExA(above, 0, name, sizeof name), uint32_t{ERROR_ACCESS_DENIED});
    ops->RegCloseKey(above);
}

TEST_F(windows_registry, refuses_a_value_that_does_not_fit) {
    registry_key *key = open_for_writing();
    std::string fits(REGISTRY_VALUE_LIMIT - 1, 'v');
    ops->RegSetValueExA(key, "fits", fits.c_str(), REGISTRY_VALUE_LIMIT);
    ops->RegSetValueExA(key, "long", (fits + "v").c_str(), REGISTRY_VALUE_LIMIT + 1);
    EXPECT_EQ(value(key, "fits"), fits + '\0');
    EXPECT_EQ(value(key, "long"), "code " + std::to_string(ERROR_MORE_DATA));
    ops->RegCloseKey(key);
}

TEST_F(windows_registry, takes_values_of_any_type_for_texts) {
    registry_key *key = open_for_writing();
    HKEY raw = nullptr;
    ASSERT_EQ(RegOpenKeyA(HKEY_LOCAL_MACHINE, PATH, &raw), ERROR_SUCCESS);
    RegSetValueExA(raw, "raw", 0, REG_BINARY, reinterpret_cast<const BYTE *>("no end"), 6);
    RegCloseKey(raw);
    EXPECT_EQ(value(key, "raw"), "no end");
    ops->RegCloseKey(key);
}

TEST_F(windows_registry, makes_a_key_below_one_that_is_open_for_writing) {
    registry_key *parent = open_for_writing();
    registry_key *made = nullptr;
    ASSERT_EQ(ops->RegCreateKeyExA(parent, "TNAgent\\Variables", &made), 0U);
    EXPECT_EQ(ops->RegSetValueExA(made, "a", "1", 2), 0U);
    ops->RegCloseKey(made);
    ops->RegCloseKey(parent);
}

TEST_F(windows_registry, makes_no_key_below_one_that_is_open_for_querying) {
    make_product_key(HKEY_LOCAL_MACHINE);
    registry_key *parent = open(MACHINE_HIVE, REGISTRY_QUERY);
    registry_key *made = nullptr;
    EXPECT_EQ(ops->RegCreateKeyExA(parent, "TNAgent\\Variables", &made), uint32_t{ERROR_FILE_NOT_FOUND});
    ops->RegCloseKey(parent);
    parent = open(MACHINE_HIVE, REGISTRY_WRITE);
    ASSERT_EQ(ops->RegCreateKeyExA(parent, "TNAgent\\Variables", &made), 0U);
    ops->RegCloseKey(made);
    ops->RegCloseKey(parent);
    parent = open(MACHINE_HIVE, REGISTRY_QUERY);
    EXPECT_EQ(ops->RegCreateKeyExA(parent, "TNAgent\\Variables", &made), 0U);
    ops->RegCloseKey(made);
    ops->RegCloseKey(parent);
}

TEST_F(windows_registry, counts_and_lists_the_names) {
    registry_key *key = open_for_writing();
    for (const char *name : {"a", "b", "c"})
        ops->RegSetValueExA(key, name, "x", 2);
    uint32_t count = 0;
    EXPECT_EQ(ops->RegQueryInfoKeyA(key, &count), 0U);
    EXPECT_EQ(count, 3U);
    std::string names;
    char name[64];
    for (uint32_t i = 0; i < count; i++) {
        EXPECT_EQ(ops->RegEnumValueA(key, i, name, sizeof name), 0U);
        names += name;
    }
    EXPECT_EQ(names, "abc");
    EXPECT_EQ(ops->RegEnumValueA(key, count, name, sizeof name), uint32_t{ERROR_NO_MORE_ITEMS});
    EXPECT_EQ(ops->RegEnumValueA(key, 0, name, 1), uint32_t{ERROR_MORE_DATA});
    ops->RegCloseKey(key);
}

TEST_F(windows_registry, needs_memory_for_a_key) {
    make_product_key(HKEY_LOCAL_MACHINE);
    registry_key *key = nullptr;
    host.fail_allocation = 1;
    EXPECT_EQ(ops->RegOpenKeyExA(MACHINE_HIVE, PATH, REGISTRY_QUERY, &key),
              uint32_t{ERROR_NOT_ENOUGH_MEMORY});
    registry_key *parent = open(MACHINE_HIVE, REGISTRY_WRITE);
    host.fail_allocation = 1;
    EXPECT_EQ(ops->RegCreateKeyExA(parent, "x", &key), uint32_t{ERROR_NOT_ENOUGH_MEMORY});
    ops->RegCloseKey(parent);
}
