#include "logcheck/event_record.h"

#include "fakes/scripted_event_log.h"
#include "fakes/test_host.h"

#include <gtest/gtest.h>

namespace {

// On the heap with no byte to spare, so that a look outside is seen.
struct record_fixture : testing::Test {
    test_host host;
    std::unique_ptr<uint8_t[]> exact;
    event_record record = {};

    void TearDown() override { EXPECT_EQ(host.blocks, 0); }

    bool decode(const std::string &bytes) {
        exact = std::make_unique<uint8_t[]>(bytes.size());
        memcpy(exact.get(), bytes.data(), bytes.size());
        return decode_event_record(exact.get(), static_cast<uint32_t>(bytes.size()), &record);
    }
    // Both texts, each in brackets.
    std::string texts(uint32_t size) const {
        std::string all;
        uint32_t at = EVENT_RECORD_SIZE;
        for (int i = 0; i < 2; i++) {
            std::vector<char16_t> text(size, u'#');
            take_event_text(&record, &at, text.data(), size);
            all += "[";
            for (size_t c = 0; text[c] != u'\0'; c++)
                all += static_cast<char>(text[c]);
            all += "]";
            EXPECT_LE(at, record.length);
        }
        return all;
    }
    std::vector<std::u16string> arguments() const {
        std::vector<std::u16string> all;
        event_arguments_guard found(alloc_event_arguments(&record));
        for (uint32_t i = 0; i < record.insert_count + SPARE_INSERTS; i++)
            all.push_back(found.get()[i]);
        return all;
    }
};

// A fixed part with each byte its own offset, but for the length.
std::string numbered_record() {
    std::string bytes;
    for (char i = 0; i < 56; i++)
        bytes += i;
    put_number(bytes, 0, 56, 4);
    return bytes;
}

std::string with_length(std::string bytes, uint32_t length) {
    put_number(bytes, 0, length, 4);
    return bytes;
}

} // namespace

using decode_record = record_fixture;
using event_text = record_fixture;
using user_of_record = record_fixture;
using event_arguments = record_fixture;

TEST_F(decode_record, takes_each_field_from_its_place) {
    ASSERT_TRUE(decode(numbered_record()));
    EXPECT_EQ(record.length, 56U);
    EXPECT_EQ(record.event_id, 0x17161514U);
    EXPECT_EQ(record.type, 0x1918);
    EXPECT_EQ(record.insert_count, 0x1B1A);
    EXPECT_EQ(record.category, 0x1D1C);
    EXPECT_EQ(record.inserts_at, 0x27262524U);
    EXPECT_EQ(record.user_size, 0x2B2A2928U);
    EXPECT_EQ(record.user_at, 0x2F2E2D2CU);
}

TEST_F(decode_record, reads_bytes_of_0x80_and_more) {
    std::string bytes = numbered_record();
    put_number(bytes, 20, 0xC0000004, 4);
    put_number(bytes, 24, 0xFFFE, 2);
    ASSERT_TRUE(decode(bytes));
    EXPECT_EQ(record.event_id, 0xC0000004U);
    EXPECT_EQ(record.type, 0xFFFE);
}

TEST_F(decode_record, refuses_a_length_below_the_fixed_part) {
    for (uint32_t length : {0U, 1U, 55U})
        EXPECT_FALSE(decode(with_length(numbered_record(), length))) << length;
}

TEST_F(decode_record, refuses_a_length_beyond_the_bytes) {
    for (uint32_t length : {57U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_FALSE(decode(with_length(numbered_record(), length))) << length;
    EXPECT_FALSE(decode(numbered_record().substr(0, 55)));
    EXPECT_FALSE(decode(std::string(3, '\x38')));
    EXPECT_FALSE(decode(""));
}

TEST_F(decode_record, leaves_what_follows_alone) {
    ASSERT_TRUE(decode(numbered_record() + "next"));
    EXPECT_EQ(record.length, 56U);
}

TEST_F(event_text, is_the_source_and_then_the_computer) {
    ASSERT_TRUE(decode(event_bytes{.source = u"Disk", .computer = u"HOST"}.make()));
    EXPECT_EQ(texts(100), "[Disk][HOST]");
}

TEST_F(event_text, is_empty_without_an_end_in_the_record) {
    std::string bytes = numbered_record() + wide_bytes(u"ab");
    ASSERT_TRUE(decode(with_length(bytes, 60)));
    EXPECT_EQ(texts(100), "[][]");
    ASSERT_TRUE(decode(with_length(bytes + '\0', 61))); // half an end
    EXPECT_EQ(texts(100), "[][]");
    ASSERT_TRUE(decode(with_length(bytes + wide_bytes({0, u'c'}), 64)));
    EXPECT_EQ(texts(100), "[ab][]");
    ASSERT_TRUE(decode(numbered_record()));
    EXPECT_EQ(texts(100), "[][]");
}

TEST_F(event_text, ends_with_its_record_not_with_the_buffer) {
    std::string bytes = numbered_record() + wide_bytes({u'a', u'b', 0});
    ASSERT_TRUE(decode(with_length(bytes, 60)));
    EXPECT_EQ(texts(100), "[][]");
}

TEST_F(event_text, is_empty_where_it_does_not_fit) {
    ASSERT_TRUE(decode(event_bytes{.source = u"Disk", .computer = u"HOS"}.make()));
    EXPECT_EQ(texts(5), "[Disk][HOS]");
    EXPECT_EQ(texts(4), "[][HOS]");
}

TEST_F(user_of_record, lies_as_a_whole_in_it) {
    std::string sid = sid_bytes(2, 9);
    ASSERT_TRUE(decode(event_bytes{.user = sid}.make()));
    const uint8_t *found = event_user(&record);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(found), sid.size()), sid);
}

