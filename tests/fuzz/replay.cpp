// Runs the inputs of a fuzz target where there is no libFuzzer: each argument is a file or a folder of files.
#include "fuzz/fuzz_host.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

static void replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    std::string input((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
}

int main(int argc, char **argv) {
    int count = 0;
    for (int i = 1; i < argc; i++) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(argv[i]);
            count++;
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path());
            count++;
        }
    }
    printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
