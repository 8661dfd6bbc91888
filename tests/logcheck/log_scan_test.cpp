#include "logcheck/log_scan.h"

#include "fakes/scripted_registry.h"
#include "fakes/test_host.h"
#include "logcheck/memory_folders.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <algorithm>
#include <gtest/gtest.h>

using std::string;
using strings = std::vector<string>;

namespace {

constexpr const char *CONF = "/etc/logs.conf";
constexpr const char *EVENT_LOGS = "SYSTEM\\CurrentControlSet\\Services\\Eventlog";

// A scan of folders in memory, by the lines of a file.
struct scan_world {
    test_host host;
    memory_folders disk;
    scripted_registry registry;
    agent_config config = {};
    devtree root = {};

    explicit scan_world(const log_path_style &style) : disk(style) {
        config.log_chk_conf = text_copy(CONF);
        config_in_force = &config;
        the_host->blocks = 0;
    }
    ~scan_world() {
        free_devtree(root.children);
        log_conf_reset();
        EXPECT_EQ(host.blocks, 0);
        EXPECT_EQ(disk.open_searches, 0);
        EXPECT_EQ(registry.open_keys, 0);
        heap_free(config.log_chk_conf);
        config_in_force = nullptr;
    }

    void configure(const strings &lines) {
        string text;
        for (const string &line : lines)
            text += line + "\n";
        host.write_file(CONF, text);
    }

    void scan() {
        free_devtree(root.children);
        root.children = nullptr;
        EXPECT_SUCCESS(scan_log(&root));
    }
    void scan(const strings &lines) {
        configure(lines);
        scan();
    }

    const devtree *log() const { return root.children; }

    // The ids on the way to each check and to each group without any, joined by " > ", in order.
    static void collect(const devtree *group, const string &above, strings *out) {
        if (group->devices == nullptr && group->children == nullptr) out->push_back(above + "(none)");
        for (const devnode *device = group->devices; device != nullptr; device = device->next)
            out->push_back(above + device->id);
        for (const devtree *child = group->children; child != nullptr; child = child->next)
            collect(child, above + child->id + " > ", out);
    }
    strings offered() const {
        strings all;
        collect(log(), "", &all);
        EXPECT_EQ(all.back(), "/forward > (none)");
        std::erase(all, "/forward > (none)");
        return all;
    }
    strings sorted() const {
        strings all = offered();
        std::sort(all.begin(), all.end());
        return all;
    }
};

} // namespace

struct log_scan : testing::Test, scan_world {
    log_scan() : scan_world(DRIVE_PATHS) {}
};

struct log_scan_of_a_root : testing::Test, scan_world {
    log_scan_of_a_root() : scan_world(ROOT_PATHS) {}
};

// What holds for paths of any style. They are told as "/a/b".
struct log_scan_of_any_style : testing::TestWithParam<bool>, scan_world {
    log_scan_of_any_style() : scan_world(GetParam() ? DRIVE_PATHS : ROOT_PATHS) {}

    string path(string text) const {
        if (!GetParam()) return text;
        std::replace(text.begin(), text.end(), '/', '\\');
        return "C:" + text;
    }
    void add(const string &text, memory_folders::entry_kind kind = memory_folders::PLAIN_FILE) {
        disk.add(path(text), kind);
    }
    void scan_paths(strings lines) {
        for (string &line : lines)
            line = path(line);
        scan(lines);
    }
    // The checks as "/a/b", sorted.
    strings paths() const {
        strings all = sorted();
        for (string &one : all) {
            string top = GetParam() ? "C: > " : "/ > ";
            EXPECT_TRUE(one.starts_with(top)) << one;
            one = "/" + one.substr(top.size());
            for (size_t at; (at = one.find(" > ")) != string::npos;)
                one.replace(at, 3, "/");
        }
        return all;
    }
};

INSTANTIATE_TEST_SUITE_P(paths, log_scan_of_any_style, testing::Bool(), [](const auto &test) {
    return test.param ? string("of_drives") : string("of_a_root");
});

// ---- the file of lines

