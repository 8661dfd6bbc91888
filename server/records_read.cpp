#include "server/records_read.h"

#include "platform/errors.h"
#include "protocol/ber.h"
#include "server/limits.h"

int32_t read_client_version(record_reader &reader) {
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    return reader.integer(0, 65535);
}

client_wants read_identity(record_reader &reader, int32_t version) {
    client_wants wants = {.version = version};
    reader.open(TAG_PRIVATE_KEY, "client_private_key");
    wants.name = reader.text(NAME_LIMIT);
    wants.domain = reader.text(DOMAIN_LIMIT);
    wants.id = reader.text(ID_LIMIT);
    wants.has_master_key = reader.boolean();
    wants.has_hallmark = reader.boolean();
    wants.testing = reader.boolean();
    reader.close();
    reader.close();
    return wants;
}

void read_empty_record(record_reader &reader, uint32_t expected, const char *record, uint32_t tag) {
    reader.open(expected, record, tag);
    reader.close();
}

bignum_guard read_number_record(record_reader &reader, uint32_t expected, const char *record) {
    reader.open(expected, record);
    bignum_guard number = reader.number();
    reader.close();
    return number;
}

static build_numbers read_build(record_reader &reader) {
    build_numbers build;
    for (int32_t *field : {&build.package_id, &build.major, &build.minor, &build.build, &build.caps})
        *field = reader.integer();
    return build;
}

// Calls `read_element` with the identifier of each element, at most `limit` times.
template <class Element>
static void read_list(record_reader &reader, size_t limit, Element read_element) {
    reader.open(BE_SEQ, "a list");
    size_t count = 0;
    while (uint32_t tag = reader.next()) {
        if (++count > limit) return reader.fail(format_error("a list of more than %zu elements", limit));
        read_element(tag);
    }
}

static std::vector<host_line> read_host_info(record_reader &reader) {
    std::vector<host_line> lines;
    read_list(reader, MAX_HOST_LINES, [&](uint32_t tag) {
        reader.open(BE_SEQ, "host_info_line", tag);
        if (!reader.take(sizeof(host_line))) return;
        host_line &line = lines.emplace_back();
        line.label = reader.text(ID_LIMIT);
        line.value = reader.text(HOST_VALUE_LIMIT);
        reader.close();
    });
    return lines;
}

static device read_device(record_reader &reader, uint32_t tag) {
    device found;
    reader.open(BE_SEQ, "check", tag);
    found.id = reader.text(ID_LIMIT);
    found.name = reader.text(ID_LIMIT);
    found.comment = reader.text(COMMENT_LIMIT);
    found.type = reader.enumerated();
    found.unit = reader.text(ID_LIMIT);
    found.hint_value = reader.real_or_null();
    found.hint_min = reader.real_or_null();
    found.hint_max = reader.real_or_null();
    found.description = reader.integer();
    reader.close();
    return found;
}

// What one tree may still hold; groups and devices count alike.
struct tree_bounds {
    size_t depth = 0;
    size_t nodes = 0;
};

static bool count_node(record_reader &reader, tree_bounds &bounds, size_t size) {
    if (++bounds.nodes > MAX_DEVICES) reader.fail("a tree of too many devices");
    return reader.take(size);
}

static std::vector<device_group> read_tree(record_reader &reader, tree_bounds &bounds);

static void read_group(record_reader &reader, uint32_t tag, tree_bounds &bounds, device_group &group) {
    reader.open(BE_SEQ, "check_group", tag);
    group.id = reader.text(ID_LIMIT);
    group.name = reader.text(ID_LIMIT);
    read_list(reader, MAX_DEVICES, [&](uint32_t device_tag) {
        if (count_node(reader, bounds, sizeof(device)))
            group.devices.push_back(read_device(reader, device_tag));
    });
    group.groups = read_tree(reader, bounds);
    group.name_template = reader.text(ID_LIMIT);
    group.of_instances = reader.boolean();
    reader.close();
}