TEST_F(user_of_record, is_absent_outside_of_it) {
    std::string bytes = event_bytes{.user = sid_bytes(1, 9)}.make();
    auto size = static_cast<uint32_t>(bytes.size());
    for (uint32_t at : {size - 11, size, size + 1, 0x80000000U, 0xFFFFFFFFU}) {
        put_number(bytes, 44, at, 4);
        ASSERT_TRUE(decode(bytes));
        EXPECT_EQ(event_user(&record), nullptr) << at;
    }
    put_number(bytes, 44, size - 12, 4);
    put_number(bytes, 40, 0xFFFFFFFF, 4);
    ASSERT_TRUE(decode(bytes));
    EXPECT_EQ(event_user(&record), nullptr);
}

TEST_F(user_of_record, is_absent_where_it_claims_more_than_it_has) {
    for (int claimed : {2, 15, 255}) {
        std::string sid = sid_bytes(1, 9);
        sid[1] = static_cast<char>(claimed);
        ASSERT_TRUE(decode(event_bytes{.user = sid}.make()));
        EXPECT_EQ(event_user(&record), nullptr) << claimed;
    }
    ASSERT_TRUE(decode(event_bytes{.user = sid_bytes(0, 0).substr(0, 7)}.make()));
    EXPECT_EQ(event_user(&record), nullptr);
    ASSERT_TRUE(decode(event_bytes{.user = sid_bytes(0, 0)}.make()));
    EXPECT_NE(event_user(&record), nullptr);
}

TEST_F(event_arguments, are_the_inserts_and_empty_ones_behind) {
    ASSERT_TRUE(decode(event_bytes{.inserts = {u"one", u"", u"three"}}.make()));
    std::vector<std::u16string> all = arguments();
    EXPECT_EQ(all.size(), 131U);
    EXPECT_EQ(all[0], u"one");
    EXPECT_EQ(all[1], u"");
    EXPECT_EQ(all[2], u"three");
    for (size_t i = 3; i < all.size(); i++)
        EXPECT_EQ(all[i], u"") << i;
}

TEST_F(event_arguments, are_no_more_than_the_record_counts) {
    std::string bytes = event_bytes{.inserts = {u"one", u"two"}}.make();
    put_number(bytes, 26, 1, 2);
    ASSERT_TRUE(decode(bytes));
    EXPECT_EQ(arguments()[0], u"one");
    EXPECT_EQ(arguments()[1], u"");
}

TEST_F(event_arguments, are_empty_where_the_record_counts_more_than_it_has) {
    std::string bytes = event_bytes{.inserts = {u"one"}}.make();
    put_number(bytes, 26, 65'535, 2);
    ASSERT_TRUE(decode(bytes));
    std::vector<std::u16string> all = arguments();
    EXPECT_EQ(all.size(), 65'663U);
    EXPECT_EQ(all[0], u"one");
    EXPECT_EQ(all[1], u"");
    EXPECT_EQ(all.back(), u"");
}

TEST_F(event_arguments, end_with_the_record) {
    std::string bytes = numbered_record() + wide_bytes({u'a', 0, u'b', u'c'}) + 'd';
    put_number(bytes, 0, 65, 4);
    put_number(bytes, 26, 3, 2);
    put_number(bytes, 36, 56, 4);
    ASSERT_TRUE(decode(bytes));
    EXPECT_EQ(arguments()[0], u"a");
    EXPECT_EQ(arguments()[1], u"bc");
    EXPECT_EQ(arguments()[2], u"");
}

TEST_F(event_arguments, are_empty_where_their_place_is_outside) {
    std::string bytes = event_bytes{.inserts = {u"one"}}.make();
    for (auto at : {static_cast<uint32_t>(bytes.size()), static_cast<uint32_t>(bytes.size()) - 1, 0x80000000U,
                    0xFFFFFFFFU}) {
        put_number(bytes, 36, at, 4);
        ASSERT_TRUE(decode(bytes));
        EXPECT_EQ(arguments()[0], u"") << at;
    }
}

TEST_F(event_arguments, may_stand_at_an_odd_place) {
    std::string bytes = event_bytes{.inserts = {u"one"}}.make();
    uint32_t length = static_cast<uint32_t>(bytes.size());
    put_number(bytes, 36, length + 1, 4);
    ASSERT_TRUE(decode(with_length(bytes + 'x' + wide_bytes({u'y', 0}), length + 5)));
    EXPECT_EQ(arguments()[0], u"y");
}

TEST_F(event_arguments, are_absent_without_memory) {
    ASSERT_TRUE(decode(event_bytes{.inserts = {u"one"}}.make()));
    host.fail_allocation = 1;
    EXPECT_EQ(alloc_event_arguments(&record), nullptr);
}
