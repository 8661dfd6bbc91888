// A regular expression engine of tests: a pattern is looked for as it stands, it can be read back from a
// compiled clause, and the searches are counted.
#pragma once

#include "logcheck/clause.h"
#include "platform/text.h"

#include <cstring>
#include <string>
#include <vector>

struct scripted_regex {
    static inline std::vector<std::string> searches; // the patterns, in order
    static inline std::string words;                 // of a pattern that is refused

    // "!" is refused; a search for "?" fails.
    static int compile(tn_regex *out, const char *pattern) {
        if (strcmp(pattern, "!") == 0) return 8;
        out->compiled = text_copy(pattern);
        return 0;
    }
    static int search(const tn_regex *regex, const char *text, size_t count, tn_match *) {
        auto *pattern = static_cast<const char *>(regex->compiled);
        searches.push_back(pattern);
        if (count != 0 || strcmp(pattern, "?") == 0) return 12;
        return strstr(text, pattern) != nullptr ? 0 : TN_REG_NOMATCH;
    }
    static size_t describe(int code, const tn_regex *, char *buffer, size_t size) {
        copy_bounded(buffer, (words + " " + std::to_string(code)).c_str(), size);
        return words.size() + 3;
    }
    static void release(tn_regex *regex) { heap_free(regex->compiled); }

    static void install() {
        static const regex_ops ops = {
            .regcomp = compile, .regexec = search, .regerror = describe, .regfree = release};
        regex_host = &ops;
        searches.clear();
        words = "Bad pattern";
    }
};

// A tree as text: and(a,not(b)); "-" for an empty slot.
inline std::string print_tree(const log_check_cond *cond) {
    if (cond == nullptr) return "-";
    auto *pattern = static_cast<const char *>(cond->regex.compiled);
    switch (cond->type) {
    case COND_REGEX:
        return pattern != nullptr ? pattern : "none";
    case COND_NOT:
        return "not(" + print_tree(cond->child) + ")";
    case COND_AND:
        return "and(" + print_tree(cond->left) + "," + print_tree(cond->right) + ")";
    case COND_OR:
        return "or(" + print_tree(cond->left) + "," + print_tree(cond->right) + ")";
    default:
        return "type " + std::to_string(cond->type);
    }
}
