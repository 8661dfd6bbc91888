#include "protocol/refusal.h"

#include "platform/heap.h"
#include "platform/text.h"
#include "protocol/records.h"

static constexpr size_t REASON_LIMIT = 1024;

const char *read_refusal(io *stream, uint32_t tag) {
    // A buffer of its own: those of format_error would cut the reason.
    static thread_local char words[REASON_LIMIT + 1];
    negotiate_nack nack;
    if (auto *failure = read_negotiate_nack(stream, &nack, tag)) return failure;
    text_guard reason(nack.reason);
    copy_bounded(words, reason.get(), sizeof words);
    return words;
}
