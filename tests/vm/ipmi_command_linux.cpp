// Sends a command to the BMC and prints its reply.
//
// usage: ipmi_command NETFN COMMAND [BYTE...]
// The status is 0 where the completion code is.

#include "probes/hw/ipmi_device_linux.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>

static uint8_t byte_of(const char *word) {
    return static_cast<uint8_t>(strtoul(word, nullptr, 0));
}

int main(int argc, char **argv) {
    uint8_t data[64];
    if (argc < 3 || static_cast<size_t>(argc - 3) > sizeof data) return 2;
    for (int i = 3; i < argc; i++)
        data[i - 3] = byte_of(argv[i]);
    const ipmi_message message = {.netfn = byte_of(argv[1]),
                                  .lun = 0,
                                  .command = byte_of(argv[2]),
                                  .data = data,
                                  .data_len = static_cast<uint32_t>(argc - 3)};
    int device = ipmi_device->open(IPMI_DEVICE_PATH, O_RDWR | O_CLOEXEC);
    if (device < 0) {
        perror(IPMI_DEVICE_PATH);
        return 1;
    }
    uint8_t reply[IPMI_REPLY_SIZE] = {};
    uint32_t length = 0;
    if (int error = ipmi_device_exchange(device, &message, reply, &length)) {
        fprintf(stderr, "no reply: %s\n", strerror(error));
        return 1;
    }
    for (uint32_t i = 0; i < length; i++)
        printf("%02X%c", reply[i], i + 1 < length ? ' ' : '\n');
    return length > 0 && reply[0] == 0 ? 0 : 1;
}
