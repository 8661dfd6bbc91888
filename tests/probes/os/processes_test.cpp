#include "probes/os/processes.h"

#include "fakes/notes.h"
#include "platform/agent_log.h"
#include "platform/heap.h"
#include "probes/os/scripted_processes.h"
#include "settings/settings.h"

namespace {

using texts = std::vector<std::string>;

struct processes_fixture : testing::Test {
    test_host host;
    scripted_processes processes{&host};
    agent_config config = {};
    devtree root = {};
    devnode_guard device{alloc_devnode()};
    resnode result = {};

    processes_fixture() {
        config_in_force = &config;
        host.error_words = {
            {31, "The device is out of order."}, {126, "No such module."}, {127, "No such procedure."}};
    }
    ~processes_fixture() override {
        free_devtree(root.children);
        heap_free(result.comment);
        device.reset();
        EXPECT_EQ(host.blocks, 0);
        config_in_force = nullptr;
    }

    texts offered() const {
        texts ids;
        for (const devnode *found = root.children != nullptr ? root.children->devices : nullptr; found;
             found = found->next)
            ids.emplace_back(found->id);
        return ids;
    }
    // "value comment" of a check of this name, or the failure.
    std::string check(const char *name) {
        text_replace(&device->id, text_copy(name));
        if (const char *failure = check_process(device.get(), &result)) return noted_failure(failure);
        note_text(result.comment);
        return std::to_string(result.value) + " " + result.comment;
    }
};

struct scan_processes_test : processes_fixture {};
struct check_process_test : processes_fixture {};

struct old_way : processes_fixture {
    old_way() { config.use_psapi = 1; }
};

struct scan_processes_old_test : old_way {};
struct check_process_old_test : old_way {};

constexpr auto FAILED = static_cast<int32_t>(0xC0000001);

} // namespace

TEST_F(scan_processes_test, offers_each_process_last_one_first) {
    processes.names = {u"", u"System", u"b.exe"};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered(), (texts{"b.exe", "System", "Idle"}));
    EXPECT_TRUE(host.logged(LOG_TRACE, "In scan_processes"));
}

TEST_F(scan_processes_test, tells_a_process_in_the_words_of_its_family) {
    processes.names = {u"b.exe"};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_STREQ(root.children->id, "proc");
    EXPECT_STREQ(root.children->name, "Process Presence");
    EXPECT_EQ(root.children->name_template, nullptr);
    EXPECT_EQ(root.children->group_flags, 0U);
    const devnode *found = root.children->devices;
    EXPECT_STREQ(found->id, "b.exe");
    EXPECT_STREQ(found->name, "b.exe");
    EXPECT_STREQ(found->comment, "");
    EXPECT_STREQ(found->unit, "");
    EXPECT_EQ(found->type, 1U);
    EXPECT_EQ(found->description, 8U);
    EXPECT_EQ(found->limits.hint.hint_present, 0U);
}

TEST_F(scan_processes_test, offers_two_processes_of_one_name_twice) {
    processes.names = {u"a", u"twin", u"twin"};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered(), (texts{"twin", "twin", "a"}));
}

TEST_F(scan_processes_test, names_a_record_without_a_name_idle_wherever_it_stands) {
    processes.names = {u"a", u""};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered(), (texts{"Idle", "a"}));
}

TEST_F(scan_processes_test, begins_with_32_kilobytes) {
    processes.names = {u"a"};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(processes.sizes, (std::vector<uint32_t>{32768}));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Allocating 32768 bytes of memory in scan_processes"));
}

TEST_F(scan_processes_test, doubles_the_buffer_as_long_as_it_is_too_small) {
    processes.names = {u"a"};
    processes.needs = 1 << 23;
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(processes.sizes, (std::vector<uint32_t>{32768, 65536, 131072, 262144, 524288, 1048576, 2097152,
                                                      4194304, 8388608}));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Allocating 65536 bytes of memory in scan_processes"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Allocating 8388608 bytes of memory in scan_processes"));
    EXPECT_EQ(offered(), texts{"a"});
}

