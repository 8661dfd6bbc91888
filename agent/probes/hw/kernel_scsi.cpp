#include "probes/hw/kernel_scsi.h"

#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/hw/id_text.h"
#include "probes/hw/kernel_lists.h"
#include "probes/hw/kernel_ops.h"
#include "probes/hw/scsi_layout.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

struct scsi_adapter {
    uint32_t host;
};

namespace {

constexpr char DEVICES[] = "/sys/class/scsi_device/";
constexpr uint32_t LAST_BUS = 63; // each takes room in the table whether it has devices or not

struct unit_list {
    uint32_t count;
    scsi_unit *units;
};

using units_guard = guard<scsi_unit, heap_free>;

} // namespace

// ---- ports and nodes

bool kernel_port_of_path(const char *path, uint32_t *out_port) {
    return read_word(&path, "\\\\.\\scsi") && read_number(&path, out_port) && text_equal(path, ":");
}

bool kernel_read_ports(kernel_ports *out) {
    name_list_guard names(read_names("/sys/class/scsi_host/"));
    if (names == nullptr) return false;
    out->count = lowest_hosts(names.get(), out->hosts, KERNEL_PORTS);
    return true;
}

bool kernel_generic_node(const char *device, char *path, size_t size) {
    char folder[SYSFS_PATH_SIZE];
    snprintf(folder, sizeof folder, "%s%s/device/scsi_generic/", DEVICES, device);
    name_list_guard nodes(read_names(folder));
    if (nodes == nullptr || nodes->count == 0) return false;
    return snprintf(path, size, "/dev/%s", nodes->names[0]) < static_cast<int>(size);
}

scsi_adapter *kernel_scsi_open(const char *path, uint32_t) {
    kernel_ports ports;
    guard<scsi_adapter, heap_free> adapter(heap_new<scsi_adapter>());
    if (adapter == nullptr || !kernel_read_ports(&ports)) {
        kernel_host->set_last_error(ENOMEM);
        return nullptr;
    }
    uint32_t port = 0;
    if (!kernel_port_of_path(path, &port) || port >= ports.count) {
        kernel_host->set_last_error(ENOENT);
        return nullptr;
    }
    adapter->host = ports.hosts[port];
    return adapter.release();
}

void kernel_scsi_close(scsi_adapter *adapter) {
    heap_free(adapter);
}

// ---- the table of devices

static bool fits_in_bytes(const scsi_address &address) {
    return address.channel <= LAST_BUS && address.target <= UINT8_MAX && address.lun <= UINT8_MAX;
}

static bool is_claimed(const char *device) {
    char path[SYSFS_PATH_SIZE];
    snprintf(path, sizeof path, "%s%s/device/driver", DEVICES, device);
    return kernel_host->exists(path);
}

static void add_device(const char *name, uint32_t host, unit_list *list) {
    scsi_address address;
    if (!parse_scsi_address(name, &address) || address.host != host) return;
    if (!fits_in_bytes(address)) {
        agent_log(LOG_DETAIL, "SCSI device %s is left out: its address does not fit into a name", name);
        return;
    }
    list->units[list->count++] = {.bus = static_cast<uint8_t>(address.channel),
                                  .target = static_cast<uint8_t>(address.target),
                                  .lun = static_cast<uint8_t>(address.lun),
                                  .claimed = is_claimed(name)};
}

static bool unit_before(const scsi_unit &a, const scsi_unit &b) {
    if (a.bus != b.bus) return a.bus < b.bus;
    if (a.target != b.target) return a.target < b.target;
    return a.lun < b.lun;
}

static bool is_claimed_unit(const scsi_unit &unit) {
    return unit.claimed;
}

static void encode_units(unit_list *list, uint32_t host, uint8_t *table) {
    std::sort(list->units, list->units + list->count, unit_before);
    if (encode_inquiry_table(list->units, list->count, table) == list->count) return;
    auto *end = std::remove_if(list->units, list->units + list->count, is_claimed_unit);
    list->count = static_cast<uint32_t>(end - list->units);
    uint32_t told = encode_inquiry_table(list->units, list->count, table);
    if (told < list->count)
        agent_log(LOG_WARNING, "SCSI host %u has %u unclaimed devices, of which %u are looked at", host,
                  list->count, told);
}

static bool query_devices(const scsi_adapter *adapter, uint8_t *output) {
    name_list_guard devices(read_names(DEVICES));
    if (devices == nullptr) return false;
    units_guard room(heap_array<scsi_unit>(devices->count + size_t{1}));
    if (room == nullptr) return false;
    unit_list list = {.count = 0, .units = room.get()};
    for (uint32_t i = 0; i < devices->count; i++)
        add_device(devices->names[i], adapter->host, &list);
    encode_units(&list, adapter->host, output);
    return true;
}

static bool fail(uint32_t code) {
    kernel_host->set_last_error(code);
    return false;
}

// ---- a command

static void print_device(const scsi_adapter *adapter, const scsi_pass_through &command,
                         char name[SYSFS_PATH_SIZE]) {
    snprintf(name, SYSFS_PATH_SIZE, "%u:%u:%u:%u", adapter->host, command.bus, command.target, command.lun);
}

static bool send_to_node(const char *path, sg_request *request) {
    kernel_node node = kernel_host->open_node(path, NODE_READ_WRITE);
    if (node == NO_NODE) return false;
    bool sent = kernel_host->send_scsi(node, request);
    kernel_host->close_node(node);
    if (!sent) return false;
    return request->host_status == 0 || fail(EIO);
}

static bool pass_through(const scsi_adapter *adapter, const scsi_pass_through &command, uint8_t *buffer) {
    char device[SYSFS_PATH_SIZE];
    char path[SYSFS_PATH_SIZE];
    print_device(adapter, command, device);
    if (!kernel_generic_node(device, path, sizeof path)) return fail(ENXIO);
    sg_request request = {.cdb_length = command.cdb_length,
                          .data = buffer + command.data_offset,
                          .data_length = command.transfer_length,
                          .timeout_ms = command.timeout_s * 1000};
    memcpy(request.cdb, command.cdb, sizeof request.cdb);
    if (!send_to_node(path, &request)) return false;
    set_pass_through_answer(buffer, request.status, request.transferred);
    return true;
}

bool kernel_scsi_control(scsi_adapter *adapter, uint32_t control, const uint8_t *input, uint32_t input_size,
                         uint8_t *output, uint32_t output_size, uint32_t *out_returned) {
    scsi_pass_through command;
    switch (control) {
    case IOCTL_SCSI_GET_INQUIRY_DATA_CODE:
        if (output_size < INQUIRY_TABLE_SIZE) return fail(EINVAL);
        *out_returned = INQUIRY_TABLE_SIZE;
        return query_devices(adapter, output) || fail(ENOMEM);
    case IOCTL_SCSI_PASS_THROUGH_CODE:
        if (!decode_pass_through(input, input_size, output_size, &command)) return fail(EINVAL);
        *out_returned = output_size;
        if (output != input) memmove(output, input, PASS_THROUGH_SIZE);
        return pass_through(adapter, command, output);
    default:
        return fail(ENOTTY);
    }
}
