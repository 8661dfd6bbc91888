#include "probes/os/process_names.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct process_names : testing::Test {
    test_host host;

    process_names() { process_names_reset(); }
    ~process_names() override {
        process_names_reset();
        EXPECT_EQ(host.blocks, 0);
    }

    static void meet(uint32_t id, const char *whole) {
        process_names_turn_to(id);
        remember_name({.id = id, .started = 100, .stack = 7}, whole);
    }
    static std::string name_of(const process_run &run, const char *beginning = "a-long-name-of-") {
        process_names_turn_to(run.id);
        const char *whole = remembered_name(run, beginning);
        return whole != nullptr ? whole : "(none)";
    }
    static std::string name_of(uint32_t id) { return name_of({.id = id, .started = 100, .stack = 7}, ""); }
    int64_t kept() const { return host.blocks / 2; } // a record and a text each
};

} // namespace

TEST_F(process_names, are_remembered_from_walk_to_walk) {
    for (int walk = 0; walk < 3; walk++) {
        for (uint32_t id : {3U, 5U, 9U}) {
            EXPECT_EQ(name_of(id), walk == 0 ? "(none)" : "name " + std::to_string(id));
            meet(id, ("name " + std::to_string(id)).c_str());
        }
        process_names_end();
    }
    EXPECT_EQ(kept(), 3);
}

TEST_F(process_names, belong_to_one_run_and_one_beginning) {
    process_names_turn_to(5);
    remember_name({.id = 5, .started = 100, .stack = 7}, "a-long-name-of-one");
    EXPECT_EQ(name_of({.id = 5, .started = 100, .stack = 7}), "a-long-name-of-one");
    EXPECT_EQ(name_of({.id = 5, .started = 101, .stack = 7}), "(none)") << "another process";
    EXPECT_EQ(name_of({.id = 5, .started = 100, .stack = 8}), "(none)") << "another program";
    EXPECT_EQ(name_of({.id = 5, .started = 100, .stack = 7}, "another-name-of"), "(none)");
    EXPECT_EQ(name_of({.id = 6, .started = 100, .stack = 7}), "(none)");
}

TEST_F(process_names, are_replaced) {
    meet(5, "first");
    meet(5, "second");
    EXPECT_EQ(name_of(5), "second");
    EXPECT_EQ(kept(), 1);
    forget_name();
    forget_name();
    EXPECT_EQ(kept(), 0);
}

TEST_F(process_names, of_processes_that_a_walk_passes_over_are_dropped) {
    for (uint32_t id : {3U, 5U, 9U, 12U})
        meet(id, "name");
    for (uint32_t id : {1U, 3U, 9U})
        process_names_turn_to(id);
    EXPECT_EQ(kept(), 3) << "5 has gone, of 12 nothing is known yet";
    process_names_end();
    EXPECT_EQ(kept(), 2);
    EXPECT_EQ(name_of(3), "name");
    EXPECT_EQ(name_of(9), "name");
}

TEST_F(process_names, stay_where_a_walk_breaks_off) {
    for (uint32_t id : {3U, 5U, 9U})
        meet(id, "name");
    process_names_end();
    for (int walk = 0; walk < 3; walk++)
        process_names_turn_to(3);
    EXPECT_EQ(kept(), 3);
    EXPECT_EQ(name_of(5), "name");
    EXPECT_EQ(name_of(9), "name");
}

TEST_F(process_names, come_between_others) {
    meet(3, "three");
    meet(9, "nine");
    process_names_turn_to(1);
    process_names_turn_to(3);
    meet(5, "five");
    EXPECT_EQ(name_of(9), "nine");
    meet(1, "one");
    for (auto &[id, name] : {std::pair(1U, "one"), {3U, "three"}, {5U, "five"}, {9U, "nine"}})
        EXPECT_EQ(name_of(id), name);
}

TEST_F(process_names, are_not_remembered_without_memory) {
    for (uint32_t n : {1U, 2U}) {
        host.fail_allocation = n;
        meet(5, "name");
        EXPECT_EQ(name_of(5), "(none)") << n;
        EXPECT_EQ(host.blocks, 0) << n;
    }
    meet(5, "name");
    host.fail_allocation = 1;
    meet(5, "name");
    EXPECT_EQ(name_of(5), "name") << "the same name takes none";
    host.fail_allocation = 0;
}
