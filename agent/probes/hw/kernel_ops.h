// What the SMART, SCSI and RAID answers of a host with a Linux kernel ask of it: the texts and links of
// sysfs, device nodes, and two commands on an open node. The answers themselves (kernel_smart, kernel_scsi,
// kernel_raid) are portable.
#pragma once

#include <cstddef>
#include <cstdint>

// A device node that is open.
using kernel_node = intptr_t;
inline constexpr kernel_node NO_NODE = -1;

// A disk must not be opened for writing: when it is closed again the host takes a look at what it holds now,
// and wakes it for that. A generic node wants both.
enum node_access { NODE_READ, NODE_READ_WRITE };

inline constexpr uint32_t SENSE_LIMIT = 64;
inline constexpr uint32_t CDB_LIMIT = 16;

// A SCSI command, and its answer. Data goes in only.
struct sg_request {
    uint8_t cdb[CDB_LIMIT];
    uint32_t cdb_length;
    uint8_t *data;
    uint32_t data_length; // 0 for a command without data
    uint32_t timeout_ms;

    uint8_t status;
    uint16_t host_status;   // 0 where the command has reached the device and come back
    uint16_t driver_status; // its low four bits: 0, or 8 where there is sense data
    uint32_t transferred;
    uint8_t sense[SENSE_LIMIT];
    uint32_t sense_length;
};

inline constexpr uint32_t CISS_SENSE_LIMIT = 32;

// A command for a controller of the CISS family itself, and its answer.
struct ciss_passthru {
    uint8_t cdb[CDB_LIMIT];
    uint32_t cdb_length;
    uint8_t *data;
    uint32_t data_length;

    uint16_t command_status; // 0 for success
    uint8_t sense[CISS_SENSE_LIMIT];
    uint32_t sense_length;
};

// Each call that fails leaves its reason in last_error().
struct kernel_ops {
    // Reads a file, or the names in a folder (its path ends in '/'), one a line. The bytes that came, `size`
    // where there may be more, -1 on failure.
    int64_t (*read_source)(const char *path, char *buffer, size_t size);
    // Whether there is something at this path.
    bool (*exists)(const char *path);
    // Never waits for the device. NO_NODE on failure.
    kernel_node (*open_node)(const char *path, node_access access);
    // The reason of a failed command outlives this.
    void (*close_node)(kernel_node node);
    // False where the kernel did not take the command; what came of it stands in the request.
    bool (*send_scsi)(kernel_node node, sg_request *request);
    bool (*send_ciss)(kernel_node node, ciss_passthru *request);
    // Makes this the reason that last_error() gives.
    void (*set_last_error)(uint32_t code);
};

extern const kernel_ops kernel_ops_host;
extern const kernel_ops *kernel_host;
