// What a POSIX extended regular expression says, as the host's engine reads it in the C locale: bytes, and
// the engine's own \w \W \s \S \b \B \< \> \` \' among them.
//
// Only patterns that the engine has compiled come here, so errors need no words. A pattern with something
// whose meaning is not the same for every byte and every host gives no tree, and is left to the engine.
#pragma once

#include <cstdint>

struct byte_set {
    uint64_t bits[4];

    bool has(uint8_t byte) const { return (bits[byte >> 6] >> (byte & 63) & 1) != 0; }
    void add(uint8_t byte) { bits[byte >> 6] |= uint64_t{1} << (byte & 63); }
    // The byte of a set with one alone, 0 for any other.
    uint8_t only_byte() const;
    bool operator==(const byte_set &) const = default;
};

enum regex_assertion : uint8_t { AT_START, AT_END, WORD_START, WORD_END, WORD_EDGE, NO_WORD_EDGE };

enum regex_kind : uint8_t {
    RX_EMPTY,
    RX_BYTES,  // one byte of `set`
    RX_JOIN,   // `left`, then `right`
    RX_EITHER, // `left` or `right`
    RX_REPEAT, // `left`, from `least` to `most` times
    RX_ASSERT, // nothing, where the assertion holds
    RX_COPY,   // what a group has matched, which no automaton knows
};

inline constexpr int32_t WITHOUT_END = -1;

struct regex_node {
    regex_kind kind;
    regex_assertion assertion;
    uint16_t set; // an index into the tree's sets
    uint16_t left, right;
    int32_t least, most;
};

struct regex_tree {
    regex_node *nodes;
    byte_set *sets;
    uint32_t node_count, set_count;
    uint16_t root;
};

// False for a pattern that is left to the engine, and when memory is out; nothing has to be freed then.
bool regex_tree_parse(const char *pattern, regex_tree *out);

void regex_tree_free(regex_tree *tree);
