#include "probes/hw/sdr.h"

#include "platform/agent_log.h"
#include "probes/hw/ipmi_fixture.h"

#include <cstring>

namespace {

constexpr std::pair<uint8_t, uint8_t> RESERVE = {10, 0x22};
constexpr std::pair<uint8_t, uint8_t> GET = {10, 0x23};

struct sdr_fixture : ipmi_fixture {
    uint8_t buffer[SDR_SIZE] = {};
    uint16_t next_id = 0x1234;

    sdr_fixture() { come_up(); }

    const char *read(uint16_t id) { return read_sdr_record(buffer, &next_id, active_bmcs, id); }
    // The offsets and sizes of the reads, in their order.
    std::vector<std::pair<int, int>> pieces() const {
        std::vector<std::pair<int, int>> found;
        for (const bmc_request &request : bmc.asked)
            if (request.command == 0x23) found.emplace_back(request.data[4], request.data[5]);
        return found;
    }
    // A record of this many bytes with the length byte that says so.
    static std::vector<uint8_t> plain_record(size_t size) {
        std::vector<uint8_t> record(size);
        for (size_t i = 5; i < size; i++)
            record[i] = static_cast<uint8_t>(i);
        record[2] = 0x51;
        record[3] = 192;
        record[4] = static_cast<uint8_t>(size - 5);
        return record;
    }
    bool has_read(const std::vector<uint8_t> &record, size_t count) const {
        return memcmp(buffer, record.data(), count) == 0;
    }
};

using reserve_sdr_test = sdr_fixture;
using read_sdr_record_test = sdr_fixture;
using scan_sdr_repository_test = sdr_fixture;
using walk = std::vector<std::pair<int, int>>;

} // namespace

// ---- reservations

TEST_F(reserve_sdr_test, gives_the_id_with_its_low_byte_first) {
    bmc.scripted[RESERVE] = {{0, 0x34, 0x12}};
    uint16_t id = 0;
    EXPECT_SUCCESS(reserve_sdr(&id));
    EXPECT_EQ(id, 0x1234);
    EXPECT_EQ(bmc.asked.back(), (bmc_request{10, 0, 0x22, {}}));
}

TEST_F(reserve_sdr_test, does_not_look_at_the_completion_code) {
    bmc.scripted[RESERVE] = {{0xC1, 1, 0}};
    uint16_t id = 0;
    EXPECT_SUCCESS(reserve_sdr(&id));
    EXPECT_EQ(id, 1);
}

TEST_F(reserve_sdr_test, finds_id_0_odd_and_takes_it) {
    for (const std::vector<uint8_t> &reply : {std::vector<uint8_t>{0, 0, 0}, {0xC1}}) {
        host.log.clear();
        bmc.scripted[RESERVE] = {reply};
        uint16_t id = 9;
        EXPECT_SUCCESS(reserve_sdr(&id));
        EXPECT_EQ(id, 0);
        EXPECT_TRUE(host.logged(LOG_NORMAL, "Odd! Got 0 reservation code on SDR!"));
    }
}

TEST_F(reserve_sdr_test, fails_with_the_command) {
    channel.statuses["ExecMethod"] = {0x80041001};
    uint16_t id = 9;
    EXPECT_FAILURE(reserve_sdr(&id), "Unable to execute method: General failure");
    EXPECT_EQ(id, 9);
}

TEST_F(reserve_sdr_test, takes_no_response_for_id_0) {
    channel.gives_outputs = false;
    uint16_t id = 9;
    EXPECT_SUCCESS(reserve_sdr(&id));
    EXPECT_EQ(id, 0);
}

// ---- reading a record

TEST_F(read_sdr_record_test, reads_in_pieces_of_16_bytes) {
    auto record = plain_record(64);
    bmc.add_record(record);
    bmc.records[0].next = 0x0203;
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces(), (walk{{0, 16}, {16, 16}, {32, 16}, {48, 16}}));
    EXPECT_EQ(next_id, 0x0203);
    EXPECT_TRUE(has_read(bmc.records[0].bytes, 64));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Record claims full size is 59 bytes"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Read full SDR repository record"));
}

