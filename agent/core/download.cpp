#include "core/download.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/files.h"
#include "platform/text.h"
#include "platform/version.h"
#include "protocol/authentication.h"
#include "protocol/records.h"
#include "protocol/upgrade_resp.h"

#include <cstdio>
#include <cstring>

static constexpr const char *DOWNLOAD_FILE = "download.tmp"; // in the working directory
static constexpr size_t PATH_SIZE = 1024;

static bool copy_server(const agent_config *config, agent_config *copy) {
    uint16_t port;
    const server_entry *server = config_server(config, server_index, &port);
    copy->servers = static_cast<server_entry *>(heap_alloc(2 * sizeof(server_entry)));
    if (copy->servers == nullptr) return false;
    copy->servers[0] = {.name = text_copy(server->name), .port = port};
    return server->name == nullptr || copy->servers[0].name != nullptr;
}

// Whether the text was copied, or there was none.
static bool copy_field(const char *text, char **out) {
    *out = text_copy(text);
    return text == nullptr || *out != nullptr;
}

agent_config *download_config(const agent_config *config) {
    config_guard copy(heap_new<agent_config>());
    if (copy == nullptr || !copy_server(config, copy.get())) return nullptr;
    if (!copy_field(config->name, &copy->name) || !copy_field(config->domain, &copy->domain) ||
        !copy_field(config->host_id, &copy->host_id))
        return nullptr;
    return copy.release();
}

static const char *open_connection(const agent_config *config, io **out) {
    const server_entry *server = &config->servers[0];
    agent_log(LOG_DETAIL, "Talking to server: %s:%d", server->name != nullptr ? server->name : "(null)",
              server->port);
    io *stream = nullptr;
    if (auto *failure = connect_to_host(server->name, server->port, &stream)) return failure;
    auto *failure = client_authenticate(&stream, config);
    if (failure != nullptr)
        close_io(stream);
    else
        *out = stream;
    return failure;
}

static const char *send_request(io *stream) {
    upgrade_req request = {.packageId = PACKAGE_ID,
                           .majorVersion = MAJOR_VERSION,
                           .minorVersion = MINOR_VERSION,
                           .buildNumber = BUILD_NUMBER,
                           .agentCaps = AGENT_CAPS};
    if (auto *failure = write_upgrade_req(stream, &request)) return failure;
    return stream->flush(stream);
}

const char *fetch_upgrade(const agent_config *config, const char *path) {
    io *opened = nullptr;
    if (auto *failure = open_connection(config, &opened)) return failure;
    io_guard stream(opened);
    if (auto *failure = send_request(stream.get())) return failure;
    host_file file = files_host->open(path, FILE_REPLACE);
    if (file == NO_FILE) return format_error("Error opening %s: %s", path, last_error_text());
    int32_t number;
    auto *failure = read_upgrade_resp(stream.get(), file, &number);
    stream.reset();
    // The launcher must never find a name in place whose bytes a power cut has taken.
    bool kept = failure != nullptr || files_host->sync(file);
    if (!(files_host->close(file) && kept) && failure == nullptr)
        return format_error("Error closing %s: %s", path, last_error_text());
    return failure;
}

// The place of the new program: the running one's folder. False where there is none.
static bool upgrade_path(char out[PATH_SIZE]) {
    if (!process_host->GetModuleFileNameA(out, PATH_SIZE)) return false;
    char *name = const_cast<char *>(file_name_of(out));
    if (name == out) return false;
    size_t room = static_cast<size_t>(out + PATH_SIZE - name);
    return snprintf(name, room, "upgrade%s", process_host->program_suffix) < static_cast<int>(room);
}

uint32_t download_thread(void *argument) {
    auto *config = static_cast<const agent_config *>(argument);
    if (fetch_upgrade(config, DOWNLOAD_FILE) != nullptr) return 1; // its text is nobody's
    char path[PATH_SIZE];
    if (!upgrade_path(path)) return 1;
    agent_log(LOG_NORMAL, "Placing new Agent executable at %s", path);
    if (files_host->make_executable != nullptr && !files_host->make_executable(DOWNLOAD_FILE)) {
        agent_log(LOG_ERROR, "Error moving file: %s", last_error_text());
        return 1;
    }
    if (files_host->MoveFileExA(DOWNLOAD_FILE, path)) return 0;
    agent_log(LOG_ERROR, "Error moving file: %s", last_error_text());
    return 1;
}
