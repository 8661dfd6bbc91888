#include "probes/os/mount_table.h"

#include "fakes/test_host.h"
#include "probes/os/drives_ops.h"
#include "probes/os/machine.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::string> asked;

// The container's single files; all else is a folder.
bool is_folder(const char *path) {
    asked.emplace_back(path);
    return !std::string(path).starts_with("/etc/");
}

mount_table_guard parsed(const std::string &text) {
    asked.clear();
    return mount_table_guard(parse_mounts(text.c_str(), is_folder));
}

std::vector<std::string> below(const mount_table *table, const char *root, size_t size = 128) {
    std::vector<std::string> found;
    char path[512];
    for (uint32_t position = 0; next_mount_below(table, root, &position, path, size);)
        found.emplace_back(path);
    return found;
}

std::vector<std::string> roots(const mount_table *table) {
    std::vector<std::string> found;
    for (uint32_t i = 0; const char *path = mount_root(table, i); i++)
        found.emplace_back(path);
    return found;
}

using paths = std::vector<std::string>;

// A line of a mount with its parent, device, part, path and type.
std::string line(int id, int parent, const char *device, const char *part, const char *path,
                 const char *type) {
    return std::to_string(id) + " " + std::to_string(parent) + " " + device + " " + part + " " + path +
           " rw,relatime shared:1 - " + type + " source rw\n";
}

} // namespace

TEST(parse_mounts, takes_the_root_of_a_container_and_its_volume) {
    auto table = parsed(recorded_machine("container").text("/proc/self/mountinfo"));
    EXPECT_EQ(roots(table.get()), paths{"/"});
    EXPECT_EQ(mount_drive_type(table.get(), "/"), DRIVE_FIXED);
    EXPECT_EQ(below(table.get(), "/"), paths{"data"});
}

TEST(parse_mounts, asks_for_folders_only_where_a_part_is_mounted) {
    auto table = parsed(recorded_machine("container").text("/proc/self/mountinfo"));
    EXPECT_EQ(asked, (paths{"/data", "/etc/resolv.conf", "/etc/hostname", "/etc/hosts"}));
}

TEST(parse_mounts, finds_the_drives_of_a_large_server) {
    auto table = parsed(recorded_machine("numa").text("/proc/self/mountinfo"));
    EXPECT_EQ(below(table.get(), "/"),
              (paths{"boot/efi", "srv/late", "srv/My Data", "run/media/operator/Stick", "tank", "var/lib",
                     "srv/block\nline"}));
    EXPECT_EQ(below(table.get(), "/srv/My Data"), paths{"/inner#one"});
    EXPECT_EQ(below(table.get(), "/tank"), paths{"/db"});
    EXPECT_EQ(below(table.get(), "/boot/efi"), paths{});
}

TEST(parse_mounts, never_looks_below_a_remote_mount) {
    auto table = parsed(recorded_machine("numa").text("/proc/self/mountinfo"));
    EXPECT_EQ(mount_drive_type(table.get(), "/srv/nfs"), DRIVE_REMOTE);
    EXPECT_EQ(mount_drive_type(table.get(), "/srv/nfs/local"), DRIVE_NO_ROOT_DIR);
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "/srv/nfs/local"), 0);
}

TEST(parse_mounts, offers_one_place_of_a_device) {
    auto table =
        parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/sub", "/b", "ext4") +
               line(3, 1, "8:2", "/", "/whole/device", "ext4") +
               line(4, 1, "8:2", "/", "/jail/x/device", "ext4") + line(5, 1, "8:1", "/", "/r", "ext4"));
    EXPECT_EQ(below(table.get(), "/"), paths{"whole/device"});
}

