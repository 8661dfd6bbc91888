#include "logcheck/event_message.h"

#include "fakes/scripted_event_log.h"
#include "fakes/scripted_registry.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

namespace {

constexpr const char *DISK_KEY = "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\Disk";

} // namespace

class event_message_text : public testing::Test {
protected:
    test_host host;
    scripted_registry registry;
    scripted_event_log log;
    agent_config config = {};
    event_bytes record = {.id = 7, .inserts = {u"C:", u"full"}};
    std::unique_ptr<event_message> message = std::make_unique<event_message>();

    void SetUp() override {
        config_in_force = &config;
        log.set_last_error = [this](uint32_t code) { host.last_error = code; };
        files("disk.dll");
        log.modules["disk.dll"] = {{7, u"Drive %1 is %2."}};
    }
    void TearDown() override {
        config_in_force = nullptr;
        registry_host = nullptr;
        EXPECT_EQ(host.blocks, 0);
        EXPECT_EQ(registry.open_keys, 0);
        EXPECT_EQ(log.open_modules, 0);
        EXPECT_EQ(log.open_texts, 0);
    }

    void files(const std::string &names) { registry.set(MACHINE_HIVE, DISK_KEY, "EventMessageFile", names); }
    std::string find(const char *source = "Disk") {
        std::string bytes = record.make();
        event_record decoded = {};
        EXPECT_TRUE(decode_event_record(reinterpret_cast<const uint8_t *>(bytes.data()),
                                        static_cast<uint32_t>(bytes.size()), &decoded));
        strcpy(message->text, "of the record before");
        find_event_message("System", source, &decoded, message.get());
        return message->text;
    }
};

using skip_event_source = event_message_text;
using message_files = event_message_text;
using parameter_references = event_message_text;

// ---- the text

TEST_F(event_message_text, holds_the_inserts_of_the_record) {
    EXPECT_EQ(find(), "Drive C: is full.");
    EXPECT_EQ(log.formatted, std::vector<std::string>{"10240 7"}); // 0x2800
    EXPECT_EQ(log.sizes, std::vector<uint32_t>{65'536});
    EXPECT_EQ(log.loaded, std::vector<std::string>{"disk.dll 2"});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Loading disk.dll"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Loaded disk.dll"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "* FM said 17"));
}

TEST_F(event_message_text, has_blanks_in_the_place_of_missing_inserts) {
    log.modules["disk.dll"][7] = u"%1, %2, %3 and %99";
    EXPECT_EQ(find(), "C:, full,  and ");
    record.inserts = {};
    EXPECT_EQ(find(), ", ,  and ");
}

TEST_F(event_message_text, is_iso_8859_1) {
    record.inserts = {u"\u00FC", u"\u20AC"};
    EXPECT_EQ(find(), "Drive \xFC is ?.");
}

