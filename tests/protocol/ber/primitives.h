// The primitives by name, with their values as text, for vectors that are used in both directions.
#pragma once

#include <string>

struct io;

// Reads one value and puts it into words. Returns the failure, or absent.
const char *read_named(io *stream, const std::string &kind, std::string *out_value);

// Writes the value that is told by its words.
const char *write_named(io *stream, const std::string &kind, const std::string &value);
