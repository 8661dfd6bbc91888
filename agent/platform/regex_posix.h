// The answers of platform/regex.h out of a POSIX engine, for host files, which include that engine's
// <regex.h> first.
#pragma once

#include "platform/heap.h"
#include "platform/regex.h"

#include <algorithm>
#include <iterator>

static_assert(int{REG_NOMATCH} == int{TN_REG_NOMATCH});

inline int posix_compile(tn_regex *out, const char *pattern) {
    auto *compiled = heap_new<regex_t>();
    if (compiled == nullptr) return REG_ESPACE;
    int code = regcomp(compiled, pattern, REG_EXTENDED);
    if (code != 0) {
        heap_free(compiled);
        return code;
    }
    *out = {.compiled = compiled, .re_nsub = compiled->re_nsub};
    return 0;
}

inline int posix_execute(const tn_regex *regex, const char *text, size_t count, tn_match *matches) {
    regmatch_t found[16];
    size_t wanted = std::min(count, std::size(found));
    int code = regexec(static_cast<const regex_t *>(regex->compiled), text, wanted, found, 0);
    if (code != 0) return code;
    for (size_t i = 0; i < count; i++)
        matches[i] = i < wanted ? tn_match{.start = found[i].rm_so, .end = found[i].rm_eo} : tn_match{-1, -1};
    return 0;
}

inline size_t posix_describe(int code, const tn_regex *, char *buffer, size_t size) {
    regex_t none = {};
    return regerror(code, &none, buffer, size);
}

inline void posix_release(tn_regex *regex) {
    regfree(static_cast<regex_t *>(regex->compiled));
    heap_free(regex->compiled);
}

inline constexpr regex_ops posix_regex_ops = {
    .regcomp = posix_compile, .regexec = posix_execute, .regerror = posix_describe, .regfree = posix_release};
