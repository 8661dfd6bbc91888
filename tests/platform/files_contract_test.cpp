// What every host's files must do: the same tests on the host in memory and on the real one.

#include "platform/files.h"

#include "fakes/temp_folder.h"
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/version.h"

#include <gtest/gtest.h>
#include <optional>

// Hosts number their errors differently: one number for a missing file or folder, or two.
static bool is_missing_code(uint32_t code) {
    return code == 2 || code == 3;
}
static bool is_taken_code(uint32_t code) {
    return code == 17 || code == 80 || code == 183;
}

class files_contract : public testing::TestWithParam<const char *> {
protected:
    test_host host;
    std::optional<temp_folder> real_folder;
    std::string folder = "/contract";

    bool is_real() const { return GetParam() == std::string("real"); }

    void SetUp() override {
        if (is_real()) {
            files_host = &files_ops_host;
            error_host = &error_ops_host;
            folder = real_folder.emplace().path;
        } else {
            ASSERT_TRUE(files_host->CreateDirectoryA(folder.c_str()));
        }
    }

    std::string path(const char *name) const { return folder + "/" + name; }

    host_file open(const char *name, file_mode mode) { return files_host->open(path(name).c_str(), mode); }

    void write(const char *name, const std::string &content, file_mode mode = FILE_REPLACE) {
        host_file file = open(name, mode);
        ASSERT_NE(file, NO_FILE);
        EXPECT_EQ(files_host->write(file, content.data(), content.size()),
                  static_cast<int64_t>(content.size()));
        EXPECT_TRUE(files_host->sync(file));
        EXPECT_TRUE(files_host->close(file));
    }

    std::string content_of(const char *name) {
        host_file file = open(name, FILE_READ);
        if (file == NO_FILE) return "(none)";
        std::string content;
        char buffer[4];
        int64_t got;
        while ((got = files_host->read(file, buffer, sizeof buffer)) > 0)
            content.append(buffer, static_cast<size_t>(got));
        EXPECT_EQ(got, 0);
        files_host->close(file);
        return content;
    }

    file_facts facts_of(const char *name) {
        file_facts facts = {};
        EXPECT_TRUE(files_host->facts_at(path(name).c_str(), &facts));
        return facts;
    }
    bool is_there(const char *name) {
        file_facts facts;
        return files_host->facts_at(path(name).c_str(), &facts);
    }
    bool move(const char *from, const char *to) {
        return files_host->MoveFileA(path(from).c_str(), path(to).c_str());
    }
    bool replace(const char *from, const char *to) {
        return files_host->MoveFileExA(path(from).c_str(), path(to).c_str());
    }
};

INSTANTIATE_TEST_SUITE_P(hosts, files_contract, testing::Values("memory", "real"),
                         [](const auto &each) { return std::string(each.param); });

TEST_P(files_contract, reading_wants_a_file) {
    EXPECT_EQ(open("x", FILE_READ), NO_FILE);
    EXPECT_PRED1(is_missing_code, last_error());
    EXPECT_FALSE(is_there("x"));
}

TEST_P(files_contract, writing_makes_a_file_but_no_folder) {
    write("a", "1", FILE_APPEND);
    write("b", "2", FILE_WRITE);
    write("c", "3", FILE_REPLACE);
    EXPECT_EQ(content_of("a") + content_of("b") + content_of("c"), "123");
    for (file_mode mode : {FILE_APPEND, FILE_WRITE, FILE_REPLACE}) {
        EXPECT_EQ(open("missing/x", mode), NO_FILE);
        EXPECT_PRED1(is_missing_code, last_error());
    }
}

TEST_P(files_contract, each_mode_treats_what_was_there_its_own_way) {
    for (const char *name : {"a", "b", "c"})
        write(name, "before");
    write("a", "X", FILE_APPEND);
    write("b", "X", FILE_WRITE);
    write("c", "X", FILE_REPLACE);
    EXPECT_EQ(content_of("a"), "beforeX");
    EXPECT_EQ(content_of("b"), "Xefore");
    EXPECT_EQ(content_of("c"), "X");
}

TEST_P(files_contract, reading_goes_on_at_the_position_asked_for) {
    write("a", "0123456789");
    host_file file = open("a", FILE_READ);
    char text[4] = {};
    EXPECT_EQ(files_host->tell64(file), 0);
    EXPECT_TRUE(files_host->seek64(file, 7, FROM_START));
    EXPECT_EQ(files_host->read(file, text, 2), 2);
    EXPECT_STREQ(text, "78");
    EXPECT_EQ(files_host->tell64(file), 9);
    EXPECT_TRUE(files_host->seek64(file, -4, FROM_END));
    EXPECT_EQ(files_host->read(file, text, 3), 3);
    EXPECT_STREQ(text, "678");
    files_host->close(file);
}

TEST_P(files_contract, a_position_is_wider_than_32_bits_and_never_negative) {
    write("a", "0123456789");
    host_file file = open("a", FILE_READ);
    char byte;
    EXPECT_TRUE(files_host->seek64(file, int64_t{1} << 33, FROM_START));
    EXPECT_EQ(files_host->tell64(file), int64_t{1} << 33);
    EXPECT_EQ(files_host->read(file, &byte, 1), 0);
    EXPECT_FALSE(files_host->seek64(file, -11, FROM_END));
    EXPECT_EQ(files_host->tell64(file), int64_t{1} << 33);
    files_host->close(file);
}

