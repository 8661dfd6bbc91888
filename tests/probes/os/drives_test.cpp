#include "probes/os/drives.h"

#include "fakes/notes.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/drives_ops.h"
#include "probes/os/recorded_ops.h"

#include <gtest/gtest.h>

namespace {

struct scripted_volume {
    uint32_t type = DRIVE_FIXED;
    uint64_t total_free = 1024;
    uint64_t total = 4096;
    bool readable = true;
    std::vector<std::string> mounts; // what stands behind its root
};

// Volumes by path. The roots are the drive letters.
struct drives_fixture : testing::Test {
    test_host host;
    std::map<std::string, scripted_volume> volumes;
    bool module = true;
    std::set<std::string> missing_functions;
    std::vector<std::string> types_asked;
    std::vector<std::string> spaces_asked;
    std::vector<uint32_t> limits; // of the relative paths
    int lookups = 0;
    int searches = 0; // open ones
    devtree root = {};

    drives_fixture();
    ~drives_fixture() override;

    const devtree *group() const { return root.children; }
    // The offered paths, in the order of the list.
    std::vector<std::string> offered() const {
        std::vector<std::string> paths;
        for (const devnode *device = group() != nullptr ? group()->devices : nullptr; device;
             device = device->next)
            paths.emplace_back(device->id);
        return paths;
    }
};

drives_fixture *the_drives;

struct search_state {
    std::vector<std::string> left;
};

uint32_t scripted_type(const char *path) {
    the_drives->types_asked.emplace_back(path);
    auto found = the_drives->volumes.find(path);
    return found != the_drives->volumes.end() ? found->second.type : DRIVE_NO_ROOT_DIR;
}

bool scripted_space(const char *path, uint64_t *available, uint64_t *total, uint64_t *total_free) {
    the_drives->spaces_asked.emplace_back(path);
    auto found = the_drives->volumes.find(path);
    if (found == the_drives->volumes.end() || !found->second.readable) {
        the_drives->host.last_error = 21;
        return false;
    }
    *available = 1; // what a user's quota leaves does not count
    *total = found->second.total;
    *total_free = found->second.total_free;
    return true;
}

bool scripted_module(const char *module) {
    EXPECT_STREQ(module, "kernel32.dll");
    the_drives->lookups++;
    return the_drives->module;
}

bool scripted_function(const char *function) {
    return !the_drives->missing_functions.contains(function);
}

bool scripted_next(mount_search *search, char *path, uint32_t size) {
    auto &left = reinterpret_cast<search_state *>(search)->left;
    the_drives->limits.push_back(size);
    while (!left.empty()) {
        std::string next = left.front();
        left.erase(left.begin());
        if (next.size() >= size) continue;
        memcpy(path, next.c_str(), next.size() + 1);
        return true;
    }
    return false;
}

void scripted_close(mount_search *search) {
    the_drives->searches--;
    delete reinterpret_cast<search_state *>(search);
}

mount_search *scripted_first(const char *root, char *path, uint32_t size) {
    the_drives->searches++;
    auto *search = reinterpret_cast<mount_search *>(new search_state{the_drives->volumes[root].mounts});
    if (scripted_next(search, path, size)) return search;
    scripted_close(search);
    return nullptr;
}

const drives_ops scripted_drives = {
    .drive_root = drive_letter_root,
    .GetDriveTypeA = scripted_type,
    .GetDiskFreeSpaceExA = scripted_space,
    .GetModuleHandleA = scripted_module,
    .GetProcAddress = scripted_function,
    .FindFirstVolumeMountPointA = scripted_first,
    .FindNextVolumeMountPointA = scripted_next,
    .FindVolumeMountPointClose = scripted_close,
};

drives_fixture::drives_fixture() {
    the_drives = this;
    drives_host = &scripted_drives;
    drives_reset();
}

drives_fixture::~drives_fixture() {
    EXPECT_EQ(searches, 0) << "searches left open";
    free_devtree(root.children);
    EXPECT_EQ(host.blocks, 0);
    drives_host = nullptr;
    the_drives = nullptr;
}

struct scan_mounts_test : drives_fixture {};

struct check_fs_test : drives_fixture {
    devnode_guard device{alloc_devnode()};
    resnode result = {};
    check_fs_test() { device->id = text_copy("C:\\"); }
};

using paths = std::vector<std::string>;

} // namespace

