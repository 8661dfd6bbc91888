#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "protocol/lists.h"
#include "protocol/server_tree.h"

#include <cmath>
#include <gtest/gtest.h>

static constexpr const char *BAD_LENGTH = "data out of range in read_length";

class tree_reader : public testing::Test {
protected:
    ~tree_reader() override {
        device.reset();
        tree.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    // Reads one check into `device`, which stands below no group.
    std::string read_check(const std::string &form, uint32_t tag = 0) {
        device.reset(alloc_devnode());
        memory_io stream(form);
        std::string failure = noted_failure(read_devnode(stream, device.get(), tag));
        left = hex(stream.left());
        return failure;
    }
    // Reads a kind's record as that of a check with the id x.
    std::string read_kind(const std::string &kind) { return read_check(wire_check(60, "x", kind)); }

    std::string read_groups(const std::string &form) {
        memory_io stream(form);
        devtree not_cleared = {};
        devtree *read = &not_cleared;
        std::string failure = noted_failure(read_devtree_list(stream, nullptr, &read));
        tree.reset(read);
        left = hex(stream.left());
        return failure;
    }

    test_host host;
    devnode_guard device;
    devtree_guard tree;
    std::string left;
};

using threshold_reader = tree_reader;
using check_reader = tree_reader;
using bitmap_reader = tree_reader;
using conf_id_reader = tree_reader;
using check_list_reader = tree_reader;
using group_list_reader = tree_reader;

// Thresholds.

TEST_F(threshold_reader, takes_an_integer_of_the_full_range) {
    for (int32_t value : {INT32_MIN, 0, INT32_MAX}) {
        int32_t read = 7;
        EXPECT_SUCCESS(read_check_value_int(memory_io(wire_integer(value)), &read));
        EXPECT_EQ(read, value);
    }
}

TEST_F(threshold_reader, turns_a_null_into_minus_one) {
    int32_t integer = 7;
    double real = 7;
    int64_t time = 7;
    EXPECT_SUCCESS(read_check_value_int(memory_io(wire_null()), &integer));
    EXPECT_SUCCESS(read_check_value_real(memory_io(wire_null()), &real));
    EXPECT_SUCCESS(read_check_value_time(memory_io(wire_null()), &time, -1));
    EXPECT_EQ(integer, -1);
    EXPECT_EQ(real, -1.0);
    EXPECT_EQ(time, -1);
}

TEST_F(threshold_reader, takes_a_real) {
    double read = 7;
    EXPECT_SUCCESS(read_check_value_real(memory_io(wire_real("2.5")), &read));
    EXPECT_EQ(read, 2.5);
    EXPECT_SUCCESS(read_check_value_real(memory_io(wire_real("")), &read));
    EXPECT_EQ(read, 0.0);
}

TEST_F(threshold_reader, refuses_the_other_kind_of_number) {
    int32_t integer;
    double real;
    EXPECT_FAILURE(read_check_value_int(memory_io(wire_real("2.5")), &integer),
                   "Got real when expected int in read_check_value_int");
    EXPECT_FAILURE(read_check_value_real(memory_io(wire_integer(2)), &real),
                   "Got int when expected real in read_check_value_real");
}

TEST_F(threshold_reader, refuses_any_other_tag) {
    int32_t integer;
    double real;
    int64_t time;
    for (const std::string &form : {wire_text("5"), wire_bool(true), WIRE_END}) {
        EXPECT_FAILURE(read_check_value_int(memory_io(form), &integer),
                       "Unexpected tag in read_check_value_int");
        EXPECT_FAILURE(read_check_value_real(memory_io(form), &real),
                       "Unexpected tag in read_check_value_real");
        EXPECT_FAILURE(read_check_value_time(memory_io(form), &time, -1),
                       "Unexpected tag in read_check_value_time");
    }
    EXPECT_FAILURE(read_check_value_time(memory_io(wire_real("1")), &time, -1),
                   "Unexpected tag in read_check_value_time");
}

TEST_F(threshold_reader, extends_the_sign_of_a_time) {
    int64_t time = 7;
    EXPECT_SUCCESS(read_check_value_time(memory_io(wire_integer(INT32_MIN)), &time, -1));
    EXPECT_EQ(time, INT32_MIN);
}

TEST_F(threshold_reader, takes_the_tag_of_a_time_that_was_read) {
    int64_t time = 7;
    EXPECT_SUCCESS(read_check_value_time(memory_io(bytes("01 05")), &time, 16));
    EXPECT_EQ(time, 5);
    EXPECT_SUCCESS(read_check_value_time(memory_io(bytes("00")), &time, 40));
    EXPECT_EQ(time, -1);
    EXPECT_FAILURE(read_check_value_time(memory_io(bytes("00")), &time, 0),
                   "Unexpected tag in read_check_value_time");
}

TEST_F(threshold_reader, passes_failures_on) {
    int32_t integer;
    double real;
    int64_t time;
    EXPECT_FAILURE(read_check_value_int(memory_io(""), &integer), MEMORY_IO_EMPTY);
    EXPECT_FAILURE(read_check_value_real(memory_io(""), &real), MEMORY_IO_EMPTY);
    EXPECT_FAILURE(read_check_value_time(memory_io(""), &time, -1), MEMORY_IO_EMPTY);
    EXPECT_FAILURE(read_check_value_int(memory_io(bytes("05 01")), &integer),
                   "Null object contains data of non-zero length");
    EXPECT_FAILURE(read_check_value_real(memory_io(bytes("09 01 07")), &real),
                   "Unsupported real number format revceived");
    EXPECT_FAILURE(read_check_value_time(memory_io(bytes("02 05 01 02 03 04 05")), &time, -1),
                   "data out of range in read_signed_int");
}

// One check.

TEST_F(check_reader, takes_id_and_frequency) {
    EXPECT_EQ(read_check(wire_check(86400, "C:\\", wire_log())), "(none)");
    EXPECT_STREQ(device->id, "C:\\");
    EXPECT_EQ(device->frequency, 86400);
    EXPECT_EQ(host.count_logged("Frequency"), 0);
    EXPECT_EQ(left, "");
}

TEST_F(check_reader, forces_a_frequency_below_one) {
    for (int frequency : {0, -1}) {
        EXPECT_EQ(read_check(wire_check(frequency, "x", wire_log())), "(none)");
        EXPECT_EQ(device->frequency, 1);
        EXPECT_TRUE(host.logged(LOG_WARNING, "Error: Frequency for check set to " +
                                                 std::to_string(frequency) + ". Forcing to 1."));
    }
    EXPECT_EQ(read_check(wire_check(1, "x", wire_log())), "(none)");
    EXPECT_EQ(host.count_logged("Frequency"), 2);
}

TEST_F(check_reader, refuses_a_frequency_beyond_a_day) {
    EXPECT_EQ(read_check(wire_check(86401, "x", wire_log())),
              "check_conf.frequency: data out of range in read_signed_int");
}

TEST_F(check_reader, takes_a_tag_that_its_caller_has_read) {
    EXPECT_EQ(read_check(wire_check(5, "x", wire_log()).substr(1), 129), "(none)");
    EXPECT_EQ(read_check(wire_check(5, "x", wire_log()), 75),
              "Wrong tag (75) encountered in read_check_conf_incomplete");
}

TEST_F(check_reader, reads_continuous_thresholds_from_alert_high_down) {
    EXPECT_EQ(
        read_kind(wire_continuous(wire_integer(40) + wire_integer(10) + wire_integer(30) + wire_integer(20))),
        "(none)");
    EXPECT_EQ(device->type, TYPE_CONTINUOUS);
    EXPECT_EQ(device->limits.continuous.alert_high, 40);
    EXPECT_EQ(device->limits.continuous.alert_low, 10);
    EXPECT_EQ(device->limits.continuous.warn_high, 30);
    EXPECT_EQ(device->limits.continuous.warn_low, 20);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Configured CONTINUOUS check"));
}

TEST_F(check_reader, reads_real_thresholds_from_alert_high_down) {
    EXPECT_EQ(
        read_kind(wire_real_continuous(wire_real("4e1") + wire_null() + wire_real("30") + wire_real(""))),
        "(none)");
    EXPECT_EQ(device->type, TYPE_REAL_CONTINUOUS);
    EXPECT_EQ(device->limits.real.real_alert_high, 40.0);
    EXPECT_EQ(device->limits.real.real_alert_low, -1.0);
    EXPECT_EQ(device->limits.real.real_warn_high, 30.0);
    EXPECT_EQ(device->limits.real.real_warn_low, 0.0);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Configured REAL CONTINUOUS check"));
}

TEST_F(check_reader, passes_over_what_a_newer_server_appends_to_the_thresholds) {
    EXPECT_EQ(read_kind(wire_continuous(WIRE_NO_THRESHOLDS + wire_text("new"))), "(none)");
    EXPECT_EQ(read_kind(wire_real_continuous(WIRE_NO_THRESHOLDS + wire_text("new"))), "(none)");
    EXPECT_EQ(read_kind(wire_record("A1", wire_list("") + wire_text("new"))), "(none)");
    EXPECT_EQ(read_kind(wire_record("A2", wire_text("new"))), "(none)");
}

TEST_F(check_reader, wants_all_four_thresholds) {
    EXPECT_EQ(read_kind(wire_continuous(wire_null() + wire_null() + wire_null())),
              "Unexpected tag in read_check_value_int");
    EXPECT_EQ(read_kind(wire_real_continuous(wire_null() + wire_null() + wire_null())),
              "Unexpected tag in read_check_value_real");
}

TEST_F(check_reader, wants_the_thresholds_of_its_kind) {
    EXPECT_EQ(read_kind(wire_continuous(wire_real("1"))),
              "Got real when expected int in read_check_value_int");
    EXPECT_EQ(read_kind(wire_real_continuous(wire_integer(1))),
              "Got int when expected real in read_check_value_real");
}

TEST_F(check_reader, reads_a_plain_log) {
    EXPECT_EQ(read_kind(wire_log()), "(none)");
    EXPECT_EQ(device->type, TYPE_LOG);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Configured LOG check"));
}

TEST_F(check_reader, names_the_check_of_an_unknown_kind) {
    EXPECT_EQ(read_kind(wire_record("A5", "")), "Got unknown type 45 in read_devnode(x)");
    EXPECT_EQ(read_check(wire_check(60, "a.b", "")), "Got unknown type 0 in read_devnode(a\\.b)");
}

TEST_F(check_reader, refuses_a_kind_of_definite_length) {
    EXPECT_EQ(read_kind(bytes("A0 00")), "Definite length read in read_continuous_conf_incomplete");
    EXPECT_EQ(read_kind(bytes("A1 00")), "Definite length read in read_enum_conf_incomplete");
    EXPECT_EQ(read_kind(bytes("A2 00")), "Definite length read in read_log_conf");
    EXPECT_EQ(read_kind(bytes("A3 00")), "Definite length read in read_real_continuous_conf_incomplete");
    EXPECT_EQ(read_kind(bytes("A4 00")), "Definite length read in read_adv_log_conf_incomplete");
}

TEST_F(check_reader, tells_a_kind_only_when_its_record_has_ended) {
    for (std::string kind : {wire_continuous(WIRE_NO_THRESHOLDS), wire_real_continuous(WIRE_NO_THRESHOLDS),
                             wire_bitmap(""), wire_log()}) {
        kind.back() = '\x01';
        EXPECT_EQ(read_kind(kind), "List not terminated correctly in skip_to_eol");
    }
    EXPECT_EQ(host.count_logged("Configured"), 0);
}

TEST_F(check_reader, fails_wherever_the_stream_ends) {
    for (const std::string &kind :
         {wire_continuous(wire_integer(4) + wire_null() + wire_integer(3) + wire_null()),
          wire_real_continuous(wire_real("4") + wire_null() + wire_real("3") + wire_null()),
          wire_bitmap(wire_enumerated(1) + wire_enumerated(2)), wire_log()}) {
        std::string form = wire_check(60, "x", kind, wire_text("id"));
        for (size_t length = 0; length < form.size(); length++)
            EXPECT_TRUE(read_check(form.substr(0, length)).ends_with(MEMORY_IO_EMPTY)) << length;
    }
}

// Bitmaps.

static std::string places(const std::vector<uint32_t> &marks) {
    std::string form;
    for (uint32_t mark : marks)
        form += wire_enumerated(mark);
    return form;
}

TEST_F(bitmap_reader, sets_the_bit_of_each_place) {
    EXPECT_EQ(read_kind(wire_bitmap(places({0, 1, 2, 1, 2}))), "(none)");
    EXPECT_EQ(device->type, TYPE_BITMAP);
    EXPECT_EQ(device->limits.bitmap.warn_mask, 0b01010U);
    EXPECT_EQ(device->limits.bitmap.alert_mask, 0b10100U);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Configured ENUM check"));
}

TEST_F(bitmap_reader, clears_both_masks) {
    device.reset(alloc_devnode());
    device->limits.bitmap = {.warn_mask = 7, .alert_mask = 9};
    EXPECT_SUCCESS(read_devnode(memory_io(wire_check(60, "x", wire_bitmap(""))), device.get(), 0));
    EXPECT_EQ(device->limits.bitmap.warn_mask, 0U);
    EXPECT_EQ(device->limits.bitmap.alert_mask, 0U);
}

TEST_F(bitmap_reader, moves_on_at_values_without_a_meaning) {
    EXPECT_EQ(read_kind(wire_bitmap(places({3, 0, 0xFFFFFFFF, 1}))), "(none)");
    EXPECT_EQ(device->limits.bitmap.warn_mask, 8U);
    EXPECT_EQ(device->limits.bitmap.alert_mask, 0U);
}

TEST_F(bitmap_reader, takes_places_modulo_32) {
    std::vector<uint32_t> marks(33, 0);
    marks[0] = marks[32] = 1;
    EXPECT_EQ(read_kind(wire_bitmap(places(marks))), "(none)");
    EXPECT_EQ(device->limits.bitmap.warn_mask, 1U);
    marks[32] = 2;
    EXPECT_EQ(read_kind(wire_bitmap(places(marks))), "(none)");
    EXPECT_EQ(device->limits.bitmap.warn_mask, 1U);
    EXPECT_EQ(device->limits.bitmap.alert_mask, 1U);
}

TEST_F(bitmap_reader, knows_the_last_place) {
    std::vector<uint32_t> marks(32, 0);
    marks[31] = 2;
    EXPECT_EQ(read_kind(wire_bitmap(places(marks))), "(none)");
    EXPECT_EQ(device->limits.bitmap.alert_mask, 0x80000000U);
}

TEST_F(bitmap_reader, wants_a_sound_list) {
    EXPECT_EQ(read_kind(wire_record("A1", wire_text(""))), "Expected BE_SEQ");
    EXPECT_EQ(read_kind(wire_record("A1", "")), "Expected BE_SEQ");
    EXPECT_EQ(read_kind(wire_record("A1", bytes("30 00"))),
              "List not started correctly in read_devnode_list");
    EXPECT_EQ(read_kind(wire_record("A1", bytes("30 80 00 01"))),
              "List not terminated correctly in read_devnode_list");
    EXPECT_EQ(read_kind(wire_record("A1", bytes("30 80 00 80"))),
              "List not terminated correctly in read_devnode_list");
}

TEST_F(bitmap_reader, wants_enumerated_values) {
    EXPECT_EQ(read_kind(wire_bitmap(wire_integer(1))), "Wrong tag, expected another type");
    EXPECT_EQ(read_kind(wire_bitmap(bytes("0A 01 80"))), "data out of range in read_enumerated");
}

// The optional id behind the kind.

TEST_F(conf_id_reader, takes_the_text_behind_the_kind) {
    EXPECT_EQ(read_check(wire_check(60, "x", wire_log(), wire_text("conf 7"))), "(none)");
    EXPECT_STREQ(device->conf_id, "conf 7");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Got ID: conf 7"));
    EXPECT_EQ(left, "");
}

TEST_F(conf_id_reader, passes_over_what_follows_it) {
    EXPECT_EQ(read_check(wire_check(60, "x", wire_log(), wire_text("id") + wire_list(wire_null()))),
              "(none)");
    EXPECT_EQ(left, "");
}

TEST_F(conf_id_reader, leaves_it_absent_at_the_end_of_the_record) {
    EXPECT_EQ(read_check(wire_check(60, "x", wire_log())), "(none)");
    EXPECT_EQ(device->conf_id, nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, "No ID for check..."));
    EXPECT_EQ(left, "");
}

