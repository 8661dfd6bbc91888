// What stands in for the agent in tests of the host's answers: it gets the numbers of its two ends, and does
// what the words behind them say, one after the other.
//
//     say N        writes a byte
//     hear         ends with the byte that it reads
//     drain        reads until its pipe ends
//     hold         starts another one that holds the pipes until they end
//     pipe N       writes 1 if handle N is a pipe, else 0
//     streams      writes how many of the three standard streams are pipes or files
//     tell WORDS…  writes the words that follow, each with its zero byte
//     exit N       ends with this status
//     sleep        does nothing more
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <windows.h>

extern "C" {
int _dowildcard = 0;
}

static HANDLE read_end;
static HANDLE write_end;

static HANDLE handle_of(const char *number) {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(atoi(number)));
}

static void say(const void *bytes, size_t size) {
    DWORD written;
    WriteFile(write_end, bytes, static_cast<DWORD>(size), &written, nullptr);
}

static void say_number(int number) {
    auto sent = static_cast<uint8_t>(number);
    say(&sent, 1);
}

static bool hear(uint8_t *out) {
    DWORD got = 0;
    return ReadFile(read_end, out, 1, &got, nullptr) && got == 1;
}

static void drain() {
    uint8_t heard;
    while (hear(&heard)) {
    }
}

static void hold(char **argv) {
    std::string line = std::string("\"") + argv[0] + "\" " + argv[1] + " " + argv[2] + " drain";
    STARTUPINFOA start = {.cb = sizeof start};
    PROCESS_INFORMATION process;
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process))
        ExitProcess(99);
}

static int count_streams() {
    int count = 0;
    for (DWORD stream : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE})
        if (DWORD type = GetFileType(GetStdHandle(stream)); type == FILE_TYPE_PIPE || type == FILE_TYPE_DISK)
            count++;
    return count;
}

int main(int argc, char **argv) {
    if (argc < 3) return 98;
    read_end = handle_of(argv[1]);
    write_end = handle_of(argv[2]);
    for (int at = 3; at < argc; at++) {
        std::string word = argv[at];
        uint8_t heard = 0;
        if (word == "say") say_number(atoi(argv[++at]));
        if (word == "hear") return hear(&heard) ? heard : 97;
        if (word == "drain") drain();
        if (word == "hold") hold(argv);
        if (word == "pipe") say_number(GetFileType(handle_of(argv[++at])) == FILE_TYPE_PIPE ? 1 : 0);
        if (word == "streams") say_number(count_streams());
        if (word == "tell")
            while (++at < argc)
                say(argv[at], strlen(argv[at]) + 1);
        if (word == "exit") ExitProcess(static_cast<UINT>(strtoul(argv[++at], nullptr, 0)));
        if (word == "sleep") Sleep(INFINITE);
    }
    return 0;
}
