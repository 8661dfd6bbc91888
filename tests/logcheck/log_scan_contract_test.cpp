// What every host's folders must do: the same tests on those in memory and on the real ones.
#include "fakes/temp_folder.h"
#include "fakes/test_host.h"
#include "logcheck/memory_folders.h"
#include "platform/errors.h"

#include <fstream>
#include <gtest/gtest.h>
#include <optional>

class log_scan_contract : public testing::TestWithParam<const char *> {
protected:
    test_host host;
    memory_folders memory{ROOT_PATHS};
    std::optional<temp_folder> real_folder;
    std::string folder = "/contract";

    void SetUp() override {
        memory.add("/contract", memory_folders::FOLDER);
        if (GetParam() == std::string("memory")) return;
        log_scan_host = &log_scan_ops_host;
        error_host = &error_ops_host;
        folder = real_folder.emplace().path;
    }

    std::string path(const std::string &name) const { return folder + "/" + name; }
    void add_file(const std::string &name) {
        if (real_folder)
            std::ofstream(path(name)) << "x";
        else
            memory.add(path(name));
    }
    void add_folder(const std::string &name) {
        if (real_folder)
            std::filesystem::create_directory(path(name));
        else
            memory.add(path(name), memory_folders::FOLDER);
    }

    // The entries of a folder, "name/" for a folder.
    static std::set<std::string> list(const std::string &of) {
        std::set<std::string> names;
        folder_entry entry = {};
        folder_search *search = log_scan_host->FindFirstFileA(of.c_str(), &entry);
        if (search == nullptr) return {"(failed)"};
        do {
            EXPECT_FALSE(entry.link);
            EXPECT_TRUE(names.insert(entry.name + std::string(entry.folder ? "/" : "")).second);
        } while (log_scan_host->FindNextFileA(search, &entry));
        log_scan_host->FindClose(search);
        return names;
    }

    static std::string look(const std::string &at) {
        path_facts facts = {};
        if (!log_scan_host->GetFileAttributesA(at.c_str(), &facts)) return "(failed)";
        EXPECT_FALSE(facts.device);
        return facts.folder ? "folder" : "file";
    }
};

INSTANTIATE_TEST_SUITE_P(hosts, log_scan_contract, testing::Values("memory", "real"),
                         [](const auto &test) { return std::string(test.param); });

// Hosts number a missing file and a missing folder alike or not.
static bool is_missing_code(uint32_t code) {
    return code == 2 || code == 3;
}

TEST_P(log_scan_contract, lists_files_and_folders) {
    add_file("a.log");
    add_file("B b.txt");
    add_folder("sub");
    add_file("sub/c.log");
    EXPECT_EQ(list(path("")), (std::set<std::string>{"./", "../", "a.log", "B b.txt", "sub/"}));
}

TEST_P(log_scan_contract, lists_an_empty_folder) {
    EXPECT_EQ(list(path("")), (std::set<std::string>{"./", "../"}));
}

TEST_P(log_scan_contract, fails_for_a_missing_folder) {
    EXPECT_EQ(list(path("missing/")), std::set<std::string>{"(failed)"});
    EXPECT_PRED1(is_missing_code, last_error());
}

TEST_P(log_scan_contract, lists_many_entries) {
    for (int i = 0; i < 500; i++)
        add_file("entry " + std::to_string(i));
    EXPECT_EQ(list(path("")).size(), 502U);
}

TEST_P(log_scan_contract, tells_files_from_folders) {
    add_file("a.log");
    add_folder("sub");
    EXPECT_EQ(look(path("a.log")), "file");
    EXPECT_EQ(look(path("sub")), "folder");
    EXPECT_EQ(look(path("/a.log")), "file") << "two separators in a row are one";
}

TEST_P(log_scan_contract, fails_for_what_is_not_there) {
    EXPECT_EQ(look(path("missing")), "(failed)");
    EXPECT_PRED1(is_missing_code, last_error());
    EXPECT_EQ(look(path("missing/a.log")), "(failed)");
    EXPECT_PRED1(is_missing_code, last_error());
}
