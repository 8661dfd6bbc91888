// The variables store: what the agent must remember over a restart, a flat map from text keys to text values,
// held in memory and written back lazily.
//
// A changed value reaches storage at most 30 seconds after the first change that is not flushed yet, a new
// key with the next flush. A deleted variable is gone until the next start, when it returns with its last
// flushed value. The thread that fetches an upgrade authenticates beside the main thread, so a short lock
// guards the list.
#pragma once

#include <cstdint>

struct variable {
    char *key;
    char *value; // at most 1023 bytes if it is to survive a read back
    variable *next;
    // for the store alone
    variable **link;         // what points to this entry
    variable *next_of_equal; // that has an equal hash
};

// Remembers the pointer, and names the file where variables live in one. Always absent.
const char *var_set_file(const char *path);

// Loads the store. On failure it may hold a part of the values.
[[nodiscard]] const char *var_read_all();

// Writes the store if that is due, or at once with `force`. Safe to repeat after a failure.
[[nodiscard]] const char *var_flush(int force);

// An entry to be filled with owned texts and handed to var_set; absent when memory is out.
variable *var_new();
void var_free(variable *entry); // takes absent

// The entry, which remains the store's, or absent. Not to be kept across a var_set of the same key.
variable *var_get(const char *key);

// A new copy of the value, or absent: safe beside a thread that sets the same key.
char *var_value(const char *key);

// Hands a filled entry to the store. Takes absent as a failed allocation.
[[nodiscard]] const char *var_set(variable *entry);

// A filled entry with copies of both texts, or absent.
variable *var_make(const char *key, const char *value);

// Removes the entry from memory alone.
void var_delete(const char *key);

// Empties the store, for tests.
void var_reset();
