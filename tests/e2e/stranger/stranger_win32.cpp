// What the tests of the Windows agent need of its own host: a client of the command channel that says what no
// agent would, and a hand on the agent's process.
//
//     stranger ask HEX…   sends each message and prints its reply, one a line
//     stranger vanish     connects and goes away
//     stranger hold       connects, prints "connected", and stays until its input ends
//     stranger handles    prints how many handles the agent has
//     stranger fault      has the agent run into a fault
#include <cstdio>
#include <cstdlib>
#include <string>
#include <windows.h>

#include <tlhelp32.h>

static constexpr const char *PIPE_NAME = "\\\\.\\pipe\\Tarnix-agent-command";
static constexpr DWORD PATIENCE_MS = 20'000;

static int fail(const char *what) {
    fprintf(stderr, "%s: error %lu\n", what, GetLastError());
    return 1;
}

// Behind a client that was served, the agent needs a moment for the next one.
static HANDLE connect_client() {
    for (DWORD waited = 0; waited < PATIENCE_MS; waited += 10) {
        HANDLE pipe =
            CreateFileA(PIPE_NAME, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (pipe != INVALID_HANDLE_VALUE) {
            DWORD mode = PIPE_READMODE_MESSAGE;
            SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr);
            return pipe;
        }
        if (GetLastError() != ERROR_PIPE_BUSY) break;
        Sleep(10);
    }
    exit(fail("connect"));
}

static std::string bytes_of(const char *hex) {
    std::string bytes;
    for (; hex[0] != '\0' && hex[1] != '\0'; hex += 2) {
        char digits[] = {hex[0], hex[1], '\0'};
        bytes += static_cast<char>(strtoul(digits, nullptr, 16));
    }
    return bytes;
}

static int ask(const char *hex) {
    HANDLE pipe = connect_client();
    std::string message = bytes_of(hex);
    DWORD count = 0;
    char reply[2048];
    if (!WriteFile(pipe, message.data(), static_cast<DWORD>(message.size()), &count, nullptr))
        return fail("write");
    if (!ReadFile(pipe, reply, sizeof reply, &count, nullptr)) return fail("read");
    CloseHandle(pipe);
    printf("%.*s\n", static_cast<int>(count), reply);
    return 0;
}

static int hold() {
    HANDLE pipe = connect_client();
    puts("connected");
    fflush(stdout);
    while (getchar() != EOF) {
    }
    CloseHandle(pipe);
    return 0;
}

static HANDLE open_agent() {
    HANDLE list = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32 entry = {.dwSize = sizeof entry};
    for (BOOL more = Process32First(list, &entry); more; more = Process32Next(list, &entry))
        if (std::string(entry.szExeFile) == "tnagent.exe")
            return OpenProcess(PROCESS_ALL_ACCESS, FALSE, entry.th32ProcessID);
    exit(fail("find the agent"));
}

// The host's own count is always 0 under Wine.
static int count_handles() {
    HANDLE agent = open_agent();
    int count = 0;
    for (intptr_t number = 4; number < 0x4000; number += 4) {
        HANDLE copy;
        if (!DuplicateHandle(agent, reinterpret_cast<HANDLE>(number), GetCurrentProcess(), &copy, 0, FALSE,
                             DUPLICATE_SAME_ACCESS))
            continue;
        CloseHandle(copy);
        count++;
    }
    printf("%d\n", count);
    return count > 0 ? 0 : 1;
}

static int cause_fault() {
    auto nowhere = reinterpret_cast<LPTHREAD_START_ROUTINE>(8);
    HANDLE thread = CreateRemoteThread(open_agent(), nullptr, 0, nowhere, nullptr, 0, nullptr);
    return thread != nullptr ? 0 : fail("start a thread");
}

int main(int argc, char **argv) {
    std::string command = argc > 1 ? argv[1] : "";
    int status = 0;
    if (command == "ask")
        for (int at = 2; at < argc && status == 0; at++)
            status = ask(argv[at]);
    else if (command == "vanish")
        CloseHandle(connect_client());
    else if (command == "hold")
        status = hold();
    else if (command == "handles")
        status = count_handles();
    else if (command == "fault")
        status = cause_fault();
    else
        status = 2;
    return status;
}