TEST_F(log_scan, tells_that_there_is_no_file_and_offers_the_forward_group) {
    heap_free(config.log_chk_conf);
    config.log_chk_conf = nullptr;
    the_host->blocks = 0;
    scan();
    EXPECT_TRUE(host.logged(LOG_NORMAL, "No log check configuration"));
    EXPECT_EQ(offered(), strings{});
    ASSERT_NE(log()->children, nullptr);
    EXPECT_STREQ(log()->children->id, "/forward");
    EXPECT_STREQ(log()->children->name, "Forward LogChecks");
    EXPECT_STREQ(log()->children->name_template, "Forward LogCheck %0r");
    EXPECT_EQ(log()->children->devices, nullptr);
}

TEST_F(log_scan, names_its_group) {
    scan({"C:\\a.log"});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Read new log check configuration"));
    EXPECT_STREQ(log()->id, "log");
    EXPECT_STREQ(log()->name, "Log checks");
    EXPECT_STREQ(log()->name_template, "Log check %c,1l,\\,0r,");
    EXPECT_EQ(log()->group_flags, 0U);
    EXPECT_EQ(log()->next, nullptr);
}

TEST_F(log_scan, keeps_the_old_lines_where_the_file_is_bad) {
    scan({"C:\\a.log"});
    scan({"nonsense"});
    EXPECT_TRUE(
        host.logged(LOG_ERROR, "Unable to read new log check configuration! Keeping old configuration"));
    EXPECT_EQ(host.count_logged("Read new log check configuration"), 1);
    EXPECT_EQ(offered(), strings{"C: > a.log"});
}

TEST_F(log_scan, keeps_the_old_lines_where_the_file_has_only_comments_or_is_gone) {
    scan({"C:\\a.log"});
    scan({"# nothing"});
    EXPECT_EQ(offered(), strings{"C: > a.log"});
    host.files.erase(CONF);
    scan();
    EXPECT_EQ(offered(), strings{"C: > a.log"});
    EXPECT_EQ(host.count_logged("Keeping old configuration"), 2);
}

TEST_F(log_scan, forgets_the_old_lines_for_a_file_that_reads_well) {
    scan({"C:\\a.log"});
    scan({"C:\\b.log"});
    EXPECT_EQ(offered(), strings{"C: > b.log"});
}

TEST_F(log_scan, goes_on_with_the_lines_in_force_when_there_is_no_file_any_more) {
    scan({"C:\\a.log"});
    char *path = config.log_chk_conf;
    config.log_chk_conf = nullptr;
    scan();
    config.log_chk_conf = path;
    EXPECT_EQ(offered(), strings{"C: > a.log"});
}

// ---- the checks

TEST_F(log_scan, offers_a_check_of_a_log) {
    scan({"C:\\logs\\app.log"});
    const devnode *device = log()->children->children->devices;
    EXPECT_STREQ(device->id, "app.log");
    EXPECT_STREQ(device->name, "app.log");
    EXPECT_STREQ(device->comment, "app.log");
    EXPECT_STREQ(device->unit, "");
    EXPECT_EQ(device->type, 9U);
    EXPECT_EQ(device->description, 20U);
    EXPECT_EQ(device->limits.hint.hint_present, 0U);
    EXPECT_EQ(device->state, nullptr);
    EXPECT_STREQ(device->parent->id, "logs");
    EXPECT_STREQ(device->parent->name, "logs");
}

TEST_P(log_scan_of_any_style, offers_a_plain_name_that_does_not_exist_and_looks_at_nothing) {
    scan_paths({"/logs/app.log"});
    EXPECT_EQ(paths(), strings{"/logs/app.log"});
    EXPECT_EQ(disk.listed, strings{});
    EXPECT_EQ(disk.looked_at, strings{});
}

TEST_P(log_scan_of_any_style, offers_below_a_wildcard_only_what_exists) {
    add("/logs/a/app.log");
    add("/logs/b/other.log");
    add("/logs/plain");
    scan_paths({"/logs/*/app.log"});
    EXPECT_EQ(paths(), (strings{"/logs/a/app.log", "/logs/plain"}));
}

TEST_P(log_scan_of_any_style, takes_a_file_in_the_middle_of_a_line_and_leaves_a_folder_at_its_end) {
    add("/logs/file.d");
    add("/logs/folder.d/file");
    add("/logs/x.d", memory_folders::FOLDER);
    scan_paths({"/logs/*.d"});
    EXPECT_EQ(paths(), strings{"/logs/file.d"});
}

