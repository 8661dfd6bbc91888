#include "server/listener.h"

#include "fakes/test_host.h"
#include "server/client_socket.h"
#include "server/server_world.h"

#include <atomic>
#include <chrono>
#include <future>

namespace {

using steady = std::chrono::steady_clock;

// A store that holds a delivery until it is let go.
struct waiting_store : sqlite_store {
    std::promise<void> reached, released;
    std::atomic<bool> waits = false;

    const char *save_delivery(const delivery &arrived, stored_delivery *out) override {
        if (waits.exchange(false)) {
            reached.set_value();
            released.get_future().wait();
        }
        return sqlite_store::save_delivery(arrived, out);
    }
};

class listening : public server_world {
protected:
    ~listening() override { stop(); }

    void start(const listener_limits &limits) {
        door = std::make_unique<listener>(limits);
        std::string address;
        EXPECT_SUCCESS(door->open("127.0.0.1:0", &address));
        port = static_cast<uint16_t>(std::stoi(address.substr(address.rfind(':') + 1)));
        server = std::thread([this] { door->serve(ports, [this] { idle_calls++; }); });
    }
    void stop() {
        if (!server.joinable()) return;
        door->stop();
        server.join();
    }
    // A whole opening over a socket.
    bool opens(client_socket &socket, const std::string &name, agent_secrets *kept) {
        return scripted_agent(socket.line(), name, kept).open();
    }

    static constexpr listener_limits PATIENT = {.patience_ms = 20'000};
    static constexpr listener_limits SMALL = {
        .connections = 8,
        .connections_of_agent = 2,
        .opening = {.wait_ms = 300, .total_ms = 600, .bytes = 16384},
        .exchange = {.wait_ms = 10'000, .total_ms = 20'000, .bytes = 65536},
        .patience_ms = 100,
    };

    std::unique_ptr<listener> door;
    std::thread server;
    uint16_t port = 0;
    std::atomic<int> idle_calls = 0;
};

constexpr const char *UNSETTLED = "SELECT count(*) FROM results WHERE unsettled <> 0";
const sent_result READING = {.time = 1'700'000'000, .path = {"mem", "phys"}, .value = encode_real(5)};

} // namespace

TEST_F(listening, serves_an_agent) {
    start(PATIENT);
    {
        client_socket socket(port);
        scripted_agent agent(socket.line(), "web1", &secrets);
        ASSERT_TRUE(agent.open());
        agent.ask_time(now);
        EXPECT_TRUE(agent.checkin({READING})[0].truth());
    }
    stop();
    EXPECT_EQ(rows("SELECT count(*) FROM results"), std::vector<std::string>{"1"});
    EXPECT_GT(idle_calls, 0);
    EXPECT_TRUE(observer.notes.empty()) << observer.notes[0];
}

TEST_F(listening, serves_agents_side_by_side) {
    start(PATIENT);
    std::vector<std::unique_ptr<client_socket>> sockets;
    std::vector<agent_secrets> kept(8);
    for (size_t i = 0; i < kept.size(); i++) {
        sockets.push_back(std::make_unique<client_socket>(port));
        EXPECT_TRUE(opens(*sockets[i], "web" + std::to_string(i), &kept[i]));
    }
    sockets.clear();
    stop();
    EXPECT_EQ(rows("SELECT count(*) FROM agents WHERE hallmark IS NOT NULL"), std::vector<std::string>{"8"});
}

// What the closing of a connection tells about the last answer.

TEST_F(listening, settles_what_an_agent_has_read) {
    start(PATIENT);
    {
        client_socket socket(port);
        scripted_agent agent(socket.line(), "web1", &secrets);
        ASSERT_TRUE(agent.open());
        agent.ask_time(now);
        agent.checkin({READING});
    }
    stop();
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"0"});
}

TEST_F(listening, does_not_settle_what_an_agent_left_unread) {
    start(PATIENT);
    {
        client_socket socket(port);
        scripted_agent agent(socket.line(), "web1", &secrets);
        ASSERT_TRUE(agent.open());
        agent.ask_time(now);
        agent.send_checkin({READING});
        socket.wait_for_bytes();
    }
    stop();
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"1"});
}

TEST_F(listening, does_not_settle_what_was_sent_to_an_agent_that_had_left) {
    waiting_store slow;
    EXPECT_SUCCESS(slow.open(store_path));
    ports.store = &slow;
    start(PATIENT);
    {
        client_socket socket(port);
        scripted_agent agent(socket.line(), "web1", &secrets);
        ASSERT_TRUE(agent.open());
        agent.ask_time(now);
        slow.waits = true;
        agent.send_checkin({READING});
        slow.reached.get_future().wait();
        socket.end_sending();
        slow.released.set_value();
        agent.expect(wire::checkin_resp); // it comes too late to count
    }
    stop();
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"1"});
}

// Strangers

