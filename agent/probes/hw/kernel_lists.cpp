#include "probes/hw/kernel_lists.h"

#include "platform/text.h"
#include "probes/hw/id_text.h"
#include "probes/hw/kernel_ops.h"

#include <algorithm>
#include <cstring>

const kernel_ops *kernel_host;

namespace {

// A name of some 10 bytes each: more devices than a host has numbers for.
constexpr size_t FOLDER_LIMIT = size_t{1} << 20;
constexpr size_t FOLDER_FIRST_SIZE = size_t{4} << 10;

// Followed by a number.
constexpr const char *NO_DISKS[] = {"loop", "ram", "zram", "dm-", "sr", "fd"};

} // namespace

// ---- names, one a line

static uint32_t count_lines(const char *text) {
    uint32_t lines = 0;
    for (const char *at = text; *at != '\0'; at++)
        if (*at == '\n') lines++;
    return lines;
}

static void cut_lines(char *text, name_list *list) {
    for (char *at = text, *end = nullptr; (end = strchr(at, '\n')) != nullptr; at = end + 1) {
        *end = '\0';
        if (end != at) list->names[list->count++] = at;
    }
}

static bool name_before(const char *a, const char *b) {
    return strcmp(a, b) < 0;
}

name_list *parse_names(char *text) {
    text_guard owned(text);
    name_list_guard list(heap_new<name_list>());
    if (list == nullptr) return nullptr;
    list->names = heap_array<const char *>(count_lines(text) + 1);
    if (list->names == nullptr) return nullptr;
    cut_lines(text, list.get());
    list->text = owned.release();
    std::sort(list->names, list->names + list->count, name_before);
    return list.release();
}

void free_names(name_list *list) {
    if (list == nullptr) return;
    heap_free(list->names);
    heap_free(list->text);
    heap_free(list);
}

// What does not fit is asked for again with more room.
static char *read_folder(const char *folder) {
    for (size_t size = FOLDER_FIRST_SIZE; size <= FOLDER_LIMIT; size *= 4) {
        text_guard text(static_cast<char *>(heap_alloc(size + 1)));
        if (text == nullptr) return nullptr;
        int64_t length = kernel_host->read_source(folder, text.get(), size);
        text.get()[std::max<int64_t>(length, 0)] = '\0';
        if (length < static_cast<int64_t>(size)) return text.release();
    }
    return text_copy("");
}

name_list *read_names(const char *folder) {
    char *text = read_folder(folder);
    return text != nullptr ? parse_names(text) : nullptr;
}

bool read_word_file(const char *path, char *buffer, size_t size) {
    int64_t length = kernel_host->read_source(path, buffer, size - 1);
    if (length < 0) return false;
    buffer[length] = '\0';
    buffer[strcspn(buffer, "\n")] = '\0';
    size_t end = strlen(buffer);
    while (end > 0 && is_blank(buffer[end - 1]))
        end--;
    buffer[end] = '\0';
    size_t start = strspn(buffer, " \t");
    memmove(buffer, buffer + start, end - std::min(start, end) + 1);
    return true;
}

// ---- disks

bool is_whole_disk_name(const char *name) {
    for (const char *prefix : NO_DISKS) {
        const char *rest = name;
        uint32_t number = 0;
        if (read_word(&rest, prefix) && read_number(&rest, &number)) return false;
    }
    return true;
}

disk_kind kind_of_disk(const char *name, const char *vendor, bool has_ata_page) {
    if (text_starts_with(name, "nvme")) return DISK_NVME;
    if (!text_starts_with(name, "sd")) return DISK_OTHER;
    return text_equal(vendor, "ATA") || has_ata_page ? DISK_ATA : DISK_SCSI;
}

const char *foreign_kind_words(disk_kind kind) {
    switch (kind) {
    case DISK_ATA:
        return nullptr;
    case DISK_NVME:
        return "an NVMe drive";
    case DISK_SCSI:
        return "a SCSI or SAS drive";
    case DISK_OTHER:
        break;
    }
    return "a drive without ATA";
}

// ---- SCSI hosts and devices

static bool read_lun(const char **text, uint64_t *out) {
    const char *end = *text;
    *out = parse_decimal(*text, &end);
    bool read = end != *text;
    *text = end;
    return read;
}

bool parse_scsi_address(const char *name, scsi_address *out) {
    const char *at = name;
    return read_number(&at, &out->host) && read_word(&at, ":") && read_number(&at, &out->channel) &&
           read_word(&at, ":") && read_number(&at, &out->target) && read_word(&at, ":") &&
           read_lun(&at, &out->lun) && *at == '\0';
}

template <class Number>
static int compare(Number a, Number b) {
    return a < b ? -1 : (a > b ? 1 : 0);
}

int compare_scsi_addresses(const scsi_address &a, const scsi_address &b) {
    if (int order = compare(a.host, b.host)) return order;
    if (int order = compare(a.channel, b.channel)) return order;
    if (int order = compare(a.target, b.target)) return order;
    return compare(a.lun, b.lun);
}

static bool parse_host(const char *name, uint32_t *out) {
    return read_word(&name, "host") && read_number(&name, out) && *name == '\0';
}

uint32_t lowest_hosts(const name_list *names, uint32_t *numbers, uint32_t room) {
    uint32_t count = 0;
    for (uint32_t i = 0; i < names->count; i++) {
        uint32_t number = 0;
        if (!parse_host(names->names[i], &number)) continue;
        uint32_t *place = std::upper_bound(numbers, numbers + count, number);
        if (place == numbers + room) continue;
        if (count < room) count++;
        std::copy_backward(place, numbers + count - 1, numbers + count);
        *place = number;
    }
    return count;
}
