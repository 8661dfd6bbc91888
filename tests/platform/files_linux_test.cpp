#include "platform/files.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

class linux_files : public testing::Test {
protected:
    std::string folder = std::filesystem::temp_directory_path() / "tarnix.XXXXXX";
    mode_t umask_before = umask(0022);

    void SetUp() override { ASSERT_NE(mkdtemp(folder.data()), nullptr); }
    void TearDown() override {
        std::filesystem::remove_all(folder);
        umask(umask_before);
    }

    std::string path(const char *name) const { return folder + "/" + name; }
    mode_t mode_of(const char *name) const {
        struct stat found = {};
        EXPECT_EQ(stat(path(name).c_str(), &found), 0);
        return found.st_mode & 07777;
    }
    void make(const char *name, file_mode mode) {
        host_file file = files_ops_host.open(path(name).c_str(), mode);
        ASSERT_NE(file, NO_FILE);
        files_ops_host.close(file);
    }
};

TEST_F(linux_files, that_are_replaced_belong_to_their_owner_alone) {
    make("a", FILE_REPLACE);
    EXPECT_EQ(mode_of("a"), 0600U);
    make("b", FILE_APPEND);
    EXPECT_EQ(mode_of("b"), 0640U);
    make("b", FILE_REPLACE);
    EXPECT_EQ(mode_of("b"), 0600U);
}

TEST_F(linux_files, that_are_folders_belong_to_their_owner_alone) {
    ASSERT_TRUE(files_ops_host.CreateDirectoryA(path("d").c_str()));
    EXPECT_EQ(mode_of("d"), 0700U);
}

TEST_F(linux_files, are_not_inherited_by_programs) {
    host_file file = files_ops_host.open(path("a").c_str(), FILE_APPEND);
    EXPECT_EQ(std::system(("test ! -e /proc/self/fd/" + std::to_string(file)).c_str()), 0);
    files_ops_host.close(file);
}

TEST_F(linux_files, are_never_opened_with_blocking_for_reading) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    host_file file = files_ops_host.open(path("pipe").c_str(), FILE_READ);
    ASSERT_NE(file, NO_FILE);
    file_facts facts;
    EXPECT_TRUE(files_ops_host.facts_of(file, &facts));
    EXPECT_FALSE(facts.regular);
    files_ops_host.close(file);
}

TEST_F(linux_files, cannot_be_read_where_they_are_folders) {
    host_file file = files_ops_host.open(folder.c_str(), FILE_READ);
    ASSERT_NE(file, NO_FILE);
    char byte;
    EXPECT_EQ(files_ops_host.read(file, &byte, 1), -1);
    EXPECT_EQ(errno, EISDIR);
    files_ops_host.close(file);
}

TEST_F(linux_files, are_born_with_the_present_time_where_that_is_kept) {
    int64_t before = time(nullptr) - 2;
    make("a", FILE_APPEND);
    int64_t created = files_ops_host.creation_time(path("a").c_str());
    if (created == -1) GTEST_SKIP() << "this file system keeps no birth times";
    EXPECT_GE(created, before);
    EXPECT_LE(created, time(nullptr) + 2);
}

TEST_F(linux_files, move_within_the_working_folder_too) {
    std::string before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    make("a", FILE_REPLACE);
    EXPECT_TRUE(files_ops_host.MoveFileExA("a", "b"));
    std::filesystem::current_path(before);
    EXPECT_EQ(access(path("b").c_str(), F_OK), 0);
}

TEST_F(linux_files, fail_on_what_is_closed) {
    host_file file = files_ops_host.open(path("a").c_str(), FILE_REPLACE);
    EXPECT_TRUE(files_ops_host.close(file));
    EXPECT_FALSE(files_ops_host.close(file));
    EXPECT_FALSE(files_ops_host.sync(file));
    EXPECT_EQ(files_ops_host.write(file, "x", 1), -1);
    file_facts facts;
    EXPECT_FALSE(files_ops_host.facts_of(file, &facts));
}

TEST_F(linux_files, write_errors_to_the_second_stream) {
    EXPECT_EQ(files_ops_host.stderr_handle, STDERR_FILENO);
}
