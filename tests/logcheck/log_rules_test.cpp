#include "logcheck/log_rules.h"

#include "logcheck/log_fixture.h"
#include "logcheck/log_silence.h"
#include "platform/agent_log.h"

class log_rules : public log_fixture {
protected:
    bool walk(const std::string &entry) const { return log_entry_walk(entry.c_str(), file); }

    // Forward checks by conf_id, and rules that are linked to them.
    devnode *target(const char *conf_id) const { return add_check(forward, conf_id, conf_id); }
    static void forward_to(devnode *from, uint32_t decision, devnode *to, const char *clause = "'.'") {
        add_rule(from, clause, decision)->target = to;
    }
};

TEST_F(log_rules, without_any_match_nothing_and_leave_no_trace) {
    EXPECT_FALSE(walk("text"));
    EXPECT_EQ(results(file), "");
    EXPECT_EQ(host.told(), (std::vector<std::string>{"Got entry: text", "  matched nothing in \"app.log\""}));
    EXPECT_TRUE(host.logged(-1, "  matched nothing in \"app.log\""));
}

TEST_F(log_rules, are_named_by_what_the_server_calls_the_check) {
    file->name = text_copy("The log");
    walk("text");
    EXPECT_TRUE(host.logged(-1, "  matched nothing in \"The log\""));
}

TEST_F(log_rules, are_tried_in_order_and_the_first_match_decides) {
    add_rule(file, "'never'", LOG_ENTRY, 0);
    add_rule(file, "'te'", LOG_ENTRY, 1);
    add_rule(file, "'text'", LOG_ENTRY, 2);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file), "1 text");
    EXPECT_TRUE(host.logged(-1, "  matched rule 1 in \"app.log\": warn log"));
}

TEST_F(log_rules, log_an_entry_of_any_status) {
    add_rule(file, "'good'", LOG_ENTRY, 0);
    add_rule(file, "'bad'", LOG_ENTRY, 2);
    add_rule(file, "'odd'", LOG_ENTRY, 7);
    EXPECT_TRUE(walk("good"));
    EXPECT_TRUE(walk("bad"));
    EXPECT_TRUE(walk("odd"));
    EXPECT_EQ(results(file), "0 good|2 bad|7 odd");
    EXPECT_TRUE(host.logged(-1, "  matched rule 0 in \"app.log\": ok log"));
    EXPECT_TRUE(host.logged(-1, "  matched rule 1 in \"app.log\": alert log"));
    EXPECT_TRUE(host.logged(-1, "  matched rule 2 in \"app.log\": <> log"));
}

TEST_F(log_rules, that_log_end_a_silence_even_with_a_good_status) {
    add_rule(file, "'.'", LOG_ENTRY, 0);
    set("status_sent:log./.var.app\\.log", "2");
    walk("text");
    EXPECT_EQ(get("status_sent:log./.var.app\\.log"), "0");
    EXPECT_EQ(get("timestamp:log./.var.app\\.log"), std::to_string(host.now));
    results(file);
}

TEST_F(log_rules, that_log_again_in_a_later_second_move_the_time_of_activity) {
    add_rule(file, "'.'", LOG_ENTRY, 0);
    walk("one");
    results(file);
    host.now += 7;
    walk("two");
    EXPECT_EQ(get("timestamp:log./.var.app\\.log"), std::to_string(host.now));
    results(file);
}

TEST_F(log_rules, that_log_end_a_silence_that_was_told_in_the_same_second) {
    add_rule(file, "'.'", LOG_ENTRY, 0);
    walk("one");
    file->lognode->alertSilence = 0;
    log_silence_evaluate(file, host.now);
    EXPECT_EQ(get("status_sent:log./.var.app\\.log"), "2");
    walk("two");
    EXPECT_EQ(get("status_sent:log./.var.app\\.log"), "0");
    results(file);
}

TEST_F(log_rules, that_are_quiet_swallow_a_good_entry) {
    add_rule(file, "'.'", QUIET, 0);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file), "");
    EXPECT_TRUE(host.logged(-1, "  matched rule 0 in \"app.log\": ok quiet"));
}

