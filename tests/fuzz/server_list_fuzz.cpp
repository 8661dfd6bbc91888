// Lists of servers, from the settings and from a server.
#include "fuzz/fuzz_host.h"
#include "settings/settings.h"

#include <cstring>

static void run(const uint8_t *data, size_t size) {
    std::string text = fuzz_input{data, size}.take_rest();
    server_entry *servers = parse_server_list(text.c_str());
    uint32_t count = 0;
    for (const server_entry *server = servers; server->name != nullptr; server++) {
        fuzz_require(strpbrk(server->name, ", :") == nullptr, "a name holds no separator");
        count++;
    }
    fuzz_require(count <= MAX_SERVERS && servers[count].port == 0, "a list has an end");
    free_server_list(servers);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
