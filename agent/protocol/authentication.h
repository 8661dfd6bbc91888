// The opening of every conversation: connect to the current server, agree on a hallmark, switch to the cipher
// stream, and prove to each other that both know the hallmark.
//
// Two secrets live in the variables store: `hostkey`, made once at the first meeting and never sent, and
// `hallmark`, 32 hexadecimal characters made of the hostkey and a nonce of the server, which is the cipher's
// key and the secret of the mutual challenge. A hallmark that is out of step is dropped, and the next
// connection makes a new one.
#pragma once

#include "platform/io.h"
#include "settings/settings.h"

#include <atomic>
#include <cstdint>

inline constexpr int32_t PROTOCOL_VERSION = 514; // 0x0202: the high byte is the major, the low byte the minor

extern std::atomic<int32_t> server_index; // the current server of the list
extern uint32_t server_changed;           // it may have moved; the main loop tells and clears it

// The version and key exchange and the mutual challenge. Replaces the stream by the cipher stream on the way;
// the caller closes what it then holds, also behind a failure.
[[nodiscard]] const char *client_authenticate(io **stream, const agent_config *config);

// Connects to the current server and authenticates. On success the caller owns the stream. The times, if
// wanted, are those of the start of the connecting and of its end.
[[nodiscard]] const char *setup_connection(const agent_config *config, io **out, int64_t *out_start,
                                           int64_t *out_connected);

// Connects alone: to the current server, or to the one named, whose name may be absent.
[[nodiscard]] const char *connect_to_server(const agent_config *config, io **out);
[[nodiscard]] const char *connect_to_host(const char *name, uint16_t port, io **out);

// Goes to the next server of the list behind a failure, where there is more than one.
void advance_server(const agent_config *config);

// Forgets servers and failures, for tests.
void authentication_reset();

void close_io(io *stream);
using io_guard = guard<io, close_io>;