TEST_F(log_rules, that_are_quiet_tell_another_status_without_a_text) {
    add_rule(file, "'.'", QUIET, 1);
    set("status_sent:log./.var.app\\.log", "2");
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file), "1");
    EXPECT_EQ(get("status_sent:log./.var.app\\.log"), "2"); // the silence goes on
}

TEST_F(log_rules, of_an_unknown_decision_tell_every_status_without_a_text) {
    add_rule(file, "'.'", 5, 0);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file), "0");
    EXPECT_TRUE(host.logged(-1, "  matched rule 0 in \"app.log\": ok <>"));
    EXPECT_EQ(get("timestamp:log./.var.app\\.log"), "(absent)");
}

TEST_F(log_rules, cut_a_long_entry) {
    add_rule(file, "'.'", LOG_ENTRY, 0);
    walk(std::string(65'536, 'x'));
    EXPECT_EQ(results(file), "0 " + std::string(65'536, 'x'));
    EXPECT_FALSE(host.logged(2, "Truncated long log result"));
    walk(std::string(65'537, 'y'));
    EXPECT_EQ(results(file), "0 " + std::string(65'536, 'y'));
    EXPECT_TRUE(host.logged(2, "Truncated long log result"));
}

TEST_F(log_rules, that_move_lose_what_matches_nothing_there) {
    devnode *b = target("B");
    forward_to(file, MOVETO, b);
    add_rule(file, "'.'", LOG_ENTRY, 1);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file) + results(b), "");
    EXPECT_TRUE(host.logged(-1, "  matched moveto rule 0 in \"app.log\""));
    EXPECT_TRUE(host.logged(-1, "  matched nothing in \"B\""));
}

TEST_F(log_rules, that_move_report_in_the_place_moved_to) {
    devnode *b = target("B");
    forward_to(file, MOVETO, b);
    add_rule(b, "'.'", LOG_ENTRY, 2);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file), "");
    EXPECT_EQ(results(b), "2 text");
    EXPECT_EQ(get("timestamp:log./.var.app\\.log"), "(absent)"); // the file's own silence goes on
    EXPECT_EQ(get("timestamp:log./forward.B"), std::to_string(host.now));
}

TEST_F(log_rules, that_copy_let_a_later_rule_report_as_well) {
    devnode *b = target("B");
    forward_to(file, COPYTO, b);
    add_rule(file, "'.'", LOG_ENTRY, 1);
    add_rule(b, "'.'", LOG_ENTRY, 2);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file), "1 text");
    EXPECT_EQ(results(b), "2 text");
    EXPECT_TRUE(host.logged(-1, "  matched copyto rule 0 in \"app.log\""));
    EXPECT_TRUE(host.logged(-1, "  matched rule 1 in \"app.log\": warn log"));
}

TEST_F(log_rules, that_only_copy_have_handled_nothing) {
    devnode *b = target("B");
    forward_to(file, COPYTO, b);
    add_rule(b, "'.'", LOG_ENTRY, 2);
    EXPECT_FALSE(walk("text"));
    EXPECT_EQ(results(b), "2 text");
    EXPECT_TRUE(host.logged(-1, "  matched nothing in \"app.log\""));
}

TEST_F(log_rules, that_copy_twice_to_one_place_walk_it_twice) {
    devnode *b = target("B");
    forward_to(file, COPYTO, b);
    forward_to(file, COPYTO, b);
    add_rule(b, "'.'", LOG_ENTRY, 2);
    EXPECT_FALSE(walk("text"));
    EXPECT_EQ(results(b), "2 text|2 text");
}

TEST_F(log_rules, that_call_go_on_where_nothing_matched_there) {
    devnode *b = target("B");
    forward_to(file, CALL, b);
    add_rule(file, "'.'", LOG_ENTRY, 1);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file), "1 text");
    EXPECT_TRUE(host.logged(-1, "  matched call rule 0 in \"app.log\""));
}

TEST_F(log_rules, that_call_stop_where_something_matched_there) {
    devnode *b = target("B");
    forward_to(file, CALL, b);
    add_rule(file, "'.'", LOG_ENTRY, 1);
    add_rule(b, "'.'", QUIET, 0);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(file) + results(b), "");
}

