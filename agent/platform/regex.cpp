#include "platform/regex.h"

#include "platform/heap.h"
#include "platform/regex_tree.h"
#include "platform/text.h"

#include <cstring>

const regex_ops *regex_host;

// Each form is longer than what stands for it, so that the rewritten pattern fits in place.
static void rewrite_word_boundaries(char *pattern) {
    char *to = pattern;
    for (const char *from = pattern; *from != '\0';) {
        if (text_starts_with(from, "[[:<:]]") || text_starts_with(from, "[[:>:]]")) {
            *to++ = '\\';
            *to++ = from[3];
            from += 7;
        } else if (*from == '\\' && from[1] != '\0') {
            *to++ = *from++;
            *to++ = *from++;
        } else {
            *to++ = *from++;
        }
    }
    *to = '\0';
}

// The byte of a pattern that is a single one, or 0.
static char literal_of(const char *pattern) {
    regex_tree tree;
    if (strlen(pattern) > 4 || !regex_tree_parse(pattern, &tree)) return '\0';
    const regex_node *root = &tree.nodes[tree.root];
    int byte = root->kind == RX_BYTES ? tree.sets[root->set].only_byte() : 0;
    regex_tree_free(&tree);
    return static_cast<char>(byte);
}

int tn_regcomp(tn_regex *out, const char *pattern) {
    *out = {};
    text_guard rewritten(text_copy(pattern));
    if (rewritten == nullptr) return TN_REG_UNUSABLE;
    rewrite_word_boundaries(rewritten.get());
    int code = regex_host->regcomp(out, rewritten.get());
    if (code != 0) return code;
    out->literal = literal_of(rewritten.get());
    out->pattern = rewritten.release();
    return 0;
}

static int find_literal(char literal, const char *text, size_t count, tn_match *matches) {
    const char *found = strchr(text, literal);
    if (found == nullptr) return TN_REG_NOMATCH;
    for (size_t i = 0; i < count; i++)
        matches[i] = i == 0 ? tn_match{found - text, found - text + 1} : tn_match{-1, -1};
    return 0;
}

int tn_regexec(const tn_regex *regex, const char *text, size_t count, tn_match *matches) {
    if (regex->compiled == nullptr) return TN_REG_UNUSABLE;
    if (regex->literal != '\0') return find_literal(regex->literal, text, count, matches);
    return regex_host->regexec(regex, text, count, matches);
}

void tn_regerror(int code, const tn_regex *regex, char *buffer, size_t size) {
    regex_host->regerror(code, regex, buffer, size);
}

void tn_regfree(tn_regex *regex) {
    if (regex->compiled != nullptr) regex_host->regfree(regex);
    heap_free(regex->pattern);
    *regex = {};
}
