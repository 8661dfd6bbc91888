// The enumeration of mount points, which Wine does not have, with a library in the place of the host's.

#include "probes/os/drives_ops.h"

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

class mount_points : public testing::Test {
protected:
    HMODULE library = LoadLibraryA("volumes.dll");
    const drives_ops *ops = &drives_ops_host;

    void SetUp() override {
        ASSERT_NE(library, nullptr);
        ASSERT_TRUE(ops->GetModuleHandleA("volumes.dll"));
        for (const char *function :
             {"FindFirstVolumeMountPointA", "FindNextVolumeMountPointA", "FindVolumeMountPointClose"})
            ASSERT_TRUE(ops->GetProcAddress(function)) << function;
    }
    void TearDown() override {
        EXPECT_EQ(open_searches(), 0);
        FreeLibrary(library);
    }
    int open_searches() const {
        return *reinterpret_cast<int *>(reinterpret_cast<void *>(GetProcAddress(library, "searches_open")));
    }

    // All paths that the enumeration gives, each with a blank behind it.
    std::string paths_below(const char *root, uint32_t size) const {
        std::string all;
        std::string room(size, '#');
        mount_search *search = ops->FindFirstVolumeMountPointA(root, room.data(), size);
        if (search == nullptr) return "(none)";
        do
            all += std::string(room.c_str()) + " ";
        while (ops->FindNextVolumeMountPointA(search, room.data(), size));
        ops->FindVolumeMountPointClose(search);
        return all;
    }
};

TEST_F(mount_points, are_given_one_by_one) {
    EXPECT_EQ(paths_below("C:\\", 300), "data\\ " + std::string(200, 'x') + "\\ more\\ ");
}

TEST_F(mount_points, are_passed_over_where_they_do_not_fit) {
    EXPECT_EQ(paths_below("C:\\", 125), "data\\ more\\ ");
    EXPECT_EQ(paths_below("C:\\", 201), "data\\ more\\ ");
    EXPECT_EQ(paths_below("C:\\", 202), "data\\ " + std::string(200, 'x') + "\\ more\\ ");
    EXPECT_EQ(paths_below("E:\\", 125), "more\\ ");
    EXPECT_EQ(paths_below("E:\\", 202), std::string(200, 'x') + "\\ more\\ ");
    EXPECT_EQ(paths_below("E:\\", 201), "more\\ ");
}

TEST_F(mount_points, are_none_where_none_fits_or_the_host_finds_none) {
    EXPECT_EQ(paths_below("C:\\", 4), "(none)");
    EXPECT_EQ(paths_below("D:\\", 125), "(none)");
}
