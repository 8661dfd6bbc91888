#include "probes/hw/scsi.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/waits.h"
#include "probes/hw/id_text.h"

#include <cstdio>
#include <cstring>

const scsi_ops *scsi_host;

namespace {

constexpr size_t PORT_PATH_SIZE = 16;
constexpr uint32_t LAST_PORT = 255;
constexpr uint32_t PASS_THROUGH_BUFFER_SIZE = 608;
constexpr uint32_t SENSE_OFFSET = 60;
constexpr uint32_t DATA_OFFSET = 92;
constexpr uint32_t TIME_OUT_S = 2;
constexpr int64_t RETRY_DELAY_S = 1;

} // namespace

static void print_port_path(uint32_t port, char path[PORT_PATH_SIZE]) {
    snprintf(path, PORT_PATH_SIZE, "\\\\.\\scsi%u:", port);
}

// ---- the walk

static void close_port(scsi_scan *scan) {
    if (scan->handle != nullptr) scsi_host->CloseHandle(scan->handle);
    scan->handle = nullptr;
}

static uint32_t first_offset(const scsi_scan *scan) {
    return decode_bus(scan->inquiry, scan->inquiry_size, scan->bus).first_offset;
}

static const char *query_port(scsi_scan *scan, const char *path) {
    uint32_t returned = 0;
    memset(scan->inquiry, 0, sizeof scan->inquiry);
    memset(scan->seen, 0, sizeof scan->seen);
    if (!scsi_host->DeviceIoControl(scan->handle, IOCTL_SCSI_GET_INQUIRY_DATA_CODE, nullptr, 0, scan->inquiry,
                                    sizeof scan->inquiry, &returned))
        return format_error("Error querying %s: %s", path, last_error_text());
    scan->inquiry_size = returned < sizeof scan->inquiry ? returned : sizeof scan->inquiry;
    return nullptr;
}

static const char *open_port(scsi_scan *scan) {
    char path[PORT_PATH_SIZE];
    print_port_path(scan->port, path);
    agent_log(LOG_TRACE, "Opening device %s", path);
    close_port(scan);
    scan->handle = scsi_host->CreateFileA(path, GENERIC_READ_WRITE_ACCESS);
    if (scan->handle == nullptr) {
        if (last_error() != ERROR_CODE_NO_SUCH_FILE)
            return format_error("Error opening %s: %s", path, last_error_text());
        scan->done = true;
        return nullptr;
    }
    if (auto *failure = query_port(scan, path)) return failure;
    scan->bus = 0;
    scan->offset = first_offset(scan);
    return nullptr;
}

// The walk is over where there is no such port, or one that tells nothing.
static void enter_port(scsi_scan *scan) {
    auto *failure = open_port(scan);
    if (failure == nullptr) return;
    agent_log(LOG_NORMAL, "Error scanning SCSI devices: %s", failure);
    scan->done = true;
}

// On to the first entry of the next bus, which may have none.
static void next_bus(scsi_scan *scan) {
    uint32_t buses = decode_bus_count(scan->inquiry);
    agent_log(LOG_TRACE, "No more targets on bus %d of %u", scan->bus, buses);
    if (scan->bus + 1U < buses) {
        scan->bus++;
        scan->offset = first_offset(scan);
        return;
    }
    agent_log(LOG_TRACE, "No more busses");
    if (scan->port == LAST_PORT) {
        scan->done = true;
        return;
    }
    scan->port++;
    enter_port(scan);
}

// False where a byte of the entry at this offset was part of one before.
static bool mark_seen(scsi_scan *scan, uint32_t offset) {
    bool fresh = true;
    for (uint32_t byte = offset; byte < offset + DEVICE_ENTRY_SIZE; byte++) {
        auto bit = static_cast<uint8_t>(1U << byte % 8);
        fresh = fresh && (scan->seen[byte / 8] & bit) == 0;
        scan->seen[byte / 8] |= bit;
    }
    return fresh;
}

// False where the table leads to what cannot be an entry.
static bool take_entry(scsi_scan *scan, scsi_device_entry *out) {
    bool sound =
        decode_device(scan->inquiry, scan->inquiry_size, scan->offset, out) && mark_seen(scan, scan->offset);
    if (sound || scan->told_unsound) return sound;
    scan->told_unsound = true;
    agent_log(LOG_WARNING,
              "The device table of SCSI port %d is broken on bus %d: the rest of the bus is left out",
              scan->port, scan->bus);
    return false;
}

static const char *find_next_scsi_dev_impl(scsi_scan *scan) {
    agent_log(LOG_TRACE, "find_next_scsi_dev_impl: bus %d, offset %d", scan->bus,
              static_cast<int>(scan->offset));
    while (!scan->done) {
        scsi_device_entry entry;
        if (scan->offset == 0) {
            next_bus(scan);
        } else if (!take_entry(scan, &entry)) {
            scan->offset = 0;
        } else if (entry.claimed) {
            agent_log(LOG_TRACE, "Device is already claimed by a class driver");
            scan->offset = entry.next_offset;
        } else {
            agent_log(LOG_TRACE, "Not claimed by a class driver");
            snprintf(scan->name, sizeof scan->name, "scsi%d:%02X:%02X:%02X", scan->port, scan->bus,
                     entry.target, entry.lun);
            return scan->name;
        }
    }
    return nullptr;
}