TEST(mount_is_drive, knows_the_other_places_of_a_drive) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/", "/b", "ext4") +
                        line(3, 1, "8:2", "/", "/bc", "ext4") + line(4, 1, "0:9", "/", "/n", "nfs") +
                        line(5, 1, "8:3", "/x", "/etc/hosts", "ext4"));
    EXPECT_TRUE(mount_is_drive(table.get(), "/b"));
    EXPECT_TRUE(mount_is_drive(table.get(), "/bc"));
    EXPECT_EQ(mount_drive_type(table.get(), "/bc"), DRIVE_NO_ROOT_DIR);
    EXPECT_FALSE(mount_is_drive(table.get(), "/n"));
    EXPECT_FALSE(mount_is_drive(table.get(), "/etc/hosts"));
    EXPECT_FALSE(mount_is_drive(table.get(), "/folder"));
}

TEST(parse_mounts, takes_the_shortest_place_of_parts) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/x", "/longer", "ext4") +
                        line(3, 1, "8:2", "/y", "/long", "ext4") + line(4, 1, "8:2", "/z", "/same", "ext4"));
    EXPECT_EQ(below(table.get(), "/"), paths{"long"});
}

TEST(parse_mounts, prefers_the_root_though_only_a_part_is_mounted_there) {
    auto table = parsed(line(1, 0, "0:33", "/@", "/", "btrfs") + line(2, 1, "0:33", "/", "/top", "btrfs"));
    EXPECT_EQ(mount_drive_type(table.get(), "/"), DRIVE_FIXED);
    EXPECT_EQ(below(table.get(), "/"), paths{});
}

TEST(parse_mounts, leaves_out_what_a_later_mount_covers) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/", "/a", "ext4") +
                        line(3, 2, "8:3", "/", "/a/b", "ext4") + line(4, 2, "8:4", "/", "/a", "ext4"));
    EXPECT_EQ(below(table.get(), "/"), paths{"a"});
    EXPECT_EQ(below(table.get(), "/a"), paths{}) << "covered by the second mount at its parent";
}

TEST(parse_mounts, leaves_out_what_lies_on_a_buried_mount) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/", "/m/a", "ext4") +
                        line(3, 2, "8:3", "/", "/m/a/b", "ext4") + line(4, 1, "8:4", "/", "/m", "ext4"));
    EXPECT_EQ(below(table.get(), "/"), paths{"m"});
    EXPECT_EQ(below(table.get(), "/m"), paths{});
}

TEST(parse_mounts, leaves_out_what_an_automount_holds_for_a_while) {
    auto mounted = [](const char *options) {
        return below(parsed(line(1, 0, "8:1", "/", "/", "ext4") +
                            "2 1 0:30 / /boot rw,relatime shared:1 - autofs systemd-1 " + options + "\n" +
                            line(3, 2, "8:2", "/", "/boot", "vfat"))
                         .get(),
                     "/");
    };
    EXPECT_EQ(mounted("rw,fd=59,timeout=120,minproto=5,direct"), paths{});
    EXPECT_EQ(mounted("rw,fd=59,timeout=0,minproto=5,direct"), paths{"boot"});
    EXPECT_EQ(mounted("rw,direct"), paths{"boot"});
    EXPECT_EQ(mounted(""), paths{"boot"}) << "and a line that ends early";
}

TEST(parse_mounts, knows_what_lies_below_an_automount) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") +
                        "2 1 0:30 / /net rw - autofs auto rw,timeout=300,indirect\n" +
                        line(3, 2, "8:2", "/", "/net/disk", "ext4"));
    EXPECT_EQ(below(table.get(), "/"), paths{}) << "an automount may hang";
}

TEST(parse_mounts, looks_through_file_systems_in_memory) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "0:30", "/", "/run", "tmpfs") +
                        line(3, 2, "8:2", "/", "/run/disk", "ext4"));
    EXPECT_EQ(below(table.get(), "/"), paths{"run/disk"});
}

