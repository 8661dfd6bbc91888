// The wildcards of log check lines. Case counts for nothing, on any host.
//
//   ?   one character
//   *   one character or more, never none
//   **  at the pattern's very end: whatever is left, which must not be nothing
#pragma once

// A pattern that has anything behind "**" matches nothing, and is told.
bool log_wildcard_match(const char *name, const char *pattern);

bool log_has_wildcard(const char *pattern);