TEST_F(read_sdr_record_test, sends_reservation_record_id_offset_and_count) {
    sdr_reservation = bmc.reservation = 0x3412;
    bmc.add_record(plain_record(64));
    bmc.records[0].id = 0x7856;
    EXPECT_SUCCESS(read(0x7856));
    EXPECT_EQ(bmc.asked[1], (bmc_request{10, 0, 0x23, {0x12, 0x34, 0x56, 0x78, 16, 16}}));
    EXPECT_EQ(bmc.count(10, 0x22), 0) << "one is held";
}

TEST_F(read_sdr_record_test, reserves_where_nothing_is_held) {
    bmc.add_record(plain_record(64));
    EXPECT_SUCCESS(read(1));
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(bmc.count(10, 0x22), 1);
    EXPECT_EQ(bmc.asked[0].command, 0x22);
}

TEST_F(read_sdr_record_test, reserves_at_each_record_where_the_id_is_0) {
    bmc.add_record(plain_record(64));
    bmc.scripted[RESERVE] = {{0, 0, 0}, {0, 0, 0}};
    EXPECT_SUCCESS(read(1));
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(bmc.count(10, 0x22), 2);
    EXPECT_EQ(host.count_logged("Odd!"), 2);
}

TEST_F(read_sdr_record_test, fails_where_reserving_does) {
    channel.statuses["ExecMethod"] = {0x80041001};
    EXPECT_FAILURE(read(1), "Unable to execute method: General failure");
}

// The five bytes of the header don't count, so the end of the record may stay unread.
TEST_F(read_sdr_record_test, ends_where_the_length_byte_says) {
    auto record = plain_record(64);
    record[4] = 48;
    bmc.add_record(record);
    memset(buffer, 0xEE, sizeof buffer);
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces(), (walk{{0, 16}, {16, 16}, {32, 16}}));
    EXPECT_TRUE(has_read(bmc.records[0].bytes, 48));
    EXPECT_EQ(buffer[48], 0xEE) << "the tail stays as it was";

    bmc.asked.clear();
    bmc.records[0].bytes[4] = 49;
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces().size(), 4U);
}

TEST_F(read_sdr_record_test, looks_at_the_length_only_behind_it) {
    auto record = plain_record(20);
    record[4] = 0;
    bmc.add_record(record);
    bmc.most_bytes = 4;
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces(), (walk{{0, 16}, {0, 8}, {0, 4}, {4, 4}}));
}

TEST_F(read_sdr_record_test, halves_pieces_that_are_refused) {
    bmc.add_record(plain_record(64));
    bmc.most_bytes = 4;
    EXPECT_SUCCESS(read(1));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Will re-try read with 8 bytes"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Will re-try read with 4 bytes"));
    EXPECT_TRUE(has_read(bmc.records[0].bytes, 60));
    EXPECT_EQ(pieces().size(), 2U + 15);
    bmc.asked.clear();
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces()[0].second, 16) << "the next record is tried with 16 again";
}

TEST_F(read_sdr_record_test, halves_for_an_unspecified_error_too) {
    bmc.add_record(plain_record(64));
    bmc.scripted[GET] = {{0xFF}};
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces()[1], (std::pair{0, 8}));
}

TEST_F(read_sdr_record_test, halves_at_the_end_where_less_is_left) {
    bmc.add_record(plain_record(60));
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces(), (walk{{0, 16}, {16, 16}, {32, 16}, {48, 16}, {48, 8}}));
}

TEST_F(read_sdr_record_test, fails_where_not_even_one_byte_is_given) {
    bmc.add_record(plain_record(64));
    for (uint8_t ccode : {uint8_t{0xCA}, uint8_t{0xFF}}) {
        bmc.asked.clear();
        bmc.scripted[GET].assign(9, {ccode});
        EXPECT_FAILURE(read(1), "Unable to read anything in a record");
        EXPECT_EQ(pieces(), (walk{{0, 16}, {0, 8}, {0, 4}, {0, 2}, {0, 1}}));
        EXPECT_EQ(host.count_logged("Will re-try read with 0"), 0);
    }
}

