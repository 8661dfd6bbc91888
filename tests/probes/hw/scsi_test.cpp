#include "probes/hw/scsi.h"

#include "fakes/hex.h"
#include "fakes/scripted_scsi.h"
#include "fakes/test_host.h"
#include "platform/waits.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using names = std::vector<std::string>;

struct scsi_fixture : testing::Test {
    test_host host;
    scripted_scsi script;

    scsi_fixture() {
        script.set_last_error = [this](uint32_t code) { host.last_error = code; };
    }
    ~scsi_fixture() override {
        EXPECT_EQ(script.open_ports, 0) << "adapters left open";
        EXPECT_EQ(host.blocks, 0);
    }

    names walk() {
        names found;
        scsi_scan *scan = nullptr;
        for (const char *name = find_first_scsi_dev(&scan); name != nullptr; name = find_next_scsi_dev(scan))
            found.emplace_back(name);
        end_scsi_scan(scan);
        return found;
    }

    static scripted_unit unit(uint8_t bus, uint8_t target, uint8_t lun = 0, bool claimed = false) {
        return {{bus, target, lun, claimed}, {}};
    }
};

struct scsi_walk : scsi_fixture {};
struct open_scsi_dev_test : scsi_fixture {};

struct gen_scsi_cmd_test : scsi_fixture {
    scripted_port &port = script.add(1);
    std::vector<scsi_answer> answers; // one a command; none left is a failed control
    size_t next = 0;
    scsi_dev *device = nullptr;
    uint8_t reply[600] = {};

    void SetUp() override {
        port.units = {{{2, 6, 0, false}, [this](const std::string &) -> std::optional<scsi_answer> {
                           if (next >= answers.size()) return std::nullopt;
                           return answers[next++];
                       }}};
        ASSERT_EQ(open_scsi_dev(&device, "scsi1:02:06:00"), nullptr);
    }
    void TearDown() override { close_scsi_dev(device); }

    const char *send(const std::string &cdb, uint32_t in_length, uint32_t out_length = 0) {
        return gen_scsi_cmd(device, reinterpret_cast<const uint8_t *>(cdb.data()),
                            static_cast<uint32_t>(cdb.size()), out_length, reply, in_length);
    }
};

const std::string INQUIRY = bytes("12 00 00 00 60 00");

void put_number(std::string *table, size_t at, uint32_t value) {
    for (size_t i = 0; i < 4; i++)
        (*table)[at + i] = static_cast<char>(value >> 8 * i);
}

// A table of one bus, whose first entry is at `first`.
std::string broken_table(uint32_t first) {
    std::string table(INQUIRY_TABLE_SIZE, '\0');
    table[0] = 1;
    put_number(&table, 8, first);
    return table;
}

} // namespace

// ---- the walk

TEST_F(scsi_walk, names_what_no_class_driver_has_claimed) {
    script.add(0).units = {unit(0, 1), unit(0, 2, 0, true), unit(0, 3, 7)};
    EXPECT_EQ(walk(), (names{"scsi0:00:01:00", "scsi0:00:03:07"}));
    EXPECT_TRUE(host.logged(-1, "Opening device \\\\.\\scsi0:"));
    EXPECT_TRUE(host.logged(-1, "find_next_scsi_dev_impl: bus 0, offset 12"));
    EXPECT_TRUE(host.logged(-1, "Not claimed by a class driver"));
    EXPECT_TRUE(host.logged(-1, "Device is already claimed by a class driver"));
    EXPECT_TRUE(host.logged(-1, "No more targets on bus 0 of 1"));
    EXPECT_TRUE(host.logged(-1, "No more busses"));
    EXPECT_TRUE(host.logged(-1, "Opening device \\\\.\\scsi1:"));
}

TEST_F(scsi_walk, prints_addresses_in_upper_case_hexadecimal) {
    script.add(0).units = {unit(10, 0xAB, 0xFE)};
    EXPECT_EQ(walk(), names{"scsi0:0A:AB:FE"});
}

TEST_F(scsi_walk, goes_through_buses_with_and_without_devices) {
    script.add(0).units = {unit(1, 4), unit(3, 5)};
    EXPECT_EQ(walk(), (names{"scsi0:01:04:00", "scsi0:03:05:00"}));
    EXPECT_TRUE(host.logged(-1, "No more targets on bus 0 of 4"));
    EXPECT_TRUE(host.logged(-1, "No more targets on bus 2 of 4"));
}

