#include "server/server_world.h"

#include "crypto/random_fill.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/regex.h"
#include "server/check_path.h"
#include "server/value_text.h"

#include <filesystem>
#include <unistd.h>

void noting_observer::registered(const agent_row &agent, const build_numbers &build,
                                 const std::string &address, bool new_key) {
    note("registered " + agent.name + " build " + std::to_string(build.build) + " from " + address +
         (new_key ? " with a new key" : ""));
}

void noting_observer::offered(const agent_row &agent, size_t groups, size_t devices) {
    note("offered " + agent.name + " " + std::to_string(groups) + " " + std::to_string(devices));
}

void noting_observer::configured(const agent_row &agent, size_t checks) {
    note("configured " + agent.name + " " + std::to_string(checks));
}

void noting_observer::delivered(const agent_row &, const delivery &delivery, const stored_delivery &stored) {
    std::lock_guard lock(mutex);
    for (const stored_result &result : stored.fresh)
        fresh.push_back(delivery.results[result.index]);
}

void noting_observer::action(const agent_row &agent, const std::string &name, action_step step) {
    static constexpr const char *words[] = {"sent", "taken", "pruned"};
    note("action " + agent.name + " " + name + " " + words[static_cast<size_t>(step)]);
}

void noting_observer::downtime(const agent_row &agent, int32_t minutes, int64_t until) {
    note("downtime " + agent.name + " " + std::to_string(minutes) + " " + std::to_string(until));
}

void noting_observer::upgraded(const agent_row &agent, int32_t build) {
    note("upgraded " + agent.name + " " + std::to_string(build));
}

void noting_observer::refused(const std::string &agent, const std::string &, const std::string &reason) {
    note("refused " + agent + ": " + reason);
}

void noting_observer::failed(const std::string &agent, const std::string &, const std::string &failure) {
    note("failed " + agent + ": " + failure);
}

void noting_observer::note(const std::string &text) {
    std::lock_guard lock(mutex);
    notes.push_back(text);
}

bool noting_observer::noted(const std::string &part) const {
    std::lock_guard lock(mutex);
    for (const std::string &text : notes)
        if (text.find(part) != std::string::npos) return true;
    return false;
}

static agent_line agents_end(memory_connection &wires) {
    return {.write = [&wires](const std::string &bytes) { wires.to_server.write(bytes); },
            .read = [&wires](size_t count) { return wires.to_agent.read(count); }};
}

test_connection::test_connection(const server_ports &ports, const std::string &name, agent_secrets *secrets,
                                 std::function<bool(int64_t)> admit)
    : agent(agents_end(wires), name, secrets) {
    link = {.stream = memory_stream_new(&wires), .address = "10.0.0.7", .admit = std::move(admit)};
    link.enter_stage = [this](session_stage stage) { stages.push_back(stage); };
    session = std::thread([this, &ports] { run_session(ports, link); });
}

void test_connection::close(peer_end how) {
    if (!session.joinable()) return;
    wires.end = how;
    wires.to_server.close();
    session.join();
}

server_world::removed_files::~removed_files() {
    for (const std::string &path : paths)
        std::filesystem::remove(path);
}

server_world::server_world() {
    error_host = &error_ops_host;
    clock_host = &clock_ops_host;
    random_host = &random_ops_host;
    regex_host = &regex_ops_host;
    now = 1'700'000'000;
    // In memory where the host has such a folder: every delivery waits for the disk.
    std::filesystem::path folder = "/dev/shm";
    if (access(folder.c_str(), W_OK) != 0) folder = std::filesystem::temp_directory_path();
    auto *test = testing::UnitTest::GetInstance()->current_test_info();
    store_path = folder / (std::string("tnserver_") + test->test_suite_name() + "_" + test->name() + "_" +
                           std::to_string(getpid()) + ".db");
    EXPECT_EQ(store.open(store_path), nullptr);
    for (const char *suffix : {"", "-wal", "-shm"})
        leftovers.paths.push_back(store_path + suffix);
    set_policy("");
    ports = {.store = &store,
             .rules = &rules,
             .observer = &observer,
             .memory = &memory,
             .clock = [] { return server_time{.seconds = now, .microseconds = 250000}; },
             .random = random_fill};
}

void server_world::set_policy(const std::string &text) {
    rules = {};
    ASSERT_EQ(read_policy(BUILT_IN_POLICY, &rules), nullptr);
    ASSERT_EQ(read_policy(text, &rules), nullptr);
}

std::unique_ptr<test_connection> server_world::connect(const std::string &name) {
    return std::make_unique<test_connection>(ports, name, &secrets);
}

std::unique_ptr<test_connection> server_world::open(const std::string &name) {
    auto connection = connect(name);
    EXPECT_TRUE((*connection)->open()) << (*connection)->refusal;
    return connection;
}

void server_world::register_agent(const std::string &tree) {
    auto first = open();
    (*first)->configure();
    (*first)->ask_time(now + agent_ahead);
    first->close();
    auto second = open();
    (*second)->ask_time(now + agent_ahead);
    (*second)->checkin({});
    (*second)->configure(tree);
}

wire_value server_world::deliver(const std::vector<sent_result> &results) {
    auto connection = open();
    (*connection)->ask_time(now + agent_ahead);
    return (*connection)->checkin(results);
}

void server_world::deliver_and_lose_reply(const std::vector<sent_result> &results) {
    auto connection = open();
    (*connection)->ask_time(now + agent_ahead);
    (*connection)->checkin(results);
    connection->close(peer_end::lost);
}

std::vector<std::string> server_world::rows(const char *sql) {
    database reader;
    EXPECT_EQ(reader.open(store_path, database::access::read_only), nullptr);
    std::vector<std::string> found;
    {
        query row(reader, sql);
        while (row.row()) {
            std::string line = row.text(0);
            for (int column = 1; column < row.columns(); column++)
                line += "|" + row.text(column);
            found.push_back(line);
        }
    }
    EXPECT_FALSE(reader.failed()) << sql;
    return found;
}