TEST_F(log_rules, without_their_target_behave_by_their_decision) {
    add_rule(file, "'copied'", COPYTO);
    add_rule(file, "'called'", CALL);
    add_rule(file, "'moved'", MOVETO);
    add_rule(file, "'.'", LOG_ENTRY, 1);
    EXPECT_TRUE(walk("copied"));
    EXPECT_TRUE(walk("called"));
    EXPECT_TRUE(walk("moved"));
    EXPECT_EQ(results(file), "1 copied|1 called");
    EXPECT_EQ(host.count_logged("Missing log forward destination"), 3);
    EXPECT_TRUE(host.logged(2, "Missing log forward destination"));
}

TEST_F(log_rules, find_an_entry_that_came_back_at_once) {
    devnode *a = target("A");
    forward_to(a, CALL, a);
    EXPECT_TRUE(log_entry_walk("text", a));
    EXPECT_EQ(results(a), "2 Cycle detected: A -> A: text");
    EXPECT_TRUE(host.logged(2, "Log forwarding cycle detected: A -> A: text"));
    EXPECT_EQ(a->in_rule_walk, 0U);
}

TEST_F(log_rules, name_the_way_of_an_entry_that_came_back) {
    devnode *a = target("A"), *b = target("B");
    forward_to(file, MOVETO, a);
    forward_to(a, COPYTO, b);
    forward_to(b, MOVETO, a);
    EXPECT_TRUE(walk("text"));
    EXPECT_EQ(results(a), "2 Cycle detected: app.log -> A -> B -> A: text");
    EXPECT_EQ(results(file) + results(b), "");
}

TEST_F(log_rules, count_a_cycle_as_handled) {
    devnode *a = target("A");
    forward_to(a, CALL, a);
    add_rule(a, "'.'", LOG_ENTRY, 1);
    EXPECT_TRUE(log_entry_walk("text", a));
    EXPECT_EQ(results(a), "2 Cycle detected: A -> A: text"); // the rule behind the call is not reached
}

TEST_F(log_rules, go_on_behind_a_cycle_for_a_copy) {
    devnode *a = target("A");
    forward_to(a, COPYTO, a);
    add_rule(a, "'.'", LOG_ENTRY, 1);
    EXPECT_TRUE(log_entry_walk("text", a));
    EXPECT_EQ(results(a), "2 Cycle detected: A -> A: text|1 text");
}

