// A byte stream that puts AES-128 in electronic codebook mode in front of another one.
//
// Written bytes are gathered into blocks of 16, and a flush completes the last block with filler bytes 0x19,
// which the reader drops where it expects a tag. A read does not flush: flush before waiting for an answer.
#pragma once

#include "platform/io.h"

inline constexpr unsigned char CIPHER_FILLER = 0x19;

// A stream that owns `below`, keyed by 32 hexadecimal characters; absent when memory is out, with `below`
// untouched. A key text with another character leaves the key unset: blocks then pass as they are, so that
// what an enciphering peer sends is noise, and the first message that is read fails.
io *cipher_stream_new(io *below, const char *key_text);
