// A host's network set-up, out of the texts in which Linux keeps it, and in the records of host_info_ops.h.
#pragma once

#include "probes/os/host_info_ops.h"

#include <cstddef>
#include <cstdint>

// Deals out room in the buffer of a caller. What no longer fits is counted, so that the caller learns how
// much it takes.
struct record_buffer {
    char *start;
    uint32_t size;
    uint32_t used;
};

// Cleared room for a record, or absent where the buffer is full.
void *take_room(record_buffer *buffer, uint32_t size);

template <class T>
T *take_record(record_buffer *buffer) {
    return static_cast<T *>(take_room(buffer, sizeof(T)));
}

// NETWORK_BUFFER_OVERFLOW where something did not fit, with the size that all of it needs.
uint32_t finish_records(const record_buffer &buffer, uint32_t *out_size);

// Appends an address at the end of a list. Nothing happens where the buffer is full.
void append_address(record_buffer *buffer, address_entry **list, const char *address, const char *mask);

// The domain and the name servers of /etc/resolv.conf: the last "domain" or the first name of the last
// "search", where that is not the root "." of all of them, and those servers that have a dotted address, since
// longer ones would be cut.
void parse_resolver(const char *text, char *domain, size_t domain_size, record_buffer *buffer,
                    address_entry **servers);

// The default gateways of one interface, out of /proc/net/route, where addresses are hexadecimal words of
// this machine.
void parse_gateways(const char *route, const char *interface, record_buffer *buffer,
                    address_entry **gateways);

// The adapter type of a link by the kernel's number for its hardware; 1, "other", for what has none.
uint32_t adapter_type_of_link(uint32_t hardware);

// Whether an interface is an adapter of the host: it has a device or an address. The inner ends of containers
// and idle tunnels have neither.
bool is_adapter(bool has_device, bool has_address);

// Whether an address with this label lies on the interface: a label is its interface's name, or that and more
// behind a colon, which no interface has in its name.
bool is_label_of(const char *label, const char *interface);