static std::vector<device_group> read_tree(record_reader &reader, tree_bounds &bounds) {
    std::vector<device_group> groups;
    bounds.depth++;
    read_list(reader, MAX_DEVICES, [&](uint32_t tag) {
        if (bounds.depth > MAX_GROUP_DEPTH) reader.fail("groups are nested too deeply");
        if (count_node(reader, bounds, sizeof(device_group)))
            read_group(reader, tag, bounds, groups.emplace_back());
    });
    bounds.depth--;
    return groups;
}

static std::vector<check_description> read_descriptions(record_reader &reader) {
    std::vector<check_description> descriptions;
    read_list(reader, MAX_DESCRIPTIONS, [&](uint32_t tag) {
        reader.open(BE_SEQ, "check_description", tag);
        check_description &entry = descriptions.emplace_back();
        entry.id = reader.integer();
        entry.good = reader.text(ID_LIMIT);
        entry.warning = reader.text(ID_LIMIT);
        entry.alert = reader.text(ID_LIMIT);
        reader.close();
    });
    return descriptions;
}

configure_req read_configure_req(record_reader &reader, uint32_t tag) {
    configure_req request;
    tree_bounds bounds;
    reader.open(TAG_CONFIGURE_REQ, "configure_req", tag);
    request.build = read_build(reader);
    request.host_info = read_host_info(reader);
    request.tree = read_tree(reader, bounds);
    request.descriptions = read_descriptions(reader);
    reader.close();
    return request;
}

static std::vector<std::string> read_path(record_reader &reader) {
    std::vector<std::string> path;
    read_list(reader, MAX_GROUP_DEPTH + 1, [&](uint32_t tag) {
        if (reader.take(sizeof(std::string))) path.push_back(reader.text(ID_LIMIT, tag));
    });
    if (path.size() < 2) reader.fail("a result without a path");
    return path;
}

static result_value read_value(record_reader &reader) {
    uint32_t tag = reader.tag();
    switch (tag) {
    case BE_INTEGER:
        return reader.integer(INT32_MIN, INT32_MAX, tag);
    case BE_REAL:
        return reader.real(tag);
    case BE_STRING:
        return reader.text(LOG_TEXT_LIMIT, tag);
    case BE_NULL:
        reader.null(tag);
        return {};
    default:
        reader.fail(format_error("a result's value has tag %u", tag));
        return {};
    }
}

static check_result read_result(record_reader &reader, uint32_t tag) {
    check_result result;
    reader.open(BE_SEQ, "check_result", tag);
    result.check_time = reader.integer();
    result.comment = reader.text(RESULT_COMMENT_LIMIT);
    result.status = reader.enumerated();
    if (result.status > STATUS_ERROR) reader.fail(format_error("a result of status %u", result.status));
    result.path = read_path(reader);
    result.value = read_value(reader);
    if (uint32_t next = reader.next()) {
        result.conf_id = reader.text(ID_LIMIT, next);
        reader.close();
    }
    return result;
}

std::vector<check_result> read_checkin_req(record_reader &reader, uint32_t tag) {
    std::vector<check_result> results;
    reader.open(TAG_CHECKIN_REQ, "checkin_req", tag);
    read_list(reader, MAX_RESULTS, [&](uint32_t result_tag) {
        if (reader.take(sizeof(check_result))) results.push_back(read_result(reader, result_tag));
    });
    reader.close();
    return results;
}

time_req read_time_req(record_reader &reader, uint32_t tag) {
    time_req request;
    reader.open(TAG_TIME_REQ, "server_time_req", tag);
    request.seconds = reader.integer();
    request.microseconds = reader.integer(0, 999999);
    reader.close();
    return request;
}

int32_t read_downtime_req(record_reader &reader, uint32_t tag) {
    reader.open(TAG_DOWNTIME_REQ, "downtime_req", tag);
    int32_t minutes = reader.integer();
    reader.close();
    return minutes;
}

build_numbers read_upgrade_req(record_reader &reader, uint32_t tag) {
    reader.open(TAG_UPGRADE_REQ, "upgrade_req", tag);
    build_numbers build = read_build(reader);
    reader.close();
    return build;
}