TEST(parse_mounts, passes_over_lines_that_are_none) {
    auto table = parsed("\nnonsense\n1\n1 2\n1 2 8:1\n1 2 8 / / rw - ext4 x rw\n1 2 8:1 / / rw shared:1\n"
                        "1 2 8:1 / / rw -\n1 2 8:1 / relative rw - ext4 x rw\n" +
                        line(7, 1, "8:7", "/", "/", "xfs") + "9 7 8:9 / /cut rw - ext4 x rw");
    EXPECT_EQ(mount_drive_type(table.get(), "/"), DRIVE_FIXED);
    EXPECT_EQ(below(table.get(), "/"), paths{}) << "the last line has no end";
}

TEST(parse_mounts, survives_mounts_that_stand_on_each_other) {
    auto table = parsed(line(1, 2, "8:1", "/", "/a", "ext4") + line(2, 1, "8:2", "/", "/b", "ext4") +
                        line(3, 3, "8:3", "/", "/c", "ext4"));
    EXPECT_EQ(roots(table.get()), (paths{"/", "/a", "/b", "/c"}));
}

TEST(parse_mounts, decodes_every_escape_and_nothing_else) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") +
                        line(2, 1, "8:2", "/", "/t\\011s\\040n\\012b\\134o\\04x\\9", "ext4"));
    EXPECT_EQ(below(table.get(), "/"), paths{"t\ts n\nb\\o\\04x\\9"});
}

TEST(parse_mounts, gives_nothing_when_memory_is_out_and_keeps_nothing) {
    std::string text = line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/", "/a", "ext4");
    for (uint32_t n = 1; n <= 6; n++) {
        test_host host;
        host.fail_allocation = n;
        EXPECT_EQ(parse_mounts(text.c_str(), is_folder), nullptr) << n;
        EXPECT_EQ(host.fail_allocation, 0U) << n;
        EXPECT_EQ(host.blocks, 0) << n;
    }
}

TEST(file_system_drive_type, knows_fixed_local_and_remote_ones) {
    EXPECT_EQ(file_system_drive_type("ext4", 8, false), DRIVE_FIXED);
    EXPECT_EQ(file_system_drive_type("fuseblk", 8, false), DRIVE_FIXED);
    EXPECT_EQ(file_system_drive_type("btrfs", 0, false), DRIVE_FIXED);
    EXPECT_EQ(file_system_drive_type("zfs", 0, false), DRIVE_FIXED);
    EXPECT_EQ(file_system_drive_type("overlay", 0, true), DRIVE_FIXED);
    EXPECT_EQ(file_system_drive_type("overlay", 0, false), DRIVE_RAMDISK);
    EXPECT_EQ(file_system_drive_type("virtiofs", 0, true), DRIVE_FIXED);
    EXPECT_EQ(file_system_drive_type("9p", 0, true), DRIVE_FIXED);
    EXPECT_EQ(file_system_drive_type("nfs", 0, true), DRIVE_REMOTE);
    EXPECT_EQ(file_system_drive_type("virtiofs", 0, false), DRIVE_REMOTE);
    EXPECT_EQ(file_system_drive_type("tmpfs", 0, true), DRIVE_RAMDISK);
    EXPECT_EQ(file_system_drive_type("proc", 0, false), DRIVE_RAMDISK);
    EXPECT_EQ(file_system_drive_type("squashfs", 7, false), DRIVE_CDROM);
    EXPECT_EQ(file_system_drive_type("iso9660", 11, false), DRIVE_CDROM);
    for (const char *remote :
         {"nfs", "nfs4", "cifs", "smb3", "ceph", "9p", "fuse.sshfs", "autofs", "never.heard.of"})
        EXPECT_EQ(file_system_drive_type(remote, 0, false), DRIVE_REMOTE) << remote;
}

TEST(mount_root, is_each_drive_of_its_own_where_the_root_is_none) {
    auto table =
        parsed(line(1, 0, "0:20", "/", "/", "tmpfs") + line(2, 1, "8:1", "/", "/data", "xfs") +
               line(3, 2, "8:2", "/", "/data/inner", "xfs") + line(4, 1, "8:3", "/", "/logs", "xfs"));
    EXPECT_EQ(roots(table.get()), (paths{"/", "/data", "/logs"}));
    EXPECT_EQ(mount_drive_type(table.get(), "/"), DRIVE_NO_ROOT_DIR);
    EXPECT_EQ(below(table.get(), "/data"), paths{"/inner"});
}

