#include "probes/os/memory.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/memory_ops.h"

#include <gtest/gtest.h>

namespace {

struct memory_fixture : testing::Test {
    test_host host;
    memory_ops ops = {};
    bool module = true;
    bool function = true;
    bool works = true;
    memory_status status = {.memory_load = 40,
                            .total_phys = 8192 * 1024,
                            .available_phys = 4096 * 1024 + 512,
                            .total_page_file = 12288 * 1024,
                            .available_page_file = 6144 * 1024 + 512,
                            .total_virtual = 5,
                            .available_virtual = 6};
    uint32_t short_length = 32;
    std::vector<uint32_t> lengths; // set before the calls
    int lookups = 0;
    devtree root = {};

    memory_fixture();
    ~memory_fixture() override;
};

memory_fixture *the_memory;

bool scripted_module(const char *module) {
    EXPECT_STREQ(module, "kernel32.dll");
    the_memory->lookups++;
    return the_memory->module;
}

bool scripted_function(const char *function) {
    EXPECT_STREQ(function, "GlobalMemoryStatusEx");
    return the_memory->function;
}

bool scripted_ex(memory_status *out) {
    the_memory->lengths.push_back(out->length);
    uint32_t length = out->length;
    *out = the_memory->status;
    out->length = length;
    return the_memory->works;
}

void scripted_short(memory_status *out) {
    the_memory->lengths.push_back(out->length);
    *out = the_memory->status;
    out->length = the_memory->short_length;
}

memory_fixture::memory_fixture() {
    the_memory = this;
    ops = {.GetModuleHandleA = scripted_module,
           .GetProcAddress = scripted_function,
           .GlobalMemoryStatusEx = scripted_ex,
           .GlobalMemoryStatus = scripted_short};
    memory_host = &ops;
    memory_reset();
}

memory_fixture::~memory_fixture() {
    free_devtree(root.children);
    EXPECT_EQ(host.blocks, 0);
    memory_host = nullptr;
    the_memory = nullptr;
}

struct get_memory_status_test : memory_fixture {
    memory_status found = {};
};

struct scan_meminfo_test : memory_fixture {};

struct check_mem_test : memory_fixture {
    devnode_guard device{alloc_devnode()};
    resnode result = {};
    const char *check(const char *id) {
        text_replace(&device->id, text_copy(id));
        return check_mem(device.get(), &result);
    }
};

} // namespace

TEST_F(get_memory_status_test, asks_for_a_record_of_64_bytes) {
    EXPECT_TRUE(get_memory_status(&found));
    EXPECT_EQ(lengths, std::vector<uint32_t>{64});
    EXPECT_EQ(found.total_phys, status.total_phys);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Using GlobalMemoryStatusEx"));
}

TEST_F(get_memory_status_test, gives_what_the_host_gives) {
    works = false;
    EXPECT_FALSE(get_memory_status(&found));
    EXPECT_EQ(lengths.size(), 1U) << "and does not fall back";
}

TEST_F(get_memory_status_test, looks_the_function_up_once) {
    get_memory_status(&found);
    function = false;
    EXPECT_TRUE(get_memory_status(&found));
    EXPECT_EQ(lookups, 1);
    EXPECT_EQ(host.count_logged("GlobalMemoryStatusEx"), 1);
}

TEST_F(get_memory_status_test, falls_back_with_a_length_of_56) {
    function = false;
    EXPECT_TRUE(get_memory_status(&found));
    EXPECT_EQ(lengths, std::vector<uint32_t>{56});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Could not find GlobalMemoryStatusEx in kernel32.dll"));
}

TEST_F(get_memory_status_test, copies_load_and_sizes_of_the_fallback) {
    function = false;
    EXPECT_TRUE(get_memory_status(&found));
    EXPECT_EQ(found.length, 32U);
    EXPECT_EQ(found.memory_load, 40U);
    EXPECT_EQ(found.total_phys, status.total_phys);
    EXPECT_EQ(found.available_phys, status.available_phys);
    EXPECT_EQ(found.total_page_file, status.total_page_file);
    EXPECT_EQ(found.available_page_file, status.available_page_file);
    EXPECT_EQ(found.total_virtual, 5U);
    EXPECT_EQ(found.available_virtual, 6U);
}

