// The description of this host, held against other sources of it.
#include "probes/os/host_info.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/sockets_ops.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory.h"
#include "probes/os/memory_ops.h"

#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using texts = std::vector<std::string>;

struct linux_host_info : testing::Test {
    test_host host;

    linux_host_info() {
        host_info_host = &host_info_ops_host;
        memory_host = &memory_ops_host;
        sockets_host = &sockets_ops_host;
        memory_reset();
    }
    ~linux_host_info() override {
        EXPECT_EQ(host.blocks, 0);
        host_info_host = nullptr;
        memory_host = nullptr;
        sockets_host = nullptr;
    }

    static texts lines() {
        texts found;
        clinfo_guard list(collect_host_info());
        for (const clinfo *line = list.get(); line != nullptr; line = line->next)
            found.push_back(std::string(line->label != nullptr ? line->label : "-") + "=" +
                            (line->value != nullptr ? line->value : "-"));
        return found;
    }
    static texts values(const std::string &label) {
        texts found;
        for (const std::string &line : lines())
            if (line.starts_with(label + "=")) found.push_back(line.substr(label.size() + 1));
        return found;
    }
};

// A network of its own, with these addresses on its loopback interface; false where that takes rights that
// the user has not.
bool make_network(int addresses) {
    if (unshare(CLONE_NEWNET) != 0) return false;
    int door = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool made = door >= 0;
    for (int i = 0; i < addresses && made; i++) {
        ifreq request = {};
        snprintf(request.ifr_name, sizeof request.ifr_name, i == 0 ? "lo" : "lo:%d", i);
        auto *address = reinterpret_cast<sockaddr_in *>(&request.ifr_addr);
        address->sin_family = AF_INET;
        address->sin_addr.s_addr = htonl(0x7F000001U + static_cast<uint32_t>(i));
        made = ioctl(door, SIOCSIFADDR, &request) == 0;
    }
    close(door);
    return made;
}

// Namespaces belong to a thread.
bool with_network(int addresses, const std::function<void()> &look) {
    bool made = false;
    std::thread([&] {
        made = make_network(addresses);
        if (made) look();
    }).join();
    return made;
}

} // namespace

TEST_F(linux_host_info, counts_the_processors) {
    EXPECT_EQ(values("Number of CPUs"), texts{std::to_string(sysconf(_SC_NPROCESSORS_CONF))});
    EXPECT_EQ(values("CPU 0 status"), texts{"Enabled"});
}

TEST_F(linux_host_info, tells_the_installed_memory) {
    struct sysinfo facts = {};
    ASSERT_EQ(sysinfo(&facts), 0);
    char expected[64];
    double gigabytes = static_cast<double>(facts.totalram) * facts.mem_unit / (1 << 30);
    snprintf(expected, sizeof expected, " %6.2fGB", gigabytes);
    if (gigabytes < 1) GTEST_SKIP() << "a machine of less than a gigabyte";
    EXPECT_EQ(values("Installed Memory"), texts{expected});
}

TEST_F(linux_host_info, tells_the_kernel) {
    utsname names;
    ASSERT_EQ(uname(&names), 0);
    EXPECT_EQ(values("Platform"), texts{"Linux"});
    EXPECT_EQ(values("Version"), texts{names.release});
    EXPECT_EQ(values("Hostname"), texts{names.nodename});
    EXPECT_NE(values("OS Id"), texts{""});
}

TEST_F(linux_host_info, has_an_adapter_s_addresses_whatever_their_labels) {
    texts found;
    if (!with_network(3, [&] { found = lines(); }))
        GTEST_SKIP() << "a network of one's own takes root's rights";
    auto at = std::find(found.begin(), found.end(), "Network Interface=lo");
    ASSERT_NE(at, found.end());
    EXPECT_EQ(texts(at + 1, found.end()),
              (texts{"-=Loopback interface", "-=IP: 127.0.0.1/255.0.0.0", "-=IP: 127.0.0.2/255.0.0.0",
                     "-=IP: 127.0.0.3/255.0.0.0", "-=MAC address: 00:00:00:00:00:00"}));
}

TEST_F(linux_host_info, has_no_adapter_lines_on_a_host_without_adapters) {
    texts found;
    if (!with_network(0, [&] { found = lines(); }))
        GTEST_SKIP() << "a network of one's own takes root's rights";
    EXPECT_EQ(found.back().substr(0, 10), "ARP Proxy=");
}

TEST_F(linux_host_info, has_no_adapter_lines_where_they_do_not_fit) {
    texts found;
    if (!with_network(300, [&] { found = lines(); }))
        GTEST_SKIP() << "a network of one's own takes root's rights";
    EXPECT_EQ(found.back().substr(0, 10), "ARP Proxy=");
}

TEST_F(linux_host_info, needs_memory_for_the_adapters) {
    alignas(adapter_facts) char room[11264];
    uint32_t size = sizeof room;
    host.fail_allocation = 1;
    EXPECT_EQ(host_info_ops_host.GetAdaptersInfo(reinterpret_cast<adapter_facts *>(room), &size), 8U);
}
