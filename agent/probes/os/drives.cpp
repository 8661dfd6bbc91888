#include "probes/os/drives.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/drives_ops.h"
#include "probes/os/rounding.h"

#include <cstring>

const drives_ops *drives_host;

namespace {

constexpr uint32_t PATH_SIZE = 128;
constexpr uint32_t DESCRIPTION_FREE_SPACE = 1;

enum lookup_state { NOT_LOOKED_UP, MISSING, FOUND };

lookup_state mount_functions;

} // namespace

const char *drive_letter_root(uint32_t index) {
    static constexpr char roots[][4] = {
        "C:\\", "D:\\", "E:\\", "F:\\", "G:\\", "H:\\", "I:\\", "J:\\", "K:\\", "L:\\", "M:\\", "N:\\",
        "O:\\", "P:\\", "Q:\\", "R:\\", "S:\\", "T:\\", "U:\\", "V:\\", "W:\\", "X:\\", "Y:\\", "Z:\\",
    };
    return index < sizeof roots / sizeof *roots ? roots[index] : nullptr;
}

static double disk_kilobytes(uint64_t bytes) {
    return static_cast<double>(bytes >> 32) * 4194304.0 +
           static_cast<double>(bytes & 0xFFFFFFFF) * 0.0009765625;
}

static bool find_mount_functions() {
    if (!drives_host->GetModuleHandleA("kernel32.dll")) {
        agent_log(LOG_NORMAL, "Could not get kernel32.dll handle");
        return false;
    }
    for (const char *function :
         {"FindFirstVolumeMountPointA", "FindNextVolumeMountPointA", "FindVolumeMountPointClose"}) {
        if (drives_host->GetProcAddress(function)) continue;
        agent_log(LOG_NORMAL, "Could not load one or more functions used for scanning of volumes");
        return false;
    }
    return true;
}

// There is no second attempt.
static bool have_mount_functions() {
    if (mount_functions == NOT_LOOKED_UP) mount_functions = find_mount_functions() ? FOUND : MISSING;
    return mount_functions == FOUND;
}

static void scan_drive(const char *path, devnode **list);

static void scan_mount_points(const char *path, devnode **list) {
    char full_path[PATH_SIZE];
    agent_log(LOG_WARNING, "Size of new dir is: %d", static_cast<int>(sizeof full_path));
    copy_bounded(full_path, path, sizeof full_path);
    auto length = static_cast<uint32_t>(strlen(full_path));
    char *relative = full_path + length;
    uint32_t size = PATH_SIZE - length;
    mount_search *search = drives_host->FindFirstVolumeMountPointA(path, relative, size);
    if (search == nullptr) return;
    do
        scan_drive(full_path, list);
    while (drives_host->FindNextVolumeMountPointA(search, relative, size));
    drives_host->FindVolumeMountPointClose(search);
}

static devnode *new_drive(const char *path, uint64_t total, uint64_t total_free) {
    devnode *device = new_scan_device({.id = path,
                                       .name = path,
                                       .comment = "Fixed drive",
                                       .type = TYPE_REAL_CONTINUOUS,
                                       .unit = "kB",
                                       .description = DESCRIPTION_FREE_SPACE});
    set_range_hint(device, 0, disk_kilobytes(total_free), disk_kilobytes(total));
    return device;
}

// A volume whose space cannot be had is not offered, but what is mounted on it is looked at.
static void scan_drive(const char *path, devnode **list) {
    bool walk = have_mount_functions();
    if (drives_host->GetDriveTypeA(path) != DRIVE_FIXED) return;
    uint64_t available = 0;
    uint64_t total = 0;
    uint64_t total_free = 0;
    if (drives_host->GetDiskFreeSpaceExA(path, &available, &total, &total_free))
        put_in_front(list, new_drive(path, total, total_free));
    if (walk) scan_mount_points(path, list);
}

const char *scan_mounts(devtree *root) {
    agent_log(LOG_WARNING, "Scan mounts!");
    devnode *found = nullptr;
    const char *path = nullptr;
    for (uint32_t index = 0; (path = drives_host->drive_root(index)) != nullptr; index++)
        scan_drive(path, &found);
    if (found == nullptr) return nullptr;
    return offer_devices(root, "fs", "FS free space", nullptr, GROUP_OF_INSTANCES, found);
}

const char *check_fs(devnode *device, resnode *result) {
    uint64_t available = 0;
    uint64_t total = 0;
    uint64_t total_free = 0;
    if (!drives_host->GetDiskFreeSpaceExA(device->id, &available, &total, &total_free))
        return last_error_text();
    result->real_value = disk_kilobytes(total_free);
    result->value = nearest_integer(result->real_value);
    return nullptr;
}

void drives_reset() {
    mount_functions = NOT_LOOKED_UP;
}
