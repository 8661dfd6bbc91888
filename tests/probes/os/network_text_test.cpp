#include "probes/os/network_text.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

namespace {

struct records {
    alignas(8) char room[1024];
    record_buffer buffer = {.start = room, .size = sizeof room, .used = 0};
};

std::string joined(const address_entry *list) {
    std::string text;
    for (; list != nullptr; list = list->next)
        text += std::string(text.empty() ? "" : " ") + list->address;
    return text;
}

struct resolver : records {
    char domain[132] = "x";
    address_entry *servers = nullptr;
    explicit resolver(const std::string &text) {
        parse_resolver(text.c_str(), domain, sizeof domain, &buffer, &servers);
    }
};

std::string gateways(const std::string &route, const char *interface) {
    records all;
    address_entry *list = nullptr;
    parse_gateways(route.c_str(), interface, &all.buffer, &list);
    return joined(list);
}

} // namespace

TEST(parse_resolver, takes_the_first_name_of_the_search_list) {
    resolver found(recorded_machine("container").text("/etc/resolv.conf"));
    EXPECT_STREQ(found.domain, "default.svc.cluster.example");
    EXPECT_EQ(joined(found.servers), "10.96.0.10");
}

TEST(parse_resolver, counts_the_last_of_domain_and_search) {
    EXPECT_STREQ(resolver(recorded_machine("numa").text("/etc/resolv.conf")).domain, "large.example");
    EXPECT_STREQ(resolver("search a.example\ndomain b.example\n").domain, "b.example");
}

TEST(parse_resolver, takes_no_search_list_of_the_root_alone_for_a_domain) {
    resolver found(recorded_machine("relay").text("/etc/resolv.conf"));
    EXPECT_STREQ(found.domain, "");
    EXPECT_EQ(joined(found.servers), "127.0.0.53");
}

TEST(parse_resolver, leaves_out_servers_that_would_be_cut) {
    EXPECT_EQ(joined(resolver(recorded_machine("numa").text("/etc/resolv.conf")).servers),
              "10.0.0.53 10.0.1.53");
}

TEST(parse_resolver, passes_over_comments_and_broken_lines) {
    resolver found("#domain a\n;nameserver 1.2.3.4\ndomain\nnameserver\n\n options x\nnameserver 9.9.9.9");
    EXPECT_STREQ(found.domain, "");
    EXPECT_EQ(joined(found.servers), "9.9.9.9");
}

TEST(parse_resolver, cuts_a_domain_that_is_too_long) {
    EXPECT_EQ(std::string(resolver("domain " + std::string(300, 'd') + "\n").domain), std::string(131, 'd'));
}

TEST(parse_gateways, lists_default_gateways_of_one_interface) {
    std::string route = recorded_machine("numa").text("/proc/net/route");
    EXPECT_EQ(gateways(route, "bond0.100"), "10.0.0.1 10.0.0.2");
    EXPECT_EQ(gateways(recorded_machine("container").text("/proc/net/route"), "eth0"), "172.17.0.1");
}

TEST(parse_gateways, leaves_out_other_destinations_and_refused_routes) {
    EXPECT_EQ(gateways(recorded_machine("numa").text("/proc/net/route"), "ib0"), "");
}

TEST(parse_gateways, tells_stacked_and_renamed_interfaces_apart) {
    std::string route = recorded_machine("relay").text("/proc/net/route");
    EXPECT_EQ(gateways(route, "wan-uplink"), "192.168.113.254");
    EXPECT_EQ(gateways(route, "wan-uplink.4094"), "") << "a route without a gateway";
    EXPECT_EQ(gateways(route, "wlx00c0ca12345"), "10.0.2.1");
    EXPECT_EQ(gateways(route, "enp3s0f1np1d2v3"), "10.0.10.1") << "a name of 15 characters";
    EXPECT_EQ(gateways(route, "enp3s0f1np1d2v"), "");
    EXPECT_EQ(gateways(route, "br-lan"), "") << "not for everything";
}

TEST(parse_gateways, survives_lines_that_are_cut_off) {
    EXPECT_EQ(gateways("eth0\neth0\t00000000\neth0\t00000000\t0100000A\neth0 00000000 0100000A 0003", "eth0"),
              "10.0.0.1");
    EXPECT_EQ(gateways("", "eth0"), "");
}

TEST(take_room, counts_what_does_not_fit) {
    alignas(8) char room[40];
    record_buffer buffer = {.start = room, .size = sizeof room, .used = 0};
    EXPECT_EQ(take_room(&buffer, 20), room);
    EXPECT_EQ(take_room(&buffer, 16), room + 24) << "records lie at multiples of eight";
    uint32_t size = 0;
    EXPECT_EQ(finish_records(buffer, &size), 0U);
    EXPECT_EQ(take_room(&buffer, 1), nullptr);
    EXPECT_EQ(finish_records(buffer, &size), NETWORK_BUFFER_OVERFLOW);
    EXPECT_EQ(size, 48U);
}

TEST(append_address, changes_nothing_where_the_buffer_is_full) {
    record_buffer buffer = {.start = nullptr, .size = 0, .used = 0};
    address_entry *list = nullptr;
    append_address(&buffer, &list, "1.2.3.4", "");
    EXPECT_EQ(list, nullptr);
}

TEST(adapter_type_of_link, translates_the_kernel_s_numbers) {
    EXPECT_EQ(adapter_type_of_link(1), 6U);
    EXPECT_EQ(adapter_type_of_link(800), 9U);
    EXPECT_EQ(adapter_type_of_link(774), 15U);
    EXPECT_EQ(adapter_type_of_link(512), 23U);
    EXPECT_EQ(adapter_type_of_link(772), 24U);
    EXPECT_EQ(adapter_type_of_link(256), 28U);
    EXPECT_EQ(adapter_type_of_link(32), 1U);
}

TEST(is_adapter, needs_a_device_or_an_address) {
    EXPECT_TRUE(is_adapter(true, false));
    EXPECT_TRUE(is_adapter(false, true));
    EXPECT_FALSE(is_adapter(false, false));
}

TEST(is_label_of, compares_what_stands_before_the_colon) {
    EXPECT_TRUE(is_label_of("eth0", "eth0"));
    EXPECT_TRUE(is_label_of("eth0:mail", "eth0"));
    EXPECT_TRUE(is_label_of("bond0.100:1", "bond0.100"));
    EXPECT_FALSE(is_label_of("eth01", "eth0"));
    EXPECT_FALSE(is_label_of("eth0.1", "eth0"));
    EXPECT_FALSE(is_label_of("eth", "eth0"));
    EXPECT_FALSE(is_label_of(":1", "eth0"));
}
