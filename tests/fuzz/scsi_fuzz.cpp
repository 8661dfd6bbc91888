// The bytes of SCSI adapters and enclosures: a walk over any device table ends and names no device twice, and
// a check of an enclosure ends whatever its replies say.
#include "fakes/scripted_scsi.h"
#include "fuzz/fuzz_host.h"
#include "platform/text.h"
#include "probes/hw/safte.h"
#include "settings/settings.h"

#include <set>

namespace {

void walk_table(fuzz_input input) {
    scripted_scsi script;
    script.add(0).table = input.take_rest().substr(0, INQUIRY_TABLE_SIZE);
    scsi_scan *scan = nullptr;
    std::set<uint32_t> offsets;
    for (const char *name = find_first_scsi_dev(&scan); name != nullptr; name = find_next_scsi_dev(scan)) {
        fuzz_require(offsets.insert(scan->offset).second, "no entry is visited twice");
        fuzz_require(scan->offset + DEVICE_ENTRY_SIZE <= script.ports.begin()->second.table->size(),
                     "an entry lies in its table");
        scsi_dev *device = nullptr;
        fuzz_require(open_scsi_dev(&device, name) == nullptr, "a name reads back");
        close_scsi_dev(device);
    }
    fuzz_require(offsets.size() <= INQUIRY_TABLE_SIZE / DEVICE_ENTRY_SIZE, "entries do not overlap");
    end_scsi_scan(scan);
    fuzz_require(script.open_ports == 0, "what was opened is closed");
}

// The enclosure's replies, each as long as the input says.
struct fuzzed_enclosure {
    scripted_enclosure enclosure{0, 0, 0, 0};

    explicit fuzzed_enclosure(fuzz_input *input) {
        for (size_t i : {0, 1, 2, 4, 6})
            enclosure.config[i] = static_cast<char>(input->take_byte());
        std::string rest = input->take_rest();
        size_t half = rest.size() / 2;
        enclosure.status = rest.substr(0, half);
        enclosure.slots = rest.substr(half);
    }
};

void check_part(const char *kind, uint32_t number, devtree *group) {
    devnode_guard device(alloc_devnode());
    device->id = text_copy(std::to_string(number).c_str());
    device->parent = group;
    resnode_guard result(alloc_resnode());
    const char *failure = check_safte(device.get(), result.get());
    bool has_words = result->comment != nullptr || strcmp(kind, "temp") == 0;
    fuzz_require(failure != nullptr || has_words, "a check gives a result or a failure");
}

void check_enclosure(fuzz_input input) {
    static const char *const KINDS[] = {"slot", "fan", "psu", "temp"};
    agent_config config = {};
    config_in_force = &config;
    const char *kind = KINDS[input.take_byte() % 4];
    uint32_t number = input.take_byte();
    config.safte_assume_inactive = input.take_byte() % 2;
    fuzzed_enclosure fuzzed(&input);
    scripted_scsi script;
    script.add(0).units = {fuzzed.enclosure.unit(0, 6)};
    devtree root = {};
    scan_safte(&root);
    devtree *top = devtree_child(&root, "safte", "");
    top->parent = nullptr;
    check_part(kind, number, devtree_child(devtree_child(top, "scsi0:00:06:00", ""), kind, ""));
    free_devtree(top);
    safte_reset();
    fuzz_require(script.open_ports == 0, "what was opened is closed");
}

void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    if (input.take_byte() % 2 == 0)
        walk_table(input);
    else
        check_enclosure(input);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
