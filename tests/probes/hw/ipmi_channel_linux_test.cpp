#include "probes/hw/ipmi_channel.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "probes/hw/ipmi_device_linux.h"
#include "probes/hw/ipmi_sensors.h"
#include "probes/hw/little_bmc.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ipmi.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int DEVICE = 7;

// A message that waits in the driver.
struct waiting_message {
    int type = IPMI_RESPONSE_RECV_TYPE;
    long id;
    std::vector<uint8_t> data;
};

// The driver's side of the message interface, over a BMC in memory.
struct scripted_driver {
    little_bmc bmc;
    int open_error = 0;
    int send_error = 0;
    int receive_error = 0;
    std::deque<int> poll_errors;
    bool answers = true;
    int64_t delay_ms = 0; // of an answer
    std::deque<waiting_message> waiting;

    int opened = 0;
    int64_t now = 5000;
    int64_t ready_at = 0;
    std::vector<int> polls; // milliseconds
    ipmi_system_interface_addr address = {};
    uint32_t address_length = 0;
    long last_id = 0;
};

scripted_driver *driver;

int refuse(int error) {
    errno = error;
    return -1;
}

int scripted_open(const char *path, int flags) {
    EXPECT_STREQ(path, "/dev/ipmi0");
    EXPECT_EQ(flags, O_RDWR | O_CLOEXEC);
    if (driver->open_error != 0) return refuse(driver->open_error);
    driver->opened++;
    return DEVICE;
}

int scripted_close(int device) {
    EXPECT_EQ(device, DEVICE);
    driver->opened--;
    return 0;
}

int send(const ipmi_req *request) {
    if (driver->send_error != 0) return refuse(driver->send_error);
    driver->address_length = request->addr_len;
    memcpy(&driver->address, request->addr, sizeof driver->address);
    driver->last_id = request->msgid;
    const ipmi_msg &message = request->msg;
    std::vector<uint8_t> reply = driver->bmc.answer(
        {message.netfn, driver->address.lun, message.cmd, {message.data, message.data + message.data_len}});
    driver->ready_at = driver->now + driver->delay_ms;
    if (driver->answers) driver->waiting.push_back({.id = request->msgid, .data = reply});
    return 0;
}

int receive(ipmi_recv *out) {
    if (driver->receive_error != 0) return refuse(std::exchange(driver->receive_error, 0));
    if (driver->waiting.empty()) return refuse(EAGAIN);
    waiting_message message = driver->waiting.front();
    driver->waiting.pop_front();
    EXPECT_GE(out->addr_len, sizeof(ipmi_system_interface_addr));
    out->recv_type = message.type;
    out->msgid = message.id;
    bool fits = message.data.size() <= out->msg.data_len;
    if (fits) out->msg.data_len = static_cast<unsigned short>(message.data.size());
    if (out->msg.data_len > 0) memcpy(out->msg.data, message.data.data(), out->msg.data_len);
    return fits ? 0 : refuse(EMSGSIZE);
}

int scripted_ioctl(int device, unsigned long request, void *argument) {
    EXPECT_EQ(device, DEVICE);
    if (request == IPMICTL_SEND_COMMAND) return send(static_cast<const ipmi_req *>(argument));
    EXPECT_EQ(request, IPMICTL_RECEIVE_MSG_TRUNC);
    return receive(static_cast<ipmi_recv *>(argument));
}

int scripted_poll(pollfd *files, nfds_t count, int milliseconds) {
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(files->fd, DEVICE);
    EXPECT_EQ(files->events, POLLIN);
    driver->polls.push_back(milliseconds);
    if (!driver->poll_errors.empty()) {
        int error = driver->poll_errors.front();
        driver->poll_errors.pop_front();
        return refuse(error);
    }
    if (!driver->waiting.empty() && driver->ready_at <= driver->now + milliseconds) {
        driver->now = std::max(driver->now, driver->ready_at);
        return 1;
    }
    driver->now += milliseconds;
    return 0;
}

const ipmi_device_calls scripted_calls = {.open = scripted_open,
                                          .close = scripted_close,
                                          .ioctl = scripted_ioctl,
                                          .poll = scripted_poll,
                                          .now_ms = [] { return driver->now; }};

struct ipmi_device_fixture : testing::Test {
    test_host host;
    scripted_driver scripted;
    ipmi_response *response = nullptr;

    ipmi_device_fixture() {
        driver = &scripted;
        ipmi_device = &scripted_calls;
        ipmi_channel_host = &ipmi_channel_ops_host;
        ipmi_sensors_reset();
    }
    ~ipmi_device_fixture() override {
        free_ipmi_response(response);
        if (active_bmcs != nullptr) release_bmcs();
        ipmi_sensors_reset();
        ipmi_channel_host = nullptr;
        ipmi_device = &ipmi_kernel_calls;
        EXPECT_EQ(scripted.opened, 0) << "the device is closed";
        EXPECT_EQ(host.blocks, 0);
    }
    const char *send_request(const std::vector<uint8_t> &data = {}) {
        free_ipmi_response(response);
        const ipmi_request request = {.netfn = 6,
                                      .lun = 2,
                                      .command = 1,
                                      .data_len = static_cast<uint32_t>(data.size()),
                                      .data = data.data()};
        return ipmi_command(active_bmcs, &response, &request);
    }
    void come_up() {
        EXPECT_SUCCESS(init_bmcs());
        host.log.clear();
    }
};

