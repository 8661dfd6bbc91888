#include "probes/os/perf_browse.h"

#include "fakes/notes.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/perf_counter.h"
#include "probes/os/scripted_counters.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using names = std::vector<std::string>;

// A host that speaks German, with an object of either kind.
struct browse : testing::Test {
    test_host host;
    scripted_counters counters;
    devtree root = {};

    browse() {
        counters.add(2, "System", "System");
        counters.add(44, "Threads", "Threads");
        counters.add(146, "Context Switches/sec", "Kontextwechsel/s");
        counters.add(230, "Process", "Prozess");
        counters.add(6, "% Processor Time", "Prozessorzeit (%)");
        counters.objects = {
            {"System", {.counters = {"Threads", "Kontextwechsel/s"}, .instances = {}}},
            {"Prozess", {.counters = {"Threads", "Prozessorzeit (%)"}, .instances = {"a", "b"}}}};
    }
    ~browse() override { free_devtree(root.children); }

    const devtree *object(const char *id) const {
        const devtree *group = root.children != nullptr ? root.children->children : nullptr;
        while (group != nullptr && !text_equal(group->id, id))
            group = group->next;
        return group;
    }
    static names groups_of(const devtree *group) {
        names ids;
        for (const devtree *child = group->children; child != nullptr; child = child->next)
            ids.emplace_back(child->id);
        return ids;
    }
    static names ids_of(const devtree *group) {
        names ids;
        for (const devnode *device = group->devices; device != nullptr; device = device->next)
            ids.emplace_back(device->id);
        return ids;
    }
};

using browse_lists = browse;
using browse_counters = browse;

} // namespace

TEST_F(browse, offers_objects_with_and_without_instances) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    const devtree *family = root.children;
    EXPECT_STREQ(family->id, "perf");
    EXPECT_STREQ(family->name, "Performance Counters");
    note_text("Performance Counters");
    EXPECT_EQ(family->name_template, nullptr);
    EXPECT_EQ(family->group_flags, 0U);
    EXPECT_EQ(family->next, nullptr);
    EXPECT_EQ(groups_of(family), (names{"System", "Process"}));

    const devtree *system = object("System");
    EXPECT_STREQ(system->name, "System");
    EXPECT_STREQ(system->name_template, "Performance counter \\%1l\\%2l");
    note_text("Performance counter \\%1l\\%2l");
    EXPECT_EQ(system->group_flags, 0U);
    EXPECT_EQ(ids_of(system), (names{"Context Switches/sec", "Threads"})) << "the last one first";

    const devtree *process = object("Process");
    EXPECT_STREQ(process->name, "Process");
    EXPECT_STREQ(process->name_template, "Performance counter \\%1l(%2l)\\%3l");
    note_text("Performance counter \\%1l(%2l)\\%3l");
    EXPECT_EQ(process->group_flags, GROUP_OF_INSTANCES);
    EXPECT_EQ(process->devices, nullptr);
    EXPECT_EQ(groups_of(process), (names{"a", "b"}));
    EXPECT_STREQ(process->children->name, "a");
    EXPECT_EQ(process->children->name_template, nullptr);
    EXPECT_EQ(process->children->group_flags, 0U);
    EXPECT_EQ(ids_of(process->children), (names{"% Processor Time", "Threads"}));
}

TEST_F(browse, tells_each_counter_on_the_wire) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    const devnode *device = object("System")->devices;
    EXPECT_EQ(device->name, nullptr);
    EXPECT_STREQ(device->comment, "");
    EXPECT_EQ(device->type, TYPE_REAL_CONTINUOUS);
    EXPECT_STREQ(device->unit, "/s");
    EXPECT_EQ(device->description, 19U);
    EXPECT_EQ(device->limits.hint.hint_present, 0U);
}

TEST_F(browse, opens_each_counter_once_under_its_national_path) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(counters.added, (names{"\\System\\Threads", "\\System\\Kontextwechsel/s",
                                     "\\Prozess(a)\\Threads", "\\Prozess(a)\\Prozessorzeit (%)",
                                     "\\Prozess(b)\\Threads", "\\Prozess(b)\\Prozessorzeit (%)"}));
    EXPECT_EQ(counters.collections, 0);
}