TEST_P(log_scan_of_any_style, finds_files_at_all_depths_below_the_marker) {
    add("/logs/a.log");
    add("/logs/1/b.log");
    add("/logs/1/2/3/c.log");
    add("/logs/1/2/3/c.txt");
    add("/logs/empty/1", memory_folders::FOLDER);
    scan_paths({"/logs/**/*.log"});
    EXPECT_EQ(paths(), (strings{"/logs/1/2/3/c.log", "/logs/1/b.log", "/logs/a.log"}));
}

TEST_P(log_scan_of_any_style, takes_at_least_one_folder_for_the_marker_where_a_folder_follows) {
    add("/logs/sub/x.log");
    add("/logs/sub/sub/x.log");
    add("/logs/1/2/sub/x.log");
    scan_paths({"/logs/**/sub/x.log"});
    EXPECT_EQ(paths(), (strings{"/logs/1/2/sub/x.log", "/logs/sub/sub/x.log"}));
}

TEST_P(log_scan_of_any_style, takes_a_file_of_the_name_behind_the_marker_for_a_log) {
    add("/logs/1/sub");
    scan_paths({"/logs/**/sub/x.log"});
    EXPECT_EQ(paths(), strings{"/logs/1/sub"});
}

TEST_P(log_scan_of_any_style, takes_every_file_below_two_markers) {
    add("/logs/y");
    add("/logs/1/x");
    add("/logs/1/2/3/x");
    add("/logs/1/2/3/y");
    scan_paths({"/logs/**/**/x"});
    EXPECT_EQ(paths(), (strings{"/logs/1/2/3/x", "/logs/1/2/3/y", "/logs/1/x", "/logs/y"}));
}

// One way through the markers is as good as another; all of them would be without end.
TEST_P(log_scan_of_any_style, lists_a_folder_a_few_times_however_many_markers_lead_to_it) {
    string folder = "/";
    for (int i = 0; i < 40; i++)
        folder += "d/";
    add(folder + "x.log");
    scan_paths({"/**/**/**/**/**/**/x.log"});
    EXPECT_EQ(paths(), strings{folder + "x.log"});
    EXPECT_LE(disk.listed.size(), 41U * 6);
}

TEST_P(log_scan_of_any_style, joins_lines_that_reach_the_same_folder) {
    add("/logs/c.txt");
    scan_paths({"/logs/a.log", "/logs/b.log", "/logs/*.txt"});
    EXPECT_EQ(paths(), (strings{"/logs/a.log", "/logs/b.log", "/logs/c.txt"}));
    EXPECT_STREQ(log()->children->next->id, "/forward");
    EXPECT_EQ(log()->children->children->next, nullptr);
}

TEST_P(log_scan_of_any_style, offers_a_file_that_several_lines_name_once) {
    add("/logs/a.log");
    scan_paths({"/logs/a.log", "/logs/a.log", "/logs/*.log", "/logs/**/a.*"});
    EXPECT_EQ(paths(), strings{"/logs/a.log"});
}

TEST_P(log_scan_of_any_style, leaves_no_trace_of_folders_without_logs) {
    add("/logs/1/2/x.txt");
    add("/logs/3", memory_folders::FOLDER);
    scan_paths({"/logs/**/*.log", "/logs/*/*/*.log"});
    EXPECT_EQ(log()->children->next, nullptr) << "nothing but the forward group";
    EXPECT_EQ(offered(), strings{});
}

TEST_P(log_scan_of_any_style, goes_on_behind_a_folder_that_cannot_be_listed) {
    add("/logs/closed/a.log");
    add("/logs/open/a.log");
    disk.broken[path("/logs/closed/")] = 5;
    scan_paths({"/logs/*/*.log"});
    EXPECT_EQ(paths(), strings{"/logs/open/a.log"});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Error scanning \"" + path("/logs/closed/") + "\": 5"));
}

TEST_P(log_scan_of_any_style, tells_a_missing_folder) {
    scan_paths({"/missing/*.log"});
    EXPECT_EQ(offered(), strings{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Error scanning \"" + path("/missing/") + "\": 2"));
}

