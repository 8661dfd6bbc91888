// The host's own answers, with a program of the tests' own in the place of the agent.
#include "launcher/launcher_ops.h"

#include "fakes/open_handles.h"
#include "launcher/command_line.h"
#include "launcher/service_win32.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/heap.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <shellapi.h>
#include <thread>

namespace {

namespace fs = std::filesystem;

using words = std::vector<std::string>;

const launcher_ops &host = launcher_ops_host;

struct child {
    agent_pipes pipes = {};
    int64_t process = 0;

    explicit child(const words &script) {
        EXPECT_TRUE(host.make_pipes(&pipes));
        EXPECT_TRUE(start(LAUNCHER_CHILD, script)) << last_error();
        host.close_end(pipes.agent_read);
        host.close_end(pipes.agent_write);
    }
    ~child() {
        close(&pipes.read);
        close(&pipes.write);
    }
    bool start(const char *program, const words &script) {
        words all = {program, std::to_string(pipes.agent_read), std::to_string(pipes.agent_write)};
        all.insert(all.end(), script.begin(), script.end());
        std::vector<const char *> line;
        for (const std::string &word : all)
            line.push_back(word.c_str());
        line.push_back(nullptr);
        return host.start(line.data(), &pipes, &process);
    }
    static void close(int32_t *end) {
        if (*end != 0) host.close_end(*end);
        *end = 0;
    }
    launcher_event wait(int64_t milliseconds = 20'000) const {
        return host.wait(pipes.read, process, milliseconds);
    }
    launcher_event wait_for_end() const { return host.wait(0, process, 20'000); }
    // Of the end that comes next; Wine may tell it ahead of the pipe's.
    int32_t status() const {
        launcher_event event = wait();
        if (event.kind == EVENT_PIPE_END) event = wait_for_end();
        EXPECT_EQ(event.kind, EVENT_EXIT);
        return event.status;
    }
    // All that it says until it ends, which it does in order.
    std::string hear_all() const {
        std::string heard;
        launcher_event event = wait();
        for (; event.kind == EVENT_BYTE; event = wait())
            heard += static_cast<char>(event.byte);
        if (event.kind == EVENT_PIPE_END) event = wait_for_end();
        EXPECT_EQ(event.kind, EVENT_EXIT);
        EXPECT_EQ(event.status, 0);
        return heard;
    }
};

// Until the process has ended, which no wait of the launcher's is told yet.
void wait_for_death(const child &agent) {
    HANDLE process = reinterpret_cast<HANDLE>(static_cast<intptr_t>(agent.process));
    EXPECT_EQ(WaitForSingleObject(process, 20'000), DWORD{WAIT_OBJECT_0});
}

// How the host takes a command line apart.
words taken_apart(const std::string &line) {
    int count = 0;
    std::wstring wide(line.begin(), line.end());
    wchar_t **parts = CommandLineToArgvW(wide.c_str(), &count);
    words all;
    for (int i = 0; i < count; i++) {
        std::wstring part = parts[i];
        std::string narrow;
        for (wchar_t c : part)
            narrow += static_cast<char>(c);
        all.push_back(narrow);
    }
    LocalFree(parts);
    return all;
}

const words DIFFICULT = {"plain",        "",          "two words", "a\ttab",   "say \"yes\"", "\"",     "\\",
                         "C:\\end\\",    "C:\\a b\\", "a\\\"b",    "a\\\\\"b", "\\\\\\\"",    "-l",     "*",
                         "every file.*", "a\\ b",     "it's",      "%PATH%",   "x\"y z\\\\",  "\\\\ \\"};

class launcher_on_host : public testing::Test {
protected:
    launcher_on_host() {
        error_host = &error_ops_host;
        event_host = &event_ops_host;
        launcher_host = &launcher_ops_host;
    }
};

// Under Wine a program takes the newest service's pipe for its own, and waits ten seconds at it. A number
// that no pipe has spares that.
void name_no_service_pipe() {
    if (GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") == nullptr) return;
    DWORD number = 9999;
    RegSetKeyValueA(HKEY_LOCAL_MACHINE, "SYSTEM\\CurrentControlSet\\Control\\ServiceCurrent", nullptr,
                    REG_DWORD, &number, sizeof number);
}

} // namespace

// The service manager has not started this program.
TEST_F(launcher_on_host, serves_at_once_where_a_console_has_started_it) {
    name_no_service_pipe();
    EXPECT_EQ(host.serve([] { return 7; }), 7);
}

TEST_F(launcher_on_host, tells_what_the_agent_has_said_before_its_end) {
    child agent({"say", "1", "say", "2", "exit", "3"});
    wait_for_death(agent);
    launcher_event event = agent.wait();
    EXPECT_EQ(event.kind, EVENT_BYTE);
    EXPECT_EQ(event.byte, 1);
    EXPECT_EQ(agent.wait().byte, 2);
    EXPECT_EQ(agent.status(), 3);
}

TEST_F(launcher_on_host, waits_for_what_the_agent_says) {
    child agent({"drain", "say", "9", "sleep"});
    EXPECT_EQ(agent.wait(1).kind, EVENT_TIMEOUT);
    child::close(&agent.pipes.write);
    launcher_event event = agent.wait();
    EXPECT_EQ(event.kind, EVENT_BYTE);
    EXPECT_EQ(event.byte, 9);
    EXPECT_EQ(agent.wait(1).kind, EVENT_TIMEOUT);
    host.kill(agent.process);
    EXPECT_EQ(agent.status(), 1);
}

TEST_F(launcher_on_host, tells_a_death_by_a_fault) {
    child agent({"exit", "0xC0000005"});
    launcher_event event = agent.wait_for_end();
    EXPECT_EQ(event.kind, EVENT_EXIT);
    EXPECT_EQ(event.status, static_cast<int32_t>(0xC0000005));
}

TEST_F(launcher_on_host, tells_an_end_although_somebody_else_holds_the_pipe) {
    child agent({"hold", "exit", "5"}); // until our end is closed
    launcher_event event = agent.wait();
    EXPECT_EQ(event.kind, EVENT_EXIT);
    EXPECT_EQ(event.status, 5);
}

TEST_F(launcher_on_host, brings_a_byte_to_the_agent) {
    child agent({"hear"});
    EXPECT_TRUE(host.write_byte(agent.pipes.write, 42));
    EXPECT_EQ(agent.wait_for_end().status, 42);
}

TEST_F(launcher_on_host, shows_the_agent_the_end_of_the_pipe) {
    child agent({"drain", "exit", "4"});
    child::close(&agent.pipes.write);
    EXPECT_EQ(agent.wait_for_end().status, 4);
}

TEST_F(launcher_on_host, survives_a_byte_to_an_agent_that_is_gone) {
    child agent({"exit", "0"});
    EXPECT_EQ(agent.wait_for_end().kind, EVENT_EXIT);
    while (host.write_byte(agent.pipes.write, 0)) // until the host has closed what was the agent's
        Sleep(1);
}

TEST_F(launcher_on_host, tells_each_stop_once) {
    SetEvent(stop_wanted());
    EXPECT_EQ(host.wait(0, 0, 20'000).kind, EVENT_STOP);
    EXPECT_EQ(host.wait(0, 0, 1).kind, EVENT_TIMEOUT);
}

TEST_F(launcher_on_host, is_woken_by_a_stop) {
    std::thread stopper([] { SetEvent(stop_wanted()); });
    EXPECT_EQ(host.wait(0, 0, WAIT_FOR_EVER).kind, EVENT_STOP);
    stopper.join();
}

TEST_F(launcher_on_host, keeps_no_stop_away_from_an_agent_that_talks_without_end) {
    child agent({"say", "1", "say", "1", "exit", "0"});
    wait_for_death(agent);
    SetEvent(stop_wanted());
    EXPECT_EQ(agent.wait().kind, EVENT_STOP);
    EXPECT_EQ(agent.wait().kind, EVENT_BYTE); // which is not lost by that
    EXPECT_EQ(agent.wait().kind, EVENT_BYTE);
    EXPECT_EQ(agent.status(), 0);
}

TEST_F(launcher_on_host, says_that_a_file_is_no_program) {
    agent_pipes pipes;
    ASSERT_TRUE(host.make_pipes(&pipes));
    for (const char *file : {"C:\\does\\not\\exist.exe", "C:\\windows\\win.ini", "C:\\windows"}) {
        const char *line[] = {file, nullptr};
        int64_t process;
        EXPECT_FALSE(host.start(line, &pipes, &process)) << file;
        EXPECT_NE(last_error(), 0U);
    }
    for (int32_t end : {pipes.read, pipes.write, pipes.agent_read, pipes.agent_write})
        host.close_end(end);
}

TEST_F(launcher_on_host, hands_the_two_ends_on_and_nothing_else) {
    agent_pipes others;
    ASSERT_TRUE(host.make_pipes(&others)); // whose ends could be inherited too
    words script;
    for (int32_t end : {others.agent_read, others.agent_write, others.read, others.write}) {
        script.emplace_back("pipe");
        script.push_back(std::to_string(end));
    }
    script.emplace_back("streams");
    child agent(script);
    EXPECT_EQ(agent.hear_all(), std::string(5, '\0'));
    for (int32_t end : {others.read, others.write, others.agent_read, others.agent_write})
        host.close_end(end);
}

TEST_F(launcher_on_host, hands_every_word_on_as_it_is) {
    words script = {"tell"};
    script.insert(script.end(), DIFFICULT.begin(), DIFFICULT.end());
    std::string expected;
    for (const std::string &word : DIFFICULT)
        expected += word + '\0';
    child agent(script);
    EXPECT_EQ(agent.hear_all(), expected);
}

TEST_F(launcher_on_host, takes_command_lines_apart_as_they_were_joined) {
    std::vector<const char *> line = {"C:\\Program Files\\tnlauncher.exe"};
    words expected = {line[0]};
    for (const std::string &word : DIFFICULT)
        line.push_back(word.c_str());
    expected.insert(expected.end(), DIFFICULT.begin(), DIFFICULT.end());
    line.push_back(nullptr);
    text_guard joined(join_words(line.data()));
    EXPECT_EQ(taken_apart(joined.get()), expected);
}

TEST_F(launcher_on_host, leaves_no_handle_behind_an_agent) {
    auto live = [] {
        child agent({"say", "1"});
        agent.hear_all();
    };
    live();
    int before = count_open_handles();
    live();
    EXPECT_EQ(count_open_handles(), before);
}

TEST_F(launcher_on_host, locks_a_folder_against_another_launcher) {
    fs::path folder = fs::temp_directory_path() / ("tnlauncher_" + std::to_string(GetCurrentProcessId()));
    fs::create_directory(folder);
    fs::path before = fs::current_path();
    EXPECT_FALSE(host.enter_folder((folder / "not").string().c_str()));
    EXPECT_EQ(last_error(), uint32_t{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(host.enter_folder(folder.string().c_str()));
    EXPECT_TRUE(fs::equivalent(fs::current_path(), folder));
    EXPECT_TRUE(host.lock_folder("lock"));
    EXPECT_FALSE(host.lock_folder("lock"));
    EXPECT_EQ(last_error(), uint32_t{ERROR_SHARING_VIOLATION});
    EXPECT_FALSE(host.lock_folder("not\\lock"));
    fs::current_path(before);
}

TEST_F(launcher_on_host, keeps_the_program_with_the_data_of_all_programs) {
    char folder[64];
    auto usual = [&] { return host.default_folder(folder, sizeof folder) ? std::string(folder) : "none"; };
    SetEnvironmentVariableA("ProgramData", "D:\\Data");
    EXPECT_EQ(usual(), "D:\\Data\\Tarnix\\program");
    SetEnvironmentVariableA("ProgramData", std::string(50, 'x').c_str());
    EXPECT_EQ(usual(), "none");
    SetEnvironmentVariableA("ProgramData", std::string(300, 'x').c_str());
    EXPECT_EQ(usual(), "none");
    SetEnvironmentVariableA("ProgramData", nullptr);
    EXPECT_EQ(usual(), "none");
}

TEST_F(launcher_on_host, makes_paths_whole) {
    char path[512];
    EXPECT_TRUE(host.full_path("C:\\a\\b", path, sizeof path));
    EXPECT_STREQ(path, "C:\\a\\b");
    EXPECT_TRUE(host.full_path("b", path, sizeof path));
    EXPECT_EQ(path, (fs::current_path() / "b").string());
    EXPECT_FALSE(host.full_path("C:\\a\\b", path, 4));
}

TEST_F(launcher_on_host, has_a_clock_that_goes_on) {
    int64_t before = host.now_ms();
    Sleep(50);
    EXPECT_GE(host.now_ms(), before + 30);
}

// The texts of the events, in the file that the source of events names.
TEST_F(launcher_on_host, brings_the_texts_of_events) {
    HMODULE program = LoadLibraryExA(TNLAUNCHER, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    char text[] = "100% of the words";
    char *inserts[] = {text};
    char buffer[64] = "";
    FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, program, EVENT_ID_ERROR, 0,
                   buffer, sizeof buffer, reinterpret_cast<va_list *>(inserts));
    FreeLibrary(program);
    EXPECT_STREQ(buffer, "100% of the words\r\n");
}
