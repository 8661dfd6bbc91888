#include "probes/os/process_chain.h"

#include "probes/os/snapshot_chain.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

constexpr uint64_t ADDRESS = 0x7FFF12340000;

using names = std::vector<std::u16string>;

// Walks bytes that end where their block does.
names walk(const std::vector<uint8_t> &bytes, uint64_t address = ADDRESS) {
    std::vector<uint8_t> exact(bytes);
    process_walk chain = {
        .snapshot = exact.data(), .size = static_cast<uint32_t>(exact.size()), .address = address};
    names found;
    char16_t name[IMAGE_NAME_SIZE];
    while (next_in_chain(&chain, name))
        found.emplace_back(name);
    return found;
}

size_t second_record(const std::vector<uint8_t> &bytes) {
    uint32_t distance = 0;
    memcpy(&distance, bytes.data(), sizeof distance);
    return distance;
}

} // namespace

TEST(next_in_chain, gives_the_names_in_their_order) {
    EXPECT_EQ(walk(make_chain({u"", u"System", u"b.exe", u"\u00FCber.exe"}, ADDRESS)),
              (names{u"", u"System", u"b.exe", u"\u00FCber.exe"}));
}

TEST(next_in_chain, stays_behind_the_last_record) {
    auto bytes = make_chain({u"a"}, ADDRESS);
    process_walk chain = {
        .snapshot = bytes.data(), .size = static_cast<uint32_t>(bytes.size()), .address = ADDRESS};
    char16_t name[IMAGE_NAME_SIZE];
    EXPECT_TRUE(next_in_chain(&chain, name));
    EXPECT_FALSE(next_in_chain(&chain, name));
    EXPECT_FALSE(next_in_chain(&chain, name));
}

TEST(next_in_chain, ends_where_a_distance_leads_outside) {
    auto bytes = make_chain({u"a", u"b", u"c"}, ADDRESS);
    for (uint32_t distance : {0xFFFFFFFFU, 0x80000000U, static_cast<uint32_t>(bytes.size()),
                              static_cast<uint32_t>(bytes.size()) - 71}) {
        put_number(&bytes, 0, distance);
        EXPECT_EQ(walk(bytes), names{u"a"}) << distance;
    }
    put_number(&bytes, 0, static_cast<uint32_t>(bytes.size()) - 72);
    EXPECT_EQ(walk(bytes).size(), 2U) << "a whole record is left";
}

TEST(next_in_chain, ends_where_distances_add_up_to_the_start) {
    auto bytes = make_chain({u"a", u"b"}, ADDRESS);
    auto second = static_cast<uint32_t>(second_record(bytes));
    put_number(&bytes, second, uint32_t{0} - second);
    EXPECT_EQ(walk(bytes), (names{u"a", u"b"}));
}

TEST(next_in_chain, follows_records_that_lie_crookedly) {
    auto bytes = make_chain({u"a"}, ADDRESS);
    std::vector<uint8_t> both(bytes.size() + 5);
    std::copy(bytes.begin(), bytes.end(), both.begin());
    both.resize(both.size() + bytes.size());
    std::copy(bytes.begin(), bytes.end(), both.begin() + static_cast<std::ptrdiff_t>(bytes.size() + 5));
    put_number(&both, 0, static_cast<uint32_t>(bytes.size() + 5));
    EXPECT_EQ(walk(both), (names{u"a", u"a"}));
}

TEST(next_in_chain, ends_at_less_than_a_record) {
    EXPECT_EQ(walk({}), names{});
    EXPECT_EQ(walk(std::vector<uint8_t>(71)), names{});
    EXPECT_EQ(walk(std::vector<uint8_t>(72)), names{u""});
}

TEST(next_in_chain, has_no_name_for_one_that_lies_outside) {
    auto bytes = make_chain({u"name"}, ADDRESS);
    for (uint64_t address : {uint64_t{0}, ADDRESS - 1, ADDRESS + bytes.size(), UINT64_MAX}) {
        put_number(&bytes, 64, address);
        EXPECT_EQ(walk(bytes), names{u""}) << address;
    }
}

TEST(next_in_chain, cuts_a_name_at_the_end_of_the_snapshot) {
    auto bytes = make_chain({u"abcd"}, ADDRESS);
    put_number(&bytes, 64, ADDRESS + bytes.size() - 4);
    put_number(&bytes, bytes.size() - 4, u'y');
    put_number(&bytes, bytes.size() - 2, u'z');
    put_number(&bytes, 56, uint16_t{0xFFFF});
    EXPECT_EQ(walk(bytes), names{u"yz"});
    put_number(&bytes, 64, ADDRESS + bytes.size() - 3);
    EXPECT_EQ(walk(bytes)[0].size(), 1U) << "no half character";
}

TEST(next_in_chain, cuts_a_name_at_its_length_and_at_259_characters) {
    auto bytes = make_chain({u"abcd"}, ADDRESS);
    put_number(&bytes, 56, uint16_t{5});
    EXPECT_EQ(walk(bytes), names{u"ab"});
    EXPECT_EQ(walk(make_chain({std::u16string(259, u'x')}, ADDRESS))[0].size(), 259U);
    EXPECT_EQ(walk(make_chain({std::u16string(300, u'x')}, ADDRESS))[0].size(), 259U);
}

TEST(recorded_process_snapshot, has_its_processes) {
    recorded_answer answer("wine_process_snapshot.bin");
    EXPECT_EQ(walk(answer.bytes, answer.address),
              (names{u"rec.exe", u"services.exe", u"explorer.exe", u"winedevice.exe", u"svchost.exe",
                     u"plugplay.exe", u"winedevice.exe"}));
    answer.bytes.resize(answer.bytes.size() / 2);
    EXPECT_GE(walk(answer.bytes, answer.address).size(), 2U) << "half a snapshot is walked as far as it goes";
}
