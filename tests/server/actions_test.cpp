// Actions, from the administrator's order to what the agent has made of it.
#include "server/server_world.h"

#include "server/summary.h"

#include "fakes/test_host.h"

namespace {

class ordered_actions : public server_world {
protected:
    void SetUp() override {
        register_agent(encode_group("action", encode_device("backup", 8, "", NO_HINT) +
                                                  encode_device("restart", 8, "", NO_HINT)) +
                       encode_group("custom", encode_device("disks", 3, "", NO_HINT)));
        observer.notes.clear();
    }
    std::string order(const std::string &action, const std::string &agent = "web1") {
        std::string label;
        const char *failure = store.order_action(agent, action, now, &label);
        return failure != nullptr ? noted_failure(failure) : label;
    }
    // The actions of a checkin's answer, which the agent then reads or not.
    std::vector<std::string> checkin(peer_end how = peer_end::in_order) {
        auto agent = open();
        (*agent)->ask_time(now);
        wire_value reply = (*agent)->checkin({});
        agent->close(how);
        std::vector<std::string> names;
        if (reply[3].parts.empty()) return names;
        EXPECT_EQ(reply[3].parts.size(), 1U); // agents keep no second group
        EXPECT_EQ(reply[3][0][0].content, "action");
        EXPECT_TRUE(reply[3][0][1].parts.empty()); // its groups
        for (size_t i = 0; i < reply[3][0][2].parts.size(); i++)
            names.push_back(reply[3][0][2][i][0].content);
        EXPECT_FALSE(names.empty()) << "a group of nothing";
        return names;
    }
    void run(const std::string &sql) {
        database writer;
        EXPECT_SUCCESS(writer.open(store_path, database::access::read_write));
        writer.run(sql.c_str());
        EXPECT_FALSE(writer.failed()) << sql;
    }
    std::vector<std::string> states() {
        return rows("SELECT name, sent_at IS NOT NULL, taken_at IS NOT NULL, pruned_at IS NOT NULL"
                    " FROM actions ORDER BY id");
    }
};

using words = std::vector<std::string>;

// A store that keeps no results.
struct full_store : sqlite_store {
    const char *save_delivery(const delivery &, stored_delivery *) override { return "the disk is full"; }
};

} // namespace

TEST_F(ordered_actions, go_out_once_with_the_next_checkin) {
    EXPECT_EQ(checkin(), words());
    EXPECT_EQ(order("backup"), "web1@office");
    EXPECT_EQ(order("restart"), "web1@office");
    EXPECT_EQ(checkin(), words({"backup", "restart"}));
    EXPECT_EQ(checkin(), words());
}

TEST_F(ordered_actions, are_taken_when_the_agent_has_read_them_and_pruned_by_the_next_acknowledgement) {
    order("backup");
    EXPECT_EQ(states(), words({"backup|0|0|0"}));
    checkin();
    EXPECT_EQ(states(), words({"backup|1|1|0"}));
    checkin();
    EXPECT_EQ(states(), words({"backup|1|1|1"}));
    EXPECT_EQ(observer.notes,
              words({"action web1 backup sent", "action web1 backup taken", "action web1 backup pruned"}));
}

TEST_F(ordered_actions, do_not_come_again_when_their_answer_was_lost) {
    order("backup");
    checkin(peer_end::lost);
    EXPECT_EQ(states(), words({"backup|1|0|0"}));
    EXPECT_EQ(checkin(), words());
    EXPECT_EQ(states(), words({"backup|1|0|0"})); // never taken, so nothing to prune
}

TEST_F(ordered_actions, are_not_pruned_by_a_lost_acknowledgement) {
    order("backup");
    checkin();
    checkin(peer_end::lost);
    EXPECT_EQ(states(), words({"backup|1|1|0"}));
}

TEST_F(ordered_actions, are_not_pruned_by_a_checkin_that_is_not_acknowledged) {
    order("backup");
    checkin();
    full_store full;
    EXPECT_SUCCESS(full.open(store_path));
    ports.store = &full;
    checkin();
    EXPECT_EQ(states(), words({"backup|1|1|0"}));
    ports.store = &store;
    checkin();
    EXPECT_EQ(states(), words({"backup|1|1|1"}));
}

TEST_F(ordered_actions, need_an_agent_that_offers_them) {
    EXPECT_EQ(order("reboot"), "web1@office offers no action \"reboot\"");
    EXPECT_EQ(order("disks"), "web1@office offers no action \"disks\"");
    EXPECT_EQ(order("backup", "web2"), "no agent \"web2\"");
    EXPECT_EQ(states(), words());
}

TEST_F(ordered_actions, wait_once) {
    order("backup");
    EXPECT_EQ(order("backup"), "web1@office is ordered to start backup already");
    checkin();
    EXPECT_EQ(order("backup"), "web1@office");
}

TEST_F(ordered_actions, name_an_agent_by_its_domain_where_two_are_called_alike) {
    run("INSERT INTO agents (name, domain, host_id, registered_at, last_seen)"
        " VALUES ('web1', 'lab', 'x', 0, 0)");
    EXPECT_EQ(order("backup"), "\"web1\" may be web1@lab or web1@office");
    EXPECT_EQ(order("backup", "web1@office"), "web1@office");
    EXPECT_EQ(order("backup", "web1@lab"), "web1@lab offers no action \"backup\"");
}

TEST_F(ordered_actions, come_in_portions) {
    for (int i = 0; i < 40; i++)
        run("INSERT INTO actions (agent_id, name, ordered_at) SELECT id, '" + std::to_string(i) +
            "', 0 FROM agents");
    EXPECT_EQ(checkin().size(), 32U);
    EXPECT_EQ(checkin().size(), 8U);
}

TEST_F(ordered_actions, stand_in_the_summary_with_their_steps) {
    test_host host; // for the time zone
    now = 1'000'000'000;
    order("backup");
    now += 10;
    checkin();
    now += 10;
    checkin();
    order("restart");
    checkin(peer_end::lost);
    order("restart");
    database reader;
    store_summary found;
    EXPECT_SUCCESS(open_store_for_reading(store_path, &reader));
    EXPECT_SUCCESS(summarize(reader, &found));
    std::string text = summary_text(found);
    EXPECT_EQ(text.substr(text.find("\nordered actions:")),
              "\nordered actions:\n"
              "  2001-09-09 01:46:40  web1: backup, taken 2001-09-09 01:46:50, pruned 2001-09-09 01:47:00\n"
              "  2001-09-09 01:47:00  web1: restart, sent; whether the agent has taken it is not known\n"
              "  2001-09-09 01:47:00  web1: restart, waits for the agent's next checkin\n");
}
