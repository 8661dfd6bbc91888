#include "probes/os/counter_names.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "probes/os/scripted_counters.h"

#include <gtest/gtest.h>

namespace {

struct counter_names : testing::Test {
    test_host host;
    scripted_counters counters;
    char name[COUNTER_NAME_SIZE] = "untouched";

    counter_names() {
        counters.add(2, "System", "System-de");
        counters.add(4, "Memory", "Speicher");
        counters.add(238, "Processor", "Prozessor");
    }
    bool to_national(const char *english) {
        return translate_counter_name_to_national(name, sizeof name, english);
    }
    bool to_english(const char *national) {
        return translate_counter_name_to_english(name, sizeof name, national);
    }
    void pad(size_t size) { counters.table += "9000" + std::string(1, '\0') + std::string(size, 'x') + '\0'; }
};

using translate_to_national = counter_names;
using translate_to_english = counter_names;
using load_names = counter_names;

} // namespace

TEST_F(translate_to_national, gives_the_host_s_name_and_logs_it) {
    EXPECT_TRUE(to_national("Processor"));
    EXPECT_STREQ(name, "Prozessor");
    EXPECT_TRUE(host.logged(LOG_TRACE, "translate_counter_name_to_national \"Processor\": \"Prozessor\""));
}

TEST_F(translate_to_national, logs_a_name_that_the_table_does_not_hold) {
    counters.national[300] = "Disk";
    EXPECT_FALSE(to_national("Disk"));
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"Disk\": not found"));
}

TEST_F(translate_to_national, compares_letter_case) {
    EXPECT_FALSE(to_national("processor"));
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"processor\": not found"));
}

TEST_F(translate_to_national, does_not_take_an_index_for_a_name) {
    EXPECT_FALSE(to_national("238"));
}

TEST_F(translate_to_national, takes_an_index_of_a_program_s_own_counters) {
    counters.add(70000, "Mail Queue", "Postausgang");
    EXPECT_TRUE(to_national("Mail Queue"));
    EXPECT_STREQ(name, "Postausgang");
}

TEST_F(translate_to_national, takes_the_first_of_several_indexes) {
    counters.add(500, "Memory", "zweiter");
    EXPECT_TRUE(to_national("Memory"));
    EXPECT_STREQ(name, "Speicher");
}

TEST_F(translate_to_national, logs_an_index_that_the_host_does_not_know) {
    counters.national.erase(4);
    EXPECT_FALSE(to_national("Memory"));
    EXPECT_TRUE(host.logged(
        LOG_WARNING,
        "translate_counter_name_to_national \"Memory\": error from PdhLookupPerfNameByIndex (index 4)"));
}

TEST_F(translate_to_english, gives_the_table_s_name_and_logs_it) {
    EXPECT_TRUE(to_english("Prozessor"));
    EXPECT_STREQ(name, "Processor");
    EXPECT_TRUE(host.logged(LOG_TRACE, "translate_counter_name_to_english \"Prozessor\": \"Processor\""));
}

TEST_F(translate_to_english, empties_the_name_where_the_host_knows_no_index) {
    EXPECT_FALSE(to_english("Platte"));
    EXPECT_STREQ(name, "");
    EXPECT_TRUE(host.logged(
        LOG_WARNING, "translate_counter_name_to_english \"Platte\": error from PdhLookupPerfIndexByName"));
}

TEST_F(translate_to_english, empties_the_name_where_the_table_has_no_such_index) {
    counters.national[77] = "Neu";
    EXPECT_FALSE(to_english("Neu"));
    EXPECT_STREQ(name, "");
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_english \"Neu\": not found"));
}

TEST_F(translate_to_english, compares_indexes_as_texts) {
    counters.national = {{7, "Sieben"}};
    counters.table = std::string("007") + '\0' + "Seven" + '\0';
    EXPECT_FALSE(to_english("Sieben"));
}

TEST_F(translate_to_english, prints_the_largest_index_whole) {
    counters.add(4294967295, "Last", "Letzter");
    EXPECT_TRUE(to_english("Letzter"));
    EXPECT_STREQ(name, "Last");
}

TEST_F(translate_to_english, cuts_a_name_at_the_size_of_the_buffer) {
    EXPECT_TRUE(translate_counter_name_to_english(name, 5, "Prozessor"));
    EXPECT_STREQ(name, "Proc");
}

