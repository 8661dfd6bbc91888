#include "server/server_world.h"

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "server/store_file.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

// A folder of the test's own.
class store_file : public testing::Test {
protected:
    store_file() {
        error_host = &error_ops_host;
        fs::remove_all(folder);
        fs::create_directory(folder);
    }
    ~store_file() override { fs::remove_all(folder); }

    std::string path(const std::string &name) const { return folder / name; }
    static mode_t mode_of(const std::string &path) {
        struct stat status;
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }
    const fs::path folder = fs::temp_directory_path() / ("tnserver_store_" + std::to_string(getpid()));
};

agent_row propose(sqlite_store &store, const std::string &name) {
    agent_row agent = {.name = name, .domain = "office", .host_id = "id of " + name};
    EXPECT_SUCCESS(store.propose_key(&agent, "1234", 100));
    return agent;
}

check_result reading(int32_t time) {
    return {.check_time = time, .path = {"mem", "phys"}, .value = time};
}

} // namespace

TEST_F(store_file, belongs_to_its_owner_alone) {
    umask(0);
    sqlite_store store;
    EXPECT_SUCCESS(store.open(path("a.db")));
    propose(store, "web1");
    EXPECT_EQ(mode_of(path("a.db")), 0600U);
    EXPECT_EQ(mode_of(path("a.db-wal")), 0600U);
    umask(022);
}

TEST_F(store_file, is_taken_from_other_users) {
    std::ofstream(path("a.db")).close();
    chmod(path("a.db").c_str(), 0644);
    sqlite_store store;
    EXPECT_SUCCESS(store.open(path("a.db")));
    EXPECT_EQ(mode_of(path("a.db")), 0600U);
}

TEST_F(store_file, gets_the_folders_that_it_needs) {
    sqlite_store store;
    EXPECT_SUCCESS(store.open(path("x/y/a.db")));
    EXPECT_EQ(mode_of(path("x/y")), 0700U);
}

TEST_F(store_file, keeps_what_it_was_given) {
    agent_row before;
    {
        sqlite_store store;
        EXPECT_SUCCESS(store.open(path("a.db")));
        before = propose(store, "web1");
        EXPECT_SUCCESS(store.prove_agent(before, "1234", "abcd", 101));
    }
    sqlite_store store;
    EXPECT_SUCCESS(store.open(path("a.db")));
    agent_row after;
    EXPECT_SUCCESS(store.find_agent("web1", "office", &after));
    EXPECT_EQ(after.id, before.id);
    EXPECT_EQ(after.host_id, "id of web1");
    EXPECT_EQ(after.master_key, "1234");
    EXPECT_EQ(after.hallmark, "abcd");
    EXPECT_EQ(after.proposed_key, "");
}

TEST_F(store_file, of_an_older_server_gets_what_it_lacks) {
    {
        sqlite_store store;
        EXPECT_SUCCESS(store.open(path("a.db")));
        propose(store, "web1");
    }
    database db;
    EXPECT_SUCCESS(db.open(path("a.db"), database::access::read_write));
    db.run("DROP TABLE actions");
    db.run("PRAGMA user_version = 1");
    EXPECT_EQ(db.take_failure(), nullptr);
    database reader;
    EXPECT_FAILURE(open_store_for_reading(path("a.db"), &reader),
                   "the store " + path("a.db") +
                       " was made by an older tnserver: let this one serve with it first");
    sqlite_store store;
    std::vector<action_order> orders;
    agent_row agent;
    EXPECT_SUCCESS(store.open(path("a.db")));
    EXPECT_SUCCESS(store.find_agent("web1", "office", &agent));
    EXPECT_NE(agent.id, 0);
    EXPECT_SUCCESS(store.take_orders(agent.id, 1, &orders));
}

TEST_F(store_file, must_be_a_file) {
    sqlite_store store;
    EXPECT_FAILURE(store.open(folder), "cannot open the store " + folder.string() + ": Is a directory");
    sqlite_store other;
    EXPECT_FAILURE(other.open("/dev/null"), "cannot open the store /dev/null: it is no file");
}

TEST_F(store_file, must_be_a_store) {
    std::ofstream(path("text")) << std::string(5000, 'x');
    sqlite_store store;
    EXPECT_FAILURE(store.open(path("text")), path("text") + ": the store failed: file is not a database");
    {
        database other;
        EXPECT_SUCCESS(other.open(path("other.db"), database::access::read_write));
        other.run("CREATE TABLE x (y)");
        EXPECT_SUCCESS(other.take_failure());
    }
    sqlite_store second;
    EXPECT_FAILURE(second.open(path("other.db")), path("other.db") + " is not a store of this program");
}

TEST_F(store_file, must_not_be_of_a_newer_program) {
    {
        sqlite_store store;
        EXPECT_SUCCESS(store.open(path("a.db")));
    }
    {
        database db;
        EXPECT_SUCCESS(db.open(path("a.db"), database::access::read_write));
        db.run("PRAGMA user_version = 3");
    }
    sqlite_store store;
    EXPECT_FAILURE(store.open(path("a.db")), "the store " + path("a.db") + " was made by a newer tnserver");
}

TEST_F(store_file, is_where_the_environment_says) {
    setenv("STATE_DIRECTORY", "/run/one:/run/two", 1);
    EXPECT_EQ(usual_store_path(), "/run/one/tnserver.db");
    unsetenv("STATE_DIRECTORY");
    setenv("XDG_STATE_HOME", "/home/x/state", 1);
    EXPECT_EQ(usual_store_path(),
              geteuid() == 0 ? "/var/lib/tarnix/tnserver.db" : "/home/x/state/tarnix/tnserver.db");
    unsetenv("XDG_STATE_HOME");
}

