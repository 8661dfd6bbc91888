#include "launcher/options.h"

#include "fakes/test_host.h"
#include "launcher/launcher_ops.h"

#include <gtest/gtest.h>

namespace {

const launcher_ops host_of_files = {};
const launcher_ops host_of_a_register = {
    .install = [](const char *const *) -> const char * { return nullptr; }};

// The command line, with the program's own name ahead of it.
struct command_line {
    std::vector<std::string> texts;
    std::vector<char *> words;
    launcher_options options;

    const char *parse(const std::vector<std::string> &arguments, const launcher_ops &host = host_of_files) {
        launcher_host = &host;
        texts = {"tnlauncher"};
        texts.insert(texts.end(), arguments.begin(), arguments.end());
        words.clear();
        for (std::string &text : texts)
            words.push_back(text.data());
        words.push_back(nullptr);
        return parse_options(static_cast<int>(texts.size()), words.data(), &options);
    }
};

} // namespace

TEST(parse_options, needs_no_argument) {
    command_line line;
    EXPECT_SUCCESS(line.parse({}));
    EXPECT_EQ(line.options.folder, nullptr);
    EXPECT_EQ(line.options.program, nullptr);
    EXPECT_FALSE(line.options.help);
    EXPECT_EQ(*line.options.agent_words, nullptr);
}

TEST(parse_options, takes_its_own_and_leaves_the_rest_to_the_agent) {
    command_line line;
    EXPECT_SUCCESS(line.parse({"--folder", "f", "--program", "p", "--", "-f", "--folder"}));
    EXPECT_STREQ(line.options.folder, "f");
    EXPECT_STREQ(line.options.program, "p");
    ASSERT_STREQ(line.options.agent_words[0], "-f");
    ASSERT_STREQ(line.options.agent_words[1], "--folder");
    EXPECT_EQ(line.options.agent_words[2], nullptr);
}

TEST(parse_options, takes_nothing_behind_the_two_dashes) {
    command_line line;
    EXPECT_SUCCESS(line.parse({"--"}));
    EXPECT_EQ(*line.options.agent_words, nullptr);
}

TEST(parse_options, knows_the_call_for_help) {
    for (const char *word : {"--help", "-h"}) {
        command_line line;
        EXPECT_SUCCESS(line.parse({word}));
        EXPECT_TRUE(line.options.help);
    }
}

TEST(parse_options, refuses_what_it_does_not_know) {
    command_line line;
    EXPECT_FAILURE(line.parse({"-f"}), "unknown argument -f (the agent's stand behind --)");
    EXPECT_FAILURE(line.parse({"--folder"}), "--folder needs a value");
    EXPECT_FAILURE(line.parse({"--program", ""}), "--program needs a value");
}

TEST(parse_options, registers_where_the_host_keeps_a_register) {
    command_line line;
    EXPECT_SUCCESS(line.parse({"--install", "--folder", "f", "--", "-l", "0"}, host_of_a_register));
    EXPECT_TRUE(line.options.install);
    EXPECT_FALSE(line.options.uninstall);
    EXPECT_STREQ(line.options.folder, "f");
    EXPECT_STREQ(line.options.agent_words[0], "-l");
    EXPECT_SUCCESS(line.parse({"--uninstall"}, host_of_a_register));
    EXPECT_TRUE(line.options.uninstall);
    EXPECT_FALSE(line.options.install);
    EXPECT_FAILURE(line.parse({"--uninstall", "--install", "--", "x"}, host_of_a_register),
                   "--install and --uninstall exclude each other");
}

TEST(parse_options, registers_nothing_where_files_say_what_the_services_are) {
    command_line line;
    EXPECT_FAILURE(line.parse({"--install"}), "unknown argument --install (the agent's stand behind --)");
    EXPECT_FAILURE(line.parse({"--uninstall"}), "unknown argument --uninstall (the agent's stand behind --)");
}