TEST_F(scsi_walk, goes_through_ports_up_to_the_first_missing_one) {
    script.add(0).units = {unit(0, 1)};
    script.add(1); // without a bus
    script.add(2).units = {unit(0, 2, 0, true)};
    script.add(3).units = {unit(0, 3)};
    script.add(5).units = {unit(0, 4)};
    EXPECT_EQ(walk(), (names{"scsi0:00:01:00", "scsi3:00:03:00"}));
    EXPECT_EQ(script.opened.back(), "\\\\.\\scsi4:");
    EXPECT_EQ(script.opened.size(), 5U);
    EXPECT_EQ(script.queries, 4);
    EXPECT_EQ(script.accesses, std::vector<uint32_t>(5, 0xC0000000));
}

TEST_F(scsi_walk, ends_silently_where_there_is_no_port) {
    EXPECT_EQ(walk(), names{});
    EXPECT_EQ(host.count_logged("Error"), 0);
    EXPECT_EQ(script.opened.size(), 1U);
}

TEST_F(scsi_walk, ends_at_a_port_that_cannot_be_opened_and_says_so) {
    script.add(0).units = {unit(0, 1)};
    script.add(1).open_error = 5;
    script.add(2).units = {unit(0, 1)};
    EXPECT_EQ(walk(), names{"scsi0:00:01:00"});
    EXPECT_TRUE(host.logged(1, "Error scanning SCSI devices: Error opening \\\\.\\scsi1:: system error 5"));
}

TEST_F(scsi_walk, ends_at_a_first_port_that_cannot_be_opened) {
    script.add(0).open_error = 3;
    EXPECT_EQ(walk(), names{});
    EXPECT_TRUE(host.logged(1, "Error scanning SCSI devices: Error opening \\\\.\\scsi0:: system error 3"));
    EXPECT_EQ(host.count_logged("find_next_scsi_dev_impl"), 0);
}

TEST_F(scsi_walk, ends_at_a_port_that_does_not_tell_its_devices) {
    script.add(0).query_error = 50;
    script.add(1).units = {unit(0, 1)};
    EXPECT_EQ(walk(), names{});
    EXPECT_TRUE(host.logged(1, "Error scanning SCSI devices: Error querying \\\\.\\scsi0:: system error 50"));
}

TEST_F(scsi_walk, says_when_memory_is_out) {
    script.add(0).units = {unit(0, 1)};
    host.fail_allocation = 1;
    EXPECT_EQ(walk(), names{});
    EXPECT_TRUE(host.logged(1, "Error scanning SCSI devices: Out of memory"));
    EXPECT_TRUE(script.opened.empty());
}

TEST_F(scsi_walk, closes_a_port_before_it_opens_the_next) {
    script.add(0).units = {unit(0, 1)};
    script.add(1).units = {unit(0, 1)};
    scsi_scan *scan = nullptr;
    EXPECT_STREQ(find_first_scsi_dev(&scan), "scsi0:00:01:00");
    EXPECT_EQ(script.open_ports, 1);
    EXPECT_STREQ(find_next_scsi_dev(scan), "scsi1:00:01:00");
    EXPECT_EQ(script.open_ports, 1);
    EXPECT_EQ(find_next_scsi_dev(scan), nullptr);
    EXPECT_EQ(find_next_scsi_dev(scan), nullptr) << "a walk that is over stays so";
    end_scsi_scan(scan);
}

TEST_F(scsi_walk, ends_behind_port_255) {
    for (uint32_t port = 0; port < 300; port++)
        script.add(port);
    script.add(255).units = {unit(0, 1)};
    EXPECT_EQ(walk(), names{"scsi255:00:01:00"});
    EXPECT_EQ(script.opened.size(), 256U);
}

TEST_F(scsi_walk, does_not_follow_entries_in_a_circle) {
    std::string table = broken_table(100);
    put_number(&table, 108, 200); // the entry at 100 leads to 200
    put_number(&table, 208, 100); // and that back
    script.add(0).table = table;
    script.add(1).units = {unit(0, 9)};
    EXPECT_EQ(walk().size(), 3U);
    EXPECT_TRUE(host.logged(
        2, "The device table of SCSI port 0 is broken on bus 0: the rest of the bus is left out"));
}

TEST_F(scsi_walk, does_not_follow_an_entry_to_itself_claimed_or_not) {
    for (char claimed : {'\0', '\1'}) {
        std::string table = broken_table(100);
        table[103] = claimed;
        put_number(&table, 108, 100);
        script.add(0).table = table;
        EXPECT_EQ(walk().size(), claimed == '\0' ? 1U : 0U);
    }
}

