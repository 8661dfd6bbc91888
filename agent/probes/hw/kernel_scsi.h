// The SCSI operations of a host with a Linux kernel (scsi_ops.h has their contract), in the platform's
// layouts.
//
// The kernel's hosts are the ports, in the order of their numbers and without their gaps; its channels are
// the buses. A device counts as claimed when a driver is bound to it, which the generic one never is. A
// command goes to the generic node of the device.
//
// A target or a LUN beyond 8 bits and a channel above 63 have no place in the table and are left out. It has
// room for 120 devices and more; of a longer list only those are told that nothing claims.
#pragma once

#include "probes/hw/scsi_ops.h"

#include <cstddef>

scsi_adapter *kernel_scsi_open(const char *path, uint32_t access);
bool kernel_scsi_control(scsi_adapter *adapter, uint32_t control, const uint8_t *input, uint32_t input_size,
                         uint8_t *output, uint32_t output_size, uint32_t *out_returned);
void kernel_scsi_close(scsi_adapter *adapter);

inline constexpr uint32_t KERNEL_PORTS = 256;

// The kernel's numbers of the hosts that are the ports.
struct kernel_ports {
    uint32_t count;
    uint32_t hosts[KERNEL_PORTS];
};

// False when memory is out.
bool kernel_read_ports(kernel_ports *out);

// The port of a path "\\.\scsi%u:".
bool kernel_port_of_path(const char *path, uint32_t *out_port);

// The path of the generic node that belongs to the device of this name, "1:0:6:0".
bool kernel_generic_node(const char *device, char *path, size_t size);
