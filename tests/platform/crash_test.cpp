#include "platform/crash.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/fatal.h"
#include "platform/files.h"

#include <gtest/gtest.h>

// A host with a dump library, whose calls a test can make fail.
class crash : public testing::Test {
protected:
    test_host host;
    static inline crash *self;
    bool has_library = true;
    bool has_function = true;
    uint32_t create_code = 0;
    uint32_t write_code = 0;
    std::string folder;
    std::vector<std::string> calls;
    crash_ops ops = {
        .install = [](const char *where) { self->folder = where; },
        .LoadLibraryA = []() -> void * { return self->has_library ? self : nullptr; },
        .GetProcAddress = [](void *) -> void * { return self->has_function ? self : nullptr; },
        .CreateFileA = create,
        .MiniDumpWriteDump = write,
        .CloseHandle = [](intptr_t) { self->calls.push_back("close"); },
        .FreeLibrary = [](void *library) { self->calls.push_back(library ? "free" : "free nothing"); },
        .MessageBoxA = [](const char *title,
                          const char *text) { self->calls.push_back(std::string(title) + ": " + text); },
    };

    void SetUp() override {
        self = this;
        crash_host = &ops;
        host.program = "C:\\agent\\tnagent.exe";
    }
    void TearDown() override { crash_reset(); }

    static intptr_t create(const char *path) {
        self->calls.push_back(std::string("create ") + path);
        the_host->last_error = self->create_code;
        return self->create_code == 0 ? 5 : NO_FILE;
    }
    static bool write(void *, intptr_t, void *) {
        self->calls.push_back("write");
        the_host->last_error = self->write_code;
        return self->write_code == 0;
    }
    // What the handler tells of a fault.
    int32_t fault() {
        install_crash_handler(crash_message);
        return crash_filter(nullptr);
    }
    void expect_told(const std::string &text) {
        EXPECT_TRUE(host.logged(LOG_DETAIL, text));
        ASSERT_EQ(host.events.size(), 1U);
        EXPECT_EQ(host.events[0].message, text);
        EXPECT_TRUE(host.events[0].error);
    }
};

static std::string detected(const std::string &path) {
    return "An application error has been detected. Please report this error and submit the dump file in '" +
           path + "' along with your error report";
}

TEST_F(crash, leaves_a_dump_beside_the_program_and_a_line) {
    EXPECT_EQ(fault(), 1);
    expect_told(detected("C:\\agent\\tnagent.dmp"));
    EXPECT_EQ(calls, (std::vector<std::string>{"create C:\\agent\\tnagent.dmp", "write", "close", "free"}));
}

TEST_F(crash, of_a_program_without_a_suffix_appends_its_own) {
    host.program = "C:\\agent\\tnagent";
    EXPECT_EQ(fault(), 1);
    EXPECT_EQ(calls[0], "create C:\\agent\\tnagent.dmp");
}

TEST_F(crash, takes_the_last_point_of_the_path_for_that_of_the_suffix) {
    host.program = "C:\\agent.old\\tnagent";
    EXPECT_EQ(fault(), 1);
    EXPECT_EQ(calls[0], "create C:\\agent.dmp");
}

TEST_F(crash, of_a_program_without_a_path_has_a_dump_too) {
    host.program = "";
    EXPECT_EQ(fault(), 1);
    EXPECT_EQ(calls[0], "create marquent.dmp");
}

TEST_F(crash, in_a_deep_folder_has_a_line_longer_than_a_failure_text) {
    std::string deep = "C:\\" + std::string(230, 'd') + "\\";
    host.program = deep + "tnagent.exe";
    EXPECT_EQ(fault(), 1);
    expect_told(detected(deep + "tnagent.dmp"));
}

TEST_F(crash, writes_over_an_earlier_dump) {
    fault();
    crash_filter(nullptr);
    EXPECT_EQ(calls[0], calls[4]);
}

TEST_F(crash, without_the_library_is_left_to_the_host) {
    has_library = false;
    EXPECT_EQ(fault(), 0);
    expect_told("dbghelp.dll not found");
    EXPECT_EQ(calls, std::vector<std::string>{"free nothing"});
}

TEST_F(crash, with_an_old_library_is_left_to_the_host) {
    has_function = false;
    EXPECT_EQ(fault(), 0);
    expect_told("dbghelp.dll too old");
    EXPECT_EQ(calls, std::vector<std::string>{"free"});
}

TEST_F(crash, whose_dump_cannot_be_made_says_why) {
    create_code = 5;
    EXPECT_EQ(fault(), 0);
    expect_told("Failed to create dump file 'C:\\agent\\tnagent.dmp' (error 5)");
    EXPECT_EQ(calls.back(), "free");
    EXPECT_EQ(calls.size(), 2U);
}

TEST_F(crash, whose_dump_cannot_be_written_says_why) {
    write_code = 112;
    EXPECT_EQ(fault(), 0);
    expect_told("Failed to save dump file to 'C:\\agent\\tnagent.dmp' (error 112)");
    EXPECT_EQ(calls[2], "close");
}

TEST_F(crash, is_shown_where_nobody_takes_its_line) {
    crash_filter(nullptr);
    EXPECT_EQ(calls[3], "Dump generated: " + detected("C:\\agent\\tnagent.dmp"));
    EXPECT_EQ(calls[4], "free");
    EXPECT_EQ(host.events.size(), 0U);
}

TEST_F(crash, on_a_host_that_writes_cores_tells_where_one_lands) {
    host.program = "/opt/agent/tnagent";
    install_crash_handler(crash_message);
    EXPECT_EQ(folder, "/opt/agent/");
    crash_signalled();
    expect_told(detected("/opt/agent/core"));
}

TEST_F(crash, knows_a_folder_with_a_long_name) {
    host.program = "/" + std::string(600, 'x') + "/tnagent";
    install_crash_handler(crash_message);
    EXPECT_EQ(folder, "/" + std::string(600, 'x') + "/");
}

TEST_F(crash, without_a_path_of_the_program_names_the_working_directory) {
    host.program = "";
    install_crash_handler(crash_message);
    EXPECT_EQ(folder, "");
    crash_signalled();
    expect_told(detected("core"));
}
