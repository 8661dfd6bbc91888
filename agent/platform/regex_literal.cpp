#include "platform/regex_literal.h"

#include "platform/regex_tree.h"

#include <cstring>

namespace {

using byte_vector = unsigned char __attribute__((vector_size(16)));

struct literal_search {
    const regex_tree *tree;
    regex_literal best, run; // the run ends at what was looked at last
};

} // namespace

static void end_run(literal_search *search) {
    if (search->run.length > search->best.length) search->best = search->run;
    search->run.length = 0;
}

static void look_at(literal_search *search, uint16_t index);

static void look_at_byte(literal_search *search, const byte_set *set) {
    uint8_t byte = set->only_byte();
    if (byte == 0 || search->run.length == LITERAL_LIMIT) end_run(search);
    if (byte != 0) search->run.bytes[search->run.length++] = static_cast<char>(byte);
}

// What is repeated stands there once at least, with something unknown on both sides.
static void look_at_repeat(literal_search *search, const regex_node *node) {
    end_run(search);
    if (node->least > 0) look_at(search, node->left);
    end_run(search);
}

static void look_at(literal_search *search, uint16_t index) {
    const regex_node *node = &search->tree->nodes[index];
    switch (node->kind) {
    case RX_BYTES:
        look_at_byte(search, &search->tree->sets[node->set]);
        break;
    case RX_JOIN:
        look_at(search, node->left);
        look_at(search, node->right);
        break;
    case RX_REPEAT:
        look_at_repeat(search, node);
        break;
    case RX_EMPTY:
    case RX_ASSERT: // takes no place
        break;
    case RX_EITHER:
    case RX_COPY:
        end_run(search);
        break;
    }
}

regex_literal regex_literal_of(const char *pattern) {
    regex_tree tree;
    if (!regex_tree_parse(pattern, &tree)) return {};
    literal_search search = {.tree = &tree, .best = {}, .run = {}};
    look_at(&search, tree.root);
    end_run(&search);
    regex_tree_free(&tree);
    return search.best;
}

static byte_vector load(const char *from) {
    byte_vector loaded;
    memcpy(&loaded, from, sizeof loaded);
    return loaded;
}

static bool any_set(const byte_vector &mask) {
    uint64_t halves[2];
    memcpy(halves, &mask, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

static bool occurs_among(const regex_literal *literal, const char *text, size_t count) {
    for (size_t i = 0; i < count; i++)
        if (memcmp(text + i, literal->bytes, literal->length) == 0) return true;
    return false;
}

// Sixteen places at a time, by the first and the last byte.
bool literal_occurs(const regex_literal *literal, const char *text, size_t length) {
    if (length < literal->length) return false;
    size_t places = length - literal->length + 1, behind = literal->length - 1, at = 0;
    const byte_vector none = {};
    const byte_vector first = none + static_cast<unsigned char>(literal->bytes[0]);
    const byte_vector last = none + static_cast<unsigned char>(literal->bytes[behind]);
    for (; at + sizeof(byte_vector) <= places; at += sizeof(byte_vector)) {
        byte_vector hits = (load(text + at) == first) & (load(text + at + behind) == last);
        if (any_set(hits) && occurs_among(literal, text + at, sizeof(byte_vector))) return true;
    }
    return occurs_among(literal, text + at, places - at);
}