TEST_F(scsi_walk, does_not_leave_the_table) {
    for (uint32_t offset : {INQUIRY_TABLE_SIZE - 11, INQUIRY_TABLE_SIZE, 0x80000000U, 0xFFFFFFFFU}) {
        script.add(0).table = broken_table(offset);
        EXPECT_EQ(walk(), names{}) << offset;
        EXPECT_EQ(host.count_logged("is broken on bus 0"), 1);
        host.log.clear();
    }
    script.add(0).table = broken_table(INQUIRY_TABLE_SIZE - 12);
    EXPECT_EQ(walk(), names{"scsi0:00:00:00"});
}

TEST_F(scsi_walk, does_not_look_behind_what_has_come) {
    script.add(0).table = broken_table(100).substr(0, 111);
    EXPECT_EQ(walk(), names{});
    script.add(0).table = broken_table(100).substr(0, 112);
    EXPECT_EQ(walk(), names{"scsi0:00:00:00"});
    script.add(0).table = std::string();
    EXPECT_EQ(walk(), names{});
}

TEST_F(scsi_walk, forgets_the_table_of_the_port_before) {
    script.add(0).units = {unit(0, 1)};
    script.add(1).table = std::string("\1", 1); // a bus, and not where it starts
    EXPECT_EQ(walk(), names{"scsi0:00:01:00"});
}

TEST_F(scsi_walk, says_once_that_tables_are_broken_and_goes_on) {
    script.add(0).table = broken_table(3000);
    script.add(1).table = broken_table(3000);
    script.add(2).units = {unit(0, 5)};
    EXPECT_EQ(walk(), names{"scsi2:00:05:00"});
    EXPECT_EQ(host.count_logged("is broken on bus"), 1);
    walk();
    EXPECT_EQ(host.count_logged("is broken on bus"), 2) << "once a walk";
}

TEST_F(scsi_walk, ends_whatever_a_table_holds) {
    std::mt19937 chance(3);
    for (int round = 0; round < 500; round++) {
        std::string table(INQUIRY_TABLE_SIZE, '\0');
        for (char &byte : table)
            byte = chance() % 3 == 0 ? static_cast<char>(chance() % 8) : '\0';
        script.add(0).table = table.substr(0, chance() % (INQUIRY_TABLE_SIZE + 1));
        // Entries take 12 bytes each and do not overlap.
        EXPECT_LE(walk().size(), INQUIRY_TABLE_SIZE / 12);
        host.log.clear();
    }
}

// ---- one device

TEST_F(open_scsi_dev_test, reads_the_address_from_the_name) {
    script.add(12);
    scsi_dev *device = nullptr;
    EXPECT_SUCCESS(open_scsi_dev(&device, "scsi12:0A:fF:07"));
    EXPECT_EQ(device->port, 12);
    EXPECT_EQ(device->path, 0x0A);
    EXPECT_EQ(device->target, 0xFF);
    EXPECT_EQ(device->lun, 7);
    EXPECT_EQ(script.opened, names{"\\\\.\\scsi12:"});
    EXPECT_EQ(script.accesses, std::vector<uint32_t>{0xC0000000});
    close_scsi_dev(device);
    close_scsi_dev(nullptr);
}

TEST_F(open_scsi_dev_test, refuses_what_is_no_name) {
    scsi_dev *device = nullptr;
    for (const char *name :
         {"", "scsi", "scsi1", "scsi1:", "scsi1:0:0", "scsi1:0:0:", "scsi:0:0:0", "SCSI1:0:0:0",
          "scsi1:0:0:x", "scsi256:0:0:0", "scsi4294967296:0:0:0", "scsi-1:0:0:0", "sda"})
        EXPECT_FAILURE(open_scsi_dev(&device, name), std::string("Error parsing SCSI device name: ") + name);
    EXPECT_TRUE(script.opened.empty());
}

TEST_F(open_scsi_dev_test, says_why_an_adapter_cannot_be_opened) {
    scsi_dev *device = nullptr;
    script.add(0).open_error = 5;
    EXPECT_FAILURE(open_scsi_dev(&device, "scsi0:00:01:00"), "Error opening \\\\.\\scsi0:: system error 5");
    EXPECT_FAILURE(open_scsi_dev(&device, "scsi1:00:01:00"), "Error opening \\\\.\\scsi1:: system error 2");
    EXPECT_EQ(device, nullptr);
}

TEST_F(open_scsi_dev_test, says_when_memory_is_out) {
    scsi_dev *device = nullptr;
    host.fail_allocation = 1;
    EXPECT_FAILURE(open_scsi_dev(&device, "scsi0:00:01:00"), "Out of memory in open_scsi_dev");
}

// ---- a command

