// The replies of RAID controllers: whatever stands in them, a scan and a check end with a result or a
// failure.
#include "fakes/scripted_raid.h"
#include "fuzz/fuzz_host.h"
#include "platform/text.h"
#include "probes/hw/raid.h"

#include <cstring>

namespace {

std::string replies; // one behind the other, 16 bytes of each

bool give_reply(raid_adapter *, uint32_t, uint8_t *block, uint32_t) {
    if (replies.empty()) return false;
    size_t length = replies.size() < 16 ? replies.size() : 16;
    memcpy(block + 20, replies.data(), length < 4 ? length : 4);
    if (length > 4) memcpy(block + 148, replies.data() + 4, length - 4);
    replies.erase(0, length);
    return true;
}

devnode *first_device(devtree *group) {
    while (group->children != nullptr)
        group = group->children;
    return group->devices;
}

void run(const uint8_t *data, size_t size) {
    scripted_raid script;
    raid_ops fuzzed = scripted_raid_ops;
    fuzzed.DeviceIoControl = give_reply;
    raid_host = &fuzzed;
    script.add(0);
    script.add(7);
    replies.assign(reinterpret_cast<const char *>(data), size);
    devtree root = {};
    scan_raid(&root);
    fuzz_require(script.open_adapters == static_cast<int>(raid_controller_count), "controllers stay open");
    if (root.children != nullptr) {
        resnode_guard result(alloc_resnode());
        const char *failure = check_raid(first_device(root.children), result.get());
        fuzz_require(failure != nullptr || result->comment != nullptr, "a check gives a result or a failure");
    }
    free_devtree(root.children);
    close_controllers();
    fuzz_require(script.open_adapters == 0, "what was opened is closed");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