TEST_F(read_sdr_record_test, starts_again_a_second_after_a_lost_reservation) {
    bmc.add_record(plain_record(64));
    bmc.losses = 1;
    bmc.loss_offset = 32;
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces(), (walk{{0, 16}, {16, 16}, {32, 16}, {0, 16}, {16, 16}, {32, 16}, {48, 16}}));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "SDR Repository reservation lost. Re-reserving"));
    EXPECT_EQ(bmc.count(10, 0x22), 2);
    EXPECT_EQ(host.sleeps, std::vector<uint32_t>{1000});
    EXPECT_TRUE(has_read(bmc.records[0].bytes, 64));
}

TEST_F(read_sdr_record_test, keeps_the_size_of_its_pieces_behind_a_lost_reservation) {
    bmc.add_record(plain_record(64));
    bmc.most_bytes = 8;
    bmc.losses = 1;
    bmc.loss_offset = 8;
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces()[3], (std::pair{0, 8}));
}

TEST_F(read_sdr_record_test, fails_where_it_cannot_reserve_again) {
    bmc.add_record(plain_record(64));
    bmc.losses = 1;
    channel.statuses["ExecMethod"] = {0, 0, 0x80041001};
    EXPECT_FAILURE(read(1), "Unable to execute method: General failure");
}

TEST_F(read_sdr_record_test, gives_up_where_reservations_are_lost_again_and_again) {
    bmc.add_record(plain_record(64));
    bmc.losses = 1000000;
    EXPECT_FAILURE(read(1), "Unable to read anything in a record");
    EXPECT_EQ(host.sleeps.size(), 60U);
    EXPECT_EQ(bmc.count(10, 0x22), 61);
    EXPECT_EQ(host.count_logged("giving up"), 1);
    EXPECT_TRUE(
        host.logged(LOG_WARNING, "SDR Repository reservation lost 61 times in one record, giving up"));
}