TEST_F(conf_id_reader, takes_an_empty_one_as_present) {
    EXPECT_EQ(read_check(wire_check(60, "x", wire_log(), wire_text(""))), "(none)");
    EXPECT_STREQ(device->conf_id, "");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Got ID: "));
}

TEST_F(conf_id_reader, takes_at_most_128_characters) {
    EXPECT_EQ(read_check(wire_check(60, "x", wire_log(), wire_text(std::string(128, 'i')))), "(none)");
    EXPECT_EQ(read_check(wire_check(60, "x", wire_log(), wire_text(std::string(129, 'i')))),
              "data out of range in read_string");
}

TEST_F(conf_id_reader, wants_a_text_or_a_sound_end) {
    EXPECT_EQ(read_check(wire_check(60, "x", wire_log(), wire_integer(1))), "Wrong tag, expected BE_STRING");
    std::string head = wire_open("30", wire_integer(60) + wire_text("x") + wire_log());
    EXPECT_EQ(read_check(head + bytes("00 01")), "List not terminated correctly - checkconf postlude");
    EXPECT_EQ(read_check(head + bytes("00 80")), "List not terminated correctly - checkconf postlude");
    EXPECT_EQ(read_check(head + bytes("00 85")), BAD_LENGTH);
    EXPECT_EQ(read_check(head + wire_text("id") + bytes("00 01")),
              "List not terminated correctly in skip_to_eol");
    EXPECT_EQ(host.told().back(), "Got ID: id"); // ahead of what follows it
}

