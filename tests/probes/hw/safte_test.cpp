#include "probes/hw/safte.h"

#include "fakes/hex.h"
#include "fakes/scripted_scsi.h"
#include "fakes/test_host.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <gtest/gtest.h>
#include <random>

namespace {

struct safte_fixture : testing::Test {
    test_host host;
    scripted_scsi script;
    agent_config config = {};
    devtree root = {};

    safte_fixture() {
        script.set_last_error = [this](uint32_t code) { host.last_error = code; };
        config_in_force = &config;
        safte_reset();
    }
    ~safte_fixture() override {
        EXPECT_EQ(script.open_ports, 0) << "adapters left open";
        free_devtree(root.children);
        safte_reset();
        EXPECT_EQ(host.blocks, 0);
        config_in_force = nullptr;
    }

    // The blocks that devices were sent.
    std::vector<std::string> commands() const {
        std::vector<std::string> all;
        for (const scsi_request &request : script.requests)
            all.push_back(hex(request.cdb()));
        return all;
    }
};

struct scan_safte_test : safte_fixture {
    std::vector<const devtree *> enclosures() const {
        std::vector<const devtree *> all;
        const devtree *top = root.children;
        for (const devtree *group = top != nullptr ? top->children : nullptr; group; group = group->next)
            all.push_back(group);
        return all;
    }
};

// One enclosure, scsi0:00:06:00, with 4 slots, 2 fans, 1 supply and 3 sensors.
struct check_safte_test : safte_fixture {
    scripted_enclosure enclosure{4, 2, 1, 3};
    resnode result = {};

    void SetUp() override { script.add(0).units = {enclosure.unit(0, 6), enclosure.unit(0, 7)}; }

    const char *check(const char *kind, const char *id, const char *name = "scsi0:00:06:00") {
        heap_free(result.comment);
        result = {};
        devtree *top = devtree_child(&root, "safte", "");
        top->parent = nullptr; // as in a tree of its own
        devtree *group = devtree_child(devtree_child(top, name, ""), kind, "");
        devnode *device = alloc_devnode();
        device->id = text_copy(id);
        devtree_add_devices(group, device);
        return check_safte(device, &result);
    }

    void expect_slot(int32_t value, const char *comment, const char *id = "0",
                     const char *name = "scsi0:00:06:00") {
        EXPECT_SUCCESS(check("slot", id, name));
        EXPECT_EQ(result.value, value);
        EXPECT_STREQ(result.comment, comment);
    }

    // The three bytes of a slot that count.
    void set_slot(size_t slot, uint8_t flags0, uint8_t flags1, uint8_t flags3) {
        enclosure.slots[slot * 4] = static_cast<char>(flags0);
        enclosure.slots[slot * 4 + 1] = static_cast<char>(flags1);
        enclosure.slots[slot * 4 + 3] = static_cast<char>(flags3);
    }

    void TearDown() override { heap_free(result.comment); }
};

std::vector<std::string> ids_of(const devtree *group) {
    std::vector<std::string> ids;
    for (const devnode *device = group->devices; device != nullptr; device = device->next)
        ids.emplace_back(device->id);
    return ids;
}

using names = std::vector<std::string>;

} // namespace

// ---- scan