TEST_F(browse, tells_what_it_walks) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    for (const char *line : {"In scan_perfcnts, detail level=200", "Object  : System", "Object  : Prozess",
                             "Instance:   a", "Counter :     Threads, /s, type=0x10410500"})
        EXPECT_TRUE(host.logged(LOG_TRACE, line)) << line;
}

TEST_F(browse, numbers_instances_of_one_name) {
    counters.objects[1].second.instances = {"a", "a", "b", "a"};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(groups_of(object("Process")), (names{"a", "a#1", "b", "a#2"}));
    EXPECT_EQ(counters.added.back(), "\\Prozess(a#2)\\Prozessorzeit (%)");
}

TEST_F(browse, cuts_the_names_of_instances) {
    std::string name(300, 'x');
    counters.objects[1].second.instances = {name, name, std::string(126, 'y'), std::string(126, 'y')};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(groups_of(object("Process")),
              (names{std::string(127, 'x'), std::string(126, 'y'), std::string(126, 'y') + "#"}))
        << "two of one cut name share a group";
}

TEST_F(browse, takes_names_of_any_bytes) {
    counters.objects[1].second.instances = {"(\"x\")\\", "\xFC \xFF", "a\nb"};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(groups_of(object("Process")), (names{"(\"x\")\\", "\xFC \xFF", "a\nb"}));
}

TEST_F(browse, leaves_no_group_for_an_object_without_counters) {
    counters.objects[0].second.counters.clear();
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(groups_of(root.children), names{"Process"});
}

TEST_F(browse, leaves_no_family_where_no_object_has_counters) {
    for (auto &[name, items] : counters.objects)
        items.counters.clear();
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(browse, makes_the_family_for_counters_that_do_not_open) {
    counters.items_open = false;
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_STREQ(root.children->id, "perf");
    EXPECT_EQ(root.children->children, nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Counter :     Kontextwechsel/s, PdhAddCounter() failed"));
}

TEST_F(browse, leaves_no_group_for_an_instance_whose_counters_do_not_open) {
    counters.closed = {"\\Prozess(a)\\Threads", "\\Prozess(a)\\Prozessorzeit (%)", "\\Prozess(b)\\Threads"};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(groups_of(object("Process")), names{"b"});
    EXPECT_EQ(object("Process")->group_flags, GROUP_OF_INSTANCES);
    EXPECT_EQ(ids_of(object("Process")->children), names{"% Processor Time"});
}

TEST_F(browse, keeps_national_names_that_have_no_english_ones) {
    counters.objects = {{"Fremd", {.counters = {"Zeit", "Threads"}, .instances = {}}},
                        {"Fremde", {.counters = {"Threads"}, .instances = {"i"}}}};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(groups_of(root.children), (names{"Fremd", "Fremde"}));
    EXPECT_STREQ(object("Fremd")->name, "Fremd");
    EXPECT_EQ(ids_of(object("Fremd")), (names{"Threads", "Zeit"}));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Creating counter with national name : Zeit"));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Creating object with national name : Fremd"));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Creating object with national name : Fremde"));
    root.children->parent = nullptr; // as in the tree that a server sends
    resnode result = {};
    EXPECT_FAILURE(check_perfcnt(object("Fremd")->devices->next, &result), "Error creating new counter");
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"Fremd\": not found"));
}

TEST_F(browse, cuts_a_national_name_at_what_the_wire_takes) {
    std::string fits(128, 'z');
    counters.objects = {{"Fremd", {.counters = {fits, fits + "y"}, .instances = {}}}};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(ids_of(object("Fremd")), (names{fits, fits}));
}

