#include "probes/os/network_counts.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::string> interfaces_of(const std::string &text) {
    std::vector<std::string> names;
    interface_line line;
    for (const char *at = text.c_str(); next_interface_line(&at, &line);)
        names.emplace_back(line.name);
    return names;
}

std::string protocols(const char *machine) {
    return recorded_machine(machine).text("/proc/net/snmp");
}

} // namespace

TEST(interface_lines, name_every_interface) {
    EXPECT_EQ(interfaces_of(recorded_machine("container").text("/proc/net/dev")),
              (std::vector<std::string>{"lo", "eth0"}));
    EXPECT_EQ(interfaces_of(recorded_machine("stacked").text("/proc/net/dev")),
              (std::vector<std::string>{"lo", "eth0", "lan-to-office-1", "bond0", "eth0.100", "bond0.4094",
                                        "br-0f1e2d3c4b5a", "veth1a2b3c4@if2", "wg\"0\"", "gr\xFCn(1)",
                                        "tap#1", "tun\\0", "wlan0", "ppp0"}));
}

TEST(interface_counts, stand_in_their_columns) {
    std::string text = recorded_machine("stacked").text("/proc/net/dev");
    interface_counts counts;
    ASSERT_TRUE(parse_interface_counts(text.c_str(), "eth0", &counts));
    EXPECT_EQ(counts.received_bytes, 10000001U);
    EXPECT_EQ(counts.received_packets, 10001U);
    EXPECT_EQ(counts.receive_errors, 1U);
    EXPECT_EQ(counts.receive_drops, 2U);
    EXPECT_EQ(counts.received_multicast, 3U);
    EXPECT_EQ(counts.sent_bytes, 20000001U);
    EXPECT_EQ(counts.sent_packets, 20001U);
    EXPECT_EQ(counts.send_errors, 4U);
    EXPECT_EQ(counts.send_drops, 5U);
    ASSERT_TRUE(parse_interface_counts(text.c_str(), "eth0.100", &counts));
    EXPECT_EQ(counts.received_bytes, 1000004U);
    for (const char *none : {"eth", "eth1", "", "eth0.", "Inter-|   Receive", "face"})
        EXPECT_FALSE(parse_interface_counts(text.c_str(), none, &counts)) << none;
}

TEST(interface_counts, may_follow_the_colon_at_once) {
    interface_counts counts;
    ASSERT_TRUE(
        parse_interface_counts("  eth0:4294967295 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", "eth0", &counts));
    EXPECT_EQ(counts.received_bytes, 4294967295U);
    EXPECT_EQ(counts.send_drops, 12U);
}

TEST(interface_lines, pass_over_what_is_none) {
    for (const char *text :
         {"", "eth0: 1 2 3 4 5 6 7 8 9 10 11 12", "eth0: 1 2 3 4 5 6 7 8 9 10 11\n", "eth0 1 2\n",
          ": 1 2 3 4 5 6 7 8 9 10 11 12\n", "eth0: -1 2 3 4 5 6 7 8 9 10 11 12\n",
          "eth0: 1 2 3 4 5 6 7 8 99999999999999999999 10 11 12\n"}) {
        EXPECT_TRUE(interfaces_of(text).empty()) << text;
        interface_counts counts;
        EXPECT_FALSE(parse_interface_counts(text, "eth0", &counts)) << text;
    }
    std::string counts = ": 1 2 3 4 5 6 7 8 9 10 11 12\n";
    EXPECT_EQ(interfaces_of(std::string(300, 'x') + counts + "a" + counts), std::vector<std::string>{"a"});
}

TEST(link_speed, is_told_in_bits) {
    EXPECT_EQ(parse_link_speed("1000\n"), 1'000'000'000U);
    EXPECT_EQ(parse_link_speed("10\n"), 10'000'000U);
    EXPECT_EQ(parse_link_speed("800000\n"), 800'000'000'000U);
}

TEST(link_speed, is_0_where_there_is_none_to_tell) {
    for (const char *text : {"", "-1\n", "4294967295\n", "65535\n", "0\n", "fast\n", "1000", "1000x\n",
                             "99999999999999999999\n", "\n"})
        EXPECT_EQ(parse_link_speed(text), 0U) << text;
}

TEST(protocol_counts, are_found_by_name) {
    std::string text = protocols("container");
    uint64_t count = 0;
    EXPECT_TRUE(parse_protocol_count(text.c_str(), "Tcp", "CurrEstab", &count));
    EXPECT_EQ(count, 16U);
    EXPECT_TRUE(parse_protocol_count(text.c_str(), "Tcp", "RetransSegs", &count));
    EXPECT_EQ(count, 18U);
    EXPECT_TRUE(parse_protocol_count(text.c_str(), "Udp", "NoPorts", &count));
    EXPECT_EQ(count, 21U) << "and not that of UdpLite";
    EXPECT_TRUE(parse_protocol_count(text.c_str(), "Ip", "FragCreates", &count));
    EXPECT_EQ(count, 13U);
}

TEST(protocol_counts, are_missing_where_they_are) {
    std::string text = protocols("container");
    uint64_t count = 77;
    EXPECT_FALSE(parse_protocol_count(text.c_str(), "Tcp", "MaxConn", &count)) << "below zero";
    EXPECT_FALSE(parse_protocol_count(text.c_str(), "Tcp", "Curr", &count));
    EXPECT_FALSE(parse_protocol_count(text.c_str(), "Tcp", "", &count));
    EXPECT_FALSE(parse_protocol_count(text.c_str(), "Sctp", "CurrEstab", &count));
    for (const char *wrong :
         {"", "Tcp: A B\n", "Tcp: A B\nUdp: 1 2\n", "Tcp: A B\nTcp: 1\n", "Tcp: A B\nTcp: 1 2",
          "Tcp: A B\nTcp: 1 x\n", "Tcp A B\nTcp 1 2\n", "Tcp:\nTcp:\n"})
        EXPECT_FALSE(parse_protocol_count(wrong, "Tcp", "B", &count)) << wrong;
    EXPECT_EQ(count, 77U);
}
