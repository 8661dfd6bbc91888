#include "logcheck/event_line.h"

#include "fakes/scripted_event_log.h"
#include "fakes/scripted_registry.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"

#include <gtest/gtest.h>

class event_line : public testing::Test {
protected:
    test_host host;
    scripted_registry registry;
    scripted_event_log log;
    event_bytes record;
    std::unique_ptr<event_texts> texts = std::make_unique<event_texts>();

    void SetUp() override {
        register_source("Disk");
        log.modules["m.dll"] = {{7, u"text"}};
    }
    void TearDown() override {
        registry_host = nullptr;
        EXPECT_EQ(host.blocks, 0);
        EXPECT_EQ(registry.open_keys, 0);
        EXPECT_EQ(log.open_modules, 0);
    }

    void register_source(const std::string &name) {
        registry.set(MACHINE_HIVE, "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\" + name,
                     "EventMessageFile", "m.dll");
    }
    bool make(const std::string &bytes) {
        event_record decoded = {};
        EXPECT_TRUE(decode_event_record(reinterpret_cast<const uint8_t *>(bytes.data()),
                                        static_cast<uint32_t>(bytes.size()), &decoded));
        return make_event_line("System", &decoded, texts.get());
    }
    std::string line() {
        EXPECT_TRUE(make(record.make()));
        return texts->line;
    }
};

TEST_F(event_line, has_seven_fields) {
    log.accounts[sid_bytes(1, 18)] = "SYSTEM";
    record = {.id = 7, .type = 2, .category = 300, .user = sid_bytes(1, 18)};
    EXPECT_EQ(line(), "Warning:Disk:300:7:SYSTEM:HOST:text");
    EXPECT_TRUE(host.logged(LOG_TRACE, "User is SYSTEM"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Source is Disk"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "* About to build log line"));
    EXPECT_EQ(log.sizes, std::vector<uint32_t>{65'536});
}

TEST_F(event_line, escapes_nothing) {
    log.modules["m.dll"][7] = u"a:b\r\n\"c\"";
    EXPECT_EQ(line(), "Information:Disk:3:7:N/A:HOST:a:b\r\n\"c\"");
}

TEST_F(event_line, starts_with_the_word_for_the_type) {
    const std::map<uint16_t, std::string> words = {
        {4, "Information"}, {2, "Warning"}, {1, "Error"},    {8, "AuditSuccess"}, {16, "AuditFailure"},
        {0, "Unknown"},     {3, "Unknown"}, {32, "Unknown"}, {0xFFFF, "Unknown"}};
    for (const auto &[type, word] : words) {
        record.type = type;
        EXPECT_EQ(line(), word + ":Disk:3:7:N/A:HOST:text");
    }
}

TEST_F(event_line, holds_the_low_16_bits_of_the_number) {
    record.id = 0xC0000007;
    log.modules["m.dll"][0xC0000007] = u"text";
    EXPECT_EQ(line(), "Information:Disk:3:7:N/A:HOST:text");
    record.id = 0x1FFFF;
    EXPECT_EQ(line(), "Information:Disk:3:65535:N/A:HOST:<FormatMessage(\"m.dll\", 131071): system error 0>");
}

TEST_F(event_line, has_no_user_where_the_record_has_none) {
    EXPECT_EQ(line(), "Information:Disk:3:7:N/A:HOST:text");
    EXPECT_TRUE(host.logged(LOG_TRACE, "User is N/A"));
}

TEST_F(event_line, has_an_unknown_user_where_nobody_knows_him) {
    record.user = sid_bytes(1, 99);
    EXPECT_EQ(line(), "Information:Disk:3:7:<unknown>:HOST:text");
}

TEST_F(event_line, has_an_unknown_user_where_his_identifier_is_broken) {
    record.user = sid_bytes(5, 1).substr(0, 20);
    log.sizes.clear();
    EXPECT_EQ(line(), "Information:Disk:3:7:<unknown>:HOST:text");
    EXPECT_EQ(log.sizes.size(), 1U); // of the message; nobody was asked
}

TEST_F(event_line, has_a_user_of_up_to_127_characters) {
    record.user = sid_bytes(1, 18);
    log.accounts[record.user] = std::string(127, 'u');
    EXPECT_EQ(line(), "Information:Disk:3:7:" + std::string(127, 'u') + ":HOST:text");
    log.accounts[record.user] = std::string(128, 'u');
    EXPECT_EQ(line(), "Information:Disk:3:7:<unknown>:HOST:text");
}

TEST_F(event_line, asks_for_a_domain_of_128_characters) {
    record.user = sid_bytes(1, 18);
    log.broken = "lookup";
    record.source = u"None"; // so that no message is looked for
    line();
    EXPECT_EQ(log.sizes, (std::vector<uint32_t>{128, 128}));
}

TEST_F(event_line, has_names_of_up_to_1023_characters) {
    record.source = std::u16string(1023, u's');
    record.computer = std::u16string(1023, u'c');
    EXPECT_EQ(line(), "Information:" + std::string(1023, 's') + ":3:7:N/A:" + std::string(1023, 'c') +
                          ":<Cannot format message (2)>");
    record.source += u's';
    record.computer += u'c';
    EXPECT_EQ(line(), "Information::3:7:N/A::<Cannot format message (2)>");
}

TEST_F(event_line, has_an_empty_name_where_one_cannot_be_converted) {
    log.broken = "convert";
    log.broken_at = 2;
    EXPECT_EQ(line(), "Information:Disk:3:7:N/A::text");
}

TEST_F(event_line, has_empty_names_where_they_have_no_end) {
    std::string bytes = record.make().substr(0, 60);
    put_number(bytes, 0, 60, 4);
    EXPECT_TRUE(make(bytes));
    EXPECT_STREQ(texts->line, "Information::3:7:N/A::<Cannot format message (2)>");
}

TEST_F(event_line, is_cut_at_65535_characters) {
    log.modules["m.dll"][7] = std::u16string(65'535, u'x');
    std::string head = "Information:Disk:3:7:N/A:HOST:";
    EXPECT_EQ(line(), head + std::string(65'535 - head.size(), 'x'));
    log.modules["m.dll"][7] = std::u16string(65'535 - head.size(), u'x');
    EXPECT_EQ(line(), head + std::string(65'535 - head.size(), 'x'));
}

TEST_F(event_line, is_for_nobody_where_the_message_cannot_be_decoded) {
    registry.keys.clear();
    registry.set(MACHINE_HIVE, "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\Disk", "ProviderGuid",
                 "{0}");
    EXPECT_FALSE(make(record.make()));
    EXPECT_TRUE(host.logged(LOG_TRACE, "* About to build log line"));
}
