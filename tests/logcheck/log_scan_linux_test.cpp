// The scan for logs on real folders: links, pipes and sockets among the files.
#include "logcheck/log_scan.h"

#include "fakes/temp_folder.h"
#include "fakes/test_host.h"
#include "logcheck/log_scan_ops.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

struct log_scan_on_linux : testing::Test {
    test_host host;
    temp_folder folder;
    files_ops files = files_ops_host;
    agent_config config = {};
    devtree root = {};
    std::string conf = folder.path + "/conf";

    log_scan_on_linux() {
        files.write = files_host->write; // of the log, which stays in memory
        files_host = &files;
        error_host = &error_ops_host;
        log_scan_host = &log_scan_ops_host;
        log_path_style_in_force = log_scan_host->style;
        config.log_chk_conf = conf.data();
        config_in_force = &config;
        fs::create_directory(folder.path + "/logs");
    }
    ~log_scan_on_linux() override {
        free_devtree(root.children);
        log_conf_reset();
        config_in_force = nullptr;
        EXPECT_EQ(host.blocks, 0);
    }

    std::string path(const std::string &name) const { return folder.path + "/logs/" + name; }
    void add(const std::string &name) {
        fs::create_directories(fs::path(path(name)).parent_path());
        std::ofstream(path(name)) << "x";
    }

    static void collect(const devtree *group, const std::string &above, strings *out) {
        for (const devnode *device = group->devices; device != nullptr; device = device->next)
            out->push_back(above + device->id);
        for (const devtree *child = group->children; child != nullptr; child = child->next)
            collect(child, above + child->id + (child->id[0] == '/' ? "" : "/"), out);
    }
    // The checks that the line finds, below the folder of logs.
    strings scan(const std::string &line) {
        std::ofstream(conf) << path(line) << "\n";
        EXPECT_SUCCESS(scan_log(&root));
        strings all;
        collect(root.children, "", &all);
        for (std::string &one : all) {
            EXPECT_TRUE(one.starts_with(path(""))) << one;
            one = one.substr(path("").size());
        }
        std::sort(all.begin(), all.end());
        return all;
    }
};

TEST_F(log_scan_on_linux, has_paths_with_a_root) {
    EXPECT_FALSE(log_scan_host->style->has_drives);
    EXPECT_EQ(log_scan_host->style->separator, '/');
}

TEST_F(log_scan_on_linux, finds_files) {
    add("a.log");
    add("1/2/b.log");
    EXPECT_EQ(scan("**/*.log"), (strings{"1/2/b.log", "a.log"}));
}

TEST_F(log_scan_on_linux, does_not_follow_a_loop_of_links_below_the_marker) {
    add("1/a.log");
    fs::create_directory_symlink(path(""), path("1/up"));
    fs::create_directory_symlink("1", path("beside"));
    EXPECT_EQ(scan("**/*"), strings{"1/a.log"});
}

TEST_F(log_scan_on_linux, follows_a_link_that_a_star_or_a_name_stands_for) {
    add("1/a.log");
    fs::create_directory_symlink("1", path("beside"));
    EXPECT_EQ(scan("*/a.log"), (strings{"1/a.log", "beside/a.log"}));
    free_devtree(root.children);
    root.children = nullptr;
    EXPECT_EQ(scan("beside/*.log"), strings{"beside/a.log"});
}

TEST_F(log_scan_on_linux, takes_links_to_files_but_not_those_to_nothing) {
    add("1/a.log");
    fs::create_symlink(path("1/a.log"), path("link.log"));
    fs::create_symlink(path("nowhere"), path("broken.log"));
    EXPECT_EQ(scan("**/*.log"), (strings{"1/a.log", "link.log"}));
}

TEST_F(log_scan_on_linux, takes_regular_files_alone) {
    add("a.log");
    ASSERT_EQ(mkfifo(path("pipe.log").c_str(), 0600), 0);
    ASSERT_EQ(mknod(path("socket.log").c_str(), S_IFSOCK | 0600, 0), 0);
    fs::create_symlink("/dev/null", path("device.log"));
    EXPECT_EQ(scan("*.log"), strings{"a.log"});
    EXPECT_EQ(host.count_logged("Ignoring non-file part"), 3);
}

TEST_F(log_scan_on_linux, keeps_names_in_any_bytes) {
    add("\xE4\xFF.log");
    EXPECT_EQ(scan("??.log"), strings{"\xE4\xFF.log"});
}

TEST_F(log_scan_on_linux, leaves_what_is_too_deep_for_the_host) {
    std::string deep(200, 'd');
    int top = open(path("").c_str(), O_RDONLY | O_DIRECTORY);
    int at = dup(top);
    for (int i = 0; i < 30; i++) { // 30 * 201 characters are more than a path can have
        ASSERT_EQ(mkdirat(at, deep.c_str(), 0700), 0);
        int below = openat(at, deep.c_str(), O_RDONLY | O_DIRECTORY);
        close(at);
        at = below;
    }
    close(at);
    close(top);
    add("a.log");
    EXPECT_EQ(scan("**/*.log"), strings{"a.log"});
    EXPECT_GT(host.count_logged("Error scanning \""), 0);
    EXPECT_EQ(system(("rm -rf " + path(deep)).c_str()), 0); // the library's removal knows whole paths alone
}

// ---- the file of lines

TEST_F(log_scan_on_linux, does_not_wait_for_a_pipe_in_the_place_of_its_file) {
    ASSERT_EQ(mkfifo(conf.c_str(), 0600), 0);
    EXPECT_EQ(log_conf_read(conf.c_str()), nullptr);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open log configuration \"" + conf + "\""));
}

TEST_F(log_scan_on_linux, does_not_read_a_folder_or_a_device_in_the_place_of_its_file) {
    EXPECT_EQ(log_conf_read(folder.path.c_str()), nullptr);
    EXPECT_EQ(log_conf_read("/dev/zero"), nullptr);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open log configuration \"/dev/zero\""));
}
