// Real processes of this host.
#include "probes/os/processes.h"

#include "probes/os/asked_processes.h"

#include <algorithm>
#include <windows.h>

using windows_processes = real_processes;

INSTANTIATE_TEST_SUITE_P(ways, windows_processes, testing::Values(false, true), way_to_processes);

TEST_P(windows_processes, offer_this_one) {
    std::vector<std::string> found = scanned_processes();
    EXPECT_NE(std::find(found.begin(), found.end(), "probes_os_tests.exe"), found.end());
    EXPECT_EQ(checked_process("PROBES_os_tests.EXE"), 1);
    EXPECT_EQ(checked_process("no such process.exe"), 0);
}

TEST_P(windows_processes, are_missing_once_they_have_ended) {
    char command[] = "winver.exe";
    STARTUPINFOA start = {};
    start.cb = sizeof start;
    PROCESS_INFORMATION started = {};
    // It never gets to its first instruction.
    ASSERT_TRUE(CreateProcessA(nullptr, command, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr,
                               &start, &started));
    EXPECT_EQ(checked_process("winver.exe"), GetParam() ? checked_process("winver.exe") : 1)
        << "the old way needs its modules";
    TerminateProcess(started.hProcess, 0);
    WaitForSingleObject(started.hProcess, INFINITE);
    CloseHandle(started.hThread);
    CloseHandle(started.hProcess);
    EXPECT_EQ(checked_process("winver.exe"), 0);
}

TEST(windows_process_ops, look_the_snapshot_up) {
    EXPECT_FALSE(processes_ops_host.GetModuleHandleA("no such module.dll"));
    ASSERT_TRUE(processes_ops_host.GetModuleHandleA("ntdll.dll"));
    EXPECT_FALSE(processes_ops_host.GetProcAddress("NoSuchFunction"));
    EXPECT_TRUE(processes_ops_host.GetProcAddress("ZwQuerySystemInformation"));
}

TEST(windows_process_ops, tell_a_buffer_that_is_too_small_from_a_failure) {
    error_host = &error_ops_host;
    ASSERT_TRUE(processes_ops_host.GetModuleHandleA("ntdll.dll"));
    ASSERT_TRUE(processes_ops_host.GetProcAddress("ZwQuerySystemInformation"));
    alignas(8) uint8_t room[64] = {};
    EXPECT_EQ(processes_ops_host.ZwQuerySystemInformation(5, room, sizeof room), STATUS_INFO_LENGTH_MISMATCH);
    SetLastError(0);
    EXPECT_LT(processes_ops_host.ZwQuerySystemInformation(0xFFFF, room, sizeof room), 0);
    EXPECT_NE(last_error(), 0U) << "the status has become a reason";
}

TEST(windows_process_ops, open_no_process_that_is_not_there) {
    error_host = &error_ops_host;
    EXPECT_EQ(processes_ops_host.OpenProcess(0x410, 0x7FFFFFF0), nullptr);
    EXPECT_NE(last_error(), 0U);
}

TEST(windows_process_ops, name_the_program_of_a_process) {
    process *self = processes_ops_host.OpenProcess(0x410, GetCurrentProcessId());
    ASSERT_NE(self, nullptr);
    process_module *program = nullptr;
    uint32_t needed = 0;
    ASSERT_TRUE(processes_ops_host.EnumProcessModules(self, &program, 8, &needed));
    EXPECT_GE(needed, 8U);
    char name[128];
    EXPECT_TRUE(processes_ops_host.GetModuleBaseNameA(self, program, name, sizeof name));
    EXPECT_STREQ(name, "probes_os_tests.exe");
    EXPECT_FALSE(processes_ops_host.GetModuleBaseNameA(self, reinterpret_cast<process_module *>(8), name,
                                                       sizeof name));
    processes_ops_host.CloseHandle(self);
}