// The checks of a group.

TEST_F(check_list_reader, keeps_the_order_and_sets_the_parent) {
    devtree parent = {};
    memory_io stream(wire_list(wire_simple_check("b") + wire_simple_check("a")));
    devnode *first = nullptr;
    ASSERT_EQ(noted_failure(read_devnode_list(stream, &parent, &first)), "(none)");
    guard<devnode, free_devnode_list> owner(first);
    EXPECT_STREQ(first->id, "b");
    EXPECT_STREQ(first->next->id, "a");
    EXPECT_EQ(first->next->next, nullptr);
    EXPECT_EQ(first->parent, &parent);
    EXPECT_EQ(first->next->parent, &parent);
    EXPECT_EQ(first->next_check, 0);
}

TEST_F(check_list_reader, gives_nothing_for_an_empty_list) {
    devnode *first = alloc_devnode();
    devnode_guard other(first);
    EXPECT_SUCCESS(read_devnode_list(memory_io(wire_list("")), nullptr, &first));
    EXPECT_EQ(first, nullptr);
}

static std::string list_failure(const std::string &form) {
    devnode not_cleared = {};
    devnode *first = &not_cleared;
    std::string failure = noted_failure(read_devnode_list(memory_io(form), nullptr, &first));
    EXPECT_EQ(first, nullptr);
    return failure;
}

