#include "launcher/program_folder.h"

#include "launcher/launcher_world.h"

#include <gtest/gtest.h>
#include <map>

namespace {

// A folder with the programs "old" and, as an upgrade, "new", and what becomes of them.
class program_folder : public testing::Test {
protected:
    program_folder() { world.host.write_file("/usr/bin/tnagent", "installed"); }

    program_choice choose() {
        program_choice choice;
        EXPECT_SUCCESS(choose_program("/usr/bin/tnagent", &choice));
        return choice;
    }
    void put(const std::string &name, const std::string &content) { world.host.write_file(name, content); }
    std::string content(const std::string &name) const { return world.host.read_file(name); }
    bool has(const std::string &name) const { return world.host.has_file(name); }
    bool has_told(bool trouble, const std::string &text) const { return world.has_told(trouble, text); }
    void break_file(const char *operation, const char *path, uint32_t code) {
        world.host.broken[operation][path] = code;
    }

    launcher_world world;
};

} // namespace

TEST_F(program_folder, is_given_the_installed_program_where_it_is_empty) {
    program_choice choice = choose();
    EXPECT_EQ(content("tnagent"), "installed");
    EXPECT_FALSE(choice.trial);
    EXPECT_FALSE(choice.upgrade_failed);
    EXPECT_EQ(world.executables, std::vector<std::string>{"copy.tmp"});
    EXPECT_TRUE(has_told(false, "the folder held no program: copied /usr/bin/tnagent"));
    EXPECT_FALSE(has("copy.tmp"));
}