TEST_F(log_rules, cut_the_text_of_a_cycle_too) {
    devnode *a = target("A");
    forward_to(a, CALL, a);
    EXPECT_TRUE(log_entry_walk(std::string(65'535, 'x').c_str(), a));
    EXPECT_EQ(results(a).size(), 2U + 65'536U);
    EXPECT_TRUE(host.logged(2, "Truncated long log result"));
}

TEST_F(log_rules, give_all_results_of_a_walk_its_time) {
    add_rule(file, "'.'", LOG_ENTRY, 0);
    host.now += 5;
    walk("text");
    EXPECT_EQ(file->results->check_time, host.now);
    results(file);
}

TEST_F(log_rules, cannot_make_an_entry_wander_for_ever) {
    // Each level doubles the walks: without a limit there would be 2^40 of them.
    devnode *next = nullptr;
    for (int i = 0; i < 40; i++) {
        devnode *device = target(("T" + std::to_string(i)).c_str());
        if (next != nullptr)
            for (int rule = 0; rule < 2; rule++)
                forward_to(device, COPYTO, next);
        next = device;
    }
    host.log.clear();
    EXPECT_FALSE(log_entry_walk("text", next));
    EXPECT_TRUE(host.logged(2, "Missing log forward destination"));
    EXPECT_EQ(host.count_logged("  matched nothing"), static_cast<int>(WALK_LIMIT));
}

TEST_F(log_rules, start_each_entry_with_all_its_walks) {
    devnode *b = target("B");
    forward_to(file, COPYTO, b);
    add_rule(b, "'.'", LOG_ENTRY, 2);
    log_set_level(LOG_WARNING);
    for (uint32_t i = 0; i < WALK_LIMIT; i++)
        walk("text");
    results(b);
    walk("last");
    EXPECT_EQ(results(b), "2 last");
}

TEST_F(log_rules, cannot_nest_deeper_than_the_stack) {
    devnode *next = target("end");
    add_rule(next, "'.'", LOG_ENTRY, 2);
    devnode *end = next;
    for (uint32_t i = 1; i < WALK_DEPTH_LIMIT - 1; i++) {
        devnode *device = target(std::to_string(i).c_str());
        forward_to(device, MOVETO, next);
        next = device;
    }
    EXPECT_TRUE(log_entry_walk("within", next));
    EXPECT_EQ(results(end), "2 within");
    forward_to(file, MOVETO, next);
    EXPECT_TRUE(walk("deeper"));
    EXPECT_EQ(results(end), "2 deeper");
    devnode *outer = target("outer");
    forward_to(outer, MOVETO, file);
    EXPECT_TRUE(log_entry_walk("too deep", outer));
    EXPECT_EQ(results(end), "");
    EXPECT_TRUE(host.logged(2, "Missing log forward destination"));
}

TEST_F(log_rules, resolve_their_targets_by_conf_id) {
    devnode *b = target("B"), *a = target("A");
    logrule *rule = add_rule(file, "'.'", MOVETO, 0, "A");
    logrule *inner = add_rule(b, "'.'", CALL, 0, "A");
    logrule *copy = add_rule(a, "'.'", COPYTO, 0, "B");
    resolve();
    EXPECT_EQ(rule->target, a);
    EXPECT_EQ(inner->target, a);
    EXPECT_EQ(copy->target, b);
    EXPECT_EQ(host.count_logged("Could not resolve"), 0);
}

TEST_F(log_rules, resolve_to_the_first_of_equal_conf_ids) {
    target("A");
    devnode *first = target("A"); // new ones stand in front
    logrule *rule = add_rule(file, "'.'", MOVETO, 0, "A");
    resolve();
    EXPECT_EQ(rule->target, first);
}

TEST_F(log_rules, say_which_target_is_not_there) {
    target("Alpha");
    add_check(forward, "no conf_id");
    add_rule(file, "'.'", MOVETO, 0, "alpha");
    add_rule(file, "'.'", COPYTO, 0, "Alph");
    add_rule(file, "'.'", CALL);
    resolve();
    EXPECT_TRUE(host.logged(3, "Could not resolve alpha"));
    EXPECT_TRUE(host.logged(3, "Could not resolve Alph"));
    EXPECT_TRUE(host.logged(3, "Could not resolve "));
    EXPECT_EQ(file->lognode->rules->target, nullptr);
}

TEST_F(log_rules, that_forward_nothing_are_not_resolved) {
    target("A");
    logrule *log = add_rule(file, "'.'", LOG_ENTRY, 0, "A");
    logrule *quiet = add_rule(file, "'.'", QUIET, 0, "gone");
    logrule *odd = add_rule(file, "'.'", 5, 0, "gone");
    resolve();
    EXPECT_EQ(log->target, nullptr);
    EXPECT_EQ(quiet->target, nullptr);
    EXPECT_EQ(odd->target, nullptr);
    EXPECT_EQ(host.count_logged("Could not resolve"), 0);
}

TEST_F(log_rules, lose_a_target_that_a_new_configuration_lacks) {
    devnode *a = target("A");
    logrule *rule = add_rule(file, "'.'", MOVETO, 0, "A");
    resolve();
    EXPECT_EQ(rule->target, a);
    text_replace(&a->conf_id, text_copy("B"));
    resolve();
    EXPECT_EQ(rule->target, nullptr);
}

TEST_F(log_rules, need_memory_for_a_result) {
    add_rule(file, "'.'", LOG_ENTRY, 0);
    walk("text");
    results(file);
    host.fail_allocation = 1;
    expect_fatal([this] { walk("text"); }, "alloc_resnode() ran out of memory!");
}
