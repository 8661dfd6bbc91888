#include "custom/action.h"

#include "custom/offered_programs.h"
#include "platform/agent_log.h"

namespace {

struct action : offered_programs {
    action() { config_in_force->actions_conf = text_copy("/etc/actions"); }
    ~action() override { action_reset(); }

    void scan(const std::string &conf) { scan_file("/etc/actions", conf, scan_action); }
    std::vector<std::string> offered() const {
        std::vector<std::string> names;
        for (const devnode *one = root.children->devices; one != nullptr; one = one->next) {
            EXPECT_STREQ(one->id, one->name);
            EXPECT_STREQ(one->comment, "");
            EXPECT_STREQ(one->unit, "");
            EXPECT_EQ(one->type, TYPE_ACTION);
            EXPECT_EQ(one->description, 0U);
            names.push_back(one->id);
        }
        return names;
    }
    const char *order(const char *id) {
        text_replace(&device->id, text_copy(id));
        text_replace(&result->comment, nullptr);
        return check_action(device, result);
    }
};

using names = std::vector<std::string>;

} // namespace

TEST_F(action, is_offered_in_the_order_of_the_file) {
    scan("[b]\ncommand=x\n[a]\ncommand=y\n");
    EXPECT_EQ(offered(), (names{"b", "a"}));
    EXPECT_STREQ(root.children->id, "action");
    EXPECT_STREQ(root.children->name, "AgentActions");
    EXPECT_STREQ(root.children->name_template, "AgentAction %0r");
}

TEST_F(action, of_a_bad_file_is_none_and_it_is_told) {
    scan("[a]\ncommand=x\n[b]\n");
    EXPECT_EQ(offered(), names{});
    EXPECT_TRUE(host.logged(LOG_ERROR, "Cannot read AgentActions: No executeable is given for action"));
    EXPECT_FAILURE(order("a"), "Cannot find AgentAction with the name \"a\"");
}

TEST_F(action, without_a_file_is_none) {
    text_replace(&config_in_force->actions_conf, nullptr);
    EXPECT_EQ(scan_action(&root), nullptr);
    EXPECT_EQ(offered(), names{});
    EXPECT_EQ(host.count_logged("Cannot read"), 0);
}

TEST_F(action, is_started_and_left_to_itself) {
    scan("[a]\ncommand=x 'y z'\n");
    EXPECT_SUCCESS(order("a"));
    EXPECT_EQ(programs.started, "x 'y z'");
    EXPECT_FALSE(programs.with_output);
    EXPECT_EQ(result->value, 1);
    EXPECT_STREQ(result->comment, "Success");
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Executing AgentAction a"));
    EXPECT_EQ(programs.calls, (names{"SetErrorMode", "CreateProcessA"}));
}

TEST_F(action, is_split_like_the_program_of_a_check) {
    programs.takes_words = true;
    programs.use();
    scan("[a]\ncommand=x 'y z'\n[b]\ncommand=x \"y\n");
    EXPECT_SUCCESS(order("a"));
    EXPECT_EQ(programs.started, "[x][y z]");
    EXPECT_SUCCESS(order("b"));
    EXPECT_TRUE(host.logged(LOG_WARNING,
                            "AgentAction b failed with error: AgentAction \"b\", failed executing \"x \"y\": "
                            "A double quote in the command line has no end"));
}

TEST_F(action, that_cannot_be_started_is_told_and_counts_as_run) {
    scan("[a]\ncommand=x\n");
    programs.fails["CreateProcessA"] = 1;
    host.last_error = 2;
    EXPECT_SUCCESS(order("a"));
    EXPECT_EQ(result->value, 0);
    EXPECT_STREQ(result->comment, "AgentAction \"a\", failed executing \"x\": system error 2");
    EXPECT_TRUE(host.logged(LOG_WARNING, "AgentAction a failed with error: AgentAction \"a\", failed "
                                         "executing \"x\": system error 2"));
    programs.fails.clear();
    programs.fails["CreateProcessA"] = 2;
    EXPECT_FAILURE(start_action("n", "c"), "AgentAction \"n\", failed executing \"c\": system error 2");
}

TEST_F(action, of_a_name_given_twice_is_the_later_one) {
    scan("[a]\ncommand=x\n[a]\ncommand=y\n");
    EXPECT_EQ(offered(), (names{"a", "a"}));
    EXPECT_SUCCESS(order("a"));
    EXPECT_EQ(programs.started, "y");
}

TEST_F(action, that_the_file_no_longer_has_is_told) {
    scan("[a]\ncommand=x\n");
    scan("[b]\ncommand=x\n");
    EXPECT_FAILURE(order("a"), "Cannot find AgentAction with the name \"a\"");
    EXPECT_FAILURE(order("B"), "Cannot find AgentAction with the name \"B\"");
    EXPECT_TRUE(programs.started.empty());
}