TEST_F(browse, offers_what_its_check_can_read) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    root.children->parent = nullptr; // as in the tree that a server sends
    resnode result = {};
    EXPECT_SUCCESS(check_perfcnt(object("System")->devices, &result));
    EXPECT_EQ(counters.added.back(), "\\System\\Kontextwechsel/s");
    EXPECT_SUCCESS(check_perfcnt(object("Process")->children->devices, &result));
    EXPECT_EQ(counters.added.back(), "\\Prozess(a)\\Prozessorzeit (%)");
    EXPECT_EQ(result.real_value, 50);
    EXPECT_EQ(result.value, 0);
}

// The lists.

TEST_F(browse_lists, are_asked_for_at_the_level_of_the_settings_and_refreshed_once) {
    counters.config.perf_cnt_level = 300;
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(counters.details, std::vector<uint32_t>(6, 300));
    EXPECT_EQ(counters.refreshes, (std::vector<bool>{true, false}));
    EXPECT_EQ(counters.enumerated, (names{"System", "System", "Prozess", "Prozess"}));
}

TEST_F(browse_lists, end_the_scan_where_there_is_none_of_objects) {
    counters.object_statuses = {PDH_FUNCTION_NOT_FOUND};
    EXPECT_FAILURE(scan_perfcnts(&root),
                   "Error getting size for performance counter objects: system error 3221228478");
    counters.object_statuses = {PDH_MORE_DATA, 5};
    EXPECT_FAILURE(scan_perfcnts(&root), "Error retrieving the performace counter objects: system error 5");
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(browse_lists, may_be_sized_with_success) {
    counters.object_statuses = {PDH_OK};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_NE(root.children, nullptr);
}

static uint32_t no_objects(char *, uint32_t *size, uint32_t, bool) {
    *size = 0;
    return PDH_OK;
}

TEST_F(browse_lists, of_no_size_hold_no_objects) {
    perf_counter_ops ops = scripted_counter_ops;
    ops.PdhEnumObjectsA = no_objects;
    perf_counter_host = &ops;
    EXPECT_FAILURE(scan_perfcnts(&root), "No performance counter objects found (objsize == 0)");
}

static uint32_t no_items(const char *, char *, uint32_t *, char *, uint32_t *, uint32_t) {
    return PDH_CSTATUS_NO_OBJECT;
}

TEST_F(browse_lists, that_do_not_come_are_empty) {
    perf_counter_ops ops = scripted_counter_ops;
    ops.PdhEnumObjectItemsA = no_items;
    perf_counter_host = &ops;
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_TRUE(host.logged(LOG_TRACE, "counter_size is zero, setting to 1"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "instance_size is zero, setting to 1"));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(browse_lists, are_read_whatever_their_statuses_say) {
    counters.item_statuses = {5, 6, 7, 8};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(groups_of(root.children), (names{"System", "Process"}));
}

TEST_F(browse_lists, tell_when_memory_is_out) {
    EXPECT_SUCCESS(scan_perfcnts(&root)); // the table of names is there from now on
    host.fail_allocation = 1;
    EXPECT_FAILURE(scan_perfcnts(&root), "Out of memory in scan_perfcnts");
    host.fail_allocation = 2;
    EXPECT_FAILURE(scan_perfcnts(&root), "Out of memory for counters in scan_perfcnts");
    host.fail_allocation = 3;
    EXPECT_FAILURE(scan_perfcnts(&root), "Out of memory for instances in scan_perfcnts");
}

namespace {

// Keeps the blocks of what is under way, so that they can go where the process would.
std::set<void *> living;
const heap_ops *heap_below;

void *allocate_noted(size_t size) {
    void *block = heap_below->allocate(size);
    if (block != nullptr) living.insert(block);
    return block;
}

void release_noted(void *block) {
    living.erase(block);
    heap_below->release(block);
}

constexpr heap_ops NOTED_HEAP = {.allocate = allocate_noted, .release = release_noted};

} // namespace

// The allocators of the tree end the process, and what was being built with it; all else is freed.
TEST_F(browse_lists, lose_nothing_when_memory_is_out_anywhere) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    int survived = 0;
    bool through = false;
    heap_below = heap_host;
    heap_host = &NOTED_HEAP;
    for (uint32_t n = 1; n < 1000 && !through; n++) {
        devtree some = {};
        host.fail_allocation = n;
        try {
            static_cast<void>(scan_perfcnts(&some));
            free_devtree(some.children);
            EXPECT_TRUE(living.empty()) << n;
            survived++;
        } catch (const process_ended &) {
            for (void *block : living)
                heap_below->release(block);
            living.clear();
            counters.queries = 0;
            counters.counters = 0;
        }
        through = host.fail_allocation != 0;
        host.fail_allocation = 0;
    }
    heap_host = heap_below;
    EXPECT_TRUE(through);
    EXPECT_GT(survived, 10);
}

// Counters.

TEST_F(browse_counters, need_a_query) {
    counters.open_status = 5;
    EXPECT_EQ(retrieve_counters("Threads\0", "System", nullptr), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error creating query in retrieve_counters"));
}

TEST_F(browse_counters, are_offered_without_a_unit_where_their_description_cannot_be_had) {
    counters.info_statuses = {PDH_MORE_DATA, PDH_INVALID_ARGUMENT};
    devnode_guard found(retrieve_counters("Threads\0", "System", nullptr));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->unit, nullptr);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Error retrieving unit for PerfCnt: system error 3221228477"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Counter :     Threads, , type=0x00000000"));
}