TEST(mount_root, finds_local_drives_of_a_host_that_boots_from_the_network) {
    auto table = parsed(line(1, 0, "0:20", "/", "/", "nfs4") + line(2, 1, "8:1", "/", "/data", "xfs"));
    EXPECT_EQ(mount_drive_type(table.get(), "/"), DRIVE_REMOTE);
    EXPECT_EQ(roots(table.get()), (paths{"/", "/data"}));
    EXPECT_FALSE(mount_is_remote(table.get(), "/data"));
}

TEST(next_mount_below, passes_over_paths_that_do_not_fit) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/", "/12345", "ext4") +
                        line(3, 1, "8:3", "/", "/1234", "ext4"));
    EXPECT_EQ(below(table.get(), "/", 5), paths{"1234"}) << "four characters and the end";
    EXPECT_EQ(below(table.get(), "/", 6), (paths{"12345", "1234"}));
}

TEST(next_mount_below, does_not_take_a_longer_name_for_a_folder) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/", "/ab", "ext4") +
                        line(3, 1, "8:3", "/", "/abc", "ext4"));
    EXPECT_EQ(below(table.get(), "/ab"), paths{});
}

TEST(mount_is_remote, covers_the_mount_and_all_below_it) {
    auto table = parsed(recorded_machine("numa").text("/proc/self/mountinfo"));
    EXPECT_TRUE(mount_is_remote(table.get(), "/srv/nfs"));
    EXPECT_TRUE(mount_is_remote(table.get(), "/srv/nfs/local"));
    EXPECT_TRUE(mount_is_remote(table.get(), "/misc/anything"));
    EXPECT_FALSE(mount_is_remote(table.get(), "/srv/nfs2"));
    EXPECT_FALSE(mount_is_remote(table.get(), "/srv"));
    EXPECT_FALSE(mount_is_remote(table.get(), "/srv/late"))
        << "a disk is mounted over the automounter's place";
}

TEST(mount_device, is_that_of_a_drive_with_a_device_of_its_own) {
    auto table = parsed(recorded_machine("numa").text("/proc/self/mountinfo"));
    uint32_t device_major = 0;
    uint32_t device_minor = 0;
    ASSERT_TRUE(mount_device(table.get(), "/", &device_major, &device_minor));
    EXPECT_EQ(device_major, 253U);
    EXPECT_EQ(device_minor, 0U);
    ASSERT_TRUE(mount_device(table.get(), "/srv/late", &device_major, &device_minor));
    EXPECT_EQ(device_major, 259U);
    EXPECT_EQ(device_minor, 7U);
    for (const char *path : {"/tank", "/srv/nfs", "/proc", "/media/cdrom", "/srv", "", "/nowhere"})
        EXPECT_FALSE(mount_device(table.get(), path, &device_major, &device_minor)) << path;
}

TEST(mount_device, is_that_of_what_was_mounted_last) {
    auto table = parsed(line(1, 0, "8:1", "/", "/", "ext4") + line(2, 1, "8:2", "/", "/a", "ext4") +
                        line(3, 2, "8:3", "/", "/a", "ext4"));
    uint32_t device_major = 0;
    uint32_t device_minor = 0;
    ASSERT_TRUE(mount_device(table.get(), "/a", &device_major, &device_minor));
    EXPECT_EQ(device_minor, 3U);
}

TEST(parse_mounts, passes_over_a_device_that_has_no_number) {
    for (const char *device : {"8:", ":1", "8", "-8:1", "4294967296:1", "8:4294967296", "x:y"}) {
        auto table = parsed(line(1, 0, device, "/", "/", "ext4"));
        EXPECT_EQ(table->count, 0U) << device;
    }
}
