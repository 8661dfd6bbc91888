#include "probes/os/mount_table.h"

#include "platform/text.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_text.h"

#include <cstdlib>
#include <cstring>

namespace {

// One line: "36 35 98:0 /part /mnt rw,noatime master:1 - ext3 /dev/sdb rw", proc(5). Texts lie in the table's
// copy.
struct mount_line {
    uint64_t id, parent;
    uint32_t device_major, device_minor;
    char *part; // what of the file system is mounted
    char *path;
    char *type;
    bool lets_go; // mounts what is used, and takes it away when it is no longer
    uint32_t drive_type;
    bool kept;
    bool chosen;
};

struct mount_lines {
    mount_line *lines;
    uint32_t count;
};

struct type_row {
    const char *type;
    uint32_t drive_type;
};

// File systems without a block device of their own.
constexpr type_row TYPES_BY_NAME[] = {
    {"btrfs", DRIVE_FIXED},        {"zfs", DRIVE_FIXED},        {"bcachefs", DRIVE_FIXED},
    {"ubifs", DRIVE_FIXED},        {"tmpfs", DRIVE_RAMDISK},    {"ramfs", DRIVE_RAMDISK},
    {"rootfs", DRIVE_RAMDISK},     {"devtmpfs", DRIVE_RAMDISK}, {"overlay", DRIVE_RAMDISK},
    {"aufs", DRIVE_RAMDISK},       {"proc", DRIVE_RAMDISK},     {"sysfs", DRIVE_RAMDISK},
    {"devpts", DRIVE_RAMDISK},     {"cgroup", DRIVE_RAMDISK},   {"cgroup2", DRIVE_RAMDISK},
    {"configfs", DRIVE_RAMDISK},   {"debugfs", DRIVE_RAMDISK},  {"tracefs", DRIVE_RAMDISK},
    {"securityfs", DRIVE_RAMDISK},
};

// On a disk where they are the root: that of a container is put together from layers, of which the one that
// is written to lies there, and that of a small machine is a folder of its host.
constexpr const char *ROOTS[] = {"overlay", "aufs", "virtiofs", "9p"};

// Read-only images, on a block device or not.
constexpr const char *IMAGES[] = {"squashfs", "iso9660", "udf", "erofs", "cramfs", "romfs", "composefs"};

} // namespace

uint32_t file_system_drive_type(const char *type, uint32_t device_major, bool is_root) {
    for (const char *image : IMAGES)
        if (text_equal(type, image)) return DRIVE_CDROM;
    if (is_root)
        for (const char *root : ROOTS)
            if (text_equal(type, root)) return DRIVE_FIXED;
    for (const type_row &row : TYPES_BY_NAME)
        if (text_equal(type, row.type)) return row.drive_type;
    return device_major != 0 ? DRIVE_FIXED : DRIVE_REMOTE;
}

// Blanks, line ends and backslashes stand as a backslash and three octal digits.
static void unescape(char *text) {
    char *out = text;
    for (const char *at = text; *at != '\0'; out++) {
        bool escape = *at == '\\' && strspn(at + 1, "01234567") >= 3;
        *out = escape ? static_cast<char>((at[1] - '0') * 64 + (at[2] - '0') * 8 + (at[3] - '0')) : *at;
        at += escape ? 4 : 1;
    }
    *out = '\0';
}

static char *next_field(char **at) {
    char *field = *at + strspn(*at, " ");
    size_t length = strcspn(field, " ");
    if (length == 0) return nullptr;
    *at = field + length;
    if (**at != '\0') *(*at)++ = '\0';
    return field;
}

static bool parse_device(const char *field, mount_line *out) {
    uint64_t device_major = 0;
    uint64_t device_minor = 0;
    if (!read_number(&field, &device_major) || *field++ != ':' || !read_number(&field, &device_minor))
        return false;
    out->device_major = static_cast<uint32_t>(device_major);
    out->device_minor = static_cast<uint32_t>(device_minor);
    return device_major <= UINT32_MAX && device_minor <= UINT32_MAX;
}

// Of an automount: the seconds without use after which it does are its option "timeout", 0 for never.
static bool parse_lets_go(const char *type, char **at) {
    if (!text_equal(type, "autofs") || next_field(at) == nullptr) return false;
    const char *options = next_field(at);
    const char *timeout = options != nullptr ? strstr(options, ",timeout=") : nullptr;
    return timeout != nullptr && timeout[strlen(",timeout=")] != '0';
}

