#include "sim/scenario.h"

// Local commands to the agent while it runs.
struct local_command : scenario {
    std::deque<sim_client> clients; // they outlive the agent
    // What a client that connects now gets for its command.
    std::string ask(const std::string &command) {
        sim_client &client = clients.emplace_back(sim_client{.command = command});
        EXPECT_EQ(sim.channel.connect(&client), sim_contact::CONNECTED);
        EXPECT_TRUE(sim.run_until([&] { return client.served; }, HOUR));
        return client.reply;
    }
    size_t connections() const { return sim.network.sockets.size(); }
};

TEST_F(local_command, for_downtime_is_passed_to_the_server_and_its_words_come_back) {
    begin({});
    EXPECT_EQ(ask("DOWN 5\n"), "OK Downtime granted");
    EXPECT_EQ(ask("DOWN 0x10"), "OK Downtime granted");
    EXPECT_EQ(server.downtimes, (std::vector<int64_t>{5, 16}));
    EXPECT_TRUE(sim.logged(0, "[cmd] handle_command \"DOWN 5\n\""));
    EXPECT_TRUE(sim.logged(0, "[cmd] wait_for_object Got 2"));
}

TEST_F(local_command, for_downtime_that_is_refused_says_so) {
    begin({});
    server.downtime_granted = false;
    server.downtime_message = "ask again";
    EXPECT_EQ(ask("DOWN 5\n"), "FAILURE ask again");
}

TEST_F(local_command, that_is_none_is_refused_without_asking_the_server) {
    begin({});
    EXPECT_EQ(ask("DOWN abc"), "FAILED Not a number in DOWN command.");
    EXPECT_EQ(ask("DOWN 0"), "FAILED Not a number in DOWN command.");
    EXPECT_EQ(ask("DOWN"), "FAILED unknown command.");
    EXPECT_EQ(ask("down 5"), "FAILED unknown command.");
    EXPECT_EQ(ask(std::string(1, '\0')), "FAILED unknown command.");
    EXPECT_EQ(ask(std::string(1024, 'x')), "FAILED unknown command.");
    EXPECT_EQ(server.downtimes, std::vector<int64_t>());
}

TEST_F(local_command, that_is_empty_is_told_so) {
    begin({});
    EXPECT_EQ(ask(""), "FAILURE empty command");
}

TEST_F(local_command, is_answered_although_no_server_can_be_reached) {
    begin({});
    sim.network.place("server").state = place_state::REFUSES;
    EXPECT_EQ(ask("DOWN 5\n"), "FAILURE setup_connection: Error connecting: Connection refused (111)");
    EXPECT_EQ(sim.count_logged("handle_named_pipe Got \"DOWN 5\n\""), 1);
}

TEST_F(local_command, is_answered_although_the_exchange_fails) {
    begin({});
    server.bends.push_back({.at = server_step::DOWNTIME_RESP, .kind = bend_kind::CLOSE_BEFORE});
    EXPECT_EQ(ask("DOWN 5\n").substr(0, 26), "FAILED request_downtime: P");
    size_t before = connections();
    EXPECT_EQ(before, 0U);
}

TEST_F(local_command, brings_as_much_of_the_servers_words_as_a_reply_holds) {
    begin({});
    server.downtime_message = std::string(1014, 'x');
    EXPECT_EQ(ask("DOWN 5\n"), "OK " + server.downtime_message);
    server.downtime_message += "x";
    EXPECT_EQ(ask("DOWN 5\n"), "FAILED request_downtime: message too big");
}

TEST_F(local_command, comes_one_at_a_time) {
    begin({});
    sim_client &first = clients.emplace_back(sim_client{.command = "DOWN 5\n"});
    sim_client &second = clients.emplace_back(sim_client{.command = "DOWN 6\n"});
    EXPECT_EQ(sim.channel.connect(&first), sim_contact::CONNECTED);
    EXPECT_EQ(sim.channel.connect(&second), sim_contact::BUSY);
    sim.run_for(1);
    EXPECT_TRUE(first.served);
    EXPECT_EQ(sim.channel.connect(&second), sim_contact::CONNECTED);
    sim.run_for(1);
    EXPECT_EQ(server.downtimes, (std::vector<int64_t>{5, 6}));
}

