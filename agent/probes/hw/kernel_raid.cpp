#include "probes/hw/kernel_raid.h"

#include "platform/heap.h"
#include "platform/text.h"
#include "probes/hw/ciss_layout.h"
#include "probes/hw/kernel_lists.h"
#include "probes/hw/kernel_ops.h"
#include "probes/hw/kernel_scsi.h"
#include "probes/hw/sense_data.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

struct raid_adapter {
    kernel_node node; // NO_NODE where the driver speaks no CISS
};

namespace {

constexpr const char *CISS_DRIVERS[] = {"hpsa", "smartpqi"};
constexpr size_t DRIVER_NAME_SIZE = 64;

// What becomes of a command, as the controller tells it.
constexpr uint16_t COMMAND_DONE = 0;
constexpr uint16_t COMMAND_TARGET_STATUS = 1;
constexpr uint16_t COMMAND_LESS_DATA = 2;

// The ports as the walk over them has found them at its start, and where it stands; 0 for none.
kernel_ports ports;
uint32_t next_port;

} // namespace

// ---- opening

bool driver_speaks_ciss(const char *driver) {
    for (const char *known : CISS_DRIVERS)
        if (text_equal(driver, known)) return true;
    return false;
}

static bool host_speaks_ciss(uint32_t host) {
    char path[SYSFS_PATH_SIZE];
    char driver[DRIVER_NAME_SIZE] = "";
    snprintf(path, sizeof path, "/sys/class/scsi_host/host%u/proc_name", host);
    return read_word_file(path, driver, sizeof driver) && driver_speaks_ciss(driver);
}

// The lowest device of the host that has a node.
static bool find_node(uint32_t host, char *path, size_t size) {
    name_list_guard devices(read_names("/sys/class/scsi_device/"));
    scsi_address lowest = {};
    bool found = false;
    for (uint32_t i = 0; devices != nullptr && i < devices->count; i++) {
        scsi_address address;
        char candidate[SYSFS_PATH_SIZE];
        if (!parse_scsi_address(devices->names[i], &address) || address.host != host) continue;
        if (found && compare_scsi_addresses(address, lowest) > 0) continue;
        if (!kernel_generic_node(devices->names[i], candidate, sizeof candidate)) continue;
        copy_bounded(path, candidate, size);
        lowest = address;
        found = true;
    }
    return found;
}

static bool open_controller(uint32_t host, raid_adapter *adapter) {
    char path[SYSFS_PATH_SIZE];
    if (!find_node(host, path, sizeof path)) {
        kernel_host->set_last_error(ENXIO);
        return false;
    }
    adapter->node = kernel_host->open_node(path, NODE_READ_WRITE);
    return adapter->node != NO_NODE;
}

void kernel_raid_reset() {
    next_port = 0;
}

// A port that is not behind the one before begins a walk.
static uint32_t find_host(const char *path, uint32_t *out_host) {
    uint32_t port = 0;
    if (!kernel_port_of_path(path, &port)) return ENOENT;
    bool begins = port < next_port || next_port == 0;
    next_port = 0;
    if (begins && !kernel_read_ports(&ports)) return ENOMEM;
    next_port = port + 1;
    if (port >= ports.count) return ENOENT;
    *out_host = ports.hosts[port];
    return 0;
}

raid_adapter *kernel_raid_open(const char *path, uint32_t) {
    uint32_t host = 0;
    if (uint32_t reason = find_host(path, &host)) {
        kernel_host->set_last_error(reason);
        return nullptr;
    }
    guard<raid_adapter, heap_free> adapter(heap_new<raid_adapter>());
    if (adapter == nullptr) {
        kernel_host->set_last_error(ENOMEM);
        return nullptr;
    }
    adapter->node = NO_NODE;
    if (host_speaks_ciss(host) && !open_controller(host, adapter.get())) return nullptr;
    return adapter.release();
}

void kernel_raid_close(raid_adapter *adapter) {
    if (adapter->node != NO_NODE) kernel_host->close_node(adapter->node);
    heap_free(adapter);
}

// ---- a request

static bool is_refused_volume(const ciss_passthru &request, const uint8_t *block) {
    if (request.command_status != COMMAND_TARGET_STATUS || !is_ciss_identify_volume(block)) return false;
    sense_facts sense;
    decode_sense(request.sense, request.sense_length, &sense);
    return sense.known && sense.key == SENSE_ILLEGAL_REQUEST;
}

static uint32_t return_code_of(const ciss_passthru &request) {
    return request.command_status == COMMAND_LESS_DATA ? COMMAND_DONE : request.command_status;
}

static bool fail(uint32_t code) {
    kernel_host->set_last_error(code);
    return false;
}

bool kernel_raid_control(raid_adapter *adapter, uint32_t control, uint8_t *block, uint32_t size) {
    if (adapter->node == NO_NODE) return fail(ENOTTY);
    if (control != IOCTL_SCSI_MINIPORT_CODE || size <= CISS_REPLY_OFFSET) return fail(EINVAL);
    uint8_t length = block[CISS_COMMAND_LENGTH_OFFSET];
    if (length == 0 || length > CDB_LIMIT) return fail(EINVAL);
    ciss_passthru request = {
        .cdb_length = length, .data = block + CISS_REPLY_OFFSET, .data_length = size - CISS_REPLY_OFFSET};
    memcpy(request.cdb, block + CISS_COMMAND_OFFSET, CDB_LIMIT);
    if (!kernel_host->send_ciss(adapter->node, &request)) return false;
    set_ciss_return_code(block, return_code_of(request));
    if (!is_refused_volume(request, block)) return true;
    memset(request.data, 0, request.data_length);
    set_ciss_return_code(block, COMMAND_DONE);
    return true;
}
