// A check of an event log above the host's own calls, with records in the place of those of its logs: their
// messages stand in a library beside this program, and the registry names it.

#include "fakes/scripted_event_log.h"
#include "fakes/test_host.h"
#include "logcheck/event_line.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/registry.h"

#include "fakes/scratch_hives_win32.h" // brings the host's own names with it

#include <gtest/gtest.h>
#include <string>

class event_texts_of_host : public testing::Test {
protected:
    test_host host;
    scratch_hives hives;
    event_bytes record = {.inserts = {u"C:", u"full"}};
    std::unique_ptr<event_texts> texts = std::make_unique<event_texts>();
    std::string folder; // of this program and of the library

    void SetUp() override {
        error_host = &error_ops_host;
        registry_host = &registry_ops_host;
        event_log_host = &event_log_ops_host;
        char program[MAX_PATH];
        ASSERT_NE(GetModuleFileNameA(nullptr, program, sizeof program), 0U);
        folder.assign(program, strrchr(program, '\\'));
        SetEnvironmentVariableA("TN_TEXTS", folder.c_str());
        set_files("%TN_TEXTS%\\event_texts.dll");
    }
    void TearDown() override {
        SetEnvironmentVariableA("TN_TEXTS", nullptr);
        event_log_host = nullptr;
        registry_host = nullptr;
        EXPECT_EQ(host.blocks, 0);
    }

    static void set_files(const std::string &names) {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyA(HKEY_LOCAL_MACHINE,
                                "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Sys\\Disk", &key),
                  ERROR_SUCCESS);
        RegSetValueExA(key, "EventMessageFile", 0, REG_EXPAND_SZ,
                       reinterpret_cast<const BYTE *>(names.c_str()), static_cast<DWORD>(names.size() + 1));
        RegCloseKey(key);
    }
    std::string message() {
        std::string bytes = record.make();
        event_record decoded = {};
        EXPECT_TRUE(decode_event_record(reinterpret_cast<const uint8_t *>(bytes.data()),
                                        static_cast<uint32_t>(bytes.size()), &decoded));
        make_event_line("Sys", &decoded, texts.get());
        return texts->message.text;
    }
    static std::string words_for(uint32_t code) { return error_text(code); }
};

TEST_F(event_texts_of_host, hold_the_inserts_of_the_record) {
    EXPECT_EQ(message(), "Drive C: is full.\r\n");
    EXPECT_STREQ(texts->line, "Information:Disk:3:7:N/A:HOST:Drive C: is full.\r\n");
}

TEST_F(event_texts_of_host, are_found_by_the_whole_number) {
    record.id = 0xC0000007;
    EXPECT_EQ(message(), "Drive C: failed.\r\n");
}

TEST_F(event_texts_of_host, have_blanks_in_the_place_of_missing_inserts) {
    record = {.id = 8, .inserts = {u"one"}};
    EXPECT_EQ(message(), "<one><><>\r\n");
}

TEST_F(event_texts_of_host, hold_the_texts_of_parameters) {
    record = {.id = 9, .inserts = {u"%%5001"}};
    EXPECT_EQ(message(),
              "Type batch %1, batch %1, %%5002\r\n"); // with the parameters' own inserts as they are
}

TEST_F(event_texts_of_host, hold_the_system_s_texts_of_parameters) {
    record = {.id = 7, .inserts = {u"%%2", u"%%1392"}};
    std::string all = message();
    EXPECT_EQ(all.find("%%"), std::string::npos) << all;
    EXPECT_NE(all.find(words_for(2)), std::string::npos) << all;
}

TEST_F(event_texts_of_host, are_iso_8859_1) {
    record.inserts = {u"\u00FC", u"\u4E00"};
    EXPECT_EQ(message(), "Drive \xFC is ?.\r\n");
}

TEST_F(event_texts_of_host, say_which_number_is_missing) {
    record.id = 0x10007;
    EXPECT_EQ(message().substr(0, 16), "<FormatMessage(\"");
    EXPECT_NE(message().find("\\event_texts.dll\", 65543): " + words_for(317) + ">"), std::string::npos)
        << message();
}

TEST_F(event_texts_of_host, say_which_file_is_missing) {
    set_files("c:\\no such folder\\missing.dll");
    std::string start = "<LoadLibrary(\"c:\\no such folder\\missing.dll\") error: ";
    std::string failure = message();
    EXPECT_TRUE(failure == start + words_for(ERROR_FILE_NOT_FOUND) + ">" ||
                failure == start + words_for(ERROR_PATH_NOT_FOUND) + ">" ||
                failure == start + words_for(ERROR_MOD_NOT_FOUND) + ">")
        << failure;
}

TEST_F(event_texts_of_host, leave_their_file_free) {
    EXPECT_EQ(message(), "Drive C: is full.\r\n");
    EXPECT_EQ(GetModuleHandleA("event_texts.dll"), nullptr);
    HANDLE file = CreateFileA((folder + "\\event_texts.dll").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                              0, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE); // nobody else has it open
    CloseHandle(file);
}

TEST_F(event_texts_of_host, are_missing_where_the_source_has_no_key) {
    record.source = u"Unknown";
    EXPECT_EQ(message(), "<Cannot format message (2)>");
}
