#include "wire/scripted_server.h"

#include "wire/server_session.h"

scripted_server::scripted_server(uint64_t seed) : chance(seed) {}

void scripted_server::serve(io *stream, const std::string &place) {
    server_session(*this, stream, place).run();
}

void scripted_server::configure(std::vector<wire::group> wanted) {
    checks = std::move(wanted);
    configuration++;
}

void scripted_server::release_keys() {
    for (auto &[name, account] : accounts)
        account.master_key = account.hallmark = "";
}

std::vector<wire::offered_group> scripted_server::tree() const {
    for (size_t i = requests.size(); i > 0; i--)
        if (!requests[i - 1].tree.empty()) return requests[i - 1].tree;
    return {};
}

std::vector<wire::result> scripted_server::results(const std::string &path) const {
    std::vector<wire::result> all;
    for (const delivery &one : deliveries)
        for (const wire::result &result : one.results)
            if (path.empty() || result.path == path) all.push_back(result);
    return all;
}

std::vector<int64_t> scripted_server::times(const std::string &path) const {
    std::vector<int64_t> all;
    for (const wire::result &result : results(path))
        all.push_back(result.time);
    return all;
}

uint32_t scripted_server::count_messages(const std::string &name) const {
    uint32_t count = 0;
    for (const connection_record &connection : connections)
        for (const std::string &message : connection.messages)
            count += message == name;
    return count;
}