TEST_F(scan_safte_test, offers_the_parts_of_an_enclosure) {
    scripted_enclosure enclosure(12, 2, 3, 1);
    script.add(0).units = {enclosure.unit(0, 6)};
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_TRUE(host.logged(0, "Probing SCSI device scsi0:00:06:00 for SAFTE capability"));
    EXPECT_TRUE(host.logged(0, "SAFTE device scsi0:00:06:00: 12 slots, 2 fans, 3 PSUs, 1 temp sensors"));
    const devtree *top = root.children;
    ASSERT_NE(top, nullptr);
    EXPECT_STREQ(top->id, "safte");
    EXPECT_STREQ(top->name, "SCSI enclosures");
    EXPECT_EQ(top->group_flags, GROUP_OF_INSTANCES);
    EXPECT_EQ(top->name_template, nullptr);
    const devtree *group = top->children;
    EXPECT_STREQ(group->id, "scsi0:00:06:00");
    EXPECT_STREQ(group->name, "scsi0:00:06:00");
    EXPECT_EQ(group->group_flags, 0U);

    struct expected_kind {
        const char *id, *name, *first_device;
        uint32_t type;
        const char *unit;
        uint32_t description;
        size_t count;
    };
    static constexpr expected_kind KINDS[] = {
        {"slot", "Disk slots", "Disk slot 11", 10, nullptr, 24, 12},
        {"fan", "Fans", "Fan 1", 11, nullptr, 25, 2},
        {"psu", "Power supplies", "Power supply 2", 12, nullptr, 26, 3},
        {"temp", "Temperature", "Temperature sensor 0", 7, "C", 11, 1},
    };
    const devtree *kind = group->children;
    for (const expected_kind &expected : KINDS) {
        ASSERT_NE(kind, nullptr);
        EXPECT_STREQ(kind->id, expected.id);
        EXPECT_STREQ(kind->name, expected.name);
        EXPECT_EQ(kind->group_flags, GROUP_OF_INSTANCES);
        EXPECT_STREQ(kind->name_template, "SAFTE %1l - %0r");
        const devnode *first = kind->devices;
        EXPECT_STREQ(first->id, std::to_string(expected.count - 1).c_str());
        EXPECT_STREQ(first->name, expected.first_device);
        EXPECT_EQ(first->comment, nullptr);
        EXPECT_EQ(first->type, expected.type);
        EXPECT_EQ(is_bitmap_type(first->type), expected.type != 7);
        EXPECT_STREQ(first->unit, expected.unit);
        EXPECT_EQ(first->description, expected.description);
        EXPECT_EQ(first->limits.hint.hint_present, 0U);
        EXPECT_EQ(ids_of(kind).size(), expected.count);
        EXPECT_EQ(ids_of(kind).back(), "0");
        kind = kind->next;
    }
    EXPECT_EQ(kind, nullptr);
}

TEST_F(scan_safte_test, leaves_out_kinds_that_are_not_there) {
    scripted_enclosure enclosure(0, 0, 1, 0);
    script.add(0).units = {enclosure.unit(0, 6)};
    EXPECT_SUCCESS(scan_safte(&root));
    const devtree *kind = enclosures().at(0)->children;
    EXPECT_STREQ(kind->id, "psu");
    EXPECT_EQ(kind->next, nullptr);
}

TEST_F(scan_safte_test, offers_two_enclosures_of_a_bus) {
    scripted_enclosure enclosure(1, 0, 0, 0);
    script.add(0).units = {enclosure.unit(0, 6), enclosure.unit(0, 14)};
    EXPECT_SUCCESS(scan_safte(&root));
    ASSERT_EQ(enclosures().size(), 2U);
    EXPECT_STREQ(enclosures()[0]->id, "scsi0:00:06:00");
    EXPECT_STREQ(enclosures()[1]->id, "scsi0:00:0E:00");
    EXPECT_EQ(root.children->next, nullptr);
}

TEST_F(scan_safte_test, never_probes_what_a_class_driver_has_claimed) {
    scripted_enclosure enclosure(1, 0, 0, 0);
    script.add(0).units = {enclosure.unit(0, 6)};
    script.add(0).units[0].address.claimed = true;
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_TRUE(script.requests.empty());
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_safte_test, sends_two_commands_to_an_enclosure_and_one_to_others) {
    scripted_enclosure enclosure(4, 2, 1, 3);
    scripted_enclosure other(4, 2, 1, 3);
    other.inquiry[0] = 0;
    script.add(0).units = {other.unit(0, 1), enclosure.unit(0, 6)};
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_EQ(commands(), (names{"12 00 00 00 60 00", "12 00 00 00 60 00", "3C 01 00 00 00 00 00 00 40 00"}));
    // Each port once, and each device.
    EXPECT_EQ(script.opened.size(), 4U);
    EXPECT_EQ(script.queries, 1);
    EXPECT_EQ(enclosures().size(), 1U);
    EXPECT_TRUE(host.sleeps.empty());
}