TEST_F(local_command, of_a_client_that_vanishes_ends_the_channel_and_not_the_agent) {
    begin({{"mem", {wire::continuous("phys", 30)}}});
    sim_client &ghost = clients.emplace_back(sim_client{.vanishes = true});
    sim.channel.connect(&ghost);
    ASSERT_TRUE(checkins(3));
    EXPECT_TRUE(sim.logged(3, "handle_named_pipe: ReadFile failed GLE=109(ERROR_BROKEN_PIPE) bytesRead=0"));
    sim_client &later = clients.emplace_back(sim_client{.command = "DOWN 5\n"});
    EXPECT_EQ(sim.channel.connect(&later), sim_contact::BUSY);
    EXPECT_EQ(connections(), 0U);
}

TEST_F(local_command, of_a_silent_client_holds_the_agent_up_for_a_minute) {
    begin({});
    int64_t start = now();
    sim_client &dumb = clients.emplace_back(sim_client{.silent = true});
    sim.channel.connect(&dumb);
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("ReadFile failed GLE=258"); }, HOUR));
    EXPECT_EQ(now() - start, 61);
}

TEST_F(local_command, of_a_client_that_does_not_wait_for_its_reply_goes_on) {
    begin({});
    sim_client &deaf = clients.emplace_back(sim_client{.command = "DOWN 5\n", .deaf = true});
    sim.channel.connect(&deaf);
    ASSERT_TRUE(sim.run_until([&] { return deaf.served; }, HOUR));
    EXPECT_TRUE(sim.logged(3, "handle_named_pipe: WriteFile failed GLE=232"));
    EXPECT_EQ(ask("DOWN 5\n"), "OK Downtime granted");
}

TEST_F(local_command, waits_for_a_checkin_that_is_under_way) {
    begin({});
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::DELAY, .amount = 100});
    ASSERT_TRUE(sim.run_until([&] { return connections() == 1; }, HOUR));
    int64_t start = now();
    EXPECT_EQ(ask("DOWN 5\n"), "OK Downtime granted");
    EXPECT_EQ(now() - start, 100);
}

TEST_F(local_command, that_was_granted_leaves_a_connection_until_the_server_drops_it) {
    begin({});
    ask("DOWN 5\n");
    ask("DOWN 5\n");
    EXPECT_EQ(connections(), 2U);
    sim.network.cut_links();
    EXPECT_EQ(connections(), 2U) << "nobody looks at them";
    ask("DOWN 5\n");
    EXPECT_EQ(connections(), 1U);
}

TEST_F(local_command, ten_thousand_times_leaves_nothing_behind) {
    begin({});
    size_t handles = sim.handles.size();
    size_t blocks = sim.blocks.size();
    for (int i = 0; i < 10000; i++)
        ASSERT_EQ(ask("DOWN x"), "FAILED Not a number in DOWN command.");
    EXPECT_EQ(connections(), 0U);
    EXPECT_EQ(sim.handles.size(), handles);
    EXPECT_EQ(sim.blocks.size(), blocks);
}

TEST_F(local_command, finds_no_agent_in_a_process_that_asks_for_downtime_itself) {
    sim.start_agent({"--down=5", "--quiet"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, HOUR));
    EXPECT_EQ(sim.exit_status, 0);
    EXPECT_EQ(server.downtimes, std::vector<int64_t>{5});
    EXPECT_TRUE(sim.console.ends_with("OK Downtime granted\n"));
    EXPECT_FALSE(sim.logged_part("[cmd] Created named pipe"));
}
