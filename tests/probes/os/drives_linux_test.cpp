#include "fakes/test_host.h"
#include "platform/errors.h"
#include "probes/os/drives_ops.h"

#include <cerrno>
#include <gtest/gtest.h>

static uint32_t space_error(const char *path) {
    uint64_t available = 0;
    uint64_t total = 0;
    uint64_t total_free = 0;
    bool done = drives_ops_host.GetDiskFreeSpaceExA(path, &available, &total, &total_free);
    return done ? 0 : error_ops_host.GetLastError();
}

TEST(disk_free_space, is_not_that_of_the_drive_below_an_empty_mount_point) {
    test_host host;
    EXPECT_EQ(space_error(TEST_DATA), static_cast<uint32_t>(ENODEV));
}

TEST(disk_free_space, says_where_there_is_no_path) {
    test_host host;
    EXPECT_EQ(space_error("/no/such/folder"), static_cast<uint32_t>(ENOENT));
}