TEST_P(log_scan_of_any_style, ignores_what_is_no_file_where_a_file_must_exist) {
    add("/logs/1/app.log", memory_folders::DEVICE);
    add("/logs/2/app.log/x");
    add("/logs/3/app.log", memory_folders::LINK_TO_FILE);
    scan_paths({"/logs/*/app.log"});
    EXPECT_EQ(paths(), strings{"/logs/3/app.log"});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Ignoring non-file part \"app.log\""));
    EXPECT_EQ(host.count_logged("Ignoring non-file part"), 2);
}

TEST_P(log_scan_of_any_style, ignores_a_listed_file_that_is_no_file_or_gone) {
    add("/logs/a.log", memory_folders::DEVICE);
    add("/logs/b.log");
    add("/logs/c.log");
    disk.broken[path("/logs/b.log")] = 2;
    scan_paths({"/logs/*.log"});
    EXPECT_EQ(paths(), strings{"/logs/c.log"});
}

TEST_P(log_scan_of_any_style, neither_enters_nor_takes_a_link_to_a_folder_below_the_marker) {
    add("/logs/loop", memory_folders::LINK_TO_FOLDER);
    add("/logs/loop/x.log");
    disk.folders[path("/logs/")]["loop"] = memory_folders::LINK_TO_FOLDER;
    add("/logs/a.log", memory_folders::LINK_TO_FILE);
    scan_paths({"/logs/**/*"});
    EXPECT_EQ(paths(), (strings{"/logs/a.log"}));
}

TEST_P(log_scan_of_any_style, takes_a_link_to_a_folder_for_a_folder_below_a_star) {
    add("/logs/current/x.log");
    disk.folders[path("/logs/")]["current"] = memory_folders::LINK_TO_FOLDER;
    scan_paths({"/logs/*/x.log"});
    EXPECT_EQ(paths(), strings{"/logs/current/x.log"});
}

TEST_P(log_scan_of_any_style, folds_the_case_of_wildcards) {
    add("/logs/A.LOG");
    scan_paths({"/logs/?.log"});
    EXPECT_EQ(paths(), strings{"/logs/A.LOG"});
}

TEST_P(log_scan_of_any_style, lists_the_first_folder_itself) {
    add("/x.log");
    add("/a/y.log");
    scan_paths({"/**/*.log"});
    EXPECT_EQ(paths(), (strings{"/a/y.log", "/x.log"}));
    EXPECT_EQ(disk.listed[0], path("/"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Will scan \"" + path("/") + "*\" for part \"**\""));
}

TEST_F(log_scan, offers_a_drive_alone_as_a_file) {
    scan({"C:"});
    EXPECT_EQ(offered(), strings{"C:"});
}

TEST_F(log_scan_of_a_root, offers_the_root_alone_as_a_file) {
    scan({"/"});
    EXPECT_EQ(offered(), strings{"/"});
}

TEST_F(log_scan_of_a_root, leaves_a_name_out_that_the_wire_does_not_take) {
    string fits(128, 'a');
    string too_long(129, 'b');
    scan({"/logs/" + fits, "/logs/" + too_long});
    EXPECT_EQ(offered(), strings{"/ > logs > " + fits});
    EXPECT_TRUE(host.logged(LOG_WARNING, "Log name too long: " + too_long));
}

TEST_F(log_scan, joins_folders_whose_names_differ_in_case) {
    scan({"C:\\Logs\\a.log", "c:\\logs\\b.log"});
    EXPECT_EQ(sorted(), (strings{"c: > logs > a.log", "c: > logs > b.log"}));
}

TEST_F(log_scan_of_a_root, keeps_folders_apart_whose_names_differ_in_case) {
    scan({"/Logs/a.log", "/logs/a.log"});
    EXPECT_EQ(sorted(), (strings{"/ > Logs > a.log", "/ > logs > a.log"}));
}

TEST_F(log_scan_of_a_root, walks_below_the_root_without_a_second_slash) {
    disk.add("/var/log/x.log");
    scan({"/var/*/*.log"});
    EXPECT_EQ(disk.listed, (strings{"/var/", "/var/log/"}));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Entering recursive fs scan with cwd \"/\""));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Entering recursive fs scan with cwd \"/var/\""));
}

