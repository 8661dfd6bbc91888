// What the simulation itself promises.

#include "sim/scenario.h"

// All that happened in a run of one agent with two servers, on a jittery network that chops what it carries.
static std::vector<std::string> trace_of(uint64_t seed) {
    scripted_server server(seed);
    host_sim sim(seed);
    sim.add_server(server);
    sim.add_server(server, "other");
    sim.settings["server_list"] = "server,other";
    sim.network.latency_ms = 40;
    sim.network.jitter_ms = 900;
    sim.network.chopped = true;
    sim.calls.tracing = true;
    server.checks = {{"mem", {wire::continuous("phys", 7)}}, {"fs", {wire::continuous("/", 11)}}};
    sim.start_agent();
    sim.run_for(HOUR);
    sim.network.place("server").state = place_state::REFUSES;
    sim.run_for(HOUR);
    sim.kill_agent();
    std::vector<std::string> all = sim.calls.trace;
    // The number of a handle is an address, the same in no two runs.
    for (const sim_line &line : sim.log)
        all.push_back(std::to_string(line.time) + " " + line.text.substr(0, line.text.find(" -> 0x")));
    for (const connection_record &connection : server.connections)
        all.push_back(std::to_string(connection.opened) + " " + connection.place + " " + connection.ending);
    return all;
}

TEST(simulation, gives_the_same_run_for_the_same_seed) {
    if (getenv("TN_SIM_SEED") != nullptr) GTEST_SKIP() << "one seed is set for all";
    std::vector<std::string> once = trace_of(5);
    std::vector<std::string> again = trace_of(5);
    EXPECT_GT(once.size(), 10000U);
    ASSERT_EQ(once.size(), again.size());
    for (size_t i = 0; i < once.size(); i++)
        ASSERT_EQ(once[i], again[i]) << "at " << i;
    EXPECT_NE(once, trace_of(6));
}

TEST(simulation, goes_on_from_moment_to_moment_without_waiting_for_them) {
    host_sim sim;
    sim.scheduler.sleep_until(365 * DAY * 1000);
    EXPECT_EQ(sim.wall_time(), SIM_START + 365 * DAY);
}

TEST(simulation, tells_when_everybody_waits_for_what_cannot_come) {
    host_sim sim;
    sim.scheduler.start("sleeper", false, [&] { sim.scheduler.wait_until([] { return false; }, NEVER); });
    EXPECT_FALSE(sim.scheduler.wait_until([] { return false; }, NEVER));
    EXPECT_TRUE(sim.scheduler.stuck);
}

TEST(simulation, runs_one_task_at_a_time) {
    host_sim sim(3);
    std::string order;
    for (char name : {'a', 'b', 'c'})
        sim.scheduler.start(std::string(1, name), false, [&sim, &order, name] {
            for (int i = 0; i < 50; i++) {
                order += name;
                sim.scheduler.sleep_until(sim.scheduler.now_ms + 10);
                order += name;
            }
        });
    sim.scheduler.sleep_until(10'000);
    EXPECT_EQ(order.size(), 300U);
    EXPECT_NE(order.find("aba"), std::string::npos); // they do take turns
}

TEST(simulated_disk, loses_what_was_not_synced) {
    int kept = 0;
    for (uint64_t seed = 1; seed <= 20; seed++) {
        host_sim sim(seed);
        sim.disk.put("/a/file", "old");
        host_file file = files_host->open("/a/file", FILE_REPLACE);
        files_host->write(file, "new", 3);
        sim.disk.cut_power();
        kept += sim.disk.get("/a/file") == "new";
        EXPECT_EQ(std::string("new").find(sim.disk.get("/a/file") == "old" ? "new" : sim.disk.get("/a/file")),
                  0U);
    }
    EXPECT_LT(kept, 20);
}

TEST(simulated_disk, keeps_what_was_synced_and_put_in_its_place) {
    for (uint64_t seed = 1; seed <= 20; seed++) {
        host_sim sim(seed);
        sim.disk.put("/a/file", "old");
        host_file file = files_host->open("/a/file.new", FILE_REPLACE);
        files_host->write(file, "new", 3);
        files_host->sync(file);
        files_host->close(file);
        files_host->MoveFileExA("/a/file.new", "/a/file");
        sim.disk.cut_power();
        EXPECT_EQ(sim.disk.get("/a/file"), "new");
        EXPECT_FALSE(sim.disk.has("/a/file.new"));
    }
}

TEST(simulated_disk, may_lose_a_file_whose_name_was_not_synced) {
    int kept = 0;
    for (uint64_t seed = 1; seed <= 20; seed++) {
        host_sim sim(seed);
        sim.disk.put("/a/other", "");
        host_file file = files_host->open("/a/file", FILE_REPLACE);
        files_host->write(file, "new", 3);
        files_host->sync(file);
        sim.disk.cut_power();
        kept += sim.disk.has("/a/file");
    }
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, 20);
}
