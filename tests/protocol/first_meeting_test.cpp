#include "crypto/vectors.h"
#include "devtree/live_trees.h"
#include "fakes/hex.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "protocol/agent_side.h"
#include "protocol/registration.h"
#include "protocol/time_sync.h"

// A whole first meeting, recorded: an agent that knows nothing registers with a server that knows nothing.
// The agent's random bytes are 00 01 02 and so on, its clock stands at 1000000000.

enum { WHO, BYTES, MEANING, FIELDS };

class first_meeting : public agent_side {
protected:
    first_meeting() : turns(read_vectors("first_meeting.txt", FIELDS)) {
        sockets.on_connect = [this](scripted_connection &connection) {
            connection.starved = [&] { play(connection); };
        };
        regex_host = &regex_ops_host;
        host_info = alloc_clinfo();
        host_info->label = text_copy("OS");
        host_info->value = text_copy("Linux");
    }
    ~first_meeting() override {
        free_devtree(active_tree);
        free_clinfo_list(host_info);
        active_tree = nullptr;
        host_info = nullptr;
        time_offset = 0;
    }

    // The agent waits: its turn has to be the recorded one, and the server's follows.
    void play(scripted_connection &connection) {
        while (place < turns.size() && turns[place][WHO] == "A") {
            std::string turn = bytes(turns[place][BYTES]);
            EXPECT_EQ(hex(connection.sent.substr(seen, turn.size())), hex(turn)) << turns[place][MEANING];
            seen += turn.size();
            place++;
        }
        EXPECT_EQ(seen, connection.sent.size()) << "the agent says more than was recorded";
        while (place < turns.size() && turns[place][WHO] == "S")
            connection.to_receive += bytes(turns[place++][BYTES]);
    }

    vector_rows turns;
    size_t place = 0; // in the turns
    size_t seen = 0;  // of what the agent has sent
};

TEST_F(first_meeting, goes_as_it_was_recorded_byte_for_byte) {
    EXPECT_SUCCESS(register_with_server(config));
    EXPECT_EQ(place, turns.size());
    EXPECT_EQ(seen, sockets.last().sent.size());
    EXPECT_EQ(variable("host_id"), "agent 7");
    EXPECT_EQ(variable("hallmark"),
              md5_hex(variable("hostkey") + decimal_of(bytes("102030405060708090A0B0C0D0E0F001"))));
    EXPECT_STREQ(active_tree->devices->id, "/");
    EXPECT_EQ(time_offset, -2);
}