TEST_F(read_sdr_record_test, takes_the_next_id_from_the_first_piece) {
    bmc.scripted[GET] = {{0, 2, 0, 1, 0, 0x51, 1, 20, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
                         {0, 9, 9, 16, 17, 18, 19}};
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(next_id, 2);
    EXPECT_EQ(buffer[16], 16);
}

TEST_F(read_sdr_record_test, needs_the_next_id) {
    for (const std::vector<uint8_t> &reply : {std::vector<uint8_t>{0}, {0, 1}}) {
        bmc.scripted[GET] = {reply};
        EXPECT_FAILURE(read(1), "Received too little data from Get DSR");
    }
    channel.gives_outputs = false;
    EXPECT_FAILURE(read(1), "Received too little data from Get DSR");
}

TEST_F(read_sdr_record_test, fails_at_any_other_code) {
    for (int ccode : {0xC0, 0xC3, 0xC4, 0xC6, 0xC9, 0xCB, 0x01, 0xFE}) {
        bmc.scripted[GET] = {{static_cast<uint8_t>(ccode), 1, 2, 3}};
        EXPECT_FAILURE(read(1), "Unexpected error reading SDR");
    }
}

TEST_F(read_sdr_record_test, fails_with_the_command) {
    sdr_reservation = 1;
    channel.statuses["ExecMethod"] = {0x80041015};
    EXPECT_FAILURE(read(1), "Unable to execute method: RPC link failure");
}

TEST_F(read_sdr_record_test, never_asks_beyond_256_bytes) {
    bmc.add_record(plain_record(255));
    bmc.gives_less = true;
    bmc.scripted[GET] = {{0, 2, 0, 1}}; // one byte, so that the pieces don't meet the end
    EXPECT_SUCCESS(read(1));
    EXPECT_EQ(pieces().back(), (std::pair{241, 15}));
}

TEST_F(read_sdr_record_test, drops_bytes_that_nobody_asked_for) {
    std::vector<uint8_t> flood(3 + 300, 0x77);
    flood[0] = 0;
    bmc.scripted[GET].assign(5, std::vector<uint8_t>(3 + 16));
    bmc.scripted[GET].push_front(flood);
    EXPECT_SUCCESS(read(1)); // the length is 0x77
    EXPECT_EQ(pieces()[1].first, 300 - 256) << "the offset has 8 bits";
    EXPECT_EQ(buffer[255], 0x77);
}

TEST_F(read_sdr_record_test, gives_up_where_the_offset_turns_round) {
    auto record = plain_record(256);
    record[4] = 255;
    bmc.add_record(record);
    EXPECT_FAILURE(read(1), "Unable to read anything in a record");
    EXPECT_EQ(pieces().size(), 257U);
    EXPECT_EQ(host.count_logged("giving up"), 1);
    EXPECT_TRUE(host.logged(LOG_WARNING, "SDR 0x0001 doesn't end behind 256 pieces, giving up"));
}

TEST_F(read_sdr_record_test, gives_up_where_pieces_are_empty) {
    bmc.scripted[GET].assign(1000, {0, 2, 0});
    EXPECT_FAILURE(read(1), "Unable to read anything in a record");
    EXPECT_EQ(pieces().size(), 257U);
}

TEST_F(read_sdr_record_test, takes_256_pieces_of_one_byte_and_starts_counting_at_a_reservation) {
    bmc.add_record(plain_record(240));
    bmc.most_bytes = 1;
    bmc.losses = 1;
    bmc.loss_offset = 200;
    EXPECT_SUCCESS(read(1));
    EXPECT_GT(pieces().size(), 400U);
}

// ---- the walk

TEST_F(scan_sdr_repository_test, starts_at_0_and_ends_behind_the_last_record) {
    bmc.add({.number = 1});
    bmc.add({.type = 2, .number = 2});
    bmc.add({.number = 3});
    EXPECT_SUCCESS(scan_sdr_repository());
    EXPECT_EQ(bmc.asked[1].data[2], 0);
    ASSERT_NE(sensor_records, nullptr);
    EXPECT_EQ(sensor_records->sensor_number, 3);
    EXPECT_EQ(sensor_records->next->sensor_number, 2);
    EXPECT_EQ(sensor_records->next->numeric_format, 3U);
    EXPECT_EQ(sensor_records->next->next->sensor_number, 1);
    EXPECT_EQ(bmc.count(10, 0x23), 4 + 3 + 4);
    EXPECT_EQ(host.count_logged("leads back"), 0);
}

TEST_F(scan_sdr_repository_test, passes_over_versions_that_it_does_not_know) {
    bmc.add({.version = 0x01, .number = 1});
    bmc.add({.number = 2});
    EXPECT_SUCCESS(scan_sdr_repository());
    EXPECT_TRUE(host.logged(LOG_TRACE, "SDR ID 1.0 has unsupported version 0x1"));
    EXPECT_EQ(sensor_records->sensor_number, 2);
    EXPECT_EQ(sensor_records->next, nullptr);
}

TEST_F(scan_sdr_repository_test, names_records_that_are_no_sensors) {
    const std::pair<std::vector<uint8_t>, const char *> kinds[] = {
        {{3}, " Event-only record"},
        {{8}, " Entity Association record"},
        {{9}, " Device-relative Entity Association record"},
        {{10, 11, 12, 13, 14, 15}, " Unhandled (reserved) SDR record"},
        {{16}, " Generic Device Locator record"},
        {{17}, " FRU Device Locator record"},
        {{18}, " Management Controller Device Locator record"},
        {{19}, " Management Controller Confirmation record"},
        {{20}, " Baseboard Management Controller Channel Info record"},
        {{192}, " OEM record"},
    };
    for (const auto &[types, text] : kinds) {
        for (uint8_t type : types) {
            bmc.records.clear();
            host.log.clear();
            bmc.add({.type = type});
            EXPECT_SUCCESS(scan_sdr_repository());
            EXPECT_TRUE(host.logged(LOG_TRACE, text)) << int{type};
            EXPECT_EQ(host.count_logged("Unknown record type"), 0);
        }
    }
    EXPECT_EQ(sensor_records, nullptr);
}

TEST_F(scan_sdr_repository_test, finds_other_types_unknown) {
    const std::pair<uint8_t, const char *> types[] = {
        {0, " Unknown record type 0x0"},    {4, " Unknown record type 0x4"},
        {7, " Unknown record type 0x7"},    {21, " Unknown record type 0x15"},
        {191, " Unknown record type 0xBF"}, {193, " Unknown record type 0xC1"},
        {255, " Unknown record type 0xFF"},
    };
    for (auto [type, text] : types) {
        bmc.records.clear();
        bmc.add({.type = type});
        EXPECT_SUCCESS(scan_sdr_repository());
        EXPECT_TRUE(host.logged(LOG_NORMAL, text));
    }
}

TEST_F(scan_sdr_repository_test, goes_on_behind_a_record_that_is_no_good) {
    auto bad_full = sdr_bytes({.number = 1});
    bad_full[4] = 48;
    auto bad_compact = sdr_bytes({.type = 2, .number = 2});
    bad_compact[4] = 32;
    bmc.add_record(bad_full);
    bmc.add_record(bad_compact);
    bmc.add({.number = 3});
    EXPECT_SUCCESS(scan_sdr_repository());
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Error parsing record: Full Sensor Record too short"));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Error parsing record: Compact Sensor Record too short (32 bytes)"));
    EXPECT_EQ(sensor_records->sensor_number, 3);
    EXPECT_EQ(sensor_records->next, nullptr);
}