TEST_F(scan_processes_test, frees_the_old_buffer_before_it_takes_the_next) {
    static const heap_ops *heap;
    static int64_t held; // when the second buffer is asked for
    heap = heap_host;
    heap_ops watching = *heap_host;
    watching.allocate = [](size_t size) {
        if (size == 65536) held = the_host->blocks;
        return heap->allocate(size);
    };
    processes.names = {u"a"};
    processes.needs = 65536;
    int64_t before = host.blocks;
    heap_host = &watching;
    EXPECT_SUCCESS(scan_processes(&root));
    heap_host = heap;
    EXPECT_EQ(held, before);
}

TEST_F(scan_processes_test, ends_where_memory_does) {
    processes.names = {u"a"};
    processes.needs = 1 << 20;
    for (uint32_t n : {1U, 2U, 5U}) {
        processes.sizes.clear();
        host.fail_allocation = n;
        EXPECT_FAILURE(scan_processes(&root), "No free memory in scan_processes");
        EXPECT_EQ(processes.sizes.size(), n - 1);
    }
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_processes_test, tells_why_the_function_cannot_be_had) {
    processes.has_function = false;
    EXPECT_FAILURE(scan_processes(&root),
                   "Couldn't locate ZwQuerySystemInformation in ntdll: No such procedure.");
    processes.has_module = false;
    EXPECT_FAILURE(scan_processes(&root), "Couldn't load ntdll.dll: No such module.");
    EXPECT_EQ(processes.sizes.size(), 0U);
}

TEST_F(scan_processes_test, tells_why_the_call_failed) {
    processes.status = FAILED;
    EXPECT_FAILURE(scan_processes(&root),
                   "Error calling QuerySystemInformation: The device is out of order.");
    EXPECT_EQ(processes.sizes.size(), 1U) << "no second attempt";
}

TEST_F(scan_processes_test, takes_a_status_that_is_not_negative_for_success) {
    processes.names = {u"a"};
    processes_ops ops = scripted_processes_ops;
    ops.ZwQuerySystemInformation = [](uint32_t a, uint8_t *b, uint32_t c) {
        return scripted_snapshot(a, b, c) + 0x105;
    };
    processes_host = &ops;
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered(), texts{"a"});
}

TEST_F(scan_processes_test, cuts_names_at_what_the_wire_carries) {
    processes.names = {std::u16string(129, u'a'), std::u16string(259, u'b')};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered(), (texts{std::string(128, 'b'), std::string(128, 'a')}));
}

TEST_F(scan_processes_test, offers_five_thousand_processes) {
    for (int i = 0; i < 5000; i++)
        processes.names.push_back(u"process of a host");
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered().size(), 5000U);
    EXPECT_EQ(processes.sizes.back(), 2097152U) << "five thousand records of 256 bytes and their names";
}

TEST_F(scan_processes_test, frees_its_devices_where_the_group_cannot_be_made) {
    processes.names = {u"a"};
    host.fail_allocation = 7; // the snapshot and a device with its four texts come first
    EXPECT_FAILURE(scan_processes(&root), "Couldn't allocate devtree_child mem");
}

TEST_F(check_process_test, tells_whether_a_process_runs) {
    processes.names = {u"", u"a", u"b.exe"};
    EXPECT_EQ(check("b.exe"), "1 Available");
    EXPECT_EQ(check("c.exe"), "0 Missing");
    EXPECT_EQ(host.count_logged("In scan_processes"), 0);
}

TEST_F(check_process_test, compares_regardless_of_case) {
    processes.names = {u"Explorer.EXE"};
    EXPECT_EQ(check("eXPLORER.exe"), "1 Available");
    EXPECT_EQ(check("Explorer.EX"), "0 Missing");
    EXPECT_EQ(check("Explorer.EXE2"), "0 Missing");
}

TEST_F(check_process_test, finds_a_process_by_what_the_wire_carries_of_its_name) {
    processes.names = {std::u16string(200, u'a')};
    EXPECT_EQ(check(std::string(128, 'a').c_str()), "1 Available");
    EXPECT_EQ(check(std::string(127, 'a').c_str()), "0 Missing");
}

TEST_F(check_process_test, finds_the_nameless_one_as_idle_in_any_case) {
    processes.names = {u"", u"a"};
    EXPECT_EQ(check("idle"), "1 Available");
    EXPECT_EQ(check("IDLE"), "1 Available");
    EXPECT_EQ(check(""), "0 Missing");
}