TEST_F(event_message_text, fills_its_buffer_to_the_last_character) {
    log.modules["disk.dll"][7] = std::u16string(65'535, u'x');
    EXPECT_EQ(find(), std::string(65'535, 'x'));
}

TEST_F(event_message_text, tells_a_failed_lookup_with_the_whole_number) {
    record.id = 0x12345;
    host.error_words[317] = "no such message";
    EXPECT_EQ(find(), "<FormatMessage(\"disk.dll\", 74565): no such message>");
    EXPECT_TRUE(host.logged(LOG_TRACE, "* FM said 0"));
    record.id = 0xC0000004;
    EXPECT_EQ(find(), "<FormatMessage(\"disk.dll\", -1073741820): no such message>");
}

TEST_F(event_message_text, tells_a_file_that_cannot_be_loaded) {
    files("missing.dll");
    host.error_words[126] = "no such module";
    EXPECT_EQ(find(), "<LoadLibrary(\"missing.dll\") error: no such module>");
    EXPECT_FALSE(host.logged(LOG_TRACE, "Loaded missing.dll"));
}

TEST_F(event_message_text, tells_that_memory_is_out) {
    host.fail_allocation = 1;
    EXPECT_EQ(find(), "<FormatMessage(\"disk.dll\", 7): Out of memory>");
}

// ---- the source's entry in the registry

TEST_F(message_files, are_named_below_the_log_and_the_source) {
    registry.keys.clear();
    registry.set(MACHINE_HIVE, DISK_KEY, "EventMessageFile", "other.dll");
    log.modules["other.dll"] = {{7, u"found"}};
    EXPECT_EQ(find(), "found");
}

TEST_F(message_files, of_a_source_without_a_key_are_an_error) {
    EXPECT_EQ(find("Unregistered"), "<Cannot format message (2)>");
    registry.broken = "open";
    registry.broken_at = 1;
    EXPECT_EQ(find(), "<Cannot format message (5)>");
    EXPECT_TRUE(log.loaded.empty());
}

TEST_F(message_files, and_no_provider_are_an_error) {
    registry.keys[{MACHINE_HIVE, DISK_KEY}] = {};
    EXPECT_EQ(find(), "<Cannot read key \"EventMessageFile\" (err 2)>");
    EXPECT_EQ(registry.queried, (std::vector<std::string>{"EventMessageFile", "ProviderGuid"}));
}

TEST_F(message_files, of_a_provider_are_ignored) {
    registry.keys[{MACHINE_HIVE, DISK_KEY}] = {};
    registry.set(MACHINE_HIVE, DISK_KEY, "ProviderGuid", "{0}");
    EXPECT_EQ(find(), "");
    EXPECT_TRUE(host.logged(LOG_TRACE, " Event had providerGuid; will ignore event."));
    EXPECT_EQ(host.count_logged("above error(s)"), 0);
}

TEST_F(message_files, win_over_a_provider) {
    registry.set(MACHINE_HIVE, DISK_KEY, "ProviderGuid", "{0}");
    EXPECT_EQ(find(), "Drive C: is full.");
    EXPECT_EQ(registry.queried, std::vector<std::string>{"EventMessageFile"});
}

TEST_F(message_files, have_names_of_up_to_256_bytes_with_their_end) {
    std::string longest = std::string(251, 'd') + ".dll";
    log.modules[longest] = {{7, u"found"}};
    files(longest);
    EXPECT_EQ(find(), "found");
    files("d" + longest);
    EXPECT_EQ(find(), "<Cannot read key \"EventMessageFile\" (err 2)>");
}

TEST_F(message_files, may_be_named_without_an_end) {
    registry.keys[{MACHINE_HIVE, DISK_KEY}] = {{"EventMessageFile", std::string(256, 'd')}};
    EXPECT_EQ(find(), "<LoadLibrary(\"" + std::string(255, 'd') + "\") error: system error 126>");
    registry.keys[{MACHINE_HIVE, DISK_KEY}] = {{"EventMessageFile", "disk.dll"}};
    EXPECT_EQ(find(), "Drive C: is full.");
}

TEST_F(message_files, have_a_path_of_255_characters_at_most) {
    std::string path = "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\";
    std::string source(300, 's');
    registry.set(MACHINE_HIVE, path + source.substr(0, 255 - path.size()), "EventMessageFile", "disk.dll");
    EXPECT_EQ(find(source.c_str()), "Drive C: is full.");
}

TEST_F(message_files, are_found_through_the_environment) {
    files("%SystemRoot%\\disk.dll");
    log.variables["%SystemRoot%"] = "C:\\WINDOWS";
    log.modules["C:\\WINDOWS\\disk.dll"] = {{7, u"found"}};
    EXPECT_EQ(find(), "found");
}

TEST_F(message_files, stay_as_they_are_where_they_cannot_be_expanded) {
    files("%SystemRoot%\\disk.dll");
    log.variables["%SystemRoot%"] = std::string(247, 'x');
    log.modules[std::string(247, 'x') + "\\disk.dll"] = {{7, u"found"}}; // 256 characters
    EXPECT_EQ(find(), "<LoadLibrary(\"%SystemRoot%\\disk.dll\") error: system error 126>");
    log.variables["%SystemRoot%"] = std::string(246, 'x');
    log.modules[std::string(246, 'x') + "\\disk.dll"] = {{7, u"found"}};
    EXPECT_EQ(find(), "found");
    log.broken = "expand";
    EXPECT_EQ(find(), "<LoadLibrary(\"%SystemRoot%\\disk.dll\") error: system error 126>");
}

TEST_F(message_files, behind_one_that_fails_are_not_asked) {
    files("missing.dll;disk.dll");
    EXPECT_EQ(find(), "<LoadLibrary(\"missing.dll\") error: system error 126>");
    files("empty.dll;disk.dll");
    log.modules["empty.dll"] = {};
    EXPECT_EQ(find(), "<FormatMessage(\"empty.dll\", 7): system error 317>");
    EXPECT_EQ(log.loaded, (std::vector<std::string>{"missing.dll 2", "empty.dll 2"}));
}

TEST_F(message_files, behind_one_whose_text_cannot_be_converted_are_asked) {
    files("first.dll;disk.dll;third.dll");
    log.modules["first.dll"] = {{7, u"first"}};
    log.broken = "convert";
    log.broken_at = 1;
    EXPECT_EQ(find(), "Drive C: is full.");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Cannot convert log line"));
    EXPECT_EQ(log.loaded, (std::vector<std::string>{"first.dll 2", "disk.dll 2"}));
    EXPECT_EQ(host.count_logged("above error(s)"), 0);
}

TEST_F(message_files, leave_an_empty_text_where_none_can_be_converted) {
    files("disk.dll;disk.dll");
    log.broken = "convert";
    EXPECT_EQ(find(), "");
    EXPECT_EQ(host.count_logged("Cannot convert log line"), 2);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "  above error(s) from \"disk.dll;disk.dll\""));
}

TEST_F(message_files, are_none_where_their_names_are_empty) {
    files("");
    EXPECT_EQ(find(), "");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "  above error(s) from \"\""));
    files(";;disk.dll;");
    EXPECT_EQ(find(), "Drive C: is full.");
}

// ---- parameters

