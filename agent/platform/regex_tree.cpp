#include "platform/regex_tree.h"

#include "platform/heap.h"
#include "platform/text.h"

#include <cstring>
#include <iterator>

namespace {

constexpr size_t PATTERN_LIMIT = 4096;
constexpr uint32_t DEPTH_LIMIT = 500; // of parentheses
constexpr int32_t MOST_REPEATS = 255; // a larger count is left to the engine
constexpr uint8_t LAST_PORTABLE = 0x7F;

struct regex_parser {
    regex_tree *tree;
    const char *at;
    uint32_t depth;
    bool failed;
};

struct class_row {
    const char *name;
    bool (*has)(uint8_t byte);
};

} // namespace

uint8_t byte_set::only_byte() const {
    uint8_t found = 0;
    for (unsigned byte = 1; byte < 256; byte++) {
        if (!has(static_cast<uint8_t>(byte))) continue;
        if (found != 0) return 0;
        found = static_cast<uint8_t>(byte);
    }
    return found;
}

// ---- classes of bytes, those of the C locale

static bool is_digit(uint8_t c) {
    return c >= '0' && c <= '9';
}
static bool is_upper(uint8_t c) {
    return c >= 'A' && c <= 'Z';
}
static bool is_lower(uint8_t c) {
    return c >= 'a' && c <= 'z';
}
static bool is_letter(uint8_t c) {
    return is_upper(c) || is_lower(c);
}
static bool is_alnum(uint8_t c) {
    return is_letter(c) || is_digit(c);
}
static bool is_graph(uint8_t c) {
    return c > ' ' && c < 0x7F;
}

