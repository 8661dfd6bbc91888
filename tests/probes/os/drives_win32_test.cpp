#include "fakes/test_host.h"
#include "platform/errors.h"
#include "probes/os/drives_ops.h"

#include <gtest/gtest.h>
#include <string>

class windows_drives : public testing::Test {
protected:
    const drives_ops *ops = &drives_ops_host;

    void SetUp() override {
        ASSERT_TRUE(ops->GetModuleHandleA("kernel32.dll"));
        for (const char *function :
             {"FindFirstVolumeMountPointA", "FindNextVolumeMountPointA", "FindVolumeMountPointClose"})
            ASSERT_TRUE(ops->GetProcAddress(function)) << function;
    }
};

TEST_F(windows_drives, begin_with_c_and_end_with_z) {
    EXPECT_STREQ(ops->drive_root(0), "C:\\");
    EXPECT_STREQ(ops->drive_root(23), "Z:\\");
    EXPECT_EQ(ops->drive_root(24), nullptr);
}

TEST_F(windows_drives, look_functions_up) {
    EXPECT_FALSE(ops->GetModuleHandleA("no such module.dll"));
    ASSERT_TRUE(ops->GetModuleHandleA("kernel32.dll"));
    EXPECT_FALSE(ops->GetProcAddress("NoSuchFunction"));
}

TEST_F(windows_drives, have_a_fixed_first_one_with_space) {
    EXPECT_EQ(ops->GetDriveTypeA("C:\\"), DRIVE_FIXED);
    uint64_t available = 0;
    uint64_t total = 0;
    uint64_t total_free = 0;
    ASSERT_TRUE(ops->GetDiskFreeSpaceExA("C:\\", &available, &total, &total_free));
    EXPECT_GT(total, 0U);
    EXPECT_LE(total_free, total);
    EXPECT_LE(available, total_free);
}

TEST_F(windows_drives, say_where_there_is_no_path) {
    error_host = &error_ops_host;
    uint64_t available = 0;
    EXPECT_FALSE(ops->GetDiskFreeSpaceExA("C:\\no\\such\\folder\\", &available, &available, &available));
    EXPECT_NE(last_error(), 0U);
}

// Wine has no mount points on its volumes. Where there are some, each is a path below the root.
TEST_F(windows_drives, walk_mount_points_to_their_end) {
    error_host = &error_ops_host;
    char path[125];
    mount_search *search = ops->FindFirstVolumeMountPointA("C:\\", path, sizeof path);
    if (search == nullptr) {
        EXPECT_NE(last_error(), 0U);
        return;
    }
    do
        EXPECT_NE(std::string(path), "");
    while (ops->FindNextVolumeMountPointA(search, path, sizeof path));
    ops->FindVolumeMountPointClose(search);
}
