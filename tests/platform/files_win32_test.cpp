#include "platform/files.h"

#include "fakes/temp_folder.h"
#include "platform/heap.h"

#include <ctime>
#include <gtest/gtest.h>
#include <windows.h>

#include <aclapi.h>

class windows_files : public testing::Test {
protected:
    temp_folder folder;

    std::string path(const char *name) const { return folder.path + "/" + name; }
    void make(const char *name, file_mode mode) const {
        host_file file = files_ops_host.open(path(name).c_str(), mode);
        ASSERT_NE(file, NO_FILE);
        EXPECT_TRUE(files_ops_host.close(file));
    }
    // How many users or groups the file or folder is open to.
    int count_of_allowed(const char *name) const {
        PACL list = nullptr;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        if (GetNamedSecurityInfoA(path(name).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS)
            return -1;
        int count = list->AceCount;
        LocalFree(descriptor);
        return count;
    }
    bool is_open_to_everyone(const char *name) const {
        PACL list = nullptr;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        GetNamedSecurityInfoA(path(name).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                              &list, nullptr, &descriptor);
        char world[SECURITY_MAX_SID_SIZE];
        DWORD size = sizeof world;
        CreateWellKnownSid(WinWorldSid, nullptr, world, &size);
        bool found = false;
        for (DWORD i = 0; list != nullptr && i < list->AceCount; i++) {
            void *entry = nullptr;
            GetAce(list, i, &entry);
            auto *allowed = static_cast<ACCESS_ALLOWED_ACE *>(entry);
            found |= EqualSid(&allowed->SidStart, world) && (allowed->Mask & FILE_READ_DATA) != 0;
        }
        LocalFree(descriptor);
        return found;
    }
};

TEST_F(windows_files, that_are_replaced_are_not_everyones) {
    make("a", FILE_APPEND);
    make("a", FILE_REPLACE);
    EXPECT_GT(count_of_allowed("a"), 0);
    EXPECT_FALSE(is_open_to_everyone("a"));
}

TEST_F(windows_files, that_are_folders_are_not_everyones) {
    ASSERT_TRUE(files_ops_host.CreateDirectoryA(path("d").c_str()));
    EXPECT_FALSE(is_open_to_everyone("d"));
    make("d/inside", FILE_REPLACE);
}

TEST_F(windows_files, make_folders_along_a_path_with_a_drive) {
    files_host = &files_ops_host;
    std::string native = folder.path;
    for (char &c : native)
        if (c == '/') c = '\\';
    std::string below = native + "\\one\\two/agent.log";
    heap_host = &heap_ops_host;
    file_make_folders(below.c_str());
    EXPECT_NE(GetFileAttributesA((native + "\\one\\two").c_str()) & FILE_ATTRIBUTE_DIRECTORY, 0U);
    EXPECT_EQ(GetFileAttributesA(below.c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(windows_files, are_not_inherited_by_programs) {
    host_file file = files_ops_host.open(path("a").c_str(), FILE_APPEND);
    DWORD flags = HANDLE_FLAG_INHERIT;
    EXPECT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(file), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0U);
    files_ops_host.close(file);
}

TEST_F(windows_files, can_be_read_while_they_are_written_to) {
    host_file log = files_ops_host.open(path("a").c_str(), FILE_APPEND);
    EXPECT_EQ(files_ops_host.write(log, "line\n", 5), 5);
    host_file reader = files_ops_host.open(path("a").c_str(), FILE_READ);
    ASSERT_NE(reader, NO_FILE);
    char buffer[16];
    EXPECT_EQ(files_ops_host.read(reader, buffer, sizeof buffer), 5);
    files_ops_host.close(reader);
    files_ops_host.close(log);
}

TEST_F(windows_files, keep_each_byte_as_it_is) {
    host_file file = files_ops_host.open(path("a").c_str(), FILE_APPEND);
    EXPECT_EQ(files_ops_host.write(file, "a\nb\x1a\r\n", 6), 6);
    files_ops_host.close(file);
    file_facts facts;
    EXPECT_TRUE(files_ops_host.facts_at(path("a").c_str(), &facts));
    EXPECT_EQ(facts.size, 6);
}

TEST_F(windows_files, are_born_with_the_present_time) {
    int64_t before = time(nullptr) - 2;
    make("a", FILE_APPEND);
    EXPECT_GE(files_ops_host.creation_time(path("a").c_str()), before);
    EXPECT_LE(files_ops_host.creation_time(path("a").c_str()), time(nullptr) + 2);
}

TEST_F(windows_files, tell_when_folders_were_made_too) {
    EXPECT_GT(files_ops_host.creation_time(folder.path.c_str()), 900'000'000);
}

// A log that is renamed away leaves its creation time to the file that takes its name. Wine tells the last
// write instead and takes none, so that there only the file can be seen.
TEST_F(windows_files, begin_a_new_age_where_they_are_told_to) {
    int64_t before = time(nullptr) - 2;
    files_ops_host.restart_age(path("log").c_str());
    file_facts facts;
    ASSERT_TRUE(files_ops_host.facts_at(path("log").c_str(), &facts));
    EXPECT_EQ(facts.size, 0);
    EXPECT_GE(files_ops_host.creation_time(path("log").c_str()), before);
    files_ops_host.restart_age(path("no/such/folder").c_str());
    files_ops_host.restart_age(folder.path.c_str());
}

TEST_F(windows_files, fail_on_what_is_closed) {
    host_file file = files_ops_host.open(path("a").c_str(), FILE_REPLACE);
    EXPECT_TRUE(files_ops_host.close(file));
    EXPECT_FALSE(files_ops_host.close(file));
    EXPECT_FALSE(files_ops_host.sync(file));
    EXPECT_EQ(files_ops_host.write(file, "x", 1), -1);
    EXPECT_EQ(files_ops_host.read(file, nullptr, 0), -1);
    file_facts facts;
    EXPECT_FALSE(files_ops_host.facts_of(file, &facts));
}

TEST_F(windows_files, write_errors_to_the_third_handle_of_the_process) {
    HANDLE before = GetStdHandle(STD_ERROR_HANDLE);
    host_file file = files_ops_host.open(path("err").c_str(), FILE_APPEND);
    SetStdHandle(STD_ERROR_HANDLE, reinterpret_cast<HANDLE>(file));
    EXPECT_EQ(files_ops_host.write(files_ops_host.stderr_handle, "words", 5), 5);
    SetStdHandle(STD_ERROR_HANDLE, before);
    files_ops_host.close(file);
    file_facts facts;
    EXPECT_TRUE(files_ops_host.facts_at(path("err").c_str(), &facts));
    EXPECT_EQ(facts.size, 5);
}
