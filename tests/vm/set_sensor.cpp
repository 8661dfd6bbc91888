// Tells the simulated BMC what its sensors read: set_sensor NUMBER READING STATES, each a number.
//
// Set Sensor Reading, network function 4, command 0x30 (IPMI 2.0, 35.17).
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/ipmi.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int PATIENCE_MS = 5000;

bool send(int device, unsigned char *data, unsigned short size) {
    ipmi_system_interface_addr address = {};
    address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    address.channel = IPMI_BMC_CHANNEL;
    ipmi_req request = {};
    request.addr = reinterpret_cast<unsigned char *>(&address);
    request.addr_len = sizeof address;
    request.msgid = 1;
    request.msg = {.netfn = 4, .cmd = 0x30, .data_len = size, .data = data};
    return ioctl(device, IPMICTL_SEND_COMMAND, &request) == 0;
}

// The completion code, or -1.
int receive(int device) {
    pollfd readable = {.fd = device, .events = POLLIN, .revents = 0};
    if (poll(&readable, 1, PATIENCE_MS) != 1) return -1;
    ipmi_addr address = {};
    unsigned char data[64] = {};
    ipmi_recv answer = {};
    answer.addr = reinterpret_cast<unsigned char *>(&address);
    answer.addr_len = sizeof address;
    answer.msg = {.netfn = 0, .cmd = 0, .data_len = sizeof data, .data = data};
    return ioctl(device, IPMICTL_RECEIVE_MSG_TRUNC, &answer) == 0 ? data[0] : -1;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) return 2;
    auto number = static_cast<unsigned char>(strtol(argv[1], nullptr, 0));
    auto reading = static_cast<unsigned char>(strtol(argv[2], nullptr, 0));
    auto states = static_cast<unsigned>(strtol(argv[3], nullptr, 0));
    int device = open("/dev/ipmi0", O_RDWR | O_CLOEXEC);
    if (device < 0) {
        fprintf(stderr, "set_sensor: /dev/ipmi0: %s\n", strerror(errno));
        return 1;
    }
    // The reading and the asserted states are written, all else stays.
    unsigned char data[] = {number, 0x11, reading, static_cast<unsigned char>(states),
                            static_cast<unsigned char>(states >> 8)};
    int code = send(device, data, sizeof data) ? receive(device) : -1;
    if (code != 0) fprintf(stderr, "set_sensor: %s gives %d\n", argv[1], code);
    close(device);
    return code == 0 ? 0 : 1;
}