TEST_F(scan_mounts_test, looks_at_the_letters_c_to_z_in_order) {
    EXPECT_SUCCESS(scan_mounts(&root));
    ASSERT_EQ(types_asked.size(), 24U);
    for (size_t i = 0; i < 24; i++)
        EXPECT_EQ(types_asked[i], std::string(1, static_cast<char>('C' + i)) + ":\\");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Scan mounts!"));
}

TEST_F(scan_mounts_test, adds_no_group_without_a_fixed_volume) {
    volumes["D:\\"] = {.type = DRIVE_CDROM};
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(group(), nullptr);
    EXPECT_EQ(spaces_asked, paths{});
}

TEST_F(scan_mounts_test, offers_a_fixed_volume_with_its_space) {
    volumes["C:\\"] = {.total_free = (uint64_t{5} << 32) + 1536, .total = (uint64_t{9} << 32) + 512};
    EXPECT_SUCCESS(scan_mounts(&root));
    ASSERT_EQ(offered(), paths{"C:\\"});
    EXPECT_STREQ(group()->id, "fs");
    EXPECT_STREQ(group()->name, "FS free space");
    EXPECT_EQ(group()->group_flags, GROUP_OF_INSTANCES);
    EXPECT_EQ(group()->name_template, nullptr);
    const devnode *device = group()->devices;
    EXPECT_STREQ(device->name, "C:\\");
    EXPECT_STREQ(device->comment, "Fixed drive");
    note_text("Fixed drive");
    EXPECT_STREQ(device->unit, "kB");
    EXPECT_EQ(device->type, 7U);
    EXPECT_EQ(device->description, 1U);
    EXPECT_EQ(device->limits.hint.hint_present, 1U);
    EXPECT_EQ(device->limits.hint.hint_min, 0.0);
    EXPECT_EQ(device->limits.hint.hint_value, 5 * 4194304.0 + 1.5);
    EXPECT_EQ(device->limits.hint.hint_max, 9 * 4194304.0 + 0.5);
    EXPECT_EQ(device->parent, group());
}

TEST_F(scan_mounts_test, lists_in_reverse_order_of_finding) {
    volumes["C:\\"] = {.mounts = {"a\\", "b\\"}};
    volumes["C:\\a\\"] = volumes["C:\\b\\"] = volumes["E:\\"] = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered(), (paths{"E:\\", "C:\\b\\", "C:\\a\\", "C:\\"}));
}

TEST_F(scan_mounts_test, finds_a_mount_point_inside_another) {
    volumes["C:\\"] = {.mounts = {"a\\"}};
    volumes["C:\\a\\"] = {.mounts = {"deep\\er\\"}};
    volumes["C:\\a\\deep\\er\\"] = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered(), (paths{"C:\\a\\deep\\er\\", "C:\\a\\", "C:\\"}));
}

TEST_F(scan_mounts_test, never_looks_below_a_path_that_is_not_fixed) {
    volumes["C:\\"] = {.type = DRIVE_REMOTE, .mounts = {"a\\"}};
    volumes["C:\\a\\"] = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered(), paths{});
    EXPECT_EQ(host.count_logged("Size of new dir"), 0);
}

TEST_F(scan_mounts_test, walks_on_below_a_volume_without_media) {
    volumes["C:\\"] = {.readable = false, .mounts = {"a\\"}};
    volumes["C:\\a\\"] = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered(), paths{"C:\\a\\"});
}

TEST_F(scan_mounts_test, leaves_relative_paths_the_rest_of_128_bytes) {
    volumes["C:\\"] = {.mounts = {std::string(124, 'x'), std::string(125, 'y')}};
    volumes["C:\\" + std::string(124, 'x')] = {};
    volumes["C:\\" + std::string(125, 'y')] = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered(), (paths{"C:\\" + std::string(124, 'x'), "C:\\"}));
    EXPECT_EQ(limits[0], 125U);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Size of new dir is: 128"));
}

TEST_F(scan_mounts_test, ends_where_a_volume_is_mounted_in_itself) {
    volumes["C:\\"] = {.mounts = {"again\\"}};
    std::string path = "C:\\";
    for (int i = 0; i < 40; i++)
        volumes[path += "again\\"] = {.mounts = {"again\\"}};
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered().size(), 1U + 124 / 6);
}