TEST_F(check_list_reader, wants_a_sound_list) {
    EXPECT_EQ(list_failure(wire_text("")), "Wrong tag in read_devnode_list");
    EXPECT_EQ(list_failure(WIRE_END), "Wrong tag in read_devnode_list");
    EXPECT_EQ(list_failure(bytes("30 00")), "Not indefinite length in read_devnode_list");
    EXPECT_EQ(list_failure(bytes("30 85")), BAD_LENGTH);
    EXPECT_EQ(list_failure(bytes("30 80 00 01")), "List not terminated correctly in read_devnode_list");
    EXPECT_EQ(list_failure(bytes("30 80 00 80")), "List not terminated correctly in read_devnode_list");
}

TEST_F(check_list_reader, keeps_nothing_of_a_list_that_fails) {
    std::string good = wire_simple_check("a") + wire_check(60, "b", wire_log(), wire_text("id"));
    EXPECT_EQ(list_failure(wire_list(good + wire_null())),
              "Wrong tag (40) encountered in read_check_conf_incomplete");
    EXPECT_EQ(list_failure(wire_open("30", good) + bytes("00 01")),
              "List not terminated correctly in read_devnode_list");
    EXPECT_EQ(list_failure(wire_open("30", good)), MEMORY_IO_EMPTY);
}

