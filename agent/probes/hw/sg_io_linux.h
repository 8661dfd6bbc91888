// The two commands of an open device node, as the kernel takes them.
#pragma once

#include "probes/hw/kernel_ops.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <linux/cciss_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

// Does the work of ioctl; tests put their own here.
using device_control = int (*)(int node, unsigned long code, void *argument);

inline int kernel_control(int node, unsigned long code, void *argument) {
    return ioctl(node, code, argument);
}

inline device_control device_control_in_force = kernel_control;

inline bool sg_io(kernel_node node, sg_request *request) {
    sg_io_hdr_t header = {};
    header.interface_id = 'S';
    header.dxfer_direction = request->data_length > 0 ? SG_DXFER_FROM_DEV : SG_DXFER_NONE;
    header.cmd_len = static_cast<unsigned char>(request->cdb_length);
    header.mx_sb_len = SENSE_LIMIT;
    header.dxfer_len = request->data_length;
    header.dxferp = request->data;
    header.cmdp = request->cdb;
    header.sbp = request->sense;
    header.timeout = request->timeout_ms;
    if (device_control_in_force(static_cast<int>(node), SG_IO, &header) != 0) return false;
    request->status = header.status;
    request->host_status = header.host_status;
    request->driver_status = header.driver_status;
    request->sense_length = std::min<uint32_t>(header.sb_len_wr, SENSE_LIMIT);
    uint32_t missing = static_cast<uint32_t>(std::max(header.resid, 0));
    request->transferred = request->data_length - std::min(missing, request->data_length);
    return true;
}

// For the controller itself, whose address is 0.
inline bool ciss_io(kernel_node node, ciss_passthru *request) {
    IOCTL_Command_struct command = {};
    command.Request.CDBLen = static_cast<uint8_t>(request->cdb_length);
    command.Request.Type.Type = TYPE_CMD;
    command.Request.Type.Attribute = ATTR_SIMPLE;
    command.Request.Type.Direction = XFER_READ;
    static_assert(sizeof command.Request.CDB == CDB_LIMIT);
    memcpy(command.Request.CDB, request->cdb, sizeof command.Request.CDB);
    command.buf_size = static_cast<uint16_t>(request->data_length);
    command.buf = request->data;
    if (device_control_in_force(static_cast<int>(node), CCISS_PASSTHRU, &command) != 0) return false;
    request->command_status = command.error_info.CommandStatus;
    static_assert(sizeof command.error_info.SenseInfo == CISS_SENSE_LIMIT);
    memcpy(request->sense, command.error_info.SenseInfo, CISS_SENSE_LIMIT);
    request->sense_length = std::min<uint32_t>(command.error_info.SenseLen, CISS_SENSE_LIMIT);
    return true;
}

// The kernel's layouts of 64-bit hosts.
static_assert(sizeof(sg_io_hdr_t) == 88);
static_assert(sizeof(IOCTL_Command_struct) == 88);
