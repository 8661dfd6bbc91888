#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "protocol/checkin.h"
#include "protocol/time_sync.h"
#include "protocol/wire.h"

#include <gtest/gtest.h>

class result_writer : public testing::Test {
protected:
    ~result_writer() override {
        time_offset = 0;
        top.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    devtree *group(const char *id, devtree *parent = nullptr) {
        return devtree_child(parent != nullptr ? parent : top.get(), id, "Group");
    }
    // The last device of its group, with so many results of the values 1, 2, 3 and comments alike.
    static devnode *device(devtree *parent, const char *id, uint32_t type, int results) {
        devnode *made = alloc_devnode();
        made->id = text_copy(id);
        made->type = type;
        made->parent = parent;
        devnode **link = &parent->devices;
        while (*link != nullptr)
            link = &(*link)->next;
        *link = made;
        for (int i = 1; i <= results; i++)
            queue(made, i, ("c" + std::to_string(i)).c_str());
        return made;
    }
    static resnode *queue(devnode *device, int32_t value, const char *comment) {
        resnode *result = alloc_resnode();
        result->check_time = 1000;
        result->value = value;
        result->comment = text_copy(comment);
        result->status = STATUS_WARNING;
        append_result(device, result);
        return result;
    }
    // The words of all results that go out.
    std::string words(uint32_t limit = 1000) {
        remaining = limit;
        memory_io stream;
        EXPECT_SUCCESS(checkin_write_devtree(stream, first(), &remaining));
        return wire_words(stream.written);
    }
    // The groups below the top, which is no part of the tree.
    devtree *first() {
        for (devtree *group = top->children; group != nullptr; group = group->next)
            group->parent = nullptr;
        return top->children;
    }
    void drop(uint32_t limit) {
        remaining = limit;
        checkin_drop_results(first(), &remaining);
    }
    static int left(const devnode *device) {
        int count = 0;
        for (const resnode *result = device->results; result != nullptr; result = result->next)
            count++;
        return count;
    }

    test_host host;
    devtree_guard top{heap_new<devtree>()};
    uint32_t remaining = 0;
};

using result_value = result_writer;
using result_comment = result_writer;
using result_dropper = result_writer;

// One result.

TEST_F(result_writer, sends_time_comment_status_path_and_value) {
    device(group("inner", group("fs")), "C:\\", TYPE_CONTINUOUS, 1);
    EXPECT_EQ(words(), "{1000 \"c1\" #1 {\"fs\" \"inner\" \"C:\\\"} 1}");
    EXPECT_EQ(remaining, 999U);
}

TEST_F(result_writer, sends_the_time_of_the_server) {
    device(group("g"), "a", TYPE_CONTINUOUS, 1);
    time_offset = 400;
    EXPECT_EQ(words(), "{600 \"c1\" #1 {\"g\" \"a\"} 1}");
    time_offset = -400;
    EXPECT_EQ(words(), "{1400 \"c1\" #1 {\"g\" \"a\"} 1}");
}

TEST_F(result_writer, sends_the_low_32_bits_of_the_time) {
    devnode *made = device(group("g"), "a", TYPE_CONTINUOUS, 1);
    made->results->check_time = 0x1'7FFF'FFFF;
    EXPECT_TRUE(words().starts_with("{2147483647 "));
    time_offset = -1;
    EXPECT_TRUE(words().starts_with("{-2147483648 "));
    time_offset = 0x2'0000'0001;
    EXPECT_TRUE(words().starts_with("{2147483646 "));
}

TEST_F(result_writer, sends_a_conf_id_with_the_first_result_only) {
    devnode *made = device(group("g"), "a", TYPE_CONTINUOUS, 2);
    made->conf_id = text_copy("conf");
    EXPECT_EQ(words(), "{1000 \"\" #1 {\"g\" \"a\"} 1 \"conf\"} {1000 \"c2\" #1 {\"g\" \"a\"} 2}");
}

TEST_F(result_writer, sends_an_empty_conf_id) {
    device(group("g"), "a", TYPE_CONTINUOUS, 1)->conf_id = text_copy("");
    EXPECT_EQ(words(), "{1000 \"c1\" #1 {\"g\" \"a\"} 1 \"\"}");
}

TEST_F(result_writer, sends_nothing_of_a_device_without_results) {
    device(group("g"), "a", TYPE_CONTINUOUS, 0)->conf_id = text_copy("conf");
    EXPECT_EQ(words(), "");
    EXPECT_EQ(remaining, 1000U);
}

TEST_F(result_writer, refuses_names_that_are_too_long) {
    devnode *made = device(group(std::string(129, 'g').c_str()), "a", TYPE_CONTINUOUS, 1);
    remaining = 1;
    EXPECT_FAILURE(checkin_write_devtree(memory_io(), first(), &remaining),
                   "data out of range in write_string");
    text_replace(&made->results->comment, text_copy(std::string(129, 'c').c_str()));
    EXPECT_FAILURE(checkin_write_devtree(memory_io(), first(), &remaining),
                   "check_result.comment: data out of range in write_string");
}

TEST_F(result_writer, passes_every_failure_of_the_stream_on) {
    device(group("inner", group("g")), "a", TYPE_CONTINUOUS, 1)->conf_id = text_copy("conf");
    memory_io whole;
    remaining = 5;
    EXPECT_SUCCESS(checkin_write_devtree(whole, first(), &remaining));
    for (uint32_t call = 1; call <= whole.calls; call++) {
        memory_io stream;
        stream.fail_call = call;
        remaining = 5;
        EXPECT_TRUE(
            noted_failure(checkin_write_devtree(stream, first(), &remaining)).ends_with(MEMORY_IO_FAILED));
        EXPECT_EQ(remaining, 5U);
    }
}

// Values by type.

TEST_F(result_value, of_a_bitmap_kind_is_an_integer) {
    for (uint32_t type : {1, 2, 3, 5, 10, 11, 12, 13}) {
        host.log.clear();
        devnode *made = device(group("g"), "a", type, 0);
        queue(made, INT32_MIN, nullptr);
        EXPECT_EQ(words(), "{1000 \"\" #1 {\"g\" \"a\"} -2147483648}");
        EXPECT_TRUE(host.logged(LOG_TRACE, "Sending Bitmap"));
        drop(1);
    }
}

TEST_F(result_value, of_a_continuous_check_is_an_integer) {
    queue(device(group("g"), "a", TYPE_CONTINUOUS, 0), INT32_MAX, nullptr);
    EXPECT_EQ(words(), "{1000 \"\" #1 {\"g\" \"a\"} 2147483647}");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sending Continuous"));
}

TEST_F(result_value, of_an_action_is_null) {
    device(group("g"), "a", TYPE_ACTION, 1);
    EXPECT_EQ(words(), "{1000 \"c1\" #1 {\"g\" \"a\"} null}");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sending AgentAction"));
}

TEST_F(result_value, of_both_kinds_of_logs_is_a_text) {
    for (uint32_t type : {TYPE_LOG, TYPE_ADV_LOG}) {
        host.log.clear();
        devnode *made = device(group("g"), "a", type, 1);
        made->results->log_text = text_copy("line one\nline two");
        EXPECT_EQ(words(), "{1000 \"c1\" #1 {\"g\" \"a\"} \"line one\nline two\"}");
        EXPECT_TRUE(host.logged(LOG_TRACE, "Sending Log"));
        drop(1);
    }
}

TEST_F(result_value, of_a_log_has_at_most_65536_characters) {
    devnode *made = device(group("g"), "a", TYPE_LOG, 1);
    made->results->log_text = text_copy(std::string(65536, 'l').c_str());
    EXPECT_TRUE(words().ends_with(" \"" + std::string(65536, 'l') + "\"}"));
    text_replace(&made->results->log_text, text_copy(std::string(65537, 'l').c_str()));
    remaining = 1;
    EXPECT_FAILURE(checkin_write_devtree(memory_io(), first(), &remaining),
                   "data out of range in write_string");
    EXPECT_EQ(remaining, 1U);
}

TEST_F(result_value, of_a_real_check_is_a_real) {
    devnode *made = device(group("g"), "a", TYPE_REAL_CONTINUOUS, 0);
    queue(made, 0, nullptr)->real_value = 2.5;
    EXPECT_EQ(words(), "{1000 \"\" #1 {\"g\" \"a\"} real 2.500000e+00}");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sending RealContinuous with value \"2.500000\""));
}