TEST_F(scan_mounts_test, looks_functions_up_once_before_the_first_drive) {
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(lookups, 1) << "though no drive is fixed";
}

TEST_F(scan_mounts_test, goes_without_mount_points_where_the_module_is_missing) {
    volumes["C:\\"] = {.mounts = {"a\\"}};
    volumes["C:\\a\\"] = {};
    module = false;
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered(), paths{"C:\\"});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Could not get kernel32.dll handle"));
    EXPECT_EQ(host.count_logged("Size of new dir"), 0);
    module = true;
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(lookups, 1) << "no second attempt";
}

TEST_F(scan_mounts_test, goes_without_mount_points_where_any_function_is_missing) {
    for (const char *function :
         {"FindFirstVolumeMountPointA", "FindNextVolumeMountPointA", "FindVolumeMountPointClose"}) {
        host.log.clear();
        drives_reset();
        volumes["C:\\"] = {.mounts = {"a\\"}};
        missing_functions = {function};
        EXPECT_SUCCESS(scan_mounts(&root));
        EXPECT_TRUE(
            host.logged(LOG_NORMAL, "Could not load one or more functions used for scanning of volumes"))
            << function;
        EXPECT_EQ(host.count_logged("Size of new dir"), 0);
    }
}

TEST_F(scan_mounts_test, frees_its_devices_where_the_group_cannot_be_made) {
    volumes["C:\\"] = {};
    host.fail_allocation = 6; // a device with its four texts comes first
    EXPECT_FAILURE(scan_mounts(&root), "Couldn't allocate devtree_child mem");
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(scan_mounts_test, stops_the_agent_where_a_device_cannot_be_made) {
    volumes["C:\\"] = {};
    for (uint32_t n = 1; n <= 5; n++) {
        host.fail_allocation = n;
        expect_fatal([&] { (void)scan_mounts(&root); }, "alloc_devnode() ran out of memory!");
        searches = 0;
    }
}

TEST_F(check_fs_test, measures_what_is_free_whatever_the_quota) {
    volumes["C:\\"] = {.total_free = 5 * 1024 + 512};
    EXPECT_SUCCESS(check_fs(device.get(), &result));
    EXPECT_EQ(result.real_value, 5.5);
    EXPECT_EQ(result.value, 6);
}

TEST_F(check_fs_test, takes_a_full_volume_for_a_reading) {
    volumes["C:\\"] = {.total_free = 0};
    result.value = 7;
    EXPECT_SUCCESS(check_fs(device.get(), &result));
    EXPECT_EQ(result.real_value, 0.0);
    EXPECT_EQ(result.value, 0);
}

TEST_F(check_fs_test, keeps_the_real_value_of_a_volume_that_is_too_large_for_the_integer) {
    volumes["C:\\"] = {.total_free = (uint64_t{2147483647} + 1) * 1024};
    EXPECT_SUCCESS(check_fs(device.get(), &result));
    EXPECT_EQ(result.real_value, 2147483648.0);
    EXPECT_EQ(result.value, INT32_MIN);
}

TEST_F(check_fs_test, tells_why_a_path_cannot_be_read_and_tries_again) {
    host.error_words[21] = "The device is not ready.";
    EXPECT_FAILURE(check_fs(device.get(), &result), "The device is not ready.");
    volumes["C:\\"] = {};
    EXPECT_SUCCESS(check_fs(device.get(), &result));
}

// The whole scan over a recorded mount table.

TEST(scan_mounts_of_a_recorded_machine, offers_its_fixed_drives) {
    test_host host;
    recorded_machine machine("numa");
    drives_host = &recorded_drives_ops;
    drives_reset();
    devtree root = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    devtree_guard group(root.children);
    paths found;
    for (const devnode *device = group->devices; device != nullptr; device = device->next)
        found.emplace_back(device->id);
    EXPECT_EQ(found, (paths{"/srv/block\nline", "/var/lib/db", "/var/lib", "/tank/db", "/tank",
                            "/run/media/operator/Stick", "/srv/My Data/inner#one", "/srv/My Data",
                            "/srv/late", "/boot/efi", "/"}));
    drives_host = nullptr;
}