TEST_F(scan_safte_test, dumps_the_inquiry) {
    scripted_enclosure enclosure(0, 0, 0, 0);
    enclosure.inquiry.replace(8, 8, "AB \x7F~\x80\x1F!");
    script.add(0).units = {enclosure.unit(0, 6)};
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_TRUE(host.logged(-1, "SCSI inquiry returned:"));
    EXPECT_TRUE(host.logged(-1, "03 00 00 00 00 00 00 00 ........"));
    EXPECT_TRUE(host.logged(-1, "41 42 20 7F 7E 80 1F 21 AB .~..!"));
    EXPECT_TRUE(host.logged(-1, "00 00 00 00 53 41 46 2D ....SAF-"));
    int lines = 0;
    for (const logged_line &line : host.log)
        if (line.text.size() == 32 && line.text[2] == ' ' && line.text[5] == ' ') lines++;
    EXPECT_EQ(lines, 12);
}

TEST_F(scan_safte_test, goes_on_behind_a_device_that_cannot_be_opened) {
    scripted_enclosure enclosure(1, 0, 0, 0);
    script.add(0).units = {enclosure.unit(0, 6), enclosure.unit(0, 7)};
    scsi_ops refusing = scripted_scsi_ops;
    refusing.CreateFileA = [](const char *path, uint32_t access) -> scsi_adapter * {
        if (the_scsi_script->opened.size() != 1 || the_scsi_script->command_error == 0)
            return scripted_port_open(path, access);
        the_scsi_script->command_error = 0; // once
        the_scsi_script->set_last_error(32);
        return nullptr;
    };
    scsi_host = &refusing;
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_TRUE(host.logged(
        0, "Error probing scsi0:00:06:00 for SAFTE: Error opening \\\\.\\scsi0:: system error 32"));
    ASSERT_EQ(enclosures().size(), 1U);
    EXPECT_STREQ(enclosures()[0]->id, "scsi0:00:07:00");
}

TEST_F(scan_safte_test, goes_on_behind_a_device_that_fails_inquiry_twice) {
    scripted_enclosure silent(1, 0, 0, 0);
    scripted_enclosure enclosure(1, 0, 0, 0);
    silent.failing = {bytes("12")};
    script.add(0).units = {silent.unit(0, 6), enclosure.unit(0, 7)};
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_TRUE(host.logged(2, "Error probing scsi0:00:06:00 for SAFTE: gen_scsi_cmd(): system error 121"));
    EXPECT_EQ(host.sleeps, std::vector<uint32_t>{1000});
    EXPECT_EQ(enclosures().size(), 1U);
}

TEST_F(scan_safte_test, goes_on_behind_an_enclosure_that_does_not_tell_its_parts) {
    scripted_enclosure silent(1, 0, 0, 0);
    scripted_enclosure enclosure(1, 0, 0, 0);
    silent.failing = {bytes("3C 01 00")};
    script.add(0).units = {silent.unit(0, 6), enclosure.unit(0, 7)};
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_TRUE(host.logged(2, "Error probing scsi0:00:06:00 for SAFTE: gen_scsi_cmd(): system error 121"));
    ASSERT_EQ(enclosures().size(), 1U);
    EXPECT_STREQ(enclosures()[0]->id, "scsi0:00:07:00");
}