TEST_F(listening, ends_with_a_stranger_that_says_nothing) {
    start(SMALL);
    client_socket stranger(port);
    EXPECT_TRUE(stranger.is_cut(10'000));
    stop();
    EXPECT_TRUE(observer.noted("nothing moved for 0.3 seconds"));
}

TEST_F(listening, ends_with_a_stranger_that_speaks_slowly) {
    start(SMALL);
    client_socket stranger(port);
    auto begin = steady::now();
    bool cut = false;
    while (!cut && steady::now() - begin < std::chrono::seconds(10)) {
        stranger.write("\x19"); // a filler, of which any number may come
        cut = stranger.is_cut(50);
    }
    EXPECT_TRUE(cut);
    stop();
    EXPECT_TRUE(observer.noted("the connection took longer than 0.6 seconds"));
}

TEST_F(listening, ends_with_a_stranger_that_says_too_much) {
    start(SMALL);
    client_socket stranger(port);
    stranger.write(std::string(16385, '\x19'));
    EXPECT_TRUE(stranger.is_cut(10'000));
    stop();
    EXPECT_TRUE(observer.noted("the agent sent too much"));
}

TEST_F(listening, serves_agents_however_many_strangers_come) {
    start({.connections = 8, .patience_ms = 100});
    std::vector<std::unique_ptr<client_socket>> strangers;
    for (int i = 0; i < 100; i++) {
        strangers.push_back(std::make_unique<client_socket>(port));
        strangers.back()->write(i % 2 == 0 ? "\x60\x80" : "\x60\x80\x02\x02\x02\x02\xA1\x80\x04\x82\xFF\xFF");
        if (i % 25 == 24) {
            client_socket socket(port);
            EXPECT_TRUE(opens(socket, "web1", &secrets));
        }
    }
}

TEST_F(listening, stands_a_storm_of_nonsense) {
    start({.connections = 16, .patience_ms = 100});
    std::vector<std::thread> storm;
    for (uint32_t seed = 1; seed <= 4; seed++)
        storm.emplace_back([this, seed] {
            uint32_t state = seed;
            for (int round = 0; round < 50; round++) {
                client_socket stranger(port);
                std::string bytes = round % 2 == 0 ? "\x60\x80" : "";
                for (int i = 0; i < 200; i++) {
                    state = state * 1103515245U + 12345U;
                    bytes += static_cast<char>(state >> 16);
                }
                stranger.write(bytes);
            }
        });
    for (std::thread &thread : storm)
        thread.join();
    client_socket socket(port);
    EXPECT_TRUE(opens(socket, "web1", &secrets));
}

TEST_F(listening, gives_an_agent_its_share_of_connections) {
    start({.connections_of_agent = 2, .patience_ms = 100});
    client_socket first(port);
    client_socket second(port);
    client_socket third(port);
    EXPECT_TRUE(opens(first, "web1", &secrets));
    EXPECT_TRUE(opens(second, "web1", &secrets));
    opens(third, "web1", &secrets);
    EXPECT_TRUE(third.is_cut(10'000));
    EXPECT_FALSE(second.is_cut(0));
}

TEST_F(listening, is_heard_by_an_agent_that_it_refuses) {
    start(PATIENT);
    client_socket socket(port);
    scripted_agent agent(socket.line(), "web1", &secrets);
    agent.send(std::string("\x60\x80") + encode_integer(768) + std::string(4000, 'x')); // which nobody reads
    EXPECT_EQ(agent.expect(wire::negotiate_nack)[0].content,
              "This server speaks version 2 of the protocol, the agent version 3");
}

// The end

TEST_F(listening, lets_a_session_come_to_its_end) {
    waiting_store slow;
    EXPECT_SUCCESS(slow.open(store_path));
    ports.store = &slow;
    start(PATIENT);
    client_socket socket(port);
    scripted_agent agent(socket.line(), "web1", &secrets);
    ASSERT_TRUE(agent.open());
    agent.ask_time(now);
    slow.waits = true;
    agent.send_checkin({READING});
    slow.reached.get_future().wait();
    door->stop();
    slow.released.set_value();
    EXPECT_TRUE(agent.expect(wire::checkin_resp)[0].truth());
    socket.leave();
    stop();
    EXPECT_EQ(rows(UNSETTLED), std::vector<std::string>{"0"});
}

TEST_F(listening, does_not_wait_for_silent_sessions) {
    start({.patience_ms = 50});
    client_socket stranger(port);
    client_socket socket(port);
    EXPECT_TRUE(opens(socket, "web1", &secrets));
    stop();
    EXPECT_TRUE(socket.is_cut(0));
    EXPECT_TRUE(stranger.is_cut(0));
}

TEST_F(listening, ends_at_once_at_the_second_word) {
    start(PATIENT);
    client_socket socket(port);
    EXPECT_TRUE(opens(socket, "web1", &secrets));
    door->stop();
    stop();
    EXPECT_TRUE(socket.is_cut(0));
}

TEST_F(listening, needs_a_free_port) {
    start(PATIENT);
    listener second;
    std::string address;
    std::string place = "127.0.0.1:" + std::to_string(port);
    EXPECT_FAILURE(second.open(place, &address), "cannot listen at " + place + ": Address already in use");
}

TEST(listener_open, refuses_what_is_no_address) {
    test_host host;
    listener door;
    std::string address;
    EXPECT_FAILURE(door.open("here", &address), "\"here\" is not ADDRESS:PORT");
    EXPECT_FAILURE(door.open("192.0.2.1:0", &address),
                   "cannot listen at 192.0.2.1:0: Cannot assign requested address");
}