TEST_P(files_contract, facts_tell_size_and_kind) {
    write("a", "12345");
    EXPECT_EQ(facts_of("a").size, 5);
    EXPECT_TRUE(facts_of("a").regular);
    ASSERT_TRUE(files_host->CreateDirectoryA(path("d").c_str()));
    EXPECT_FALSE(facts_of("d").regular);
    EXPECT_FALSE(is_there("missing"));
    EXPECT_PRED1(is_missing_code, last_error());
}

TEST_P(files_contract, facts_identify_a_file) {
    write("a", "");
    write("b", "");
    host_file file = open("a", FILE_READ);
    file_facts open_one;
    EXPECT_TRUE(files_host->facts_of(file, &open_one));
    EXPECT_EQ(open_one.volume, facts_of("a").volume);
    EXPECT_EQ(open_one.number, facts_of("a").number);
    EXPECT_NE(open_one.number, facts_of("b").number);
    files_host->close(file);
}

TEST_P(files_contract, an_open_file_keeps_its_identity_when_it_is_moved) {
    host_file file = open("a", FILE_APPEND);
    EXPECT_TRUE(move("a", "b"));
    write("a", "another");
    files_host->write(file, "late", 4);
    file_facts open_one;
    EXPECT_TRUE(files_host->facts_of(file, &open_one));
    EXPECT_EQ(open_one.number, facts_of("b").number);
    files_host->close(file);
    EXPECT_EQ(content_of("a"), "another");
    EXPECT_EQ(content_of("b"), "late");
}

TEST_P(files_contract, an_open_file_outlives_its_name) {
    host_file file = open("a", FILE_APPEND);
    EXPECT_TRUE(files_host->DeleteFileA(path("a").c_str()));
    EXPECT_EQ(files_host->write(file, "late", 4), 4);
    file_facts open_one;
    EXPECT_TRUE(files_host->facts_of(file, &open_one));
    if (is_real() && host_word == std::string("win32")) {
        files_host->close(file); // only then is the name free
        EXPECT_FALSE(is_there("a"));
        return;
    }
    EXPECT_FALSE(is_there("a"));
    write("a", "another");
    EXPECT_NE(facts_of("a").number, open_one.number);
    files_host->close(file);
    EXPECT_EQ(content_of("a"), "another");
}

TEST_P(files_contract, a_move_refuses_a_name_that_is_taken) {
    write("a", "A");
    write("b", "B");
    EXPECT_FALSE(move("a", "b"));
    EXPECT_PRED1(is_taken_code, last_error());
    EXPECT_EQ(content_of("a") + content_of("b"), "AB");
    EXPECT_TRUE(move("a", "c"));
    EXPECT_EQ(content_of("a") + content_of("c"), "(none)A");
}

TEST_P(files_contract, a_move_wants_a_file_and_a_folder) {
    EXPECT_FALSE(move("missing", "b"));
    EXPECT_PRED1(is_missing_code, last_error());
    EXPECT_FALSE(replace("missing", "b"));
    EXPECT_PRED1(is_missing_code, last_error());
    write("a", "A");
    EXPECT_FALSE(move("a", "missing/b"));
    EXPECT_FALSE(replace("a", "missing/b"));
    EXPECT_EQ(content_of("a"), "A");
}

TEST_P(files_contract, a_replacing_move_replaces) {
    write("a", "A");
    write("b", "B");
    EXPECT_TRUE(replace("a", "b"));
    EXPECT_EQ(content_of("a") + content_of("b"), "(none)A");
    EXPECT_TRUE(replace("b", "c"));
    EXPECT_EQ(content_of("c"), "A");
}

TEST_P(files_contract, deleting_wants_a_file) {
    EXPECT_FALSE(files_host->DeleteFileA(path("a").c_str()));
    EXPECT_PRED1(is_missing_code, last_error());
    write("a", "A");
    EXPECT_TRUE(files_host->DeleteFileA(path("a").c_str()));
    EXPECT_FALSE(is_there("a"));
}

TEST_P(files_contract, folders_are_made_once_and_one_at_a_time) {
    EXPECT_FALSE(files_host->CreateDirectoryA(path("a/b").c_str()));
    EXPECT_PRED1(is_missing_code, last_error());
    EXPECT_TRUE(files_host->CreateDirectoryA(path("a").c_str()));
    EXPECT_FALSE(files_host->CreateDirectoryA(path("a").c_str()));
    EXPECT_PRED1(is_taken_code, last_error());
    EXPECT_TRUE(files_host->CreateDirectoryA(path("a/b").c_str()));
}

TEST_P(files_contract, creation_is_known_unknown_or_of_nothing) {
    EXPECT_EQ(files_host->creation_time(path("a").c_str()), 0);
    write("a", "A");
    int64_t created = files_host->creation_time(path("a").c_str());
    EXPECT_TRUE(created == -1 || created > 900'000'000) << created;
}