TEST_F(result_value, of_a_real_check_with_a_comment_is_told_as_an_error) {
    device(group("g"), "a", TYPE_REAL_CONTINUOUS, 2);
    EXPECT_EQ(words(), "{1000 \"\" #1 {\"g\" \"a\"} real 0} {1000 \"c2\" #1 {\"g\" \"a\"} real 0}");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sending RealContinuous with error \"c1\""));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sending RealContinuous with error \"c2\""));
}

TEST_F(result_value, of_any_other_type_is_null) {
    for (uint32_t type : {4U, 14U, 99U, 0xFFFFFFFFU}) {
        host.log.clear();
        device(group("g"), "a", type, 1);
        EXPECT_EQ(words(), "{1000 \"c1\" #1 {\"g\" \"a\"} null}");
        EXPECT_TRUE(host.logged(LOG_DETAIL, "Unhandled check type - sending null"));
        drop(1);
    }
}

// Comments.

static std::string result(const std::string &comment, int value) {
    return "{1000 \"" + comment + "\" #1 {\"g\" \"a\"} " + std::to_string(value) + "}";
}

TEST_F(result_comment, goes_with_the_newest_result_of_a_queue) {
    device(group("g"), "a", TYPE_CONTINUOUS, 3);
    EXPECT_EQ(words(), result("", 1) + " " + result("", 2) + " " + result("c3", 3));
    EXPECT_EQ(words(3), result("", 1) + " " + result("", 2) + " " + result("c3", 3));
}

