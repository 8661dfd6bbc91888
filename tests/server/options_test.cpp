#include "server/options.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

namespace {

server_options parsed(const std::vector<std::string> &arguments) {
    server_options options;
    EXPECT_SUCCESS(parse_options(arguments, &options));
    return options;
}

std::string failure_of(const std::vector<std::string> &arguments) {
    server_options options;
    return noted_failure(parse_options(arguments, &options));
}

} // namespace

TEST(parse_options, serves_on_loopback_by_default) {
    server_options options = parsed({});
    EXPECT_EQ(options.what, command::serve);
    EXPECT_EQ(options.listen, "127.0.0.1:3241");
    EXPECT_EQ(options.store, "");
    EXPECT_EQ(options.policy, "");
    EXPECT_FALSE(options.watch);
}

TEST(parse_options, takes_every_option) {
    server_options options = parsed({"--listen", "0.0.0.0:99", "--store", "s", "--policy", "p", "--watch"});
    EXPECT_EQ(options.listen, "0.0.0.0:99");
    EXPECT_EQ(options.store, "s");
    EXPECT_EQ(options.policy, "p");
    EXPECT_TRUE(options.watch);
}

TEST(parse_options, offers_no_upgrade_unless_told) {
    EXPECT_EQ(parsed({}).upgrade, "");
    server_options options = parsed({"--upgrade", "u"});
    EXPECT_EQ(options.upgrade, "u");
    EXPECT_EQ(options.upgrade_build, 0);
    EXPECT_EQ(parsed({"--upgrade-build", "2147483647", "--upgrade", "u"}).upgrade_build, 2147483647);
}

TEST(parse_options, refuses_a_build_that_is_none) {
    for (const char *build : {"0", "-1", "x", "5x", "2147483648", "99999999999999999999"})
        EXPECT_EQ(failure_of({"--upgrade", "u", "--upgrade-build", build}),
                  "--upgrade-build needs a number above 0")
            << build;
    EXPECT_EQ(failure_of({"--upgrade-build", "5154"}), "--upgrade-build needs --upgrade");
    EXPECT_EQ(failure_of({"--upgrade"}), "--upgrade needs a value");
}

TEST(parse_options, knows_the_commands) {
    server_options options = parsed({"summary", "--store", "s", "--require", "fs,mem"});
    EXPECT_EQ(options.what, command::summary);
    EXPECT_EQ(options.require, (std::vector<std::string>{"fs", "mem"}));
    options = parsed({"action", "web1", "--store", "s", "restart web"});
    EXPECT_EQ(options.what, command::action);
    EXPECT_EQ(options.agent, "web1");
    EXPECT_EQ(options.action, "restart web");
    options = parsed({"rekey", "--store", "s", "web1", "office"});
    EXPECT_EQ(options.what, command::rekey);
    EXPECT_EQ(options.agent, "web1");
    EXPECT_EQ(options.domain, "office");
    EXPECT_EQ(parsed({"rekey", "web1", ""}).domain, "");
    EXPECT_EQ(parsed({"policy"}).what, command::print_policy);
    EXPECT_EQ(parsed({"--help"}).what, command::help);
    EXPECT_EQ(parsed({"rekey", "--help"}).what, command::help);
}

TEST(parse_options, refuses_what_it_does_not_know) {
    EXPECT_EQ(failure_of({"--colour"}), "unknown option --colour");
    EXPECT_EQ(failure_of({"--store"}), "--store needs a value");
    EXPECT_EQ(failure_of({"--store", ""}), "--store needs a value");
    EXPECT_EQ(failure_of({"words"}), "\"words\" is too much");
    EXPECT_EQ(failure_of({"action", "web1"}), "action needs the names of the agent and of the action");
    EXPECT_EQ(failure_of({"rekey", "web1"}), "rekey needs the name of the agent and its domain");
    EXPECT_EQ(failure_of({"rekey", "a", "b", "c"}), "\"c\" is too much");
    EXPECT_EQ(failure_of({"--listen", "localhost"}), "--listen needs ADDRESS:PORT");
}

TEST(split_address, takes_names_and_both_families) {
    std::string host;
    std::string port;
    EXPECT_TRUE(split_address("localhost:0", &host, &port));
    EXPECT_EQ(host + " " + port, "localhost 0");
    EXPECT_TRUE(split_address("[::1]:3241", &host, &port));
    EXPECT_EQ(host + " " + port, "::1 3241");
    EXPECT_TRUE(split_address(":65535", &host, &port));
    EXPECT_EQ(host, "");
}

TEST(split_address, refuses_what_has_no_port) {
    std::string host;
    std::string port;
    for (const char *text : {"", "a", "a:", "a:x", "a:1x", "a:65536", "a:-1", "::1:80", "[::1]"})
        EXPECT_FALSE(split_address(text, &host, &port)) << text;
}