static bool parse_line(char *line, mount_line *out) {
    const char *number = line;
    if (!read_number(&number, &out->id) || !read_number(&number, &out->parent)) return false;
    char *at = line + (number - line);
    char *device = next_field(&at);
    out->part = next_field(&at);
    out->path = next_field(&at);
    if (device == nullptr || out->path == nullptr || !parse_device(device, out)) return false;
    char *field = next_field(&at);
    while (field != nullptr && !text_equal(field, "-"))
        field = next_field(&at);
    out->type = field != nullptr ? next_field(&at) : nullptr;
    if (out->type == nullptr || out->path[0] != '/') return false;
    out->lets_go = parse_lets_go(out->type, &at);
    unescape(out->part);
    unescape(out->path);
    bool is_root = text_equal(out->path, "/");
    out->drive_type = file_system_drive_type(out->type, out->device_major, is_root);
    return true;
}

static bool parse_lines(char *text, mount_lines *out) {
    size_t limit = 0;
    for (const char *at = text; (at = next_line(at)) != nullptr;)
        limit++;
    out->lines = static_cast<mount_line *>(heap_alloc(limit * sizeof(mount_line)));
    if (out->lines == nullptr) return false;
    for (char *end = nullptr; (end = strchr(text, '\n')) != nullptr; text = end + 1) {
        *end = '\0';
        mount_line line = {};
        if (parse_line(text, &line)) out->lines[out->count++] = line;
    }
    return true;
}

// Whether `path` lies below `above`, which is not the path itself.
static bool is_below(const char *path, const char *above) {
    size_t length = strlen(above);
    if (length == 1) return path[1] != '\0';
    return strncmp(path, above, length) == 0 && path[length] == '/';
}

// Covered by a mount on the very same place.
static bool is_covered(const mount_lines &all, const mount_line &line) {
    for (uint32_t i = 0; i < all.count; i++) {
        const mount_line &other = all.lines[i];
        if (other.parent == line.id && other.id != line.id && text_equal(other.path, line.path)) return true;
    }
    return false;
}

// Two mounts stand on the same one: had the upper been there first, the lower would stand on it. So the upper
// came later, and the path leads to a folder of it now.
static bool is_buried(const mount_lines &all, const mount_line &line) {
    for (uint32_t i = 0; i < all.count; i++) {
        const mount_line &other = all.lines[i];
        if (other.parent == line.parent && other.id != line.id && is_below(line.path, other.path))
            return true;
    }
    return false;
}

static const mount_line *find_parent(const mount_lines &all, const mount_line &line) {
    for (uint32_t i = 0; i < all.count; i++)
        if (all.lines[i].id == line.parent && line.parent != line.id) return &all.lines[i];
    return nullptr;
}

static bool is_reachable(const mount_lines &all, const mount_line &line) {
    if (is_covered(all, line)) return false;
    uint32_t steps = 0;
    for (const mount_line *at = &line; at != nullptr && steps < all.count; steps++) {
        if (is_buried(all, *at)) return false;
        at = find_parent(all, *at);
    }
    return true;
}

// What an automount holds for a while would be missing most of the time.
static bool is_held_for_a_while(const mount_lines &all, const mount_line &line) {
    const mount_line *parent = find_parent(all, line);
    return parent != nullptr && parent->lets_go && text_equal(parent->path, line.path);
}

static bool is_root_line(const mount_line &line) {
    return line.path[1] == '\0';
}

static bool lies_below_remote(const mount_lines &all, const mount_line &line) {
    for (uint32_t i = 0; i < all.count; i++) {
        const mount_line &other = all.lines[i];
        if (other.kept && other.drive_type == DRIVE_REMOTE && !is_root_line(other) &&
            is_below(line.path, other.path))
            return true;
    }
    return false;
}

// 0 for the root, 1 for a whole file system, 2 for a part.
static int place_rank(const mount_line &line) {
    if (is_root_line(line)) return 0;
    return text_equal(line.part, "/") ? 1 : 2;
}

static bool is_better_place(const mount_line &a, const mount_line &b) {
    if (place_rank(a) != place_rank(b)) return place_rank(a) < place_rank(b);
    size_t a_length = strlen(a.path);
    size_t b_length = strlen(b.path);
    return a_length != b_length ? a_length < b_length : &a < &b;
}

static bool is_best_place(const mount_lines &all, const mount_line &line) {
    for (uint32_t i = 0; i < all.count; i++) {
        const mount_line &other = all.lines[i];
        if (other.kept && other.drive_type == DRIVE_FIXED && other.device_major == line.device_major &&
            other.device_minor == line.device_minor && is_better_place(other, line))
            return false;
    }
    return true;
}

// Marks what can be reached of one drive type.
static void keep_reachable(mount_lines *all, uint32_t drive_type) {
    for (uint32_t i = 0; i < all->count; i++) {
        mount_line *line = &all->lines[i];
        if (line->drive_type == drive_type) line->kept = is_reachable(*all, *line);
    }
}