const char *find_first_scsi_dev(scsi_scan **out) {
    auto *scan = heap_new<scsi_scan>();
    *out = scan;
    if (scan == nullptr) {
        agent_log(LOG_NORMAL, "Error scanning SCSI devices: Out of memory");
        return nullptr;
    }
    enter_port(scan);
    return scan->done ? nullptr : find_next_scsi_dev_impl(scan);
}

const char *find_next_scsi_dev(scsi_scan *scan) {
    scsi_device_entry entry = {};
    decode_device(scan->inquiry, scan->inquiry_size, scan->offset, &entry);
    scan->offset = entry.next_offset;
    return find_next_scsi_dev_impl(scan);
}

void end_scsi_scan(scsi_scan *scan) {
    if (scan == nullptr) return;
    close_port(scan);
    heap_free(scan);
}

// ---- one device

static bool parse_name(const char *name, scsi_dev *out) {
    const char *at = name;
    uint32_t port = 0;
    if (!read_word(&at, "scsi") || !read_number(&at, &port) || port > LAST_PORT) return false;
    out->port = static_cast<uint8_t>(port);
    return read_word(&at, ":") && read_hex_byte(&at, &out->path) && read_word(&at, ":") &&
           read_hex_byte(&at, &out->target) && read_word(&at, ":") && read_hex_byte(&at, &out->lun);
}

const char *open_scsi_dev(scsi_dev **out, const char *name) {
    scsi_dev_guard device(heap_new<scsi_dev>());
    if (device == nullptr) return "Out of memory in open_scsi_dev";
    if (!parse_name(name, device.get())) return format_error("Error parsing SCSI device name: %s", name);
    char path[PORT_PATH_SIZE];
    print_port_path(device->port, path);
    device->handle = scsi_host->CreateFileA(path, GENERIC_READ_WRITE_ACCESS);
    if (device->handle == nullptr) return format_error("Error opening %s: %s", path, last_error_text());
    *out = device.release();
    return nullptr;
}

void close_scsi_dev(scsi_dev *device) {
    if (device == nullptr) return;
    if (device->handle != nullptr) scsi_host->CloseHandle(device->handle);
    heap_free(device);
}

// ---- a command

static void fill_command(const scsi_dev *device, const uint8_t *cdb, uint32_t cdb_length, uint32_t in_length,
                         uint8_t *block) {
    scsi_pass_through command = {.bus = device->path,
                                 .target = device->target,
                                 .lun = device->lun,
                                 .cdb_length = static_cast<uint8_t>(cdb_length),
                                 .data_in = true,
                                 .transfer_length = in_length,
                                 .timeout_s = TIME_OUT_S,
                                 .data_offset = DATA_OFFSET,
                                 .sense_offset = SENSE_OFFSET};
    memcpy(command.cdb, cdb, cdb_length);
    // As old SCSI had it: a device may look for its unit here.
    if (cdb_length >= 2)
        command.cdb[1] = static_cast<uint8_t>((command.cdb[1] & 0x1F) | (device->lun & 7U) << 5);
    encode_pass_through(command, block);
}

static bool try_command(const scsi_dev *device, const uint8_t *cdb, uint32_t cdb_length, uint8_t *reply,
                        uint32_t in_length) {
    uint8_t buffer[PASS_THROUGH_BUFFER_SIZE] = {};
    uint32_t returned = 0;
    fill_command(device, cdb, cdb_length, in_length, buffer);
    if (!scsi_host->DeviceIoControl(device->handle, IOCTL_SCSI_PASS_THROUGH_CODE, buffer, PASS_THROUGH_SIZE,
                                    buffer, in_length + DATA_OFFSET, &returned))
        return false;
    if (pass_through_status(buffer) != 0) return false;
    memcpy(reply, buffer + DATA_OFFSET, in_length);
    return true;
}

const char *gen_scsi_cmd(scsi_dev *device, const uint8_t *cdb, uint32_t cdb_length, uint32_t out_length,
                         uint8_t *buffer, uint32_t in_length) {
    if (out_length != 0) return "gen_scsi_cmd() does not support non-zero in_len";
    if (in_length > PASS_THROUGH_BUFFER_SIZE - DATA_OFFSET) return "gen_scsi_cmd(): Buffer too short";
    if (try_command(device, cdb, cdb_length, buffer, in_length)) return nullptr;
    sleep_interruptible(RETRY_DELAY_S);
    if (try_command(device, cdb, cdb_length, buffer, in_length)) return nullptr;
    return format_error("gen_scsi_cmd(): %s", last_error_text());
}
