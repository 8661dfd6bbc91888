#include "platform/files.h"

#include "fakes/test_host.h"
#include "platform/heap.h"

#include <gtest/gtest.h>

class file_helpers : public testing::Test {
protected:
    test_host host;

    // The text of the file, "(absent)" where there is none.
    std::string read_text(const char *path, size_t limit = 1U << 20) {
        size_t length = 77;
        text_guard text(file_read_text(path, limit, &length));
        EXPECT_TRUE(host.open_files.empty());
        return text != nullptr ? std::string(text.get(), length) : "(absent)";
    }
};

static const files_ops *files_below;
static size_t largest_write;
static int64_t short_write(host_file file, const void *buffer, size_t size) {
    return files_below->write(file, buffer, std::min(size, largest_write));
}

TEST_F(file_helpers, write_all_in_as_many_calls_as_it_takes) {
    files_below = files_host;
    files_ops files = *files_host;
    files.write = short_write;
    files_host = &files;
    largest_write = 3;
    host_file file = files_host->open("/x", FILE_REPLACE);
    EXPECT_TRUE(file_write_all(file, "0123456789", 10));
    EXPECT_EQ(host.read_file("/x"), "0123456789");
    largest_write = 0;
    EXPECT_FALSE(file_write_all(file, "0123456789", 10)); // a host that takes nothing
    EXPECT_TRUE(file_write_all(file, "", 0));
}

TEST_F(file_helpers, tell_a_failed_write) {
    host_file file = files_host->open("/x", FILE_REPLACE);
    host.broken["write"]["/x"] = 28;
    EXPECT_FALSE(file_write_all(file, "0123456789", 10));
}

TEST_F(file_helpers, read_texts_of_every_size) {
    for (size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8192U, 100000U}) {
        std::string content(size, 'c');
        host.write_file("/x", content);
        EXPECT_EQ(read_text("/x"), content) << size;
    }
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(file_helpers, terminate_the_text) {
    for (size_t size : {0U, 4096U, 8192U}) {
        host.write_file("/x", std::string(size, 'c'));
        text_guard text(file_read_text("/x", 1U << 20, nullptr));
        EXPECT_EQ(strlen(text.get()), size);
    }
}

TEST_F(file_helpers, read_zero_bytes_too) {
    host.write_file("/x", std::string("a\0b", 3));
    EXPECT_EQ(read_text("/x"), std::string("a\0b", 3));
}

TEST_F(file_helpers, read_up_to_the_limit) {
    host.write_file("/x", std::string(5000, 'c'));
    EXPECT_EQ(read_text("/x", 5000).size(), 5000U);
    EXPECT_EQ(read_text("/x", 4999), "(absent)");
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(file_helpers, have_no_text_of_what_cannot_be_read) {
    EXPECT_EQ(read_text("/x"), "(absent)");
    host.write_file("/x", "text");
    host.broken["read"]["/x"] = 5;
    EXPECT_EQ(read_text("/x"), "(absent)");
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(file_helpers, have_no_text_when_memory_is_out) {
    host.write_file("/x", std::string(20000, 'c'));
    for (uint32_t n = 1; n <= 4; n++) {
        host.fail_allocation = n;
        EXPECT_EQ(read_text("/x"), "(absent)") << n;
        EXPECT_EQ(host.blocks, 0) << n;
    }
    EXPECT_EQ(read_text("/x").size(), 20000U);
}

TEST_F(file_helpers, make_the_folders_above_a_file) {
    file_make_folders("/a/b/c.txt");
    EXPECT_TRUE(host.has_file("/a/"));
    EXPECT_TRUE(host.has_file("/a/b/"));
    EXPECT_FALSE(host.has_file("/a/b/c.txt"));
    EXPECT_FALSE(host.has_file("/a/b/c.txt/"));
}

TEST_F(file_helpers, leave_folders_that_are_there) {
    host.write_file("/a/b/old.txt", "");
    uint64_t number = host.files["/a/"].number;
    file_make_folders("/a/b/c/d.txt");
    EXPECT_EQ(host.files["/a/"].number, number);
    EXPECT_TRUE(host.has_file("/a/b/c/"));
}

TEST_F(file_helpers, make_no_folder_for_a_plain_name) {
    size_t before = host.files.size();
    for (const char *path : {"", "x", "x.txt", "/x"})
        file_make_folders(path);
    EXPECT_EQ(host.files.size(), before);
}

TEST_F(file_helpers, divide_paths_as_the_host_does) {
    file_make_folders("/a\\b/c");
    EXPECT_FALSE(host.has_file("/a/"));
    EXPECT_TRUE(host.has_file("/a\\b/"));
    files_ops files = *files_host;
    files.separators = "\\/";
    files_host = &files;
    file_make_folders("/q\\b/c");
    EXPECT_TRUE(host.has_file("/q/"));
}

TEST_F(file_helpers, go_on_where_a_folder_cannot_be_made) {
    host.broken["mkdir"]["/a"] = 13;
    file_make_folders("/a/b/c.txt");
    EXPECT_FALSE(host.has_file("/a/"));
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(file_helpers, make_no_folders_when_memory_is_out) {
    host.fail_allocation = 1;
    file_make_folders("/a/b.txt");
    EXPECT_FALSE(host.has_file("/a/"));
}

static int64_t told_creation;
static int64_t scripted_creation(const char *) {
    return told_creation;
}

TEST_F(file_helpers, tell_when_a_file_was_made) {
    host.now = 12345;
    host.write_file("/x", "");
    host.now = 99999;
    EXPECT_EQ(file_creation_time("/x"), 12345);
    EXPECT_EQ(file_creation_time("/missing"), 0);
}

TEST_F(file_helpers, take_the_present_where_nobody_knows_when) {
    host.write_file("/x", "");
    host.keeps_creation_times = false;
    host.now = 99999;
    EXPECT_EQ(file_creation_time("/x"), 99999);
    EXPECT_EQ(file_creation_time("/missing"), 0);
}

TEST_F(file_helpers, know_no_creation_beyond_32_bits) {
    files_ops files = *files_host;
    files.creation_time = scripted_creation;
    files_host = &files;
    told_creation = 0xFFFFFFFF;
    EXPECT_EQ(file_creation_time("/x"), 0xFFFFFFFF);
    told_creation = 0x100000000;
    EXPECT_EQ(file_creation_time("/x"), 0);
}