TEST_F(check_list_reader, ends_the_agent_when_memory_for_a_check_is_out) {
    host.fail_allocation = 1;
    expect_fatal([] { list_failure(wire_list(wire_simple_check("a"))); },
                 "alloc_devnode() ran out of memory!");
}

// Groups.

TEST_F(group_list_reader, builds_the_tree_as_it_was_sent) {
    std::string inner = wire_group("inner", wire_simple_check("c"), wire_group("innermost", ""));
    EXPECT_EQ(
        read_groups(wire_list(wire_group("first", wire_simple_check("a"), inner) + wire_group("second", ""))),
        "(none)");
    EXPECT_STREQ(tree->id, "first");
    EXPECT_EQ(tree->name, nullptr);
    EXPECT_EQ(tree->parent, nullptr);
    EXPECT_STREQ(tree->devices->id, "a");
    EXPECT_STREQ(tree->children->id, "inner");
    EXPECT_EQ(tree->children->parent, tree.get());
    EXPECT_STREQ(tree->children->devices->id, "c");
    EXPECT_EQ(tree->children->devices->parent, tree->children);
    EXPECT_STREQ(tree->children->children->id, "innermost");
    EXPECT_EQ(tree->children->children->parent, tree->children);
    EXPECT_STREQ(tree->next->id, "second");
    EXPECT_EQ(tree->next->next, nullptr);
    EXPECT_EQ(left, "");
}