TEST_F(check_process_test, is_available_as_long_as_either_twin_runs) {
    processes.names = {u"twin", u"a", u"twin"};
    EXPECT_EQ(check("twin"), "1 Available");
    processes.names.erase(processes.names.begin());
    EXPECT_EQ(check("twin"), "1 Available");
    processes.names.pop_back();
    EXPECT_EQ(check("twin"), "0 Missing");
}

TEST_F(check_process_test, looks_no_further_than_the_first_match) {
    processes.names = {u"", u"a", u"b", u"c"};
    check("a");
    EXPECT_EQ(processes.walked, 2);
}

TEST_F(check_process_test, promises_a_fallback_and_has_none) {
    processes.status = FAILED;
    processes.table = {{7, {.name = "a"}}};
    EXPECT_EQ(check("a"),
              "Error calling QuerySystemInformation: The device is out of order.. Falling back to PSAPI");
    EXPECT_EQ(processes.opened.size(), 0U);
    EXPECT_EQ(result.comment, nullptr);
}

TEST_F(check_process_test, fails_with_the_texts_of_the_scan_otherwise) {
    processes.names = {u"a"};
    processes.has_function = false;
    EXPECT_EQ(check("a"), "Couldn't locate ZwQuerySystemInformation in ntdll: No such procedure.");
    processes.has_module = false;
    EXPECT_EQ(check("a"), "Couldn't load ntdll.dll: No such module.");
    processes.has_module = processes.has_function = true;
    text_replace(&device->id, text_copy("a"));
    host.fail_allocation = 1;
    EXPECT_FAILURE(check_process(device.get(), &result), "No free memory in scan_processes");
}

TEST_F(check_process_test, grows_its_buffer_like_the_scan) {
    processes.names = {u"a"};
    processes.needs = 65536;
    EXPECT_EQ(check("a"), "1 Available");
    EXPECT_EQ(processes.sizes, (std::vector<uint32_t>{32768, 65536}));
}

TEST_F(check_process_test, goes_by_the_snapshot_without_settings) {
    config_in_force = nullptr;
    processes.names = {u"a"};
    EXPECT_EQ(check("a"), "1 Available");
    EXPECT_EQ(processes.sizes.size(), 1U);
}

// ---- the old way

TEST_F(scan_processes_old_test, offers_each_process_with_a_name_last_one_first) {
    processes.table = {{0, {.opens = false}}, {4, {.name = "System"}}, {8, {.name = "b.exe"}}};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered(), (texts{"b.exe", "System"}));
    EXPECT_STREQ(root.children->name, "Process Presence");
    EXPECT_TRUE(host.logged(LOG_TRACE, "In scan_processes"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "In scan_processes_old"));
    EXPECT_EQ(processes.sizes.size(), 0U) << "no snapshot";
}

TEST_F(scan_processes_old_test, adds_no_group_without_a_name) {
    processes.table = {{0, {.opens = false}}};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_processes_old_test, says_which_process_it_cannot_open_but_for_the_idle_one) {
    processes.table = {{0, {.opens = false}}, {4000000000, {.opens = false}}, {8, {.name = "b"}}};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_TRUE(host.logged(LOG_WARNING, "Warning: Unable to open pid 4000000000"));
    EXPECT_EQ(host.count_logged("Unable to open"), 1);
    EXPECT_EQ(offered(), texts{"b"});
}

TEST_F(scan_processes_old_test, passes_over_a_process_without_modules) {
    processes.table = {{77, {.name = "a", .has_modules = false}}, {8, {.name = "b"}}};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_TRUE(host.logged(LOG_ERROR, "EnumProcessModules failed! (pid: 77, error: 299, retbytes: 24)"));
    EXPECT_EQ(offered(), texts{"b"});
}

TEST_F(scan_processes_old_test, passes_over_a_program_without_a_name) {
    processes.table = {{77, {.name = "a", .has_name = false}}, {8, {.name = "b"}}};
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_TRUE(host.logged(LOG_WARNING, "GetModuleBaseName() call failed in scan_processes"));
    EXPECT_EQ(offered(), texts{"b"});
}

