#include "probes/os/process_chain.h"

#include <algorithm>
#include <cstring>

namespace {

// SYSTEM_PROCESS_INFORMATION, as far as it is read.
//
//   offset  bytes
//        0      4  distance to the next record, 0 in the last one
//       56      2  length of the image name in bytes
//       64      8  address of the image name, 0 for none
constexpr uint32_t NEXT_ENTRY_OFFSET = 0;
constexpr uint32_t NAME_LENGTH_OFFSET = 56;
constexpr uint32_t NAME_ADDRESS_OFFSET = 64;
constexpr uint32_t RECORD_SIZE = 72;

} // namespace

// Records lie where their predecessors say, which need not suit the processor.
template <class T>
static T number_at(const uint8_t *record, uint32_t offset) {
    T number;
    memcpy(&number, record + offset, sizeof number);
    return number;
}

static void copy_name(const process_walk &walk, const uint8_t *record, char16_t *name) {
    name[0] = u'\0';
    uint32_t length = number_at<uint16_t>(record, NAME_LENGTH_OFFSET) & ~1U;
    uint64_t place = number_at<uint64_t>(record, NAME_ADDRESS_OFFSET) - walk.address;
    if (place >= walk.size) return;
    length = std::min<uint32_t>(length, walk.size - static_cast<uint32_t>(place)) / 2;
    length = std::min(length, IMAGE_NAME_SIZE - 1);
    memcpy(name, walk.snapshot + place, length * sizeof *name);
    name[length] = u'\0';
}

bool next_in_chain(process_walk *walk, char16_t name[IMAGE_NAME_SIZE]) {
    if (walk->ended || walk->size < RECORD_SIZE || walk->position > walk->size - RECORD_SIZE) return false;
    const uint8_t *record = walk->snapshot + walk->position;
    copy_name(*walk, record, name);
    auto distance = number_at<uint32_t>(record, NEXT_ENTRY_OFFSET);
    walk->ended = distance == 0 || distance > walk->size - walk->position;
    walk->position += distance;
    return true;
}
