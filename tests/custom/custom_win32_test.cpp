#include "custom/real_programs.h"

#include <windows.h>

namespace {

struct windows_program : real_programs {
    // A handle of this process that others would inherit.
    HANDLE heritable = nullptr;

    windows_program() {
        SECURITY_ATTRIBUTES attributes = {.nLength = sizeof attributes, .bInheritHandle = TRUE};
        heritable = CreateEventA(&attributes, TRUE, FALSE, nullptr);
        // One of a high number, so that it is none of the program's own by chance.
        for (int i = 0; i < 200; i++) {
            HANDLE copy = nullptr;
            HANDLE self = GetCurrentProcess();
            DuplicateHandle(self, heritable, self, &copy, 0, TRUE, DUPLICATE_SAME_ACCESS);
            more.push_back(copy);
        }
        handles = count_open_handles();
    }
    ~windows_program() override {
        CloseHandle(heritable);
        for (HANDLE copy : more)
            CloseHandle(copy);
        handles = count_open_handles();
    }
    std::vector<HANDLE> more;
    std::string last_number() const {
        return std::to_string(static_cast<long long>(reinterpret_cast<intptr_t>(more.back())));
    }
};

} // namespace

TEST_F(windows_program, inherits_nothing_but_its_output) {
    run("handle " + last_number());
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : handle 0"));
}

TEST_F(windows_program, has_no_input) {
    run("input");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : input 0"));
}

TEST_F(windows_program, of_a_host_asks_nobody_about_errors) {
    SetErrorMode(0);
    run("exit 0");
    EXPECT_EQ(SetErrorMode(SEM_FAILCRITICALERRORS) & 0x8003U, 0x8003U);
}

TEST_F(windows_program, may_be_a_batch_file) {
    std::string path = folder.path + "/program.bat";
    std::ofstream(path) << "@echo off\r\necho Result: 17\r\nexit /b 0\r\n";
    for (char &c : path)
        if (c == '/') c = '\\';
    EXPECT_SUCCESS(run_command("\"" + path + "\""));
    EXPECT_EQ(result.value, 17);
}

TEST_F(windows_program, gives_an_exit_code_of_32_bits) {
    EXPECT_FAILURE(run("exit -1073741819"), "Failed with exit code -1073741819");
}

TEST_F(windows_program, that_cannot_be_started_leaves_nothing) {
    for (int i = 0; i < 10; i++) {
        EXPECT_NE(run_command("C:\\nowhere\\x.exe"), nullptr);
        EXPECT_NE(start_action("a", "C:\\nowhere\\x.exe"), nullptr);
    }
}
