// Whole exchanges with a server that says anything: the opening with the key exchange up to the cipher, the
// configure exchange, time, downtime and upgrade.
#include "devtree/check_table.h"
#include "devtree/fake_checks.h"
#include "devtree/live_trees.h"
#include "fuzz/accepting_regex.h"
#include "fuzz/fuzz_host.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "protocol/authentication.h"
#include "protocol/checkin.h"
#include "protocol/configure.h"
#include "protocol/downtime.h"
#include "protocol/time_sync.h"
#include "protocol/upgrade_resp.h"
#include "state/variables.h"

#include <cstring>

// No store to go to: variables stay in memory.
static const registry_ops no_registry = {
    .RegOpenKeyExA = [](registry_hive, const char *, registry_access,
                        registry_key **) { return uint32_t{2}; },
};

static check_entry no_families[] = {{}};

static void open_conversation(memory_io &stream, agent_config *config, uint8_t choice) {
    if ((choice & 1) != 0) static_cast<void>(var_set(var_make("hostkey", "8")));
    if ((choice & 2) != 0)
        static_cast<void>(var_set(var_make("hallmark", "000102030405060708090a0b0c0d0e0f")));
    io *current = stream;
    static_cast<void>(client_authenticate(&current, config));
    current->close(current); // the cipher stream, where there is one
    fuzz_require(stream.closes == 1, "a stream is closed once");
}

static void configure(memory_io &stream, agent_config *config, uint8_t choice) {
    if ((choice & 1) != 0) config->host_id = text_copy("agent");
    for (int round = 0; round < 2; round++)
        static_cast<void>(configure_exchange(stream, config, (choice & 2) != 0));
    fuzz_require(config->servers != nullptr && server_index >= 0 && server_index < config->server_count,
                 "there is a current server");
}

static void ask_time(memory_io &stream, agent_config *, uint8_t) {
    fuzz_require((sync_server_time(stream) != nullptr) == (stream.closes == 1),
                 "a failure closes the stream");
}

static void ask_downtime(memory_io &stream, agent_config *, uint8_t choice) {
    char text[256];
    memset(text, 'x', sizeof text);
    if (request_downtime(stream, 5, text, choice) == nullptr)
        fuzz_require(strlen(text) < choice, "a message keeps its buffer");
}

static void read_upgrade(memory_io &stream, agent_config *, uint8_t) {
    int32_t number;
    static_cast<void>(read_upgrade_resp(stream, 7, &number));
}

static void (*const exchanges[])(memory_io &stream, agent_config *config, uint8_t choice) = {
    open_conversation, configure, ask_time, ask_downtime, read_upgrade,
};

static void clean_up() {
    free_devtree(active_tree);
    active_tree = nullptr;
    var_reset();
    configure_reset();
    checkin_reset();
}

static void exchange(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    uint8_t which = input.take_byte();
    uint8_t choice = input.take_byte();
    config_guard config(heap_new<agent_config>());
    config->domain = text_copy("domain");
    config->servers = parse_server_list("server");
    config->server_count = 1;
    config_in_force = config.get();
    memory_io stream(input.take_rest());
    exchanges[which % std::size(exchanges)](stream, config.get(), choice);
}

static void run(const uint8_t *data, size_t size) {
    regex_host = &accepting_regex;
    registry_host = &no_registry;
    check_table = no_families;
    fake_results_flag = 1;
    try {
        exchange(data, size);
    } catch (const fuzz_process_ended &) {
        clean_up();
        throw;
    }
    clean_up();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