TEST_F(scan_safte_test, offers_nothing_where_there_is_nothing) {
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_safte_test, never_fails_for_lack_of_memory) {
    scripted_enclosure enclosure(2, 1, 1, 1);
    script.add(0).units = {enclosure.unit(0, 6)};
    bool ended = false;
    for (uint32_t n = 1; !ended; n++) {
        host.fail_allocation = n;
        try {
            EXPECT_SUCCESS(scan_safte(&root));
        } catch (const process_ended &) { // a device of the tree must be had
            script.open_ports = 0;
        }
        ended = host.fail_allocation != 0; // nobody asked for so many
        host.fail_allocation = 0;
        free_devtree(root.children);
        root.children = nullptr;
        host.blocks = 0; // what a process that has ended held
    }
    EXPECT_TRUE(
        host.logged(2, "Error probing scsi0:00:06:00 for SAFTE: Couldn't allocate devtree_child mem"));
    EXPECT_TRUE(host.logged(0, "Error probing scsi0:00:06:00 for SAFTE: Out of memory in open_scsi_dev"));
}

// ---- check: the way to the device

TEST_F(check_safte_test, reads_what_its_place_names) {
    enclosure.status[1] = 1;
    EXPECT_SUCCESS(check("fan", "1"));
    EXPECT_EQ(result.value, 1);
    EXPECT_STREQ(result.comment, "Fan malfunctioning");
    EXPECT_EQ(commands(),
              (names{"12 00 00 00 60 00", "3C 01 00 00 00 00 00 00 40 00", "3C 01 01 00 00 00 00 00 0E 00"}));
    EXPECT_EQ(script.opened, names{"\\\\.\\scsi0:"});
}

TEST_F(check_safte_test, reads_slots_by_a_command_of_their_own) {
    expect_slot(5, "No disk in slot", "3");
    EXPECT_EQ(commands()[2], "3C 01 04 00 00 00 00 00 10 00");
    EXPECT_EQ(commands().size(), 3U);
}

TEST_F(check_safte_test, puts_sizes_into_two_bytes_high_byte_first) {
    scripted_enclosure large(100, 0, 0, 0);
    script.add(0).units = {large.unit(0, 6)};
    expect_slot(5, "No disk in slot", "99");
    EXPECT_EQ(commands()[2], "3C 01 04 00 00 00 00 01 90 00");
}

TEST_F(check_safte_test, has_no_room_for_130_slots) {
    scripted_enclosure large(130, 0, 0, 0);
    script.add(0).units = {large.unit(0, 6)};
    EXPECT_FAILURE(check("slot", "0"), "gen_scsi_cmd(): Buffer too short");
    scripted_enclosure fits(129, 0, 0, 0);
    script.add(0).units = {fits.unit(0, 6)};
    expect_slot(5, "No disk in slot", "128");
}

TEST_F(check_safte_test, stands_three_groups_deep) {
    devtree *top = devtree_child(&root, "safte", "");
    top->parent = nullptr;
    devtree *two = devtree_child(top, "scsi0:00:06:00", "");
    devtree *four = devtree_child(devtree_child(two, "fan", ""), "more", "");
    for (devtree *group : {top, two, four}) {
        devnode *device = alloc_devnode();
        device->id = text_copy("0");
        devtree_add_devices(group, device);
        EXPECT_FAILURE(check_safte(device, &result), "Unimplemented");
    }
    EXPECT_TRUE(script.opened.empty());
}

TEST_F(check_safte_test, has_a_number_for_id) {
    EXPECT_FAILURE(check("fan", "first"), "sscanf failed for string \"first\"");
    EXPECT_FAILURE(check("fan", ""), "sscanf failed for string \"\"");
    EXPECT_TRUE(script.opened.empty());
}

TEST_F(check_safte_test, fails_where_the_device_cannot_be_opened) {
    EXPECT_FAILURE(check("fan", "0", "scsi3:00:06:00"),
                   "Device scsi3:00:06:00 SCSI error: Error opening \\\\.\\scsi3:: system error 2");
    EXPECT_FAILURE(check("fan", "0", "enclosure"),
                   "Device enclosure SCSI error: Error parsing SCSI device name: enclosure");
}