TEST_F(group_list_reader, gives_nothing_for_an_empty_list) {
    EXPECT_EQ(read_groups(wire_list("")), "(none)");
    EXPECT_EQ(tree, nullptr);
}

TEST_F(group_list_reader, passes_over_what_a_newer_server_appends) {
    std::string group = wire_list(wire_text("g") + wire_list("") + wire_list("") + wire_text("new"));
    EXPECT_EQ(read_groups(wire_list(group)), "(none)");
    EXPECT_STREQ(tree->id, "g");
}

TEST_F(group_list_reader, wants_a_sound_list) {
    EXPECT_EQ(read_groups(wire_text("")), "Wrong tag in read_devtree_list");
    EXPECT_EQ(read_groups(bytes("30 00")), "Not indefinite length in read_devtree_list");
    EXPECT_EQ(read_groups(bytes("30 80 00 01")), "List not terminated correctly in read_devtree_list");
    EXPECT_EQ(read_groups(bytes("30 80 00 80")), "List not terminated correctly in read_devtree_list");
    EXPECT_EQ(tree, nullptr);
}

TEST_F(group_list_reader, keeps_nothing_of_a_tree_that_fails) {
    std::string good = wire_group("a", wire_simple_check("x"), wire_group("b", wire_simple_check("y")));
    for (const std::string &bad :
         {wire_null(), wire_group("c", wire_null()), wire_group("c", "", wire_null()),
          wire_group("c", wire_check(60, "z", wire_record("A5", "")))}) {
        EXPECT_NE(read_groups(wire_list(good + bad)), "(none)");
        EXPECT_EQ(tree, nullptr);
    }
    for (size_t length = 0; length < wire_list(good).size(); length++)
        EXPECT_TRUE(read_groups(wire_list(good).substr(0, length)).ends_with(MEMORY_IO_EMPTY));
}

