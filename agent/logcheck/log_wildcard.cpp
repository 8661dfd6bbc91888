#include "logcheck/log_wildcard.h"

#include "platform/agent_log.h"
#include "platform/text.h"

#include <cstring>

static bool match_one(char c, char pattern) {
    return pattern == '?' || to_lower(c) == to_lower(pattern);
}

// Each "*" takes one character, and more of them as long as what is behind it does not match. An earlier "*"
// need not be tried again: whatever longer run it took, the later one could have reached as far. So the time
// grows with the product of the lengths, not with a power of it.
bool log_wildcard_match(const char *name, const char *pattern) {
    const char *at = pattern;
    const char *behind_star = nullptr; // of the last one met
    const char *behind_run = nullptr;  // of what that one has taken of the name
    while (*name != '\0') {
        if (at[0] == '*' && at[1] == '*') {
            if (at[2] == '\0') return true;
            agent_log(LOG_ERROR, "Bad pattern found: \"%s\"", pattern);
            return false;
        }
        if (*at == '*') {
            behind_star = ++at;
            behind_run = ++name;
        } else if (*at != '\0' && match_one(*name, *at)) {
            at++;
            name++;
        } else {
            if (behind_star == nullptr) return false;
            at = behind_star;
            name = ++behind_run;
        }
    }
    return *at == '\0';
}

bool log_has_wildcard(const char *pattern) {
    return strpbrk(pattern, "?*") != nullptr;
}