TEST_F(store_file, is_read_by_the_summary_only_if_it_is_a_store) {
    database none;
    EXPECT_FAILURE(open_store_for_reading(path("none.db"), &none),
                   "cannot open the store " + path("none.db") + ": unable to open database file");
    std::ofstream(path("empty.db")).close();
    database empty;
    EXPECT_FAILURE(open_store_for_reading(path("empty.db"), &empty), path("empty.db") + " is empty");
}

using kept_agents = server_world;

TEST_F(kept_agents, does_not_know_an_agent_of_another_domain) {
    propose(store, "web1");
    agent_row found;
    EXPECT_SUCCESS(store.find_agent("web1", "home", &found));
    EXPECT_EQ(found.id, 0);
    EXPECT_EQ(found.name, "web1");
}

TEST_F(kept_agents, counts_agents) {
    int64_t count = -1;
    EXPECT_SUCCESS(store.count_agents(&count));
    EXPECT_EQ(count, 0);
    propose(store, "web1");
    propose(store, "web1");
    propose(store, "web2");
    EXPECT_SUCCESS(store.count_agents(&count));
    EXPECT_EQ(count, 2);
}

TEST_F(kept_agents, lets_only_a_known_agent_make_a_new_key) {
    propose(store, "web1");
    bool found = true;
    EXPECT_SUCCESS(store.allow_rekey("web2", "office", &found));
    EXPECT_FALSE(found);
    EXPECT_SUCCESS(store.allow_rekey("web1", "office", &found));
    EXPECT_TRUE(found);
}

TEST_F(kept_agents, keeps_the_permission_while_the_old_key_is_in_use) {
    agent_row agent = propose(store, "web1");
    EXPECT_SUCCESS(store.prove_agent(agent, "1234", "abcd", 101));
    bool found = false;
    EXPECT_SUCCESS(store.allow_rekey("web1", "office", &found));
    EXPECT_SUCCESS(store.prove_agent(agent, "1234", "efgh", 102));
    EXPECT_EQ(rows("SELECT may_rekey FROM agents"), std::vector<std::string>{"1"});
    EXPECT_SUCCESS(store.prove_agent(agent, "5678", "ijkl", 103));
    EXPECT_EQ(rows("SELECT may_rekey FROM agents"), std::vector<std::string>{"0"});
}

TEST_F(kept_agents, removes_old_results_a_step_at_a_time) {
    agent_row agent = propose(store, "web1");
    stored_delivery stored;
    bool more = false;
    EXPECT_SUCCESS(store.save_delivery(
        {.agent_id = agent.id, .received_at = 100, .results = std::vector<check_result>(6000, reading(1))},
        &stored));
    EXPECT_SUCCESS(
        store.save_delivery({.agent_id = agent.id, .received_at = 200, .results = {reading(2)}}, &stored));
    EXPECT_SUCCESS(store.remove_results_before(100, &more));
    EXPECT_FALSE(more);
    EXPECT_EQ(rows("SELECT count(*) FROM results"), std::vector<std::string>{"6001"});
    EXPECT_SUCCESS(store.remove_results_before(150, &more));
    EXPECT_TRUE(more);
    EXPECT_EQ(rows("SELECT count(*) FROM results"), std::vector<std::string>{"1001"});
    EXPECT_SUCCESS(store.remove_results_before(150, &more));
    EXPECT_FALSE(more);
    EXPECT_EQ(rows("SELECT check_time FROM results"), std::vector<std::string>{"2"});
}

TEST_F(kept_agents, takes_a_delivery_back_that_fails_in_the_middle) {
    agent_row agent = propose(store, "web1");
    stored_delivery stored;
    database other;
    EXPECT_SUCCESS(other.open(store_path, database::access::read_write));
    other.run("CREATE TRIGGER full BEFORE INSERT ON results WHEN NEW.check_time = 3"
              " BEGIN SELECT RAISE(ABORT, 'no room'); END");
    EXPECT_SUCCESS(other.take_failure());
    delivery arrived = {.agent_id = agent.id, .results = {reading(1), reading(2), reading(3)}};
    EXPECT_FAILURE(store.save_delivery(arrived, &stored), "the store failed: no room");
    EXPECT_TRUE(rows("SELECT * FROM results").empty());
    EXPECT_TRUE(rows("SELECT * FROM checks").empty());
    arrived.results.pop_back();
    EXPECT_SUCCESS(store.save_delivery(arrived, &stored));
    EXPECT_EQ(stored.fresh.size(), 2U);
}

TEST_F(kept_agents, forgets_all_of_an_agent_with_the_agent) {
    register_agent(encode_group("mem", encode_device("phys", 7, "kB", encode_hint(1000))));
    deliver({{.time = now, .path = {"mem", "phys"}, .value = encode_real(5)}});
    database other;
    EXPECT_SUCCESS(other.open(store_path, database::access::read_write));
    other.run("PRAGMA foreign_keys = ON");
    other.run("DELETE FROM agents");
    EXPECT_SUCCESS(other.take_failure());
    for (const char *table :
         {"host_info", "groups", "devices", "descriptions", "checks", "results", "downtimes"})
        EXPECT_TRUE(rows((std::string("SELECT * FROM ") + table).c_str()).empty()) << table;
}