TEST_F(group_list_reader, names_an_unknown_check_by_the_groups_that_are_linked) {
    std::string check = wire_check(60, "x", wire_record("A5", ""));
    EXPECT_EQ(read_groups(wire_list(wire_group("a", check))), "Got unknown type 45 in read_devnode(a.x)");
    EXPECT_EQ(read_groups(wire_list(wire_group("a", "", wire_group("b", check)))),
              "Got unknown type 45 in read_devnode(b.x)");
}

TEST_F(group_list_reader, needs_memory_for_a_group) {
    host.fail_allocation = 1;
    EXPECT_EQ(read_groups(wire_list(wire_group("a", ""))), "Out of memory in read_devtree_list");
    host.fail_allocation = 3; // behind the first group and its id
    EXPECT_EQ(read_groups(wire_list(wire_group("a", "") + wire_group("b", ""))),
              "Out of memory in read_devtree_list");
    EXPECT_EQ(tree, nullptr);
}

// Bounds against a hostile server.

static std::string nested_groups(size_t depth) {
    std::string level = wire_open("30", wire_open("30", wire_text("g") + wire_list("")));
    std::string form;
    for (size_t i = 0; i < depth; i++)
        form += level;
    return form + wire_list("") + std::string(4 * depth, '\0'); // the ends of a group and of its list
}

TEST_F(group_list_reader, reads_as_deep_as_any_sound_tree) {
    EXPECT_EQ(read_groups(nested_groups(999)), "(none)");
    EXPECT_EQ(left, "");
}

TEST_F(group_list_reader, ends_a_tree_without_a_bottom) {
    EXPECT_EQ(read_groups(nested_groups(1001)), "Out of memory in read_devtree_list");
    EXPECT_EQ(read_groups(nested_groups(200'000)), "Out of memory in read_devtree_list");
    EXPECT_EQ(read_groups(nested_groups(1)), "(none)");
}

static std::string repeated(const std::string &element, size_t count) {
    std::string form = bytes("30 80");
    for (size_t i = 0; i < count; i++)
        form += element;
    return form + WIRE_END;
}

TEST_F(group_list_reader, ends_a_tree_without_an_end) {
    constexpr size_t limit = 1U << 18;
    EXPECT_EQ(read_groups(repeated(wire_group("", ""), limit)), "(none)");
    EXPECT_EQ(read_groups(repeated(wire_group("", ""), limit + 1)), "Out of memory in read_devtree_list");
}

TEST_F(check_list_reader, ends_a_list_without_an_end) {
    constexpr size_t limit = 1U << 18;
    agent_log_observer = nullptr;
    log_set_level(LOG_ERROR);
    std::string check = wire_check(60, "", wire_log());
    EXPECT_EQ(list_failure(repeated(check, limit + 1)), "Out of memory in read_devtree_list");
    EXPECT_EQ(read_groups(wire_list(
                  wire_open("30", wire_text("g") + repeated(check, limit - 1) + wire_list("")) + WIRE_END)),
              "(none)");
}

TEST_F(group_list_reader, counts_the_groups_of_all_levels) {
    constexpr size_t half = 1U << 17;
    std::string below = repeated(wire_group("", ""), half);
    std::string form =
        wire_open("30", "") + wire_open("30", wire_text("g") + wire_list("") + below) + WIRE_END;
    form += repeated(wire_group("", ""), half).substr(2);
    EXPECT_EQ(read_groups(form), "Out of memory in read_devtree_list");
}