TEST_F(program_folder, copies_a_program_of_any_size) {
    std::string large(200'001, 'x');
    large.back() = 'y';
    put("/usr/bin/tnagent", large);
    choose();
    EXPECT_TRUE(content("tnagent") == large);
}

TEST_F(program_folder, keeps_the_program_that_it_holds) {
    put("tnagent", "old");
    program_choice choice = choose();
    EXPECT_EQ(content("tnagent"), "old");
    EXPECT_FALSE(choice.trial);
    EXPECT_TRUE(world.told.empty());
    EXPECT_EQ(world.operations, 0); // a usual start writes nothing
}

TEST_F(program_folder, takes_an_upgrade_on_trial_and_keeps_the_old_program) {
    put("tnagent", "old");
    put("tnagent.bak", "older");
    put("upgrade", "new");
    EXPECT_TRUE(upgrade_waits());
    program_choice choice = choose();
    EXPECT_TRUE(choice.trial);
    EXPECT_FALSE(choice.upgrade_failed);
    EXPECT_EQ(content("tnagent"), "new");
    EXPECT_EQ(content("tnagent.bak"), "old");
    EXPECT_EQ(content("trial"), "1");
    EXPECT_FALSE(has("upgrade"));
    EXPECT_FALSE(upgrade_waits());
    EXPECT_EQ(world.executables, std::vector<std::string>{"upgrade"});
    EXPECT_TRUE(has_told(false, "an upgrade has taken the program's place"));
}

TEST_F(program_folder, syncs_an_upgrade_before_its_name_counts) {
    put("tnagent", "old");
    put("upgrade", "");
    world.host.files["upgrade"].content = "new"; // written by somebody who has not synced it
    choose();
    world.host.cut_power();
    EXPECT_EQ(content("tnagent"), "new");
}

TEST_F(program_folder, ends_the_trial_of_a_program_that_works) {
    put("tnagent", "old");
    put("upgrade", "new");
    choose();
    EXPECT_SUCCESS(end_trial());
    world.host.cut_power();
    EXPECT_FALSE(choose().trial);
    EXPECT_EQ(content("tnagent"), "new");
    EXPECT_EQ(content("tnagent.bak"), "old");
}

TEST_F(program_folder, ends_no_trial_where_there_is_none) {
    put("tnagent", "old");
    EXPECT_SUCCESS(end_trial());
}

TEST_F(program_folder, goes_back_to_the_program_that_worked) {
    put("tnagent", "old");
    put("upgrade", "new");
    choose();
    EXPECT_SUCCESS(roll_back());
    EXPECT_EQ(content("tnagent"), "old");
    EXPECT_FALSE(has("tnagent.bak"));
    EXPECT_FALSE(has("trial"));
    EXPECT_TRUE(has_told(true, "the upgrade has failed: the program before it has taken its place again"));
    EXPECT_FALSE(choose().trial);
}

TEST_F(program_folder, counts_the_starts_of_a_trial_and_goes_back_behind_the_last) {
    put("tnagent", "old");
    put("upgrade", "new");
    for (int start = 1; start <= TRIAL_STARTS; start++) {
        EXPECT_TRUE(choose().trial) << start;
        EXPECT_EQ(content("trial"), std::to_string(start));
        world.host.cut_power();
    }
    program_choice choice = choose();
    EXPECT_FALSE(choice.trial);
    EXPECT_TRUE(choice.upgrade_failed);
    EXPECT_EQ(content("tnagent"), "old");
    EXPECT_FALSE(choose().upgrade_failed); // told once
}

TEST_F(program_folder, counts_no_start_that_was_stopped_on_demand) {
    put("tnagent", "old");
    put("upgrade", "new");
    for (int start = 0; start < 3 * TRIAL_STARTS; start++) {
        EXPECT_TRUE(choose().trial) << start;
        EXPECT_SUCCESS(excuse_trial());
    }
    EXPECT_EQ(content("trial"), "0");
    EXPECT_SUCCESS(excuse_trial());
    EXPECT_EQ(content("trial"), "0");
}

TEST_F(program_folder, replaces_a_program_on_trial_and_keeps_the_proven_one) {
    put("tnagent", "old");
    put("upgrade", "new");
    choose();
    choose();
    put("upgrade", "newer");
    EXPECT_TRUE(choose().trial);
    EXPECT_EQ(content("tnagent"), "newer");
    EXPECT_EQ(content("tnagent.bak"), "old");
    EXPECT_EQ(content("trial"), "1");
}

TEST_F(program_folder, restores_the_program_where_the_backup_alone_is_left) {
    put("tnagent.bak", "old");
    program_choice choice = choose();
    EXPECT_EQ(content("tnagent"), "old");
    EXPECT_FALSE(choice.trial);
    EXPECT_FALSE(choice.upgrade_failed);
}

TEST_F(program_folder, goes_back_where_the_program_on_trial_is_gone) {
    put("tnagent.bak", "old");
    put("trial", "1");
    EXPECT_TRUE(choose().upgrade_failed);
    EXPECT_EQ(content("tnagent"), "old");
}

TEST_F(program_folder, ends_a_rollback_that_was_cut) {
    put("tnagent", "old");
    put("trial", "1");
    program_choice choice = choose();
    EXPECT_TRUE(choice.upgrade_failed);
    EXPECT_FALSE(choice.trial);
    EXPECT_FALSE(has("trial"));
}

TEST_F(program_folder, tries_an_upgrade_of_an_empty_folder_over_the_installed_program) {
    put("upgrade", "new");
    EXPECT_TRUE(choose().trial);
    EXPECT_EQ(content("tnagent"), "new");
    EXPECT_EQ(content("tnagent.bak"), "installed");
}

TEST_F(program_folder, takes_an_upgrade_without_trial_where_there_is_nothing_to_go_back_to) {
    world.host.files.erase("/usr/bin/tnagent");
    put("upgrade", "new");
    EXPECT_FALSE(choose().trial);
    EXPECT_EQ(content("tnagent"), "new");
    EXPECT_TRUE(has_told(true, "cannot copy /usr/bin/tnagent: system error 2"));
}

TEST_F(program_folder, takes_no_folder_for_a_program) {
    put("tnagent", "old");
    put("upgrade/", "");
    EXPECT_FALSE(upgrade_waits());
    EXPECT_FALSE(choose().trial);
    EXPECT_EQ(content("tnagent"), "old");
}

TEST_F(program_folder, gives_a_mark_that_makes_no_sense_all_its_starts) {
    for (const char *mark : {"", "x", "/", ":"}) {
        put("tnagent", "new");
        put("tnagent.bak", "old");
        put("trial", mark);
        EXPECT_TRUE(choose().trial) << mark;
        EXPECT_EQ(content("trial"), "1") << mark;
    }
}

TEST_F(program_folder, holds_a_trial_of_unreadable_age) {
    put("tnagent", "new");
    put("tnagent.bak", "old");
    put("trial", "2");
    for (const char *operation : {"open", "read"}) {
        world.host.broken.clear();
        break_file(operation, "trial", 5);
        break_file("open", "trial.tmp", 28);
        EXPECT_TRUE(choose().trial) << operation;
    }
}

// Failing calls

TEST_F(program_folder, has_nothing_to_start_where_the_copy_fails) {
    program_choice choice;
    auto choose_and_fail = [&] { return choose_program("/usr/bin/tnagent", &choice); };
    break_file("open", "copy.tmp", 28);
    EXPECT_FAILURE(choose_and_fail(), "there is no program to start");
    EXPECT_TRUE(has_told(true, "cannot write copy.tmp: system error 28"));
    for (const char *operation : {"write", "sync"}) {
        world.told.clear();
        world.host.broken.clear();
        break_file(operation, "copy.tmp", 5);
        EXPECT_FAILURE(choose_and_fail(), "there is no program to start");
        EXPECT_TRUE(has_told(true, "cannot write copy.tmp: system error 5")) << operation;
    }
    world.told.clear();
    world.host.broken.clear();
    break_file("read", "/usr/bin/tnagent", 5);
    EXPECT_FAILURE(choose_and_fail(), "there is no program to start");
    EXPECT_TRUE(has_told(true, "cannot write copy.tmp: system error 5"));
    world.host.broken.clear();
    break_file("chmod", "copy.tmp", 1);
    EXPECT_FAILURE(choose_and_fail(), "there is no program to start");
    EXPECT_TRUE(has_told(true, "cannot make copy.tmp a program: system error 1"));
    world.host.broken.clear();
    break_file("rename", "copy.tmp", 13);
    EXPECT_FAILURE(choose_and_fail(), "there is no program to start");
    EXPECT_TRUE(has_told(true, "cannot rename copy.tmp to tnagent: system error 13"));
    world.host.broken.clear();
    EXPECT_SUCCESS(choose_and_fail());
}

TEST_F(program_folder, starts_the_old_program_where_a_step_of_the_upgrade_fails) {
    struct step {
        const char *operation, *path, *text;
    };
    for (const step &at : {step{"chmod", "upgrade", "cannot make upgrade a program: system error 5"},
                           step{"open", "upgrade", "cannot open upgrade: system error 5"},
                           step{"sync", "upgrade", "cannot write upgrade: system error 5"},
                           step{"rename", "tnagent", "cannot rename tnagent to tnagent.bak: system error 5"},
                           step{"open", "trial.tmp", "cannot write trial.tmp: system error 5"},
                           step{"write", "trial.tmp", "cannot write trial.tmp: system error 5"},
                           step{"sync", "trial.tmp", "cannot write trial.tmp: system error 5"},
                           step{"rename", "trial.tmp", "cannot rename trial.tmp to trial: system error 5"},
                           step{"rename", "upgrade", "cannot rename upgrade to tnagent: system error 5"}}) {
        world.host.files.clear();
        world.host.broken.clear();
        put("tnagent", "old");
        put("upgrade", "new");
        break_file(at.operation, at.path, 5);
        EXPECT_FALSE(choose().trial) << at.text;
        EXPECT_TRUE(has_told(true, at.text)) << at.text;
        EXPECT_EQ(content("tnagent"), "old") << at.text;
        EXPECT_EQ(content("upgrade"), "new") << at.text;
        world.host.broken.clear();
        EXPECT_TRUE(choose().trial) << at.text; // the next start tries again
        EXPECT_EQ(content("tnagent"), "new") << at.text;
        EXPECT_EQ(content("tnagent.bak"), "old") << at.text;
    }
}

TEST_F(program_folder, goes_on_with_a_trial_that_cannot_be_counted) {
    put("tnagent", "new");
    put("tnagent.bak", "old");
    put("trial", "1");
    break_file("open", "trial.tmp", 28);
    EXPECT_TRUE(choose().trial);
    EXPECT_TRUE(has_told(true, "cannot write trial.tmp: system error 28"));
}

TEST_F(program_folder, stays_on_trial_where_going_back_fails) {
    put("tnagent", "new");
    put("tnagent.bak", "old");
    put("trial", "3");
    break_file("rename", "tnagent.bak", 5);
    program_choice choice = choose();
    EXPECT_TRUE(choice.trial);
    EXPECT_FALSE(choice.upgrade_failed);
    EXPECT_TRUE(has_told(true, "cannot rename tnagent.bak to tnagent: system error 5"));
    EXPECT_FAILURE(roll_back(), "cannot rename tnagent.bak to tnagent: system error 5");
}

TEST_F(program_folder, goes_back_although_the_mark_stays) {
    put("tnagent", "new");
    put("tnagent.bak", "old");
    put("trial", "3");
    break_file("rename", "trial", 5);
    program_choice choice = choose();
    EXPECT_FALSE(choice.trial);
    EXPECT_TRUE(choice.upgrade_failed);
    EXPECT_TRUE(has_told(true, "cannot rename trial to trial.tmp: system error 5"));
    EXPECT_EQ(content("tnagent"), "old");
    EXPECT_FAILURE(end_trial(), "cannot rename trial to trial.tmp: system error 5");
}

TEST_F(program_folder, tells_that_a_start_could_not_be_excused) {
    put("tnagent", "new");
    put("tnagent.bak", "old");
    put("trial", "2");
    break_file("sync", "trial.tmp", 5);
    EXPECT_FAILURE(excuse_trial(), "cannot write trial.tmp: system error 5");
}

// Power

namespace {

// What may happen to a folder, from its first start to a proven or a failed upgrade.
struct story {
    const char *name;
    std::map<std::string, std::string> files;
    void (*tell)();
};

void start_once() {
    program_choice choice;
    EXPECT_EQ(choose_program("/usr/bin/tnagent", &choice), nullptr);
}

void start_and_prove() {
    start_once();
    EXPECT_EQ(end_trial(), nullptr);
}

void start_and_fail() {
    program_choice choice;
    EXPECT_EQ(choose_program("/usr/bin/tnagent", &choice), nullptr);
    const char *failure = choice.trial ? roll_back() : nullptr;
    EXPECT_EQ(failure, nullptr);
}

void start_and_excuse() {
    start_once();
    EXPECT_EQ(excuse_trial(), nullptr);
}

const story STORIES[] = {
    {"first start", {}, start_once},
    {"upgrade", {{"tnagent", "old"}, {"tnagent.bak", "older"}, {"upgrade", "new"}}, start_once},
    {"first upgrade", {{"tnagent", "old"}, {"upgrade", "new"}}, start_once},
    {"upgrade of an empty folder", {{"upgrade", "new"}}, start_once},
    {"proven upgrade", {{"tnagent", "old"}, {"upgrade", "new"}}, start_and_prove},
    {"failed upgrade", {{"tnagent", "old"}, {"upgrade", "new"}}, start_and_fail},
    {"excused start", {{"tnagent", "old"}, {"upgrade", "new"}}, start_and_excuse},
    {"worn trial", {{"tnagent", "new"}, {"tnagent.bak", "old"}, {"trial", "3"}}, start_once},
    {"further upgrade",
     {{"tnagent", "new"}, {"tnagent.bak", "old"}, {"trial", "1"}, {"upgrade", "newer"}},
     start_once},
};

bool is_proven(const std::string &content) {
    return content == "old" || content == "installed";
}

// A start behind the cut: a whole program, and one that has not proven itself is on trial, with a proven one
// behind it.
void expect_good_start(const launcher_world &world, const std::string &where, bool new_is_proven) {
    program_choice choice;
    ASSERT_EQ(choose_program("/usr/bin/tnagent", &choice), nullptr) << where;
    std::string program = world.host.read_file("tnagent");
    EXPECT_TRUE(is_proven(program) || program == "new" || program == "newer") << where << ": " << program;
    EXPECT_FALSE(is_proven(program) && choice.trial) << where;
    if (is_proven(program) || (program == "new" && new_is_proven && !choice.trial)) return;
    EXPECT_TRUE(choice.trial) << where;
    EXPECT_TRUE(is_proven(world.host.read_file("tnagent.bak"))) << where;
}

// Whether the story came to its end before the n-th operation.
bool cut_story(const story &told, int cut, bool power) {
    launcher_world world;
    world.host.write_file("/usr/bin/tnagent", "installed");
    for (const auto &[name, content] : told.files)
        world.host.write_file(name, content);
    world.operations_until_cut = cut;
    bool ended = true;
    try {
        told.tell();
    } catch (const power_cut &) {
        ended = false;
    }
    world.operations_until_cut = 0;
    world.host.open_files.clear();
    if (power) world.host.cut_power(); // else the launcher alone has died
    std::string where =
        std::string(told.name) + ", cut at " + std::to_string(cut) + (power ? "" : " (killed)");
    expect_good_start(world, where, told.tell == start_and_prove);
    return ended;
}

} // namespace

TEST(power, cut_at_any_moment_leaves_a_whole_program_to_start) {
    for (const story &told : STORIES)
        for (bool power : {true, false}) {
            int cut = 1;
            while (!cut_story(told, cut, power))
                cut++;
            EXPECT_GT(cut, 2) << told.name; // there was something to cut
        }
}

TEST(power, cut_again_in_the_start_behind_a_cut_leaves_a_whole_program_too) {
    for (int first = 1; first < 40; first++)
        for (int second = 1; second < 40; second++) {
            launcher_world world;
            world.host.write_file("/usr/bin/tnagent", "installed");
            world.host.write_file("tnagent", "old");
            world.host.write_file("upgrade", "new");
            for (int cut : {first, second}) {
                world.operations_until_cut = cut;
                try {
                    start_and_fail();
                } catch (const power_cut &) {
                }
                world.operations_until_cut = 0;
                world.host.open_files.clear();
                world.host.cut_power();
                if (world.host.read_file("tnagent") == "old" && !world.host.has_file("upgrade")) break;
            }
            expect_good_start(world, std::to_string(first) + " and " + std::to_string(second), false);
        }
}