// Kind and strictness are those of the line that is looked at first, which is the last one of the file.
TEST_F(log_scan, takes_a_name_that_is_file_and_folder_as_the_last_line_says) {
    scan({"C:\\a\\b", "C:\\a"});
    EXPECT_EQ(offered(), strings{"C: > a"});
    scan({"C:\\a", "C:\\a\\b"});
    EXPECT_EQ(offered(), strings{"C: > a > b"});
}

TEST_F(log_scan, offers_folders_in_the_order_in_which_they_stand_in_the_list) {
    scan({"C:\\1\\x", "C:\\2\\x", "C:\\3\\x"});
    EXPECT_EQ(offered(), (strings{"C: > 1 > x", "C: > 2 > x", "C: > 3 > x"}));
}

TEST_F(log_scan, puts_each_check_in_front_of_the_others) {
    scan({"C:\\1", "C:\\2", "C:\\3"});
    EXPECT_EQ(offered(), (strings{"C: > 3", "C: > 2", "C: > 1"}));
}

// ---- event logs

TEST_F(log_scan, offers_every_event_log_for_any_wildcard) {
    for (const char *name : {"", "\\Application", "\\System", "\\System\\Below", "\\Security"})
        registry.keys[{MACHINE_HIVE, EVENT_LOGS + string(name)}];
    for (const char *line : {"eventlog:*", "eventlog:Sys?em", "eventlog:**", "eventlog:nothing*"}) {
        scan({line});
        EXPECT_EQ(sorted(), (strings{"eventlog > Application", "eventlog > Security", "eventlog > System"}))
            << line;
    }
    const devtree *group = log()->children;
    EXPECT_STREQ(group->name, "eventlog");
    EXPECT_STREQ(group->name_template, "Eventlog %0r");
    EXPECT_EQ(group->devices->type, 9U);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Adding eventlog part \"System\""));
}

TEST_F(log_scan, offers_an_event_log_without_a_wildcard_as_a_file) {
    scan({"eventlog:System"});
    EXPECT_EQ(offered(), strings{"System"});
    EXPECT_EQ(registry.open_keys, 0);
}

