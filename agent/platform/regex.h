// POSIX extended regular expressions: the host's engine behind the names that the agent uses.
//
// The bracket forms [[:<:]] and [[:>:]] for word boundaries are understood in every pattern.
#pragma once

#include <cstddef>

// A compiled expression; cleared, it is none, and each search in it fails.
struct tn_regex {
    void *compiled;
    size_t re_nsub;
    char *pattern; // as the engine has it
    char literal;  // the one byte that the pattern is, 0 for any other pattern
};

struct tn_match {
    ptrdiff_t start; // -1 for a group that takes no part
    ptrdiff_t end;
};

enum : int { TN_REG_NOMATCH = 1, TN_REG_UNUSABLE = 2 };

struct regex_ops {
    int (*regcomp)(tn_regex *out, const char *pattern); // REG_EXTENDED alone
    int (*regexec)(const tn_regex *regex, const char *text, size_t count, tn_match *matches);
    size_t (*regerror)(int code, const tn_regex *regex, char *buffer, size_t size);
    void (*regfree)(tn_regex *regex);
};

extern const regex_ops regex_ops_host;
extern const regex_ops *regex_host;

// 0, or a code for tn_regerror; nothing has to be freed then.
int tn_regcomp(tn_regex *out, const char *pattern);

// 0 for a match, TN_REG_NOMATCH, or another code.
int tn_regexec(const tn_regex *regex, const char *text, size_t count, tn_match *matches);

// Writes the words for `code`, cut at `size` bytes with their end.
void tn_regerror(int code, const tn_regex *regex, char *buffer, size_t size);

// Takes a cleared expression, and leaves one.
void tn_regfree(tn_regex *regex);