TEST_F(check_safte_test, fails_where_the_device_does_not_answer) {
    enclosure.failing = {bytes("12")};
    EXPECT_FAILURE(check("fan", "0"), "Device scsi0:00:06:00 SCSI error: gen_scsi_cmd(): system error 121");
}

TEST_F(check_safte_test, fails_where_the_device_is_another_now) {
    enclosure.inquiry[44] = 'X';
    EXPECT_FAILURE(check("fan", "0"), "Device scsi0:00:06:00 no longer supports SAFTE");
}

TEST_F(check_safte_test, fails_where_a_reply_cannot_be_had) {
    enclosure.failing = {bytes("3C 01 00")};
    EXPECT_FAILURE(check("fan", "0"), "gen_scsi_cmd(): system error 121");
    enclosure.failing = {bytes("3C 01 01")};
    EXPECT_FAILURE(check("fan", "0"), "gen_scsi_cmd(): system error 121");
    enclosure.failing = {bytes("3C 01 04")};
    EXPECT_FAILURE(check("slot", "0"), "gen_scsi_cmd(): system error 121");
    EXPECT_SUCCESS(check("fan", "0"));
}

TEST_F(check_safte_test, knows_four_kinds) {
    EXPECT_FAILURE(check("door", "0"), "Unknown SAFTE type: \"door\"");
    EXPECT_EQ(commands()[2], "3C 01 01 00 00 00 00 00 0E 00") << "the status is read first";
}

// ---- check: numbers and values

TEST_F(check_safte_test, holds_numbers_against_the_counts) {
    EXPECT_FAILURE(check("slot", "5"), "Slot number out of range");
    EXPECT_FAILURE(check("fan", "3"), "Fan number out of range");
    EXPECT_FAILURE(check("psu", "2"), "Power supply number out of range");
    EXPECT_FAILURE(check("temp", "4"), "Temperature sensor number out of range");
    EXPECT_FAILURE(check("temp", "4294967295"), "Temperature sensor number out of range");
}

TEST_F(check_safte_test, reads_zero_where_a_number_equals_the_count) {
    enclosure.status = std::string(enclosure.status.size(), '\x01');
    enclosure.slots = std::string(enclosure.slots.size(), '\xFF');
    expect_slot(5, "No disk in slot", "4");
    EXPECT_SUCCESS(check("fan", "2"));
    EXPECT_EQ(result.value, 0);
    EXPECT_SUCCESS(check("psu", "1"));
    EXPECT_EQ(result.value, 0);
    EXPECT_SUCCESS(check("temp", "3"));
    EXPECT_EQ(result.real_value, -10);
}

TEST_F(check_safte_test, reads_supplies_behind_fans) {
    enclosure.status[2] = 0x11;
    EXPECT_SUCCESS(check("psu", "0"));
    EXPECT_EQ(result.value, 3);
    EXPECT_STREQ(result.comment, "Malfunctioning, should be off");
}

TEST_F(check_safte_test, reads_temperatures_behind_slots_and_two_bytes) {
    enclosure.status[2 + 1 + 4 + 2 + 1] = 35;
    EXPECT_SUCCESS(check("temp", "1"));
    EXPECT_DOUBLE_EQ(result.real_value, 25);
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(result.comment, nullptr);
    enclosure.config[6] = 0;
    enclosure.status[2 + 1 + 4 + 2 + 1] = 86;
    EXPECT_SUCCESS(check("temp", "1"));
    EXPECT_NEAR(result.real_value, 24.44, 0.005);
}

TEST_F(check_safte_test, fails_for_a_status_without_a_meaning) {
    enclosure.status[0] = 3;
    EXPECT_FAILURE(check("fan", "0"), "Unknown safte fan status: 3");
    enclosure.status[2] = '\xFE';
    EXPECT_FAILURE(check("psu", "0"), "Unknown safte PSU status: 254");
}

// ---- check: whether activation counts

