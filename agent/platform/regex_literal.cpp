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

// How seldom a byte is met in a log: by its place in what is met most, and anything else least.
static size_t rarity(char byte) {
    static constexpr char common[] = " eatinosr0123456789dlcu:.-/pmhg[]f\",_bvw(=)kyTEASMNx";
    const char *found = strchr(common, byte);
    return found != nullptr ? static_cast<size_t>(found - common) : sizeof common;
}

static void choose_places(regex_literal *literal) {
    literal->one = literal->other = 0;
    if (literal->length == 0) return;
    for (size_t i = 1; i < literal->length; i++)
        if (rarity(literal->bytes[i]) > rarity(literal->bytes[literal->one])) literal->one = i;
    if (literal->one == 0) literal->other = literal->length - 1;
    for (size_t i = 0; i < literal->length; i++)
        if (i != literal->one && rarity(literal->bytes[i]) > rarity(literal->bytes[literal->other]))
            literal->other = i;
}

regex_literal regex_literal_of(const char *pattern) {
    regex_tree tree;
    if (!regex_tree_parse(pattern, &tree)) return {};
    literal_search search = {.tree = &tree, .best = {}, .run = {}};
    look_at(&search, tree.root);
    end_run(&search);
    regex_tree_free(&tree);
    choose_places(&search.best);
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

static bool occurs_at(const regex_literal *literal, const char *text) {
    return memcmp(text, literal->bytes, literal->length) == 0;
}

static bool occurs_among(const regex_literal *literal, const char *text, const byte_vector &hits) {
    for (size_t i = 0; i < sizeof hits; i++)
        if (hits[i] != 0 && occurs_at(literal, text + i)) return true;
    return false;
}

// Sixteen places at a time, by two of the bytes.
bool literal_occurs(const regex_literal *literal, const char *text, size_t length) {
    if (literal->length == 0) return true;
    if (length < literal->length) return false;
    size_t places = length - literal->length + 1, at = 0;
    const byte_vector none = {};
    const byte_vector one = none + static_cast<unsigned char>(literal->bytes[literal->one]);
    const byte_vector other = none + static_cast<unsigned char>(literal->bytes[literal->other]);
    for (; at + sizeof(byte_vector) <= places; at += sizeof(byte_vector)) {
        byte_vector hits =
            (load(text + at + literal->one) == one) & (load(text + at + literal->other) == other);
        if (any_set(hits) && occurs_among(literal, text + at, hits)) return true;
    }
    for (; at < places; at++)
        if (occurs_at(literal, text + at)) return true;
    return false;
}