static void keep_drives(mount_lines *all, bool (*is_folder)(const char *path)) {
    keep_reachable(all, DRIVE_REMOTE);
    keep_reachable(all, DRIVE_FIXED);
    for (uint32_t i = 0; i < all->count; i++) {
        mount_line *line = &all->lines[i];
        if (!line->kept || line->drive_type != DRIVE_FIXED) continue;
        line->kept = !lies_below_remote(*all, *line) && !is_held_for_a_while(*all, *line) &&
                     (place_rank(*line) < 2 || is_folder(line->path));
    }
    for (uint32_t i = 0; i < all->count; i++) {
        mount_line *line = &all->lines[i];
        line->chosen = line->kept && line->drive_type == DRIVE_FIXED && is_best_place(*all, *line);
    }
}

static bool copy_kept(const mount_lines &all, mount_table *out) {
    uint32_t kept = 0;
    for (uint32_t i = 0; i < all.count; i++)
        kept += all.lines[i].kept;
    out->points = static_cast<mount_point *>(heap_alloc(kept * sizeof(mount_point)));
    if (out->points == nullptr) return false;
    for (uint32_t i = 0; i < all.count; i++) {
        const mount_line &line = all.lines[i];
        if (!line.kept) continue;
        char *path = text_copy(line.path);
        if (path == nullptr) return false;
        out->points[out->count++] = {.path = path,
                                     .drive_type = line.drive_type,
                                     .device_major = line.device_major,
                                     .device_minor = line.device_minor,
                                     .chosen = line.chosen};
    }
    return true;
}

mount_table *parse_mounts(const char *text, bool (*is_folder)(const char *path)) {
    mount_table_guard table(heap_new<mount_table>());
    text_guard copy(text_copy(text));
    mount_lines all = {};
    if (table == nullptr || copy == nullptr || !parse_lines(copy.get(), &all)) return nullptr;
    keep_drives(&all, is_folder);
    bool copied = copy_kept(all, table.get());
    heap_free(all.lines);
    return copied ? table.release() : nullptr;
}

void free_mount_table(mount_table *table) {
    if (table == nullptr) return;
    for (uint32_t i = 0; i < table->count; i++)
        heap_free(table->points[i].path);
    heap_free(table->points);
    heap_free(table);
}

static bool is_place(const mount_point &point) {
    return point.chosen || point.drive_type != DRIVE_FIXED;
}

uint32_t mount_drive_type(const mount_table *table, const char *path) {
    for (uint32_t i = 0; i < table->count; i++) {
        const mount_point &point = table->points[i];
        if (is_place(point) && text_equal(point.path, path)) return point.drive_type;
    }
    return DRIVE_NO_ROOT_DIR;
}

static const mount_point *find_drive(const mount_table *table, const char *path) {
    for (uint32_t i = 0; i < table->count; i++) {
        const mount_point &point = table->points[i];
        if (point.drive_type == DRIVE_FIXED && text_equal(point.path, path)) return &point;
    }
    return nullptr;
}

bool mount_is_drive(const mount_table *table, const char *path) {
    return find_drive(table, path) != nullptr;
}

bool mount_device(const mount_table *table, const char *path, uint32_t *out_major, uint32_t *out_minor) {
    const mount_point *point = find_drive(table, path);
    if (point == nullptr || point->device_major == 0) return false;
    *out_major = point->device_major;
    *out_minor = point->device_minor;
    return true;
}

bool mount_is_remote(const mount_table *table, const char *path) {
    for (uint32_t i = 0; i < table->count; i++) {
        const mount_point &point = table->points[i];
        if (point.drive_type != DRIVE_REMOTE || text_equal(point.path, "/")) continue;
        if (text_equal(point.path, path) || is_below(path, point.path)) return true;
    }
    return false;
}

// The drive that lies nearest above the path, or absent.
static const mount_point *find_carrier(const mount_table *table, const char *path) {
    const mount_point *nearest = nullptr;
    for (uint32_t i = 0; i < table->count; i++) {
        const mount_point *point = &table->points[i];
        if (!point->chosen || !is_below(path, point->path)) continue;
        if (nearest == nullptr || strlen(point->path) > strlen(nearest->path)) nearest = point;
    }
    return nearest;
}

const char *mount_root(const mount_table *table, uint32_t index) {
    if (index == 0) return "/";
    if (mount_drive_type(table, "/") == DRIVE_FIXED) return nullptr;
    for (uint32_t i = 0; i < table->count; i++) {
        const mount_point &point = table->points[i];
        if (point.chosen && find_carrier(table, point.path) == nullptr && --index == 0) return point.path;
    }
    return nullptr;
}

bool next_mount_below(const mount_table *table, const char *root, uint32_t *position, char *path,
                      size_t size) {
    size_t length = strlen(root);
    while (*position < table->count) {
        const mount_point &point = table->points[(*position)++];
        if (!point.chosen || !is_below(point.path, root)) continue;
        const mount_point *carrier = find_carrier(table, point.path);
        if (carrier == nullptr || !text_equal(carrier->path, root)) continue;
        if (strlen(point.path + length) >= size) continue;
        copy_bounded(path, point.path + length, size);
        return true;
    }
    return false;
}
