// The translation of counter names, through the host's table of English names: pairs of a decimal index and a
// name, each ended by a zero byte, the series ended by an empty text. The platform's indexes lead from it to
// the names of the host's language.
#pragma once

#include <cstdint>

// Brings the table in, once a process. False where the host does not give it.
bool load_counter_names();

// The index of the first pair with this very name; the name of the first pair with this very index. Absent
// where the table holds none.
const char *find_name_index(const char *name);
const char *find_index_name(const char *index);

inline constexpr uint32_t COUNTER_NAME_SIZE = 128;

// Between English and national names. False when there is no such name, which is logged; the English name is
// then empty. Where several indexes carry one name, the first of them counts.
bool translate_counter_name_to_national(char *buffer, uint32_t size, const char *english);
bool translate_counter_name_to_english(char *buffer, uint32_t size, const char *national);

// Forgets the table, for tests.
void counter_names_reset();