TEST_F(log_scan, tells_that_the_key_of_event_logs_cannot_be_opened) {
    scan({"eventlog:*"});
    EXPECT_EQ(offered(), strings{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open event log registry key (error 2)"));
}

TEST_F(log_scan, tells_that_event_logs_cannot_be_listed_and_keeps_those_it_has) {
    registry.keys[{MACHINE_HIVE, EVENT_LOGS}];
    registry.keys[{MACHINE_HIVE, EVENT_LOGS + string("\\System")}];
    registry.keys[{MACHINE_HIVE, EVENT_LOGS + string("\\Zone")}];
    registry.broken = "enum_key";
    registry.broken_at = 2;
    scan({"eventlog:*"});
    EXPECT_EQ(offered(), strings{"eventlog > System"});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to enumerate event log sources (error 5)"));
}

TEST_F(log_scan, says_nothing_at_the_end_of_the_event_logs) {
    registry.keys[{MACHINE_HIVE, EVENT_LOGS}];
    scan({"eventlog:*"});
    EXPECT_EQ(host.count_logged("Unable to enumerate"), 0);
    EXPECT_EQ(offered(), strings{});
}

TEST_F(log_scan, reads_the_key_of_event_logs_with_the_right_to_list) {
    static registry_access asked;
    registry_ops ops = scripted_registry::ops;
    ops.RegOpenKeyExA = [](registry_hive, const char *, registry_access access, registry_key **) {
        asked = access;
        return uint32_t{5};
    };
    registry_host = &ops;
    scan({"eventlog:*"});
    EXPECT_EQ(asked, REGISTRY_READ);
}

TEST_F(log_scan_of_a_root, finds_no_event_logs_where_the_host_has_none) {
    registry_ops without = scripted_registry::ops;
    without.RegEnumKeyExA = nullptr;
    registry_host = &without;
    scan({"eventlog:*", "/x.log"});
    EXPECT_EQ(offered(), strings{"/ > x.log"});
    EXPECT_EQ(host.count_logged("event log"), 0);
}

// ---- what is traced

TEST_F(log_scan, traces_a_level_of_plain_names) {
    scan({"C:\\a\\x.log"});
    const strings expected = {
        "Read new log check configuration",
        "Entering recursive fs scan with cwd \"\"",
        "In cwd \"\" will consider part \"C:\"",
        "C: -> a -> x.log",
        "Inserting part as non-wildcard match:",
        "C: -> a -> x.log",
        "In cwd \"\" - finished actual scan.",
        "Adding path part \"C:\"",
        "Matching line list ---------------",
        "a -> x.log",
        "End of matching line list --------",
        "Entering recursive fs scan with cwd \"C:\\\"",
        "In cwd \"C:\\\" will consider part \"a\"",
        "a -> x.log",
        "Inserting part as non-wildcard match:",
        "a -> x.log",
        "In cwd \"C:\\\" - finished actual scan.",
        "Adding path part \"a\"",
        "Matching line list ---------------",
        "x.log",
        "End of matching line list --------",
        "Entering recursive fs scan with cwd \"C:\\a\\\"",
        "In cwd \"C:\\a\\\" will consider part \"x.log\"",
        "x.log",
        "Inserting part as non-wildcard match:",
        "x.log",
        "In cwd \"C:\\a\\\" - finished actual scan.",
        "No strict file match enforcement on \"x.log\"",
        "Adding file part \"x.log\"",
        "Leaving recursive fs scan from cwd \"C:\\a\\\"",
        "Leaving recursive fs scan from cwd \"C:\\\"",
        "Leaving recursive fs scan from cwd \"\"",
    };
    EXPECT_EQ(host.told(), expected);
    for (size_t i = 1; i < host.log.size(); i++)
        EXPECT_EQ(host.log[i].level, LOG_TRACE) << host.log[i].text;
}

TEST_F(log_scan, traces_wildcards) {
    disk.add("C:\\one.log");
    disk.add("C:\\dir\\x");
    scan({"C:\\*\\x"});
    EXPECT_TRUE(host.logged(LOG_TRACE, "\"*\" contains wildcard"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Will scan \"C:\\*\" for part \"*\""));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Entry \"one.log\" matched \"*\""));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Inserting part \"dir\"(\"*\")->\"x\" as wildcard match"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Accepted file part \"x\" because it exists"));
    EXPECT_EQ(host.count_logged("Entry \".\""), 0);
    EXPECT_EQ(host.count_logged("Entry \"..\""), 0);
}

TEST_F(log_scan, traces_the_end_of_a_chain) {
    disk.add("C:\\one.log");
    scan({"C:\\*"});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Inserting part \"one.log\"(\"*\")->\"(null)\" as wildcard match"));
}

TEST_F(log_scan, traces_the_marker) {
    disk.add("C:\\one.log");
    disk.add("C:\\dir", memory_folders::FOLDER);
    scan({"C:\\**\\*.log"});
    EXPECT_TRUE(host.logged(LOG_TRACE, "\"**\" is a recdir wildcard"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Inserting empty match for \"dir\""));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Inserting part \"dir\"(\"**\")->\"*.log\" as wildcard match"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Inserting part \"one.log\"(\"**\")->\"*.log\" as recdir file match"));
    EXPECT_EQ(host.count_logged("contains wildcard"), 1) << "that of dir";
}

TEST_F(log_scan, traces_a_file_that_must_exist_and_does_not) {
    disk.add("C:\\dir", memory_folders::FOLDER);
    scan({"C:\\*\\x"});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Unable to open file part \"x\" (2) -> ignoring"));
}

// ---- failures

TEST_F(log_scan, tells_a_folder_that_has_left_the_tree) {
    disk.add("C:\\x");
    devtree *taken = nullptr;
    disk.when_listing = [&](const string &) {
        taken = root.children->children;
        root.children->children = nullptr;
    };
    scan({"C:\\*.log"});
    EXPECT_TRUE(host.logged(LOG_WARNING, "Could not find log node \"C:\""));
    free_devtree(taken);
}

