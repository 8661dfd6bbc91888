#include "probes/os/unit_list.h"

#include "fakes/test_host.h"
#include "platform/text.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct unit_list_test : testing::Test {
    test_host host;
    unit_list list = {};

    ~unit_list_test() override {
        drop_units(&list);
        EXPECT_EQ(host.blocks, 0);
    }

    // "name|description|state", all of them.
    std::vector<std::string> units() const {
        std::vector<std::string> found;
        for (uint32_t i = 0; i < list.count; i++)
            found.push_back(std::string(list.units[i].name) + "|" + list.units[i].description + "|" +
                            std::to_string(list.units[i].state));
        return found;
    }
    bool is_new(const char *path, const char *state) const {
        const char *name = nullptr;
        return is_new_unit_file(list, path, state, &name);
    }
};

struct batch {
    alignas(service_record) char room[4096];
    uint32_t needed = 7;
    uint32_t count = 7;

    service_record *records() { return reinterpret_cast<service_record *>(room); }
};

std::string description_in(const std::string &text, size_t size = 100) {
    char out[100];
    return parse_unit_description(text.c_str(), out, size) ? out : "(none)";
}

using lines = std::vector<std::string>;

} // namespace

TEST(state_of_unit, takes_active_and_reloading_for_running) {
    EXPECT_EQ(state_of_unit("active"), 4U);
    EXPECT_EQ(state_of_unit("reloading"), 4U);
    EXPECT_EQ(state_of_unit("activating"), 2U);
    EXPECT_EQ(state_of_unit("deactivating"), 3U);
    for (const char *state : {"inactive", "failed", "maintenance", "", "ACTIVE"})
        EXPECT_EQ(state_of_unit(state), 1U) << state;
}

TEST_F(unit_list_test, takes_services_that_were_found) {
    EXPECT_TRUE(add_loaded_unit(&list, "ssh.service", "A daemon", "loaded", "active"));
    EXPECT_TRUE(add_loaded_unit(&list, "ghost.service", "ghost.service", "not-found", "inactive"));
    EXPECT_TRUE(add_loaded_unit(&list, "off.service", "off.service", "masked", "inactive"));
    EXPECT_TRUE(add_loaded_unit(&list, "tmp.mount", "A mount", "loaded", "active"));
    EXPECT_TRUE(add_loaded_unit(&list, "getty@.service", "A template", "loaded", "inactive"));
    EXPECT_TRUE(add_loaded_unit(&list, "getty@tty1.service", "", "loaded", "deactivating"));
    EXPECT_TRUE(add_loaded_unit(&list, ".service", "No name", "loaded", "active"));
    EXPECT_TRUE(add_loaded_unit(&list, "a.service.d", "A folder", "loaded", "active"));
    EXPECT_EQ(units(), (lines{"ssh.service|A daemon|4", "getty@tty1.service|getty@tty1.service|3"}));
}

TEST_F(unit_list_test, lacks_files_of_units_that_are_not_loaded) {
    EXPECT_TRUE(add_loaded_unit(&list, "ssh.service", "A daemon", "loaded", "active"));
    EXPECT_FALSE(is_new("/lib/systemd/system/ssh.service", "enabled"));
    EXPECT_TRUE(is_new("/lib/systemd/system/ssh2.service", "enabled"));
    EXPECT_TRUE(is_new("rsync.service", "disabled"));
    EXPECT_TRUE(is_new("/lib/systemd/system/rsync.service", "static"));
    EXPECT_FALSE(is_new("/etc/systemd/system/rsync.service", "masked"));
    EXPECT_FALSE(is_new("/run/systemd/system/rsync.service", "masked-runtime"));
    EXPECT_FALSE(is_new("/etc/systemd/system/sshd.service", "alias"));
    EXPECT_FALSE(is_new("/lib/systemd/system/getty@.service", "enabled"));
    EXPECT_FALSE(is_new("/lib/systemd/system/tmp.mount", "static"));
}

TEST_F(unit_list_test, keeps_units_of_files_as_stopped) {
    EXPECT_TRUE(add_unit_file(&list, "rsync.service", "Copies"));
    EXPECT_TRUE(add_unit_file(&list, "odd.service", ""));
    EXPECT_EQ(units(), (lines{"rsync.service|Copies|1", "odd.service|odd.service|1"}));
    EXPECT_FALSE(is_new("/lib/systemd/system/rsync.service", "disabled"));
}