TEST_F(result_comment, goes_with_the_last_result_that_the_limit_lets_through) {
    device(group("g"), "a", TYPE_CONTINUOUS, 3);
    EXPECT_EQ(words(1), result("c1", 1));
    EXPECT_EQ(words(2), result("", 1) + " " + result("c2", 2));
}

// The walk.

TEST_F(result_writer, goes_through_devices_then_subgroups_then_siblings) {
    devtree *outer = group("a");
    device(group("inner", outer), "1", TYPE_CONTINUOUS, 1);
    device(outer, "2", TYPE_CONTINUOUS, 1);
    device(outer, "3", TYPE_CONTINUOUS, 1);
    device(group("b"), "4", TYPE_CONTINUOUS, 1);
    EXPECT_EQ(words(), "{1000 \"c1\" #1 {\"a\" \"2\"} 1} {1000 \"c1\" #1 {\"a\" \"3\"} 1} "
                       "{1000 \"c1\" #1 {\"a\" \"inner\" \"1\"} 1} {1000 \"c1\" #1 {\"b\" \"4\"} 1}");
}

TEST_F(result_writer, names_each_group_that_it_comes_to) {
    group("inner", group("g"));
    text_replace(&group("nameless")->name, nullptr);
    words();
    EXPECT_EQ(host.count_logged("checkin_write_devtree[Group]"), 2);
    EXPECT_TRUE(host.logged(LOG_TRACE, "checkin_write_devtree[(null)]"));
}

TEST_F(result_writer, stops_at_the_first_device_beyond_the_limit) {
    device(group("a"), "1", TYPE_CONTINUOUS, 2);
    device(group("b"), "2", TYPE_CONTINUOUS, 2);
    group("inner", group("b"));
    words(2);
    EXPECT_EQ(remaining, 0U);
    EXPECT_EQ(host.count_logged("checkin_write_devtree"), 2); // b is looked at, what is below it is not
    EXPECT_EQ(words(0), "");
}

// Dropping.

TEST_F(result_dropper, removes_what_was_sent_from_the_oldest_on) {
    devnode *one = device(group("a"), "1", TYPE_CONTINUOUS, 2);
    devnode *two = device(group("inner", group("a")), "2", TYPE_CONTINUOUS, 3);
    devnode *three = device(group("b"), "3", TYPE_CONTINUOUS, 1);
    std::string sent = words(4);
    drop(4);
    EXPECT_EQ(remaining, 0U);
    EXPECT_EQ(left(one), 0);
    EXPECT_EQ(left(two), 1);
    EXPECT_EQ(two->results->value, 3);
    EXPECT_EQ(left(three), 1);
}

TEST_F(result_dropper, leaves_a_queue_that_can_be_appended_to) {
    devnode *made = device(group("a"), "1", TYPE_CONTINUOUS, 3);
    drop(1);
    queue(made, 4, nullptr);
    EXPECT_EQ(left(made), 3);
    drop(3);
    EXPECT_EQ(made->results_tail, &made->results);
    queue(made, 5, nullptr);
    EXPECT_EQ(made->results->value, 5);
}

TEST_F(result_dropper, takes_what_there_is_and_keeps_the_rest_of_the_count) {
    device(group("a"), "1", TYPE_CONTINUOUS, 3);
    drop(5);
    EXPECT_EQ(remaining, 2U);
    checkin_drop_results(nullptr, &remaining);
    EXPECT_EQ(remaining, 2U);
}

TEST_F(result_dropper, does_nothing_without_a_count) {
    devnode *made = device(group("a"), "1", TYPE_CONTINUOUS, 3);
    drop(0);
    EXPECT_EQ(left(made), 3);
}
