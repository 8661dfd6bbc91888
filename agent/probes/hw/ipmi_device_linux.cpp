#include "probes/hw/ipmi_device_linux.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <linux/ipmi.h>
#include <sys/ioctl.h>
#include <unistd.h>

const ipmi_device_calls ipmi_kernel_calls = {
    .open = [](const char *path, int flags) { return open(path, flags); },
    .close = [](int device) { return close(device); },
    .ioctl = [](int device, unsigned long request,
                void *argument) { return ioctl(device, request, argument); },
    .poll = [](pollfd *files, nfds_t count, int milliseconds) { return poll(files, count, milliseconds); },
    .now_ms =
        [] {
            timespec now = {};
            clock_gettime(CLOCK_MONOTONIC, &now);
            return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
        },
};

const ipmi_device_calls *ipmi_device = &ipmi_kernel_calls;

namespace {

// Tells the reply to a request from a late one to a request before it.
long last_message_id;

} // namespace

static int send_message(int device, const ipmi_message *message, long id) {
    ipmi_system_interface_addr address = {
        .addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE, .channel = IPMI_BMC_CHANNEL, .lun = message->lun};
    ipmi_req request = {};
    request.addr = reinterpret_cast<unsigned char *>(&address);
    request.addr_len = sizeof address;
    request.msgid = id;
    request.msg.netfn = message->netfn;
    request.msg.cmd = message->command;
    request.msg.data_len = static_cast<unsigned short>(message->data_len);
    request.msg.data = const_cast<uint8_t *>(message->data);
    return ipmi_device->ioctl(device, IPMICTL_SEND_COMMAND, &request) == 0 ? 0 : errno;
}

// Takes the next message. EAGAIN where it is none for us.
static int receive_message(int device, long id, uint8_t (&reply)[IPMI_REPLY_SIZE], uint32_t *length) {
    ipmi_addr address = {};
    ipmi_recv received = {};
    received.addr = reinterpret_cast<unsigned char *>(&address);
    received.addr_len = sizeof address;
    received.msg.data = reply;
    received.msg.data_len = IPMI_REPLY_SIZE;
    // A message that is too long counts as far as the kernel gave it.
    if (ipmi_device->ioctl(device, IPMICTL_RECEIVE_MSG_TRUNC, &received) != 0 && errno != EMSGSIZE)
        return errno == EINTR ? EAGAIN : errno;
    if (received.recv_type != IPMI_RESPONSE_RECV_TYPE || received.msgid != id) return EAGAIN;
    *length = std::min<uint32_t>(received.msg.data_len, IPMI_REPLY_SIZE);
    return 0;
}

int ipmi_device_exchange(int device, const ipmi_message *message, uint8_t (&reply)[IPMI_REPLY_SIZE],
                         uint32_t *length) {
    const long id = ++last_message_id;
    if (int error = send_message(device, message, id)) return error;
    const int64_t deadline = ipmi_device->now_ms() + IPMI_REPLY_WAIT_MS;
    for (;;) {
        int64_t left = deadline - ipmi_device->now_ms();
        if (left <= 0) return ETIMEDOUT;
        pollfd file = {.fd = device, .events = POLLIN, .revents = 0};
        int ready = ipmi_device->poll(&file, 1, static_cast<int>(left));
        if (ready < 0 && errno != EINTR) return errno;
        if (ready <= 0) continue;
        int error = receive_message(device, id, reply, length);
        if (error != EAGAIN) return error;
    }
}
