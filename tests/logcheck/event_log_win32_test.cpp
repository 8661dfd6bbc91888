#include "logcheck/event_log.h"
#include "logcheck/event_log_ops.h"

#include "fakes/scripted_event_log.h"
#include "fakes/test_host.h"
#include "logcheck/log_state.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "state/variables.h"

#include <gtest/gtest.h>
#include <windows.h>

class windows_event_log : public testing::Test {
protected:
    const event_log_ops *ops = &event_log_ops_host;
    char user[128] = "";
    char domain[128] = "";

    bool lookup(const std::string &sid, uint32_t user_size = sizeof user) {
        return ops->LookupAccountSidA(reinterpret_cast<const uint8_t *>(sid.data()), user, user_size, domain,
                                      sizeof domain);
    }
};

TEST_F(windows_event_log, is_opened_asked_and_closed) {
    event_log *log = ops->OpenEventLogA("Application");
    ASSERT_NE(log, nullptr);
    uint32_t oldest = 0x55AA55AA;
    uint32_t count = 0x55AA55AA;
    EXPECT_TRUE(ops->GetOldestEventLogRecord(log, &oldest));
    EXPECT_TRUE(ops->GetNumberOfEventLogRecords(log, &count));
    EXPECT_NE(oldest, 0x55AA55AAU);
    EXPECT_NE(count, 0x55AA55AAU);
    ops->CloseEventLog(log);
}

TEST_F(windows_event_log, leaves_a_reason_for_a_failed_read) {
    event_log *log = ops->OpenEventLogA("Application");
    ASSERT_NE(log, nullptr);
    uint8_t buffer[56];
    uint32_t read = 4711;
    uint32_t needed = 4711;
    SetLastError(0);
    // No record fits into as little, and where there is none the log is at its end.
    EXPECT_FALSE(ops->ReadEventLogW(log, EVENTLOG_SEQUENTIAL_READ | EVENTLOG_FORWARDS_READ, 0, buffer,
                                    sizeof buffer, &read, &needed));
    DWORD error = GetLastError();
    EXPECT_TRUE(error == ERROR_HANDLE_EOF || error == ERROR_INSUFFICIENT_BUFFER) << error;
    EXPECT_EQ(read, 0U);
    EXPECT_NE(needed, 4711U);
    ops->CloseEventLog(log);
}

TEST_F(windows_event_log, knows_the_accounts_of_the_machine) {
    ASSERT_TRUE(lookup(sid_bytes(1, 18)));
    EXPECT_STREQ(user, "SYSTEM");
    EXPECT_STRNE(domain, "");
    EXPECT_FALSE(lookup(sid_bytes(1, 18), 3));
    EXPECT_FALSE(lookup(sid_bytes(3, 99)));
}

TEST_F(windows_event_log, expands_references_to_the_environment) {
    SetEnvironmentVariableA("TN_EXPANDED", "value");
    char out[12];
    EXPECT_EQ(ops->ExpandEnvironmentStringsA("<%TN_EXPANDED%>", out, sizeof out), 8U);
    EXPECT_STREQ(out, "<value>");
    EXPECT_GT(ops->ExpandEnvironmentStringsA("<%TN_EXPANDED%%TN_EXPANDED%>", out, sizeof out), sizeof out);
    SetEnvironmentVariableA("TN_EXPANDED", nullptr);
}

TEST_F(windows_event_log, loads_and_frees_a_file_as_data) {
    message_module *module = ops->LoadLibraryExA("kernel32.dll", LOAD_LIBRARY_AS_DATAFILE);
    EXPECT_NE(module, nullptr);
    ops->FreeLibrary(module);
    SetLastError(0);
    EXPECT_EQ(ops->LoadLibraryExA("c:\\no such folder\\missing.dll", LOAD_LIBRARY_AS_DATAFILE), nullptr);
    EXPECT_NE(GetLastError(), 0U);
}

TEST_F(windows_event_log, converts_to_iso_8859_1) {
    char out[4];
    EXPECT_TRUE(ops->WideCharToMultiByte(ISO_8859_1, u"a\u00FC\u4E00", out, sizeof out));
    EXPECT_STREQ(out, "a\xFC?");
    SetLastError(0);
    EXPECT_FALSE(ops->WideCharToMultiByte(ISO_8859_1, u"abcd", out, sizeof out));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(windows_event_log, that_is_new_is_followed_from_its_end) {
    test_host host;
    var_reset();
    error_host = &error_ops_host;
    event_log_host = ops;
    devtree_guard top(heap_new<devtree>());
    top->id = text_copy("eventlog");
    devnode *device = alloc_devnode();
    device->id = text_copy("Application");
    devtree_add_devices(top.get(), device);
    EXPECT_SUCCESS(read_event_log(device, true));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Checked event log Application, 0 lines of which 0 matched"));
    event_log_host = nullptr;
    top.reset();
    EXPECT_EQ(host.blocks, 0);
}