// One scan after the other without its n-th block, until there is none.
struct log_scan_without_memory : log_scan {
    static constexpr const char *NO_GROUP = "Couldn't allocate devtree_child mem";

    // Whether the scan was told, or has told, what it had no memory for.
    bool scan_without(uint32_t block) {
        free_devtree(root.children);
        root.children = nullptr;
        size_t before = host.log.size();
        host.fail_allocation = block;
        try {
            std::string failure = noted_failure(scan_log(&root));
            if (failure == NO_GROUP) return true;
            EXPECT_EQ(failure, "(none)");
        } catch (const process_ended &) {
            return host.logged(LOG_ERROR, "Fatal error: alloc_devnode() ran out of memory!");
        }
        for (size_t i = before; i < host.log.size(); i++)
            if (host.log[i].level == LOG_ERROR || host.log[i].text.find(NO_GROUP) != string::npos)
                return true;
        return false;
    }
};

TEST_F(log_scan_without_memory, tells_what_it_leaves_out_and_goes_on) {
    disk.add("C:\\dir\\x.log");
    configure({"C:\\**\\*.log"});
    scan();
    for (uint32_t block = 1;; block++) {
        bool told = scan_without(block);
        if (host.fail_allocation != 0) break;
        EXPECT_TRUE(told) << "block " << block;
    }
    host.fail_allocation = 0;
    for (const char *text : {
             "Out of memory when copying log check node chain",
             "Out of memory attempting to allocate match component for \"dir\"",
             "Out of memory attempting to allocate match component for \"x.log\"",
             "Out of memory, allocating new log check node list entry",
             "Out of memory constructing new cwd for scan",
         })
        EXPECT_TRUE(host.logged(LOG_ERROR, text)) << text;
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Error \"Couldn't allocate devtree_child mem\" scanning \"C:\\\""));
    EXPECT_EQ(offered(), strings{"C: > dir > x.log"});
}

// The group of logs and that of forwarding are asked for by the scan itself.
TEST_F(log_scan_without_memory, fails_for_its_own_groups) {
    char *path = config.log_chk_conf;
    config.log_chk_conf = nullptr;
    for (uint32_t block = 1; block <= 6; block++) { // a group, its id, its name
        free_devtree(root.children);
        root.children = nullptr;
        host.fail_allocation = block;
        EXPECT_FAILURE(scan_log(&root), NO_GROUP);
    }
    config.log_chk_conf = path;
}

TEST_F(log_scan_without_memory, offers_the_folders_behind_one_that_it_has_no_group_for) {
    disk.add("C:\\1\\x.log");
    disk.add("C:\\2\\x.log");
    configure({"C:\\*\\x.log"});
    strings found;
    for (uint32_t block = 1; found != strings{"C: > 1 > x.log"}; block++) {
        scan_without(block);
        ASSERT_EQ(host.fail_allocation, 0U) << "no block makes that difference";
        found.clear();
        if (log() != nullptr) collect(log(), "", &found);
        std::erase(found, "/forward > (none)");
    }
}

// ---- size

// A folder below a folder, without end but for what the paths can hold.
TEST_F(log_scan_of_a_root, walks_thousands_of_levels) {
    const size_t deepest = 2500;
    string folder = "/";
    for (size_t i = 0; i < deepest; i++) {
        disk.folders[folder]["d"] = memory_folders::FOLDER;
        folder += "d/";
    }
    disk.folders[folder]["x.log"] = memory_folders::PLAIN_FILE;
    log_set_level(LOG_NORMAL);
    scan({"/**/x.log"});
    size_t depth = 0;
    const devtree *group = log()->children;
    for (; group->children != nullptr; group = group->children)
        depth++;
    EXPECT_EQ(depth, deepest);
    EXPECT_STREQ(group->devices->id, "x.log");
}

TEST_F(log_scan_of_a_root, walks_wide_folders) {
    for (int i = 0; i < 20000; i++) {
        disk.folders["/"]["f" + std::to_string(i)] = memory_folders::PLAIN_FILE;
        disk.add("/d" + std::to_string(i) + "/f");
    }
    log_set_level(LOG_NORMAL);
    scan({"/**/f*"});
    EXPECT_EQ(devtree_count_checks(log()), 20000U) << "f* wants one character more";
}
