#include "settings/registry_file.h"

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/heap.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

static mode_t mode_of(const std::string &path) {
    struct stat found = {};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 07777;
}

TEST(registry_file_ops, keeps_the_variables_to_their_owner) {
    std::string folder = std::filesystem::temp_directory_path() / "tarnix.XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    files_host = &files_ops_host;
    error_host = &error_ops_host;
    heap_host = &heap_ops_host;
    std::string path = folder + "/state/variables";
    registry_file_reset();
    registry_file_ops.use_variables_file(path.c_str());
    registry_key *parent = nullptr, *key = nullptr;
    ASSERT_EQ(registry_file_ops.RegOpenKeyExA(MACHINE_HIVE, "SOFTWARE\\Tarnix", REGISTRY_WRITE, &parent), 0U);
    ASSERT_EQ(registry_file_ops.RegCreateKeyExA(parent, "TNAgent\\Variables", &key), 0U);
    EXPECT_EQ(registry_file_ops.RegSetValueExA(key, "hostkey", "secret", 7), 0U);
    EXPECT_EQ(registry_file_ops.RegFlushKey(key), 0U);
    registry_file_ops.RegCloseKey(key);
    registry_file_ops.RegCloseKey(parent);
    EXPECT_EQ(mode_of(path), 0600U);
    EXPECT_EQ(mode_of(folder + "/state"), 0700U);
    registry_file_reset();
    std::filesystem::remove_all(folder);
}