using ipmi_device_test = ipmi_device_fixture;

} // namespace

TEST_F(ipmi_device_test, is_the_bmc) {
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_TRUE(host.logged(LOG_DETAIL, " Found IPMI class in namespace ROOT\\WMI"));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Initialized 1 BMCs"));
    EXPECT_EQ(scripted.opened, 1);
}

TEST_F(ipmi_device_test, is_no_interface_where_it_is_missing) {
    for (int error : {ENOENT, ENXIO, ENODEV}) {
        scripted.open_error = error;
        EXPECT_FAILURE(init_bmcs(), "No IPMI interface found");
    }
    scripted.open_error = 0;
    EXPECT_SUCCESS(init_bmcs());
}

TEST_F(ipmi_device_test, says_who_may_not_open_it) {
    for (int error : {EACCES, EPERM}) {
        scripted.open_error = error;
        EXPECT_FAILURE(init_bmcs(), "Unable to enumerate IPMI objects: Current user not authorized");
    }
    scripted.open_error = EMFILE;
    EXPECT_FAILURE(init_bmcs(), "Unable to enumerate IPMI objects: General failure");
}

TEST_F(ipmi_device_test, carries_a_request_to_the_system_interface_and_its_reply_back) {
    come_up();
    scripted.bmc.device_id = {0, 1, 2, 3};
    EXPECT_SUCCESS(send_request({9, 8}));
    EXPECT_EQ(scripted.bmc.asked.back(), (bmc_request{6, 2, 1, {9, 8}}));
    EXPECT_EQ(scripted.address.addr_type, IPMI_SYSTEM_INTERFACE_ADDR_TYPE);
    EXPECT_EQ(scripted.address.channel, IPMI_BMC_CHANNEL);
    EXPECT_EQ(scripted.address_length, sizeof(ipmi_system_interface_addr));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->ccode, 0U);
    EXPECT_EQ(response->data_len, 3U);
    EXPECT_EQ(response->data[2], 3);
}

TEST_F(ipmi_device_test, sends_an_empty_request_empty) {
    come_up();
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(scripted.bmc.asked.back(), (bmc_request{6, 2, 1, {}}));
}

TEST_F(ipmi_device_test, gives_a_completion_code_back) {
    come_up();
    scripted.bmc.device_id = {0xC3}; // as the driver's own time-out
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->ccode, 0xC3U);
    EXPECT_EQ(response->data_len, 0U);
}

TEST_F(ipmi_device_test, waits_for_a_slow_reply_and_takes_none_for_a_time_out) {
    come_up();
    scripted.delay_ms = 9999;
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->ccode, 0U);
    EXPECT_EQ(scripted.polls, std::vector<int>{10000});
    scripted.answers = false;
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->ccode, 0xC3U) << "the completion code of a time-out";
    EXPECT_EQ(response->data_len, 0U);
}

TEST_F(ipmi_device_test, passes_over_the_late_reply_to_an_earlier_request) {
    come_up();
    scripted.answers = false;
    EXPECT_SUCCESS(send_request());
    scripted.waiting.push_back({.id = scripted.last_id, .data = {0, 0x66}});
    scripted.answers = true;
    scripted.bmc.device_id = {0, 0x77};
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->data[0], 0x77);
    EXPECT_TRUE(scripted.waiting.empty());
}

TEST_F(ipmi_device_test, passes_over_events_and_commands) {
    come_up();
    EXPECT_SUCCESS(send_request());
    for (int type : {IPMI_ASYNC_EVENT_RECV_TYPE, IPMI_CMD_RECV_TYPE, IPMI_RESPONSE_RESPONSE_TYPE})
        scripted.waiting.push_back({.type = type, .id = scripted.last_id + 1, .data = {0, 0x66}});
    scripted.bmc.device_id = {0, 0x77};
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->data[0], 0x77);
}

TEST_F(ipmi_device_test, waits_no_longer_for_all_that_it_passes_over) {
    come_up();
    scripted.answers = false;
    int64_t start = scripted.now;
    for (int i = 0; i < 100; i++)
        scripted.waiting.push_back({.id = -1, .data = {0}});
    scripted.poll_errors.assign(5, EINTR);
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->ccode, 0xC3U);
    EXPECT_EQ(scripted.now - start, 10000);
}

TEST_F(ipmi_device_test, goes_on_waiting_behind_a_signal_and_an_empty_hand) {
    come_up();
    scripted.poll_errors = {EINTR};
    scripted.receive_error = EAGAIN;
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->ccode, 0U);
    scripted.receive_error = EINTR;
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->ccode, 0U);
}