static uint32_t no_description(pdh_counter *, uint32_t *, void *) {
    return PDH_FUNCTION_NOT_FOUND;
}

TEST_F(browse_counters, are_offered_by_a_host_that_describes_none) {
    perf_counter_ops ops = scripted_counter_ops;
    ops.PdhGetCounterInfoA = no_description;
    perf_counter_host = &ops;
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(object("System")->devices->unit, nullptr);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Error retrieving unit for PerfCnt: system error 3221228478"));
}

TEST_F(browse_counters, have_paths_of_up_to_2047_characters) {
    std::string object(1000, 'o');
    std::string counter(1200, 'c');
    counters.objects = {{object, {.counters = {counter}, .instances = {"i"}}}};
    devnode_guard found(retrieve_counters((counter + '\0').c_str(), object.c_str(), "i"));
    EXPECT_EQ(found, nullptr);
    std::string path = "\\" + object + "(i)\\" + counter;
    EXPECT_EQ(counters.added, names{path.substr(0, 2047)});
}

namespace {

struct unit_row {
    const char *name;
    int64_t type; // below 0 for none
    const char *unit;
};

std::string words(const char *unit) {
    return unit != nullptr ? unit : "(none)";
}

} // namespace

TEST(counter_units, follow_the_name_and_the_type) {
    for (const unit_row &row : {
             unit_row{"Delay (ms)", 0x10410500, "ms"},
             {"Delay (MS)", -1, "ms"},
             {"(ms)", -1, "ms"},
             {"ms)", -1, nullptr},
             {"Delay (ms) here", 0x10410500, "/s"},
             {"Room (KB)", 0x20410500, "kB"},
             {"Room (kb)", -1, "kB"},
             {"Bytes (KB)", 0x10410500, "kB"},
             {"Bytes/sec", 0x10410500, "B/s"},
             {"File bYTES Read", 0x1FFFFFFF, "B/s"},
             {"FileBytes/sec", 0x10410500, "/s"},
             {"Reads/sec", 0x10000000, "/s"},
             {"% of it", 0x20510500, "1%"},
             {"Bytes in percent", 0x2FFFFFFF, "1%"},
             {"Up Time", 0x30240500, "s"},
             {"Bytes a time", 0x30240500, "s"},
             {"Available Bytes", 0x00010100, "B"},
             {"Bytes", -1, "B"},
             {"Available Byte", 0x00010100, nullptr},
             {"Threads", 0x00010100, nullptr},
             {"Threads", 0x40010100, nullptr},
             {"Bytes each", 0x40010100, "B"},
             {"", -1, nullptr},
             {" ", 0xF0000000, nullptr},
         }) {
        auto type = static_cast<uint32_t>(row.type);
        EXPECT_EQ(words(counter_unit(row.name, row.type >= 0 ? &type : nullptr)), words(row.unit))
            << row.name;
    }
}