TEST_F(gen_scsi_cmd_test, sends_a_block_and_gives_the_reply) {
    answers = {{0, "the answer"}};
    EXPECT_SUCCESS(send(INQUIRY, 96));
    EXPECT_STREQ(reinterpret_cast<char *>(reply), "the answer");
    ASSERT_EQ(script.requests.size(), 1U);
    EXPECT_EQ(hex(script.requests[0].block), "38 00 00 02 06 00 06 00 01 00 00 00 60 00 00 00 "
                                             "02 00 00 00 00 00 00 00 5C 00 00 00 00 00 00 00 "
                                             "3C 00 00 00 12 00 00 00 60 00 00 00 00 00 00 00 "
                                             "00 00 00 00 00 00 00 00");
    EXPECT_EQ(script.requests[0].output_size, 188U);
    EXPECT_TRUE(host.sleeps.empty());
}

TEST_F(gen_scsi_cmd_test, takes_no_data_going_out) {
    EXPECT_FAILURE(send(INQUIRY, 96, 1), "gen_scsi_cmd() does not support non-zero in_len");
    EXPECT_TRUE(script.requests.empty());
}

TEST_F(gen_scsi_cmd_test, has_room_for_516_bytes) {
    answers = {{0, std::string(516, 'z')}};
    EXPECT_FAILURE(send(INQUIRY, 517), "gen_scsi_cmd(): Buffer too short");
    EXPECT_FAILURE(send(INQUIRY, UINT32_MAX), "gen_scsi_cmd(): Buffer too short");
    EXPECT_TRUE(script.requests.empty());
    EXPECT_SUCCESS(send(INQUIRY, 516));
    EXPECT_EQ(reply[515], 'z');
    EXPECT_EQ(reply[516], 0);
    EXPECT_EQ(script.requests[0].output_size, 608U);
}

TEST_F(gen_scsi_cmd_test, puts_the_low_bits_of_the_unit_into_byte_1) {
    device->lun = 0x0D;
    EXPECT_NE(send(bytes("3C FF 01"), 4), nullptr);
    EXPECT_EQ(hex(script.requests[0].cdb()), "3C BF 01");
    EXPECT_EQ(script.requests[0].block[5], 0x0D);
    EXPECT_NE(send(bytes("3C"), 4), nullptr);
    EXPECT_EQ(hex(script.requests[2].cdb()), "3C");
    EXPECT_EQ(script.requests[2].block[37], 0);
}

TEST_F(gen_scsi_cmd_test, tries_again_after_a_second) {
    answers = {{2, "not this"}, {0, "this"}};
    EXPECT_SUCCESS(send(INQUIRY, 96));
    EXPECT_STREQ(reinterpret_cast<char *>(reply), "this");
    EXPECT_EQ(host.sleeps, std::vector<uint32_t>{1000});
    ASSERT_EQ(script.requests.size(), 2U);
    EXPECT_EQ(script.requests[0].block, script.requests[1].block) << "the first answer left its marks";
}

TEST_F(gen_scsi_cmd_test, fails_after_two_attempts_and_one_second) {
    EXPECT_FAILURE(send(INQUIRY, 96), "gen_scsi_cmd(): system error 121");
    EXPECT_EQ(host.sleeps, std::vector<uint32_t>{1000});
    EXPECT_EQ(script.requests.size(), 2U);
}

TEST_F(gen_scsi_cmd_test, sleeps_where_a_stop_can_wake_it) {
    waitable *stop = waits_host->CreateEventA(true, false);
    add_wakeup_event(stop, nullptr);
    EXPECT_FAILURE(send(INQUIRY, 96), "gen_scsi_cmd(): system error 121");
    EXPECT_EQ(host.waits, std::vector<uint32_t>{1000});
    EXPECT_TRUE(host.sleeps.empty());
    del_wakeup_event(stop);
    waits_host->CloseHandle(stop);
}

TEST_F(gen_scsi_cmd_test, fails_where_the_device_has_failed_both) {
    answers = {{2, ""}, {8, ""}, {0, "too late"}};
    host.last_error = 7;
    EXPECT_FAILURE(send(INQUIRY, 96), "gen_scsi_cmd(): system error 7");
    EXPECT_EQ(reply[0], 0);
}

TEST_F(gen_scsi_cmd_test, fills_a_short_reply_with_zeros) {
    memset(reply, 'x', sizeof reply);
    answers = {{0, "ab"}};
    EXPECT_SUCCESS(send(INQUIRY, 4));
    EXPECT_EQ(std::string(reinterpret_cast<char *>(reply), 5), std::string("ab\0\0x", 5));
}
