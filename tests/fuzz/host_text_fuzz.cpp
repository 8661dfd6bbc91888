// The texts in which a host tells of its drives, memory, processors, distribution and network. The first byte
// chooses the reader.
#include "fuzz/fuzz_host.h"
#include "probes/os/meminfo.h"
#include "probes/os/mount_table.h"
#include "probes/os/network_text.h"
#include "probes/os/os_release.h"
#include "probes/os/processor_list.h"

#include <bit>
#include <cstring>
#include <string>
#include <vector>

static bool is_folder(const char *path) {
    return strlen(path) % 2 == 0;
}

static void walk_below(const mount_table *table, const char *root) {
    char path[64];
    uint32_t position = 0;
    uint32_t walked = 0;
    while (next_mount_below(table, root, &position, path, sizeof path)) {
        fuzz_require(strlen(path) < sizeof path, "a path fits");
        fuzz_require(++walked <= table->count, "each mount is told once");
    }
}

static void read_mounts(const char *text) {
    mount_table_guard table(parse_mounts(text, is_folder));
    if (table == nullptr) return;
    for (uint32_t i = 0; i < table->count; i++) {
        const char *path = table->points[i].path;
        fuzz_require(path[0] == '/', "a mount point is a path from the root");
        static_cast<void>(mount_drive_type(table.get(), path));
        uint32_t device_major = 0;
        uint32_t device_minor = 0;
        bool has_device = mount_device(table.get(), path, &device_major, &device_minor);
        fuzz_require(!has_device || (device_major != 0 && mount_is_drive(table.get(), path)),
                     "a drive has a device");
        static_cast<void>(mount_is_remote(table.get(), path));
    }
    for (uint32_t i = 0; const char *root = mount_root(table.get(), i); i++) {
        fuzz_require(i <= table->count, "roots come to an end");
        walk_below(table.get(), root);
    }
}

static void read_memory(const char *text) {
    meminfo memory;
    if (!parse_meminfo(text, &memory)) return;
    fuzz_require(memory.available <= memory.total, "no more is available than there is");
    fuzz_require(memory.swap_free <= memory.swap_total, "no more swap is free than there is");
}

static void read_release(const char *text) {
    char name[40];
    bool told = parse_os_release(text, name, sizeof name);
    fuzz_require(strlen(name) < sizeof name && (told || name[0] == '\0'), "a name fits, or is none");
}

static void read_processors(const char *text) {
    uint64_t mask = 0;
    uint32_t count = parse_processor_list(text, &mask);
    fuzz_require(static_cast<uint32_t>(std::popcount(mask)) <= count, "who is in the mask is counted");
}

// Once into too little room, once into as much as that asked for.
template <class Read>
static void read_into_room(const Read &read) {
    alignas(8) char little[100];
    record_buffer buffer = {.start = little, .size = sizeof little, .used = 0};
    read(&buffer);
    uint32_t needed = 0;
    if (finish_records(buffer, &needed) == 0) return;
    std::vector<uint64_t> block(needed / 8 + 1);
    record_buffer enough = {.start = reinterpret_cast<char *>(block.data()), .size = needed, .used = 0};
    read(&enough);
    fuzz_require(finish_records(enough, &needed) == 0, "what was asked for is enough");
}

static void read_network(const char *text) {
    read_into_room([text](record_buffer *buffer) {
        char domain[24];
        address_entry *servers = nullptr;
        parse_resolver(text, domain, sizeof domain, buffer, &servers);
        fuzz_require(strlen(domain) < sizeof domain, "a domain fits");
    });
    read_into_room([text](record_buffer *buffer) {
        address_entry *gateways = nullptr;
        parse_gateways(text, "eth0", buffer, &gateways);
    });
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    static constexpr void (*READERS[])(const char *) = {read_mounts, read_memory, read_release,
                                                        read_processors, read_network};
    size_t reader = input.take_byte() % std::size(READERS);
    std::string text = input.take_rest();
    READERS[reader](text.c_str());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