static constexpr class_row classes[] = {
    {"alpha", is_letter},
    {"digit", is_digit},
    {"alnum", is_alnum},
    {"upper", is_upper},
    {"lower", is_lower},
    {"space", [](uint8_t c) { return is_blank(static_cast<char>(c)); }},
    {"blank", [](uint8_t c) { return c == ' ' || c == '\t'; }},
    {"punct", [](uint8_t c) { return is_graph(c) && !is_alnum(c); }},
    {"print", [](uint8_t c) { return c == ' ' || is_graph(c); }},
    {"graph", is_graph},
    {"cntrl", [](uint8_t c) { return c < ' ' || c == 0x7F; }},
    {"xdigit", [](uint8_t c) { return is_digit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'); }},
};

static bool is_word_byte(uint8_t c) {
    return is_alnum(c) || c == '_';
}

static void add_all(byte_set *set, bool (*has)(uint8_t)) {
    for (int byte = 0; byte < 256; byte++)
        if (has(static_cast<uint8_t>(byte))) set->add(static_cast<uint8_t>(byte));
}

// The zero byte ends every text and is in no set.
static void invert(byte_set *set) {
    for (uint64_t &bits : set->bits)
        bits = ~bits;
    set->bits[0] &= ~uint64_t{1};
}

// ---- nodes

static uint16_t add_node(regex_parser *parser, regex_node node) {
    parser->tree->nodes[parser->tree->node_count] = node;
    return static_cast<uint16_t>(parser->tree->node_count++);
}

static uint16_t add_empty(regex_parser *parser) {
    return add_node(parser, {.kind = RX_EMPTY});
}

static uint16_t add_bytes(regex_parser *parser, const byte_set &set) {
    regex_tree *tree = parser->tree;
    tree->sets[tree->set_count] = set;
    return add_node(parser, {.kind = RX_BYTES, .set = static_cast<uint16_t>(tree->set_count++)});
}

static uint16_t add_byte(regex_parser *parser, char byte) {
    byte_set set = {};
    set.add(static_cast<uint8_t>(byte));
    return add_bytes(parser, set);
}

static uint16_t add_class(regex_parser *parser, bool (*has)(uint8_t), bool inverted) {
    byte_set set = {};
    add_all(&set, has);
    if (inverted) invert(&set);
    return add_bytes(parser, set);
}

static uint16_t fail(regex_parser *parser) {
    parser->failed = true;
    return 0;
}

// ---- brackets

// "[.x.]" and "[=x=]" stand for their one byte in the C locale.
static bool take_symbol(regex_parser *parser, char mark, uint8_t *out) {
    const char *at = parser->at;
    if (at[2] == '\0' || at[3] != mark || at[4] != ']') return false;
    *out = static_cast<uint8_t>(at[2]);
    parser->at += 5;
    return true;
}

static bool take_class(regex_parser *parser, byte_set *set) {
    for (const class_row &row : classes) {
        size_t length = strlen(row.name);
        const char *name = parser->at + 2;
        if (strncmp(name, row.name, length) != 0 || name[length] != ':' || name[length + 1] != ']') continue;
        add_all(set, row.has);
        parser->at += length + 4;
        return true;
    }
    return false;
}

// One end of a range, or a byte for itself.
static bool take_bracket_byte(regex_parser *parser, uint8_t *out) {
    if (parser->at[0] == '[' && parser->at[1] == '.') return take_symbol(parser, '.', out);
    if (parser->at[0] == '\0') return false;
    *out = static_cast<uint8_t>(*parser->at++);
    return true;
}

static bool is_range(const regex_parser *parser) {
    return parser->at[0] == '-' && parser->at[1] != ']';
}

static bool take_range(regex_parser *parser, byte_set *set, uint8_t first) {
    parser->at++;
    uint8_t last;
    if (parser->at[0] == '[' && (parser->at[1] == ':' || parser->at[1] == '=')) return false;
    if (!take_bracket_byte(parser, &last) || first > last || last > LAST_PORTABLE) return false;
    for (unsigned byte = first; byte <= last; byte++)
        set->add(static_cast<uint8_t>(byte));
    return true;
}

static bool take_bracket_element(regex_parser *parser, byte_set *set, bool is_first) {
    if (parser->at[0] == '[' && parser->at[1] == ':') return take_class(parser, set);
    uint8_t byte;
    if (parser->at[0] == '[' && parser->at[1] == '=') {
        if (!take_symbol(parser, '=', &byte) || is_range(parser)) return false;
        set->add(byte);
        return true;
    }
    // A hyphen stands for itself only as the first or the last element.
    if (parser->at[0] == '-' && !is_first && parser->at[1] != ']') return false;
    if (!take_bracket_byte(parser, &byte)) return false;
    if (is_range(parser)) return take_range(parser, set, byte);
    set->add(byte);
    return true;
}

static uint16_t parse_bracket(regex_parser *parser) {
    byte_set set = {};
    parser->at++;
    bool inverted = *parser->at == '^';
    if (inverted) parser->at++;
    for (bool is_first = true; is_first || *parser->at != ']'; is_first = false)
        if (!take_bracket_element(parser, &set, is_first)) return fail(parser);
    parser->at++;
    if (inverted) invert(&set);
    return add_bytes(parser, set);
}

// ---- expressions

static uint16_t parse_either(regex_parser *parser);

static uint16_t parse_group(regex_parser *parser) {
    parser->at++;
    if (++parser->depth > DEPTH_LIMIT) return fail(parser);
    uint16_t inner = parse_either(parser);
    if (*parser->at != ')') return fail(parser);
    parser->at++;
    parser->depth--;
    return inner;
}

static uint16_t add_assertion(regex_parser *parser, regex_assertion assertion) {
    return add_node(parser, {.kind = RX_ASSERT, .assertion = assertion});
}

static uint16_t parse_escape(regex_parser *parser) {
    char c = parser->at[1];
    if (c == '\0') return fail(parser);
    parser->at += 2;
    switch (c) {
    case 'w':
    case 'W':
        return add_class(parser, is_word_byte, c == 'W');
    case 's':
    case 'S':
        return add_class(
            parser, [](uint8_t byte) { return is_blank(static_cast<char>(byte)); }, c == 'S');
    case '<':
        return add_assertion(parser, WORD_START);
    case '>':
        return add_assertion(parser, WORD_END);
    case 'b':
        return add_assertion(parser, WORD_EDGE);
    case 'B':
        return add_assertion(parser, NO_WORD_EDGE);
    case '`':
        return add_assertion(parser, AT_START);
    case '\'':
        return add_assertion(parser, AT_END);
    default:
        if (c >= '1' && c <= '9') return add_node(parser, {.kind = RX_COPY});
        return add_byte(parser, c);
    }
}

static uint16_t parse_primary(regex_parser *parser) {
    switch (*parser->at) {
    case '(':
        return parse_group(parser);
    case '[':
        return parse_bracket(parser);
    case '\\':
        return parse_escape(parser);
    case '.':
        parser->at++;
        return add_class(
            parser, [](uint8_t byte) { return byte != 0; }, false);
    case '^':
        parser->at++;
        return add_assertion(parser, AT_START);
    case '$':
        parser->at++;
        return add_assertion(parser, AT_END);
    case '*':
    case '+':
    case '?':
    case '{':
        return fail(parser);
    default:
        return add_byte(parser, *parser->at++);
    }
}

// A count of up to MOST_REPEATS, or `missing` without digits; -2 for more.
static int32_t take_count(regex_parser *parser, int32_t missing) {
    if (!is_digit(static_cast<uint8_t>(*parser->at))) return missing;
    int32_t count = 0;
    while (is_digit(static_cast<uint8_t>(*parser->at)))
        if ((count = count * 10 + (*parser->at++ - '0')) > MOST_REPEATS) return -2;
    return count;
}

static bool take_interval(regex_parser *parser, int32_t *out_least, int32_t *out_most) {
    parser->at++;
    *out_least = take_count(parser, 0);
    *out_most = *out_least;
    if (*parser->at == ',') {
        parser->at++;
        *out_most = take_count(parser, WITHOUT_END);
    }
    if (*parser->at != '}' || *out_least == -2 || *out_most == -2) return false;
    parser->at++;
    return *out_most == WITHOUT_END || *out_least <= *out_most;
}

static bool take_repeat(regex_parser *parser, int32_t *out_least, int32_t *out_most) {
    if (*parser->at == '{') return take_interval(parser, out_least, out_most);
    *out_least = *parser->at == '+' ? 1 : 0;
    *out_most = *parser->at == '?' ? 1 : WITHOUT_END;
    parser->at++;
    return true;
}

static uint16_t parse_repeats(regex_parser *parser, uint16_t node) {
    while (!parser->failed && *parser->at != '\0' && strchr("*+?{", *parser->at) != nullptr) {
        // An engine takes a sign behind an assertion for an error or for itself.
        if (parser->tree->nodes[node].kind == RX_ASSERT) return fail(parser);
        int32_t least, most;
        if (!take_repeat(parser, &least, &most)) return fail(parser);
        node = add_node(parser, {.kind = RX_REPEAT, .left = node, .least = least, .most = most});
    }
    return node;
}

static bool ends_branch(const regex_parser *parser) {
    char c = *parser->at;
    return c == '\0' || c == '|' || (c == ')' && parser->depth != 0);
}

static uint16_t parse_branch(regex_parser *parser) {
    if (ends_branch(parser)) return add_empty(parser);
    uint16_t node = parse_repeats(parser, parse_primary(parser));
    while (!parser->failed && !ends_branch(parser)) {
        uint16_t next = parse_repeats(parser, parse_primary(parser));
        node = add_node(parser, {.kind = RX_JOIN, .left = node, .right = next});
    }
    return node;
}

static uint16_t parse_either(regex_parser *parser) {
    uint16_t node = parse_branch(parser);
    while (!parser->failed && *parser->at == '|') {
        parser->at++;
        uint16_t other = parse_branch(parser);
        node = add_node(parser, {.kind = RX_EITHER, .left = node, .right = other});
    }
    return node;
}

bool regex_tree_parse(const char *pattern, regex_tree *out) {
    *out = {};
    size_t length = strlen(pattern);
    if (length > PATTERN_LIMIT) return false;
    // Each character makes one node at most for itself and one that joins it to those before; an empty branch
    // makes one more, and so does the pattern.
    out->nodes = heap_array<regex_node>(3 * length + 3);
    out->sets = heap_array<byte_set>(length + 1);
    regex_parser parser = {.tree = out, .at = pattern, .depth = 0, .failed = false};
    if (out->nodes != nullptr && out->sets != nullptr) {
        out->root = parse_either(&parser);
        if (!parser.failed && *parser.at == '\0') return true;
    }
    regex_tree_free(out);
    return false;
}

void regex_tree_free(regex_tree *tree) {
    heap_free(tree->nodes);
    heap_free(tree->sets);
    *tree = {};
}
