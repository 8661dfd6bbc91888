// The upgrade: which file is one, who is offered it, and how it goes out.
#include "server/upgrade_offer.h"

#include "server/limits.h"
#include "server/server_world.h"

#include "fakes/test_host.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// A server with an upgrade in a file of the test's own.
class upgrade : public server_world {
protected:
    ~upgrade() override { fs::remove(path); }

    void write_file(const std::string &content) const {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    }
    std::string failure_of_open(int32_t build = 5154) const {
        upgrade_package opened;
        return noted_failure(opened.open(path, build));
    }
    // Offers this content as build 5154.
    void offer(const std::string &content) {
        write_file(content);
        EXPECT_SUCCESS(package.open(path, 5154));
        ports.upgrade = &offered;
    }
    bool is_offered(std::unique_ptr<test_connection> agent) const {
        (*agent)->ask_time(now);
        return (*agent)->checkin({})[2].truth();
    }
    void register_build(int64_t build) {
        auto agent = open();
        (*agent)->build = build;
        (*agent)->configure();
    }
    // Fetches the package, and reads all of it.
    wire_value fetch() {
        auto agent = open();
        (*agent)->ask_upgrade();
        return (*agent)->expect(wire::upgrade_resp);
    }

    const std::string path = fs::temp_directory_path() / ("tnserver_upgrade_" + std::to_string(getpid()));
    upgrade_package package;
    upgrade_offer offered{&package};
};

} // namespace

TEST(find_build, reads_the_version_text) {
    EXPECT_EQ(find_build("ELF v.3.8.0 build 5153 on Linux (x86-64) and so on"), 5153);
    EXPECT_EQ(find_build(std::string("v.\0v.x.1 v.10.20.30 build 2147 on ", 35)), 2147);
}

TEST(find_build, finds_none_where_there_is_none) {
    for (const char *text :
         {"", "v.", "v.3.8.0", "v.3.8.0 build 5153", "v.3.8 build 5153 on Linux", "v.3.8.0 build x on Linux",
          "v.3.8.0 build 0 on Linux", "v.3.8.0 build -1 on Linux", "build 5153 on Linux"})
        EXPECT_EQ(find_build(text), std::nullopt) << text;
}

// The file

TEST_F(upgrade, is_a_file_that_agents_take) {
    EXPECT_EQ(failure_of_open(), "cannot read the upgrade " + path + ": No such file or directory");
    write_file("");
    EXPECT_EQ(failure_of_open(), "the upgrade " + path + " is empty");
    fs::resize_file(path, PACKAGE_LIMIT);
    EXPECT_EQ(failure_of_open(), "(none)");
    fs::resize_file(path, PACKAGE_LIMIT + 1);
    EXPECT_EQ(failure_of_open(),
              "the upgrade " + path + " has 10485761 bytes, and agents take 10485760 at most");
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_EQ(failure_of_open(), "the upgrade " + path + " is no file");
}

TEST_F(upgrade, is_of_the_build_that_it_names_unless_told_otherwise) {
    write_file("v.3.8.0 build 6000 on Linux");
    upgrade_package named;
    EXPECT_SUCCESS(named.open(path, 0));
    EXPECT_EQ(named.build(), 6000);
    upgrade_package told;
    EXPECT_SUCCESS(told.open(path, 7000));
    EXPECT_EQ(told.build(), 7000);
    write_file("#!/bin/sh");
    EXPECT_EQ(failure_of_open(0),
              "the upgrade " + path + " does not name its build: --upgrade-build says it");
}

// The offer

TEST_F(upgrade, is_offered_to_agents_of_a_lower_build) {
    offer("program");
    for (auto [build, expected] : {std::pair(5153, true), {5154, false}, {5155, false}, {1, true}}) {
        register_build(build);
        EXPECT_EQ(is_offered(open()), expected) << build;
    }
}

TEST_F(upgrade, is_offered_to_no_agent_of_unknown_build) {
    offer("program");
    open();
    EXPECT_FALSE(is_offered(open()));
}

TEST_F(upgrade, is_offered_to_nobody_where_there_is_none) {
    register_build(5153);
    EXPECT_FALSE(is_offered(open()));
}

