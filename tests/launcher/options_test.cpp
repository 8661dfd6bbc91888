#include "launcher/options.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

namespace {

// The command line, with the program's own name ahead of it.
struct command_line {
    std::vector<std::string> texts;
    std::vector<char *> words;
    launcher_options options;

    const char *parse(const std::vector<std::string> &arguments) {
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
