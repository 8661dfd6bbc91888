// The byte stream of a TCP connection. It flushes itself before a read.
#pragma once

#include "platform/io.h"

#include "platform/sockets.h"

// Connects to an address in network byte order and a port in host order. On failure there is no stream.
[[nodiscard]] const char *socket_io_create(io **out, uint32_t address, uint16_t port, uint32_t options);

// The socket below a stream that socket_io_create has made.
socket_handle socket_io_handle(const io *stream);