TEST_F(upgrade, is_offered_until_it_was_fetched) {
    offer("program");
    register_build(5153);
    EXPECT_TRUE(is_offered(open()));
    EXPECT_TRUE(is_offered(open()));
    fetch();
    EXPECT_FALSE(is_offered(open()));
    EXPECT_TRUE(observer.noted("upgraded web1 5154"));
}

TEST_F(upgrade, is_offered_again_a_day_behind_a_fetch_that_changed_nothing) {
    offer("program");
    register_build(5153);
    fetch();
    now += OFFER_AGAIN_S - 1;
    EXPECT_FALSE(is_offered(open()));
    now++;
    EXPECT_TRUE(is_offered(open()));
}

TEST_F(upgrade, is_offered_to_each_agent_by_itself) {
    offer("program");
    register_build(5153);
    fetch();
    secrets = {};
    {
        auto other = open("web2");
        (*other)->configure();
    }
    EXPECT_TRUE(is_offered(open("web2")));
}

TEST_F(upgrade, is_offered_again_where_the_fetch_was_cut) {
    offer(std::string(100'000, 'x'));
    register_build(5153);
    {
        auto agent = open();
        (*agent)->ask_upgrade();
        (*agent)->take(1000);
        agent->close(peer_end::lost);
    }
    EXPECT_FALSE(observer.noted("upgraded"));
    EXPECT_TRUE(is_offered(open()));
}

// The way out

TEST_F(upgrade, goes_out_byte_for_byte) {
    std::string program;
    for (int i = 0; i < 100'003; i++)
        program += static_cast<char>(i * 31 + i / 256);
    offer(program);
    register_build(5153);
    wire_value reply = fetch();
    ASSERT_EQ(reply.parts.size(), 2U);
    EXPECT_EQ(reply[0].integer(), 5154);
    EXPECT_EQ(reply[1].identifier, wire::text);
    EXPECT_TRUE(reply[1].content == program);
}

TEST_F(upgrade, goes_out_without_the_haste_of_an_exchange) {
    offer("program");
    register_build(5153);
    auto agent = open();
    (*agent)->ask_upgrade();
    (*agent)->expect(wire::upgrade_resp);
    agent->close();
    EXPECT_EQ(agent->stages.back(), session_stage::upgrade);
}

TEST_F(upgrade, goes_to_nobody_who_was_not_offered_it) {
    offer("program");
    auto agent = open();
    (*agent)->build = 5154;
    (*agent)->ask_upgrade();
    EXPECT_TRUE((*agent)->is_closed());
    agent->close();
    EXPECT_TRUE(observer.noted("the agent asked for an upgrade that was not offered"));
}

TEST_F(upgrade, goes_out_once_a_connection) {
    offer("program");
    auto agent = open();
    (*agent)->ask_upgrade();
    (*agent)->expect(wire::upgrade_resp);
    (*agent)->ask_upgrade();
    EXPECT_TRUE((*agent)->is_closed());
}

TEST_F(upgrade, is_told_once_however_the_connection_goes_on) {
    offer("program");
    auto agent = open();
    (*agent)->ask_upgrade();
    (*agent)->expect(wire::upgrade_resp);
    (*agent)->ask_time(now);
    (*agent)->ask_time(now);
    agent->close();
    EXPECT_EQ(std::count(observer.notes.begin(), observer.notes.end(), "upgraded web1 5154"), 1);
}

TEST_F(upgrade, ends_the_connection_where_the_file_has_become_shorter) {
    offer(std::string(100'000, 'x'));
    fs::resize_file(path, 50'000);
    auto agent = open();
    (*agent)->ask_upgrade();
    EXPECT_THROW((*agent)->expect(wire::upgrade_resp), server_closed);
    agent->close();
    EXPECT_TRUE(observer.noted("the upgrade's file has become shorter"));
    EXPECT_FALSE(observer.noted("upgraded"));
}

TEST_F(upgrade, takes_no_memory_of_the_messages) {
    offer(std::string(PACKAGE_LIMIT, 'x'));
    EXPECT_EQ(fetch()[1].content.size(), PACKAGE_LIMIT);
    EXPECT_LT(memory.in_use(), 1000U);
}