TEST_F(scan_sdr_repository_test, ends_at_a_record_that_cannot_be_read_and_keeps_the_ones_before) {
    bmc.add({.number = 1});
    bmc.records[0].next = 77;
    EXPECT_FAILURE(scan_sdr_repository(), "Unexpected error reading SDR");
    EXPECT_NE(sensor_records, nullptr);
}

TEST_F(scan_sdr_repository_test, shows_no_byte_of_the_record_before) {
    bmc.add({.number = 1, .text = "long description"});
    auto cut = sdr_bytes({.number = 2, .text = "0123456789abcdef"});
    cut[4] = 49; // so that 49 bytes or more are read
    cut.resize(50);
    bmc.add_record(cut);
    bmc.gives_less = true;
    EXPECT_SUCCESS(scan_sdr_repository());
    EXPECT_STREQ(sensor_records->description, "01");
}

TEST_F(scan_sdr_repository_test, ends_where_ids_form_a_circle) {
    for (uint8_t number = 1; number <= 5; number++)
        bmc.add({.number = number});
    bmc.records[4].next = 3;
    EXPECT_SUCCESS(scan_sdr_repository());
    int found = 0;
    for (sensor_record *record = sensor_records; record != nullptr; record = record->next)
        found++;
    EXPECT_EQ(found, 5) << "what was found on the way counts";
    EXPECT_EQ(host.count_logged("leads back"), 1);
    EXPECT_TRUE(host.logged(LOG_WARNING, "SDR repository leads back to record 0x0003, ending its walk"));
}

TEST_F(scan_sdr_repository_test, ends_where_a_record_leads_to_itself_or_to_the_start) {
    for (uint16_t next : {uint16_t{0}, uint16_t{1}}) {
        bmc.records.clear();
        bmc.asked.clear();
        host.log.clear();
        bmc.add({.number = 1});
        bmc.records[0].next = next;
        EXPECT_SUCCESS(scan_sdr_repository());
        EXPECT_EQ(host.count_logged("leads back"), 1);
        EXPECT_LE(bmc.count(10, 0x23), 8);
    }
}

TEST_F(scan_sdr_repository_test, reads_each_id_that_exists_at_most_once) {
    host.log.clear();
    channel.keeps_steps = false;
    log_set_level(LOG_NORMAL);
    uint32_t reads = 0;
    for (uint32_t id = 0; id < 0xFFFF; id++) { // each record leads to the next id, the last one to the first
        uint32_t next = (id + 1) % 0xFFFF;
        bmc.scripted[GET].push_back(
            {0, static_cast<uint8_t>(next), static_cast<uint8_t>(next >> 8), 0, 0, 0, 0, 0, 0, 0, 0, 0});
    }
    EXPECT_SUCCESS(scan_sdr_repository());
    for (const bmc_request &request : bmc.asked)
        if (request.command == 0x23) reads++;
    EXPECT_EQ(reads, 0xFFFFU);
    EXPECT_EQ(host.count_logged("leads back to record 0x0000"), 1);
}