TEST_F(parameter_references, are_replaced_by_messages_of_the_same_file) {
    log.modules["disk.dll"] = {{7, u"Logon: %%%%12, %1"}, {12, u"by %1\r\n"}};
    record.inserts = {u"%%12!"};
    EXPECT_EQ(find(), "Logon: by %1\r\n, by %1\r\n!");
    EXPECT_EQ(log.formatted, (std::vector<std::string>{"10240 7", "6912 12", "6912 12"})); // 0x2800, 0x1B00
}

TEST_F(parameter_references, are_replaced_by_messages_of_the_system) {
    log.modules["disk.dll"] = {{7, u"%1"}};
    log.system_messages[5] = u"Access is denied.";
    record.inserts = {u"%%5"};
    EXPECT_EQ(find(), "Access is denied.");
}

TEST_F(parameter_references, stay_where_there_is_no_such_message) {
    log.modules["disk.dll"] = {{7, u"%1"}};
    record.inserts = {u"a %%99 b %%"};
    EXPECT_EQ(find(), "a %%99 b %%");
}

TEST_F(parameter_references, need_a_digit) {
    log.modules["disk.dll"] = {{7, u"%1"}, {0, u"none"}, {1, u"one"}};
    record.inserts = {u"100%% %%x %1 %%%1 %"};
    EXPECT_EQ(find(), "100%% %%x %1 %one %");
}

TEST_F(parameter_references, are_not_looked_for_in_what_replaces_them) {
    log.modules["disk.dll"] = {{7, u"%1"}, {1, u"%%2"}, {2, u"two"}};
    record.inserts = {u"%%1"};
    EXPECT_EQ(find(), "%%2");
}

TEST_F(parameter_references, wrap_at_32_bits) {
    log.modules["disk.dll"] = {{7, u"%1"}, {4, u"four"}};
    record.inserts = {u"%%4294967300"};
    EXPECT_EQ(find(), "four");
}

TEST_F(parameter_references, are_cut_where_the_text_is_full) {
    log.modules["disk.dll"] = {{7, u"%1"}, {1, std::u16string(40'000, u'x')}};
    record.inserts = {u"%%1%%1%%1"};
    EXPECT_EQ(find(), std::string(65'535, 'x'));
}

// ---- skip_event_source

TEST_F(skip_event_source, compares_all_names_but_the_last_with_the_start) {
    EXPECT_TRUE(is_skipped_event_source("Foo,Bar", "Foobar"));
    EXPECT_TRUE(is_skipped_event_source("Foo,Bar", "Foo"));
    EXPECT_TRUE(is_skipped_event_source("Foo,Bar", "Bar"));
    EXPECT_FALSE(is_skipped_event_source("Foo,Bar", "Barfoo"));
    EXPECT_FALSE(is_skipped_event_source("Foo,Bar", "Ba"));
    EXPECT_FALSE(is_skipped_event_source("Foo,Bar", "Fo"));
    EXPECT_TRUE(is_skipped_event_source("Foo,Bar,Baz", "Barfoo"));
}

TEST_F(skip_event_source, compares_a_single_name_as_a_whole) {
    EXPECT_TRUE(is_skipped_event_source("Foo", "Foo"));
    EXPECT_FALSE(is_skipped_event_source("Foo", "Foobar"));
}

TEST_F(skip_event_source, minds_the_case) {
    EXPECT_FALSE(is_skipped_event_source("foo,bar", "Foo"));
    EXPECT_FALSE(is_skipped_event_source("foo,bar", "Bar"));
}

TEST_F(skip_event_source, skips_blanks_behind_a_comma_alone) {
    EXPECT_TRUE(is_skipped_event_source("Foo, \tBar", "Bar"));
    EXPECT_TRUE(is_skipped_event_source("Foo,  Bar,Baz", "Barfoo"));
    EXPECT_FALSE(is_skipped_event_source("Foo ,Bar", "Foo"));
    EXPECT_FALSE(is_skipped_event_source(" Foo,Bar", "Foo"));
    EXPECT_TRUE(is_skipped_event_source("Windows Update,x", "Windows Update Agent"));
}

TEST_F(skip_event_source, takes_an_empty_name_as_the_start_of_all_but_at_the_end) {
    EXPECT_TRUE(is_skipped_event_source(",Foo", "Bar"));
    EXPECT_TRUE(is_skipped_event_source("Foo,,Baz", "Bar"));
    EXPECT_FALSE(is_skipped_event_source("Foo,", "Bar"));
    EXPECT_FALSE(is_skipped_event_source("", "Bar"));
    EXPECT_TRUE(is_skipped_event_source("", ""));
}

TEST_F(skip_event_source, saves_the_way_to_the_message) {
    char list[] = "Dis,x";
    config.skip_event_source = list;
    EXPECT_EQ(find(), "<Skipping message from Disk, beacuse of skip_event_source setting>");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Skipping message, because of skip_event_source setting"));
    EXPECT_TRUE(registry.queried.empty());
    EXPECT_TRUE(log.loaded.empty());
}

TEST_F(skip_event_source, leaves_other_sources_alone) {
    char list[] = "Dis";
    config.skip_event_source = list;
    EXPECT_EQ(find(), "Drive C: is full.");
    config_in_force = nullptr;
    EXPECT_EQ(find(), "Drive C: is full.");
}
