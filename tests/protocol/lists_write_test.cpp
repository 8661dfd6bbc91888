#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "protocol/descriptions.h"
#include "protocol/lists.h"
#include "protocol/wire.h"

#include <cmath>
#include <gtest/gtest.h>

class tree_writer : public testing::Test {
protected:
    ~tree_writer() override {
        top.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    devtree *group(const std::string &id, devtree *parent = nullptr, const char *name = "Group") {
        return devtree_child(parent != nullptr ? parent : top.get(), id.c_str(), name);
    }
    static devnode *device(devtree *parent, const char *id) {
        devnode *made = alloc_devnode();
        made->id = text_copy(id);
        made->name = text_copy("Name");
        made->comment = text_copy("Comment");
        made->unit = text_copy("kB");
        made->type = TYPE_CONTINUOUS;
        made->description = 3;
        devtree_add_devices(parent, made);
        return made;
    }
    static devnode *hinted(devtree *parent, double minimum, double value, double maximum) {
        devnode *made = device(parent, "a");
        made->limits.hint = {
            .hint_present = 1, .hint_min = minimum, .hint_value = value, .hint_max = maximum};
        return made;
    }
    static std::string words(const devnode *made) {
        memory_io stream;
        EXPECT_SUCCESS(write_devnode(stream, made));
        return wire_words(stream.written);
    }
    std::string list_words() {
        memory_io stream;
        EXPECT_SUCCESS(write_devtree_list(stream, top->children));
        return wire_words(stream.written);
    }

    test_host host;
    devtree_guard top{heap_new<devtree>()};
};

// Devices.

TEST_F(tree_writer, sends_a_device_without_hints_with_three_nulls) {
    EXPECT_EQ(words(device(group("g"), "a")), "{\"a\" \"Name\" \"Comment\" #0 \"kB\" null null null 3}");
}

TEST_F(tree_writer, sends_value_minimum_and_maximum_of_a_hint_in_this_order) {
    EXPECT_EQ(
        words(hinted(group("g"), 1, 2, 4)),
        "{\"a\" \"Name\" \"Comment\" #0 \"kB\" real 2.000000e+00 real 1.000000e+00 real 4.000000e+00 3}");
}

TEST_F(tree_writer, sends_each_hint_that_is_not_finite_as_null) {
    EXPECT_EQ(words(hinted(group("g"), 1, HUGE_VAL, std::nan(""))),
              "{\"a\" \"Name\" \"Comment\" #0 \"kB\" null real 1.000000e+00 null 3}");
    EXPECT_EQ(words(hinted(group("h"), -HUGE_VAL, 0, 1)),
              "{\"a\" \"Name\" \"Comment\" #0 \"kB\" real 0 null real 1.000000e+00 3}");
}

TEST_F(tree_writer, sends_absent_texts_as_empty_ones) {
    devnode *bare = alloc_devnode();
    bare->type = TYPE_SECONDS;
    bare->description = 1;
    devtree_add_devices(group("g"), bare);
    EXPECT_EQ(words(bare), "{\"\" \"\" \"\" #4 \"\" null null null 1}");
}

TEST_F(tree_writer, sends_a_description_out_of_range_and_says_so) {
    devnode *made = device(group("g"), "a");
    for (uint32_t description : {0U, 31U, 0xFFFFFFFFU}) {
        host.log.clear();
        made->description = description;
        EXPECT_TRUE(words(made).ends_with("null " + std::to_string(static_cast<int32_t>(description)) + "}"));
        EXPECT_TRUE(host.logged(LOG_ERROR, "item->description out of bounds for item with name Name"));
    }
}

TEST_F(tree_writer, says_nothing_of_a_description_in_range) {
    devnode *made = device(group("g"), "a");
    for (uint32_t description : {1U, 30U}) {
        made->description = description;
        words(made);
    }
    EXPECT_EQ(host.count_logged("out of bounds"), 0);
}

TEST_F(tree_writer, lets_an_action_have_any_description) {
    devnode *made = device(group("g"), "a");
    made->type = TYPE_ACTION;
    made->description = 0;
    words(made);
    EXPECT_EQ(host.count_logged("out of bounds"), 0);
}

TEST_F(tree_writer, names_a_device_without_a_name_null) {
    devnode *made = device(group("g"), "a");
    text_replace(&made->name, nullptr);
    made->description = 0;
    words(made);
    EXPECT_TRUE(host.logged(LOG_ERROR, "item->description out of bounds for item with name (null)"));
}

TEST_F(tree_writer, tells_the_field_that_is_too_long) {
    devnode *made = device(group("g"), "a");
    text_replace(&made->comment, text_copy(std::string(513, 'x').c_str()));
    EXPECT_FAILURE(write_devnode(memory_io(), made), "check.comment: data out of range in write_string");
}

// Groups.

TEST_F(tree_writer, sends_an_absent_tree_as_an_empty_list) {
    EXPECT_EQ(list_words(), "{}");
}

TEST_F(tree_writer, sends_a_group_with_devices_subgroups_template_and_flag) {
    devtree *disks = group("fs", nullptr, "Disks");
    disks->name_template = "%0r for %1r";
    disks->group_flags = GROUP_OF_INSTANCES;
    text_replace(&device(disks, "b")->comment, nullptr);
    text_replace(&device(disks, "a")->comment, nullptr);
    group("inner", disks, "Inner");
    EXPECT_EQ(list_words(), "{{\"fs\" \"Disks\""
                            " {{\"a\" \"Name\" \"\" #0 \"kB\" null null null 3}"
                            " {\"b\" \"Name\" \"\" #0 \"kB\" null null null 3}}"
                            " {{\"inner\" \"Inner\" {} {} \"\" false}}"
                            " \"%0r for %1r\" true}}");
}

TEST_F(tree_writer, sends_only_the_first_flag_of_a_group) {
    group("g")->group_flags = 0xFFFFFFFE;
    EXPECT_EQ(list_words(), "{{\"g\" \"Group\" {} {} \"\" false}}");
}

TEST_F(tree_writer, leaves_a_group_out_whose_id_is_too_long) {
    std::string longest(128, 'l');
    std::string too_long(129, 't');
    group("first");
    device(group(too_long), "lost");
    group(longest);
    EXPECT_EQ(list_words(),
              "{{\"first\" \"Group\" {} {} \"\" false} {\"" + longest + "\" \"Group\" {} {} \"\" false}}");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Check group name too long: " + too_long));
    EXPECT_EQ(host.count_logged("too long"), 1);
}

TEST_F(tree_writer, refuses_a_group_name_or_template_that_is_too_long) {
    std::string too_long(129, 't');
    devtree *made = group("g", nullptr, too_long.c_str());
    EXPECT_FAILURE(write_devtree(memory_io(), made), "check_group.name: data out of range in write_string");
    text_replace(&made->name, nullptr);
    made->name_template = too_long.c_str();
    EXPECT_FAILURE(write_devtree(memory_io(), made), "data out of range in write_string");
}

TEST_F(tree_writer, passes_every_failure_of_the_stream_on) {
    hinted(group("g"), 1, 2, 3);
    group("inner", group("g"));
    memory_io whole;
    EXPECT_SUCCESS(write_devtree_list(whole, top->children));
    for (uint32_t call = 1; call <= whole.calls; call++) {
        memory_io stream;
        stream.fail_call = call;
        EXPECT_TRUE(noted_failure(write_devtree_list(stream, top->children)).ends_with(MEMORY_IO_FAILED))
            << call;
        EXPECT_EQ(stream.calls, call);
    }
}

// Descriptions.

TEST(check_descriptions_list, is_empty_for_no_entries) {
    test_host host;
    for (int32_t count : {0, -1}) {
        memory_io stream;
        EXPECT_SUCCESS(write_check_descriptions(stream, check_descriptions, count));
        EXPECT_EQ(wire_words(stream.written), "{}");
    }
}

TEST(check_descriptions_list, holds_as_many_entries_as_are_counted) {
    test_host host;
    memory_io stream;
    EXPECT_SUCCESS(write_check_descriptions(stream, check_descriptions, 2));
    EXPECT_EQ(wire_words(stream.written),
              "{{1 \"Free space is fine\" \"Free space is suspicious\" \"Free space is "
              "critical\"} {2 \"Free memory OK\" \"Free memory in warning area\" \"Free "
              "memory in alert area\"}}");
}

TEST(check_descriptions_list, passes_every_failure_of_the_stream_on) {
    test_host host;
    memory_io whole;
    EXPECT_SUCCESS(write_check_descriptions(whole, check_descriptions, 1));
    for (uint32_t call = 1; call <= whole.calls; call++) {
        memory_io stream;
        stream.fail_call = call;
        EXPECT_TRUE(noted_failure(write_check_descriptions(stream, check_descriptions, 1))
                        .ends_with(MEMORY_IO_FAILED));
    }
}