TEST_F(check_safte_test, does_not_trust_activation_that_was_never_seen) {
    set_slot(0, 1, 0, 1);
    expect_slot(0, "Disk OK");
}

TEST_F(check_safte_test, trusts_activation_while_any_slot_shows_it) {
    set_slot(0, 1, 0, 1);
    set_slot(3, 1, 0, 5);
    expect_slot(4, "Disk not activated");
    expect_slot(0, "Disk OK", "3");
}

TEST_F(check_safte_test, goes_on_trusting_an_enclosure_when_all_disks_are_inactive) {
    set_slot(0, 1, 0, 5);
    expect_slot(0, "Disk OK");
    set_slot(0, 1, 0, 1);
    expect_slot(4, "Disk not activated");
    expect_slot(4, "Disk not activated");
}

TEST_F(check_safte_test, learns_for_one_enclosure_alone) {
    set_slot(0, 1, 0, 5);
    expect_slot(0, "Disk OK");
    set_slot(0, 1, 0, 1);
    expect_slot(0, "Disk OK", "0", "scsi0:00:07:00");
    expect_slot(4, "Disk not activated");
}

TEST_F(check_safte_test, learns_an_enclosure_once) {
    set_slot(0, 1, 0, 5);
    expect_slot(0, "Disk OK");
    int64_t blocks = host.blocks;
    for (int i = 0; i < 10; i++)
        expect_slot(0, "Disk OK");
    // A new group's check each time, and nothing else.
    free_devtree(root.children);
    root.children = nullptr;
    EXPECT_LT(host.blocks, blocks);
    EXPECT_EQ(host.blocks, 2) << "one enclosure and one comment";
}

TEST_F(check_safte_test, does_not_look_for_activation_behind_the_last_slot) {
    scripted_enclosure one(1, 0, 0, 0);
    script.add(0).units = {one.unit(0, 6)};
    one.slots = std::string("\x01\0\0\x01\xFF\xFF\xFF\xFF", 8);
    expect_slot(0, "Disk OK");
}

TEST_F(check_safte_test, never_trusts_activation_where_all_are_assumed_active) {
    config.safte_assume_active = 1;
    set_slot(0, 1, 0, 1);
    set_slot(1, 1, 0, 5);
    expect_slot(0, "Disk OK");
    config.safte_assume_active = 0;
    set_slot(1, 1, 0, 1);
    expect_slot(0, "Disk OK"); // and learned nothing
}

TEST_F(check_safte_test, always_trusts_activation_where_all_are_assumed_inactive) {
    config.safte_assume_inactive = 1;
    set_slot(0, 1, 0, 1);
    expect_slot(4, "Disk not activated");
    config.safte_assume_inactive = 0;
    expect_slot(0, "Disk OK");
}

TEST_F(check_safte_test, trusts_for_this_time_without_memory) {
    set_slot(0, 1, 0, 1);
    set_slot(1, 1, 0, 5);
    check("slot", "0");
    safte_reset();
    host.fail_allocation = 4; // behind the check's device and id, and the open device
    expect_slot(4, "Disk not activated");
    EXPECT_EQ(host.fail_allocation, 0U);
    set_slot(1, 1, 0, 1);
    expect_slot(0, "Disk OK");
}

TEST_F(check_safte_test, ends_well_for_random_replies) {
    std::mt19937 chance(11);
    for (int round = 0; round < 1000; round++) {
        for (std::string *reply : {&enclosure.config, &enclosure.status, &enclosure.slots})
            for (char &byte : *reply)
                byte = chance() % 2 == 0 ? static_cast<char>(chance() % 6) : static_cast<char>(chance());
        enclosure.slots.resize(chance() % 520);
        enclosure.status.resize(chance() % 520);
        const char *kinds[] = {"slot", "fan", "psu", "temp"};
        check(kinds[chance() % 4], std::to_string(chance() % 256).c_str());
        free_devtree(root.children);
        root.children = nullptr;
        host.log.clear();
        host.sleeps.clear();
    }
}