TEST_F(scan_processes_old_test, passes_over_a_process_whose_name_finds_no_memory) {
    processes.table = {{77, {.name = "a"}}, {8, {.name = "b"}}};
    host.fail_allocation = 2; // the table comes first
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Out of memory! When allocating new module name"));
    EXPECT_EQ(offered(), texts{"b"});
}

TEST_F(scan_processes_old_test, blames_a_process_that_does_not_open_and_not_the_memory) {
    processes.table = {{77, {.opens = false}}};
    host.fail_allocation = 2;
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_TRUE(host.logged(LOG_WARNING, "Warning: Unable to open pid 77"));
    EXPECT_EQ(host.count_logged("Out of memory!"), 0);
}

TEST_F(scan_processes_old_test, fails_without_a_table) {
    processes.lists = false;
    EXPECT_FAILURE(scan_processes(&root), "Error reading process list");
    EXPECT_TRUE(host.logged(LOG_WARNING, "EnumProcesses() call failed in scan_processes"));
    host.fail_allocation = 1;
    EXPECT_FAILURE(scan_processes(&root), "Error reading process list");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Out of memory in scan_processes"));
}

TEST_F(scan_processes_old_test, sees_no_more_than_4096_processes) {
    for (uint32_t id = 1; id <= 4097; id++)
        processes.table.push_back({id, {.name = "p"}});
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered().size(), 4096U);
    EXPECT_EQ(processes.opened.back(), 4096U);
}

TEST_F(scan_processes_old_test, does_not_believe_in_more_bytes_than_the_table_has) {
    processes.table = {{8, {.name = "b"}}};
    processes.claims = 16388;
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(processes.opened.size(), 4096U);
}

TEST_F(check_process_old_test, tells_whether_a_process_runs) {
    processes.table = {{0, {.name = "zero"}}, {4, {.name = "System"}}, {8, {.name = "B.exe"}}};
    EXPECT_EQ(check("b.EXE"), "1 Available");
    EXPECT_EQ(check("c"), "0 Missing");
    EXPECT_EQ(processes.sizes.size(), 0U) << "no snapshot";
}

TEST_F(check_process_old_test, skips_the_idle_process) {
    processes.table = {{0, {.name = "Idle"}}, {4, {.name = "System"}}};
    EXPECT_EQ(check("idle"), "0 Missing");
    EXPECT_EQ(processes.opened, (std::vector<uint32_t>{4}));
}

TEST_F(check_process_old_test, misses_a_process_that_it_may_not_open) {
    processes.table = {{4, {.name = "a", .opens = false}}};
    EXPECT_EQ(check("a"), "0 Missing");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Warning: Unable to open pid 4"));
}

TEST_F(check_process_old_test, opens_no_more_than_it_must) {
    processes.table = {{4, {.name = "a"}}, {8, {.name = "a"}}};
    EXPECT_EQ(check("a"), "1 Available");
    EXPECT_EQ(processes.opened, (std::vector<uint32_t>{4}));
}

TEST_F(check_process_old_test, fails_without_a_table) {
    processes.lists = false;
    EXPECT_EQ(check("a"), "Error reading process list");
    EXPECT_EQ(result.comment, nullptr);
}

TEST_F(check_process_old_test, takes_a_name_that_is_cut_for_any_that_goes_on_like_it) {
    processes.table = {{4, {.name = "a-name", .cut = true}}};
    EXPECT_EQ(check("A-name-of-it"), "1 Available");
    EXPECT_EQ(check("a-name"), "1 Available");
    EXPECT_EQ(check("a-nam"), "0 Missing");
    EXPECT_EQ(check("another"), "0 Missing");
    processes.table[0].second.cut = false;
    EXPECT_EQ(check("a-name-of-it"), "0 Missing");
}

TEST_F(check_process_old_test, takes_names_for_whole_where_no_host_cuts_them) {
    processes.table = {{4, {.name = "a-name", .cut = true}}};
    processes_ops ops = scripted_processes_ops;
    ops.name_is_cut = nullptr;
    processes_host = &ops;
    EXPECT_EQ(check("a-name-of-it"), "0 Missing");
    EXPECT_EQ(check("a-name"), "1 Available");
}
