// What the agent sends, read.

#include "wire/wire_messages.h"

namespace wire {

static constexpr size_t NAME = 128;

client_wants read_client_wants(reader &from) {
    from.opened();
    client_wants wants = {.version = from.integer(0, 65535)};
    from.open(context(1));
    wants.name = from.octets(256);
    wants.domain = from.octets(1024);
    wants.id = from.octets(NAME);
    wants.has_master_key = from.boolean();
    wants.has_hallmark = from.boolean();
    wants.testing = from.boolean();
    from.close();
    from.close();
    return wants;
}

static host_line read_host_line(reader &from) {
    from.opened();
    host_line line;
    line.label = from.octets(NAME);
    line.value = from.octets(1024);
    from.close();
    return line;
}

static offered_device read_device(reader &from) {
    from.opened();
    offered_device device;
    device.id = from.octets(NAME);
    device.name = from.octets(NAME);
    device.comment = from.octets(512);
    device.type = from.enumerated();
    device.unit = from.octets(NAME);
    device.hint_value = from.hint();
    device.hint_min = from.hint();
    device.hint_max = from.hint();
    device.description = from.integer();
    from.close();
    return device;
}

static offered_group read_group(reader &from) {
    from.opened();
    offered_group group;
    group.id = from.octets(NAME);
    group.name = from.octets(NAME);
    from.sequence([&](uint32_t) { group.devices.push_back(read_device(from)); });
    from.sequence([&](uint32_t) { group.groups.push_back(read_group(from)); });
    group.name_template = from.octets(NAME);
    group.instances = from.boolean();
    from.close();
    return group;
}

static description read_description(reader &from) {
    from.opened();
    description read = {.id = from.integer()};
    read.good = from.octets(NAME);
    read.warning = from.octets(NAME);
    read.alert = from.octets(NAME);
    from.close();
    return read;
}

configuration_request read_configure_req(reader &from) {
    from.opened();
    configuration_request request;
    request.package_id = from.integer();
    request.major = from.integer();
    request.minor = from.integer();
    request.build = from.integer();
    request.caps = from.integer();
    from.sequence([&](uint32_t) { request.host.push_back(read_host_line(from)); });
    from.sequence([&](uint32_t) { request.tree.push_back(read_group(from)); });
    from.sequence([&](uint32_t) { request.descriptions.push_back(read_description(from)); });
    from.close();
    return request;
}

static void read_value(reader &from, result *out) {
    switch (uint32_t tag = from.tag()) {
    case INTEGER:
        out->kind = value_kind::INTEGER;
        out->value = from.integer_behind_tag();
        break;
    case REAL:
        out->kind = value_kind::REAL;
        out->real = from.real_behind_tag();
        break;
    case OCTETS:
        out->kind = value_kind::TEXT;
        out->text = from.octets_behind_tag(65536);
        break;
    case NOTHING:
        out->kind = value_kind::NOTHING;
        from.nothing_behind_tag();
        break;
    default:
        throw violation{"a result's value under tag " + std::to_string(tag)};
    }
}

static result read_result(reader &from) {
    from.opened();
    result read = {.time = from.integer()};
    read.comment = from.octets(NAME);
    read.status = from.enumerated();
    if (read.status > 3) throw violation{"a status of " + std::to_string(read.status)};
    from.sequence(
        [&](uint32_t) { read.path += (read.path.empty() ? "" : "/") + from.octets_behind_tag(NAME); });
    read_value(from, &read);
    uint32_t tag = from.tag();
    if (tag == 0) return read;
    if (tag != OCTETS) throw violation{"tag " + std::to_string(tag) + " behind a result's value"};
    read.conf_id = from.octets_behind_tag(NAME);
    from.close();
    return read;
}

std::vector<result> read_checkin_req(reader &from) {
    from.opened();
    std::vector<result> results;
    from.sequence([&](uint32_t) { results.push_back(read_result(from)); });
    from.close();
    return results;
}

int64_t read_time_req(reader &from) {
    from.opened();
    int64_t seconds = from.integer();
    from.integer(0, 999999);
    from.close();
    return seconds;
}

int64_t read_downtime_req(reader &from) {
    from.opened();
    int64_t minutes = from.integer();
    from.close();
    return minutes;
}

void read_upgrade_req(reader &from) {
    from.opened();
    for (int field = 0; field < 5; field++)
        from.integer();
    from.close();
}

void read_empty(reader &from) {
    from.opened();
    from.close();
}

std::string read_number_record(reader &from) {
    from.opened();
    std::string magnitude = from.number();
    from.close();
    return magnitude;
}

} // namespace wire
