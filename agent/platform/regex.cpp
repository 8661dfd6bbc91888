#include "platform/regex.h"

#include "platform/heap.h"
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

int tn_regcomp(tn_regex *out, const char *pattern) {
    *out = {};
    text_guard rewritten(text_copy(pattern));
    if (rewritten == nullptr) return TN_REG_UNUSABLE;
    rewrite_word_boundaries(rewritten.get());
    return regex_host->regcomp(out, rewritten.get());
}

int tn_regexec(const tn_regex *regex, const char *text, size_t count, tn_match *matches) {
    if (regex->compiled == nullptr) return TN_REG_UNUSABLE;
    return regex_host->regexec(regex, text, count, matches);
}

void tn_regerror(int code, const tn_regex *regex, char *buffer, size_t size) {
    regex_host->regerror(code, regex, buffer, size);
}

void tn_regfree(tn_regex *regex) {
    if (regex->compiled != nullptr) regex_host->regfree(regex);
    *regex = {};
}