TEST_F(ipmi_device_test, takes_what_fits_of_a_reply_that_is_too_long) {
    come_up();
    scripted.bmc.device_id.assign(400, 0x55);
    scripted.bmc.device_id[0] = 0;
    EXPECT_SUCCESS(send_request());
    EXPECT_EQ(response->data_len, IPMI_REPLY_SIZE - 1);
    EXPECT_EQ(response->data[IPMI_REPLY_SIZE - 2], 0x55);
    EXPECT_EQ(response->data[IPMI_REPLY_SIZE - 1], 0);
}

TEST_F(ipmi_device_test, needs_a_completion_code_in_a_reply) {
    come_up();
    scripted.bmc.device_id.clear();
    EXPECT_FAILURE(send_request(), "Must get response data");
}

TEST_F(ipmi_device_test, is_opened_anew_where_it_has_gone) {
    for (int error : {ENODEV, ENXIO, EBADF}) {
        come_up();
        scripted.send_error = error;
        EXPECT_FAILURE(send_request(), "Unable to execute method: WMI restarted. Must re-connect to server");
        EXPECT_EQ(scripted.opened, 1);
        scripted.send_error = 0;
        EXPECT_SUCCESS(send_request());
    }
    scripted.receive_error = ENODEV;
    EXPECT_FAILURE(send_request(), "Unable to execute method: WMI restarted. Must re-connect to server");
    EXPECT_SUCCESS(send_request());
}

TEST_F(ipmi_device_test, is_looked_for_at_the_next_scan_where_it_stays_away) {
    come_up();
    scripted.send_error = ENODEV;
    scripted.open_error = ENOENT;
    EXPECT_FAILURE(send_request(),
                   "Failure while initializing bmcs during COM subsystem restart: 'No IPMI interface found'. "
                   "The error prompting the restart was: 'Unable to execute method: WMI restarted. Must "
                   "re-connect to server'.");
    scripted.send_error = scripted.open_error = 0;
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_SUCCESS(send_request());
}

TEST_F(ipmi_device_test, fails_with_other_errors) {
    come_up();
    scripted.send_error = EINVAL;
    EXPECT_FAILURE(send_request(), "Unable to execute method: General failure");
    scripted.send_error = ENOMEM;
    EXPECT_FAILURE(send_request(), "Unable to execute method: Out of memory");
    scripted.send_error = 0;
    scripted.receive_error = EFAULT;
    EXPECT_FAILURE(send_request(), "Unable to execute method: General failure");
    scripted.poll_errors = {ENOMEM};
    EXPECT_FAILURE(send_request(), "Unable to execute method: Out of memory");
    EXPECT_EQ(scripted.opened, 1) << "and stays open";
}

TEST_F(ipmi_device_test, leaves_nothing_behind_whichever_block_is_refused_at_its_start) {
    int failures = 0;
    for (uint32_t n = 1;; n++) {
        host.fail_allocation = n;
        const char *failure = init_bmcs();
        if (host.fail_allocation != 0) break;
        if (failure == nullptr) { // the second namespace makes up for the first
            release_bmcs();
            ipmi_channel_reset();
        }
        failures += failure != nullptr ? 1 : 0;
        EXPECT_EQ(host.blocks, 0) << n;
        EXPECT_EQ(scripted.opened, 0) << n;
    }
    host.fail_allocation = 0;
    EXPECT_GT(failures, 5);
}

TEST_F(ipmi_device_test, leaves_nothing_behind_whichever_block_a_command_is_refused) {
    come_up();
    int64_t before = host.blocks;
    for (uint32_t n = 1;; n++) {
        host.fail_allocation = n;
        const char *failure = send_request();
        if (host.fail_allocation != 0) break;
        EXPECT_NE(failure, nullptr) << n;
        EXPECT_EQ(response, nullptr);
        EXPECT_EQ(host.blocks, before) << n;
    }
    host.fail_allocation = 0;
}

TEST_F(ipmi_device_test, serves_a_whole_scan) {
    scripted.bmc.add_many(20);
    devtree root = {};
    EXPECT_SUCCESS(scan_ipmi_sensors(&root));
    EXPECT_EQ(devtree_count_checks(root.children), 25U);
    free_devtree(root.children);
}

// What this host says of its own: a BMC, none, or no right to ask. None of them takes long or fails oddly.
TEST(ipmi_device_of_this_host, answers) {
    test_host host;
    ipmi_channel_host = &ipmi_channel_ops_host;
    ipmi_sensors_reset();
    const char *failure = init_bmcs();
    if (access(IPMI_DEVICE_PATH, F_OK) != 0) {
        EXPECT_FAILURE(failure, "No IPMI interface found");
    }
    if (active_bmcs != nullptr) release_bmcs();
    ipmi_sensors_reset();
    ipmi_channel_host = nullptr;
    EXPECT_EQ(host.blocks, 0);
}