TEST_F(load_names, reads_the_table_once_a_process) {
    to_national("Memory");
    to_national("System");
    to_english("Speicher");
    EXPECT_EQ(counters.table_reads, std::vector<uint32_t>{1024});
}

TEST_F(load_names, reads_a_large_table_at_the_size_that_the_host_names) {
    pad(2000);
    counters.add(600, "Behind", "Dahinter");
    EXPECT_TRUE(to_national("Behind"));
    EXPECT_EQ(counters.table_reads,
              (std::vector<uint32_t>{1024, static_cast<uint32_t>(counters.table.size()) + 1}));
}

TEST_F(load_names, logs_an_unreadable_table_and_tries_again) {
    host.error_words[5] = "Access is denied.";
    counters.table_statuses = {5};
    EXPECT_FALSE(to_national("Memory"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Error: Access is denied."));
    EXPECT_TRUE(to_national("Memory"));
}

TEST_F(load_names, empties_the_english_name_of_an_unreadable_table) {
    counters.table_statuses = {5};
    EXPECT_FALSE(to_english("Speicher"));
    EXPECT_STREQ(name, "");
}

TEST_F(load_names, takes_the_block_for_loaded_after_a_second_read_that_failed) {
    pad(2000);
    host.error_words[6] = "The handle is invalid.";
    counters.table_statuses = {0, 6};
    EXPECT_FALSE(to_national("Memory"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Second try gave: The handle is invalid."));
    EXPECT_EQ(host.count_logged("not found"), 0);
    EXPECT_FALSE(to_national("Memory"));
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"Memory\": not found"));
    EXPECT_EQ(counters.table_reads.size(), 2U) << "never asked again";
}

TEST_F(load_names, fails_while_memory_is_out) {
    host.fail_allocation = 1;
    EXPECT_FALSE(to_national("Memory"));
    EXPECT_TRUE(to_national("Memory"));
    counter_names_reset();
    pad(2000);
    host.fail_allocation = 1;
    EXPECT_FALSE(to_national("Memory"));
    EXPECT_TRUE(to_national("Memory"));
}

TEST_F(load_names, survives_a_table_without_its_end) {
    counters.table_ends = false;
    for (const std::string &table :
         {std::string(), std::string("2"), std::string("2\0", 2), std::string("2\0Sys", 5),
          std::string("2\0Sys\0"
                      "4",
                      7)}) {
        counter_names_reset();
        counters.table = table;
        EXPECT_FALSE(to_national("System")) << table;
    }
    counter_names_reset();
    counters.table = std::string("2\0System\0", 9);
    EXPECT_TRUE(to_national("System"));
}

TEST_F(load_names, keeps_the_block_until_the_process_forgets_it) {
    int64_t before = host.blocks;
    to_national("Memory");
    EXPECT_EQ(host.blocks, before + 1);
    counter_names_reset();
    EXPECT_EQ(host.blocks, before);
}

TEST_F(load_names, finds_english_names_where_memory_is_out) {
    ASSERT_TRUE(to_national("Memory"));
    char english[COUNTER_NAME_SIZE];
    host.fail_allocation = 1;
    EXPECT_TRUE(translate_counter_name_to_english(english, sizeof english,
                                                  counters.national.begin()->second.c_str()));
    EXPECT_EQ(host.fail_allocation, 0U) << "it had asked for some";
    std::string walked = english;
    EXPECT_TRUE(translate_counter_name_to_english(english, sizeof english,
                                                  counters.national.begin()->second.c_str()));
    EXPECT_EQ(english, walked);
    EXPECT_NE(walked, "");
}

TEST_F(load_names, takes_the_first_name_of_an_index) {
    counters.table = std::string("7\0First\0"
                                 "07\0Other\0"
                                 "7\0Second\0",
                                 27);
    counters.national = {{7, "Sieben"}};
    char english[COUNTER_NAME_SIZE];
    EXPECT_TRUE(translate_counter_name_to_english(english, sizeof english, "Sieben"));
    EXPECT_STREQ(english, "First");
    EXPECT_EQ(find_index_name("07"), std::string("Other")) << "indexes are compared as texts";
    EXPECT_EQ(find_index_name("8"), nullptr);
}