TEST_F(get_memory_status_test, refuses_a_fallback_that_leaves_another_length) {
    function = false;
    for (uint32_t length : {56U, 64U, 31U, 33U, 0U}) {
        short_length = length;
        EXPECT_FALSE(get_memory_status(&found)) << length;
    }
    EXPECT_EQ(found.total_phys, 0U);
}

TEST_F(get_memory_status_test, falls_back_where_the_table_has_no_such_function) {
    ops.GlobalMemoryStatusEx = nullptr;
    EXPECT_TRUE(get_memory_status(&found));
    EXPECT_EQ(lengths, std::vector<uint32_t>{56});
}

TEST_F(get_memory_status_test, falls_back_where_the_module_is_missing) {
    module = false;
    EXPECT_TRUE(get_memory_status(&found));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Could not get kernel32.dll handle"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Could not find GlobalMemoryStatusEx in kernel32.dll"));
}

TEST_F(scan_meminfo_test, offers_three_devices_in_order) {
    EXPECT_SUCCESS(scan_meminfo(&root));
    EXPECT_TRUE(host.logged(LOG_TRACE, "In scan_meminfo"));
    const devtree *group = root.children;
    ASSERT_NE(group, nullptr);
    EXPECT_STREQ(group->id, "mem");
    EXPECT_STREQ(group->name, "Free Memory");
    EXPECT_STREQ(group->name_template, "Free %0r");
    EXPECT_EQ(group->group_flags, 0U);
    const struct {
        const char *id, *name;
        double value, max;
    } rows[] = {{"virt", "Virtual memory", 6144.5, 12288},
                {"swap", "Pagefile space", 2048, 4096},
                {"phys", "Physical memory", 4096.5, 8192}};
    const devnode *device = group->devices;
    for (const auto &row : rows) {
        ASSERT_NE(device, nullptr);
        EXPECT_STREQ(device->id, row.id);
        EXPECT_STREQ(device->name, row.name);
        EXPECT_STREQ(device->comment, row.name);
        EXPECT_STREQ(device->unit, "kB");
        EXPECT_EQ(device->type, 7U);
        EXPECT_EQ(device->description, 2U);
        EXPECT_EQ(device->limits.hint.hint_present, 1U);
        EXPECT_EQ(device->limits.hint.hint_min, 0.0);
        EXPECT_EQ(device->limits.hint.hint_value, row.value);
        EXPECT_EQ(device->limits.hint.hint_max, row.max);
        device = device->next;
    }
    EXPECT_EQ(device, nullptr);
}

TEST_F(scan_meminfo_test, fails_where_the_host_cannot_tell) {
    works = false;
    EXPECT_FAILURE(scan_meminfo(&root), "GlobalMemoryStatus call unsupported");
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_meminfo_test, frees_its_devices_where_the_group_cannot_be_made) {
    host.fail_allocation = 3 * 5 + 1;
    EXPECT_FAILURE(scan_meminfo(&root), "Couldn't allocate devtree_child mem");
}

TEST_F(check_mem_test, measures_physical_memory) {
    EXPECT_SUCCESS(check("phys"));
    EXPECT_EQ(result.real_value, 4096.5);
    EXPECT_EQ(result.value, 4097);
}

TEST_F(check_mem_test, measures_the_page_file_beyond_physical_memory) {
    EXPECT_SUCCESS(check("swap"));
    EXPECT_EQ(result.real_value, 2048);
    EXPECT_EQ(result.value, 2048);
}

TEST_F(check_mem_test, measures_the_whole_page_file_as_virtual_memory) {
    EXPECT_SUCCESS(check("virt"));
    EXPECT_EQ(result.real_value, 6144.5);
}

TEST_F(check_mem_test, gives_a_huge_number_where_the_page_file_is_the_smaller_one) {
    status.available_page_file = status.available_phys - 1024;
    EXPECT_SUCCESS(check("swap"));
    EXPECT_EQ(result.real_value, 18446744073709550592.0 / 1024);
}

TEST_F(check_mem_test, refuses_an_unknown_id) {
    EXPECT_FAILURE(check("Phys"), "Unknown memory type encountered: Phys");
}

TEST_F(check_mem_test, fails_where_the_host_cannot_tell) {
    works = false;
    EXPECT_FAILURE(check("phys"), "GlobalMemoryStatus() failed!");
    EXPECT_FAILURE(check("other"), "GlobalMemoryStatus() failed!");
}
