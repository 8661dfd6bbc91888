// The kernel's device of the BMC: one request and its reply, by its message interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <poll.h>

// The calls to the kernel; tests put their own.
struct ipmi_device_calls {
    int (*open)(const char *path, int flags);
    int (*close)(int device);
    int (*ioctl)(int device, unsigned long request, void *argument);
    int (*poll)(pollfd *files, nfds_t count, int milliseconds);
    int64_t (*now_ms)(); // of a clock that nobody sets
};

extern const ipmi_device_calls ipmi_kernel_calls;
extern const ipmi_device_calls *ipmi_device;

inline constexpr const char *IPMI_DEVICE_PATH = "/dev/ipmi0";
inline constexpr uint32_t IPMI_REPLY_SIZE = 272; // no message is longer
// The driver has time-outs of its own, with which it answers. This is for a driver that doesn't.
inline constexpr int64_t IPMI_REPLY_WAIT_MS = 10000;

struct ipmi_message {
    uint8_t netfn;
    uint8_t lun;
    uint8_t command;
    const uint8_t *data;
    uint32_t data_len;
};

// Sends the message to the BMC and waits for its reply: the completion code and what follows it, cut at the
// buffer's end. Gives 0, or the error of the call that failed, ETIMEDOUT where no reply came.
int ipmi_device_exchange(int device, const ipmi_message *message, uint8_t (&reply)[IPMI_REPLY_SIZE],
                         uint32_t *length);