TEST_F(unit_list_test, says_when_memory_is_out) {
    for (uint32_t n = 1; n <= 3; n++) {
        host.fail_allocation = n;
        EXPECT_FALSE(add_unit_file(&list, "rsync.service", "Copies"));
        EXPECT_EQ(host.blocks, 0);
    }
    host.fail_allocation = 0;
    for (int i = 0; i < 1000; i++)
        EXPECT_TRUE(add_unit_file(&list, "rsync.service", "Copies"));
    EXPECT_EQ(units().size(), 1000U);
}

TEST(parse_unit_description, takes_the_last_one_of_the_unit_section) {
    EXPECT_EQ(description_in("# about\n[Unit]\nDescription=First\nAfter=x\nDescription = The second \n\n"
                             "[Service]\nDescription=Not this\n"),
              "The second");
    EXPECT_EQ(description_in("[Unit]\nDescription=No line end"), "No line end");
    EXPECT_EQ(description_in("[Unit]\r\nDescription=Other ends\r\n"), "Other ends");
}

TEST(parse_unit_description, joins_lines) {
    EXPECT_EQ(description_in("[Unit]\nDescription=One\\\ntwo\\x\\\n\n"), "One two\\x");
    EXPECT_EQ(description_in("[Unit]\nDescription=One\\"), "One\\");
}

TEST(parse_unit_description, has_none_without_the_key_or_the_section) {
    for (const char *text :
         {"", "\n\n", "[Unit]", "[Unit]\nDescription", "[Unit]\nDescription=\n", "[Unit]\nDescriptions=x\n",
          "Description=x\n", "[Install]\nDescription=x\n", "[Unit]\nDescription=x\nDescription=\n"})
        EXPECT_EQ(description_in(text), "(none)") << text;
}

TEST(parse_unit_description, is_cut_at_its_room) {
    EXPECT_EQ(description_in("[Unit]\nDescription=" + std::string(300, 'd') + "\n", 20),
              std::string(19, 'd'));
}

TEST_F(unit_list_test, fills_batches_until_the_last) {
    for (int i = 0; i < 500; i++)
        EXPECT_TRUE(add_unit_file(&list, ("unit" + std::to_string(i) + ".service").c_str(), "Some unit"));
    uint32_t resume = 0;
    uint32_t seen = 0;
    bool last = false;
    while (!last) {
        batch next;
        last = fill_service_batch(list, next.records(), sizeof next.room, &next.needed, &next.count, &resume);
        ASSERT_GT(next.count, 0U);
        EXPECT_EQ(last, next.needed == 0);
        for (uint32_t i = 0; i < next.count; i++, seen++) {
            EXPECT_EQ(next.records()[i].service_name, "unit" + std::to_string(seen) + ".service");
            EXPECT_STREQ(next.records()[i].display_name, "Some unit");
            EXPECT_EQ(next.records()[i].status.current_state, 1U);
            EXPECT_EQ(next.records()[i].status.type, 48U);
        }
    }
    EXPECT_EQ(seen, 500U);
    EXPECT_EQ(resume, 0U);
}

TEST_F(unit_list_test, fills_a_batch_to_its_last_byte) {
    // 48 for the record, and both texts with their ends
    EXPECT_TRUE(add_unit_file(&list, "abcd.service", "12345678901234567"));
    EXPECT_TRUE(add_unit_file(&list, "b.service", "x"));
    batch one;
    uint32_t resume = 0;
    EXPECT_FALSE(fill_service_batch(list, one.records(), 48 + 13 + 18, &one.needed, &one.count, &resume));
    EXPECT_EQ(one.count, 1U);
    EXPECT_EQ(resume, 1U);
    EXPECT_EQ(one.needed, 48U + 10 + 2);
    resume = 0;
    EXPECT_FALSE(fill_service_batch(list, one.records(), 48 + 13 + 17, &one.needed, &one.count, &resume));
    EXPECT_EQ(one.count, 0U) << "one byte less";
    EXPECT_EQ(resume, 0U);
}

TEST_F(unit_list_test, cuts_texts_so_that_each_unit_fits) {
    EXPECT_TRUE(add_unit_file(&list, "a.service", std::string(10000, 'd').c_str()));
    batch one;
    uint32_t resume = 0;
    EXPECT_TRUE(fill_service_batch(list, one.records(), sizeof one.room, &one.needed, &one.count, &resume));
    EXPECT_EQ(one.records()[0].display_name, std::string(256, 'd'));
}

TEST_F(unit_list_test, has_an_empty_last_batch_of_nothing) {
    batch one;
    uint32_t resume = 0;
    EXPECT_TRUE(fill_service_batch(list, one.records(), sizeof one.room, &one.needed, &one.count, &resume));
    EXPECT_EQ(one.count, 0U);
}
