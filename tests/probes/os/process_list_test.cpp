#include "probes/os/process_list.h"

#include "fakes/notes.h"
#include "probes/os/asked_processes.h"
#include "probes/os/machine.h"

namespace {

using texts = std::vector<std::string>;

std::string name_in(const std::string &text) {
    process_stat found = {};
    return parse_process_stat(text.c_str(), &found) ? found.name : "(none)";
}

bool ended(const std::string &behind_name) {
    process_stat found = {};
    EXPECT_TRUE(parse_process_stat(("7 (a)" + behind_name).c_str(), &found));
    return found.ended;
}

std::string from_program(const char *program, const char *name) {
    char buffer[IMAGE_NAME_SIZE];
    snprintf(buffer, sizeof buffer, "%s", name);
    return complete_from_program(program, buffer) ? buffer : "(none)";
}

std::string from_arguments(const std::string &arguments, const char *name) {
    char buffer[IMAGE_NAME_SIZE];
    snprintf(buffer, sizeof buffer, "%s", name);
    return complete_from_arguments(arguments.c_str(), arguments.size(), buffer) ? buffer : "(none)";
}

constexpr auto ZOMBIE = " Z 1 1 1 0 -1 4227084 0 0 0 0 0 0 0 0 20 0 1 0 100 0 0\n";
constexpr auto ENDED_LEADER = " Z 1 1 1 0 -1 4227084 0 0 0 0 0 0 0 0 20 0 3 0 100 0 0\n";

// ---- recorded processes: in place of the link to the program stands a file with its path

int64_t keep_text(std::string text, char *buffer, size_t size) {
    if (text.empty()) return -1;
    size_t length = std::min(text.size(), size - 1);
    memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return static_cast<int64_t>(length);
}

std::string path_of(uint32_t id, const char *file) {
    return "/proc/" + std::to_string(id) + "/" + file;
}

int64_t read_file(uint32_t id, const char *file, char *buffer, size_t size) {
    the_machine->reads.push_back(path_of(id, file));
    return keep_text(the_machine->text(path_of(id, file)), buffer, size);
}

int64_t read_link(uint32_t id, const char *file, char *buffer, size_t size) {
    the_machine->reads.push_back(path_of(id, file));
    std::string path = the_machine->text(path_of(id, file));
    return keep_text(path.substr(0, path.find('\n')), buffer, size);
}

constexpr process_files RECORDED = {.read = read_file, .read_link = read_link};

std::vector<uint32_t> recorded_ids() {
    std::vector<uint32_t> ids;
    std::istringstream names(the_machine->text("/proc/"));
    for (std::string name; std::getline(names, name);)
        if (name.find_first_not_of("0123456789") == std::string::npos)
            ids.push_back(static_cast<uint32_t>(std::stoul(name)));
    std::sort(ids.begin(), ids.end());
    return ids;
}

int32_t recorded_snapshot(uint32_t, uint8_t *buffer, uint32_t) {
    auto ids = recorded_ids();
    memcpy(buffer, ids.data(), ids.size() * sizeof ids[0]);
    return 0;
}

const processes_ops RECORDED_OPS = {
    .GetModuleHandleA = [](const char *) { return true; },
    .GetProcAddress = [](const char *) { return true; },
    .ZwQuerySystemInformation = recorded_snapshot,
    .next_process = [](process_walk *walk, char *name,
                       uint32_t size) { return next_listed_process(RECORDED, walk, name, size); },
};

// In the order of their ids.
texts scanned() {
    texts found = scanned_processes();
    return {found.rbegin(), found.rend()};
}

struct recorded_processes : testing::Test {
    test_host host;
    recorded_machine machine{"relay"};

    recorded_processes() { processes_host = &RECORDED_OPS; }
    ~recorded_processes() override {
        process_names_reset();
        processes_host = nullptr;
    }

    // Of one that is busy, in what follows the name in `stat`.
    void put(uint32_t id, const std::string &name, char state, const char *stack = "140733193388032",
             const char *started = "200") {
        machine.texts[path_of(id, "stat")] = std::to_string(id) + " (" + name + ") " + state +
                                             " 1 1 1 0 -1 4194560 0 0 0 0 10 5 0 0 20 0 1 0 " + started +
                                             " 10000000 500 18446744073709551615 94000000 94100000 " + stack +
                                             " 0 0\n";
    }
    std::string name_of(uint32_t id) {
        char name[IMAGE_NAME_SIZE];
        bool cut = false;
        machine.reads.clear();
        if (!read_process_name(RECORDED, id, name, sizeof name, &cut)) return "(none)";
        return std::string(name) + (cut ? "..." : "");
    }

    bool was_read(const std::string &path) const {
        return std::find(machine.reads.begin(), machine.reads.end(), path) != machine.reads.end();
    }
};

} // namespace

TEST(parse_process_stat, takes_what_stands_between_the_outer_parentheses) {
    EXPECT_EQ(name_in("1 (init) S 0 1 1"), "init");
    EXPECT_EQ(name_in("1 (a b) S 0 1 1"), "a b");
    EXPECT_EQ(name_in("1 ((sd-pam)) S 0 1 1"), "(sd-pam)");
    EXPECT_EQ(name_in("1 () S 3) S 0 1 1"), ") S 3");
    EXPECT_EQ(name_in("1 () S 0 1 1"), "");
    EXPECT_EQ(name_in("1 (\xC3\xBC\xFF) S 0 1 1"), "\xC3\xBC\xFF");
}

TEST(parse_process_stat, takes_line_ends_and_backslashes_as_they_are) {
    EXPECT_EQ(name_in("1 (a\nb\\n) S 0 1 1"), "a\nb\\n");
    EXPECT_EQ(name_in("1 (\\) S 0 1 1"), "\\");
}

TEST(parse_process_stat, needs_both_parentheses) {
    for (const char *text : {"", "1", "1 (init", "1 init)", "1 )init(", ")"})
        EXPECT_EQ(name_in(text), "(none)") << text;
}

TEST(parse_process_stat, cuts_a_name_that_no_kernel_has) {
    EXPECT_EQ(name_in("1 (" + std::string(300, 'x') + ") S 1").size(), 259U);
}

TEST(parse_process_stat, knows_a_process_that_has_ended) {
    EXPECT_TRUE(ended(ZOMBIE));
    EXPECT_TRUE(ended(" X 1 1"));
    EXPECT_TRUE(ended(" Z"));
    EXPECT_FALSE(ended(" S 1 1"));
    EXPECT_FALSE(ended(""));
}

TEST(parse_process_stat, knows_a_process_whose_first_thread_alone_has_ended) {
    EXPECT_FALSE(ended(ENDED_LEADER));
}

TEST(parse_process_run, takes_the_start_and_the_stack) {
    process_stat found = {};
    ASSERT_TRUE(parse_process_stat("640 (a b) D 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 "
                                   "23 24 25 26",
                                   &found));
    EXPECT_EQ(*found.state, 'D');
    process_run run = parse_process_run(640, found.state);
    EXPECT_EQ(run.id, 640U);
    EXPECT_EQ(run.started, 19U);
    EXPECT_EQ(run.stack, 25U);
}

TEST(parse_process_run, takes_what_is_not_there_for_0) {
    for (const char *state : {"", "S", "S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18"}) {
        process_run run = parse_process_run(1, state);
        EXPECT_EQ(run.started, 0U) << state;
        EXPECT_EQ(run.stack, 0U) << state;
    }
}

TEST(complete_from_program, takes_the_last_part_of_the_path) {
    EXPECT_EQ(from_program("/usr/sbin/NetworkManagerX", "NetworkManagerX"), "NetworkManagerX");
    EXPECT_EQ(from_program("/usr/lib/systemd/systemd-timesyncd", "systemd-timesyn"), "systemd-timesyncd");
}

TEST(complete_from_program, takes_no_other_program_s_name) {
    EXPECT_EQ(from_program("/usr/bin/python3.11", "unattended-upgr"), "(none)");
    EXPECT_EQ(from_program("/usr/systemd-timesyncd/x", "systemd-timesyn"), "(none)");
    EXPECT_EQ(from_program("/", ""), "(none)");
    EXPECT_EQ(from_program("", ""), "(none)");
}

TEST(complete_from_program, knows_a_program_that_was_removed) {
    EXPECT_EQ(from_program("/opt/a-program-with-a-name (deleted)", "a-program-with-"),
              "a-program-with-a-name");
    EXPECT_EQ(from_program("/opt/a (deleted) name", "a (deleted) nam"), "a (deleted) name");
}

TEST(complete_from_arguments, finds_a_script_behind_its_interpreter) {
    using namespace std::string_literals;
    EXPECT_EQ(from_arguments("/usr/bin/python3\0-u\0/usr/bin/unattended-upgrade-shutdown\0--wait\0"s,
                             "unattended-upgr"),
              "unattended-upgrade-shutdown");
    EXPECT_EQ(from_arguments("unattended-upgrade-shutdown"s, "unattended-upgr"),
              "unattended-upgrade-shutdown");
    EXPECT_EQ(from_arguments("\0\0a\0"s, "unattended-upgr"), "(none)");
    EXPECT_EQ(from_arguments("", "unattended-upgr"), "(none)");
    EXPECT_EQ(from_arguments(std::string(400, 'x'), std::string(15, 'x').c_str()).size(), 259U);
}

TEST_F(recorded_processes, are_offered_under_their_whole_names) {
    EXPECT_EQ(scanned(), (texts{
                             "systemd",                            // 1
                             "kthreadd",                           // 2
                             "kworker/u64:3-events_unbound",       // 37, longer than what is cut
                             "rcu_tasks_trace",                    // 38, of 15 bytes
                             "systemd-timesyncd",                  // 512, by its program
                             "unattended-upgrade-shutdown",        // 640, a script
                             "(sd-pam)",                           // 701
                             "a name\nwith (all) \\of it\xC3\xBC", // 1200
                             "postgres",                           // 1300
                             "postgres",                           // 1301
                             "relay-forwarder-of-packets",         // 1402, removed meanwhile
                             "relay-forwarder-of-packets",         // 1403, whose program may not be read
                             "worker-thread-1",                    // 1500, called so by itself
                             "half",                               // 1700, its first thread has ended
                         }));
}

TEST_F(recorded_processes, are_asked_for_their_programs_only_where_names_are_cut) {
    scanned();
    EXPECT_FALSE(was_read("/proc/1/exe"));
    EXPECT_FALSE(was_read("/proc/37/exe"));
    EXPECT_TRUE(was_read("/proc/38/exe"));
    EXPECT_TRUE(was_read("/proc/512/exe"));
    EXPECT_FALSE(was_read("/proc/512/cmdline")) << "its program says it all";
    EXPECT_TRUE(was_read("/proc/640/cmdline"));
}

TEST_F(recorded_processes, may_go_while_the_list_is_read) {
    machine.texts["/proc/1/stat"] = "";
    machine.texts["/proc/512/exe"] = "";
    machine.texts["/proc/512/cmdline"] = "";
    texts found = scanned();
    EXPECT_EQ(found[0], "kthreadd");
    EXPECT_EQ(found[3], "systemd-timesyn") << "what is known of it";
}

TEST_F(recorded_processes, are_read_no_further_than_the_first_match) {
    EXPECT_EQ(checked_process("KTHREADD"), 1);
    EXPECT_EQ(machine.reads, (texts{"/proc/1/stat", "/proc/2/stat"}));
}

TEST_F(recorded_processes, are_no_processes_where_nothing_of_them_runs) {
    machine.texts["/proc/1/stat"] = std::string("1 (systemd)") + ZOMBIE;
    EXPECT_EQ(scanned()[0], "kthreadd");
}

TEST_F(recorded_processes, have_names_within_the_room_for_them) {
    char name[16];
    bool cut = true;
    EXPECT_TRUE(read_process_name(RECORDED, 640, name, sizeof name, &cut));
    EXPECT_STREQ(name, "unattended-upgr");
    EXPECT_FALSE(cut);
}

TEST_F(recorded_processes, without_a_name_take_that_of_their_program) {
    machine.texts["/proc/1/stat"] = "1 () S 0 1 1";
    machine.texts["/proc/1/exe"] = "/usr/lib/systemd/systemd";
    EXPECT_EQ(scanned()[0], "systemd");
    machine.texts["/proc/1/exe"] = machine.texts["/proc/1/cmdline"] = "";
    EXPECT_EQ(scanned()[0], "Idle");
}

// ---- whole names, asked for once

TEST_F(recorded_processes, are_asked_for_their_whole_names_once) {
    put(512, "systemd-timesyn", 'S');
    put(640, "unattended-upgr", 'S');
    put(1500, "worker-thread-1", 'S');
    EXPECT_EQ(name_of(512), "systemd-timesyncd");
    EXPECT_TRUE(was_read("/proc/512/exe"));
    EXPECT_EQ(name_of(640), "unattended-upgrade-shutdown");
    EXPECT_EQ(name_of(1500), "worker-thread-1") << "which is whole";
    EXPECT_TRUE(was_read("/proc/1500/cmdline"));
    for (char state : {'S', 'R', 'D', 'T'}) {
        put(512, "systemd-timesyn", state);
        EXPECT_EQ(name_of(512), "systemd-timesyncd");
        EXPECT_EQ(machine.reads, texts{"/proc/512/stat"}) << state;
    }
    EXPECT_EQ(name_of(640), "unattended-upgrade-shutdown");
    EXPECT_EQ(machine.reads, texts{"/proc/640/stat"});
    EXPECT_EQ(name_of(1500), "worker-thread-1");
    EXPECT_EQ(machine.reads, texts{"/proc/1500/stat"});
}

TEST_F(recorded_processes, are_asked_again_when_another_program_or_process_follows) {
    put(512, "systemd-timesyn", 'S');
    EXPECT_EQ(name_of(512), "systemd-timesyncd");
    machine.texts["/proc/512/exe"] = "/opt/systemd-timesync-other";
    put(512, "systemd-timesyn", 'S', "140733193399999");
    EXPECT_EQ(name_of(512), "systemd-timesync-other") << "another program in it";
    machine.texts["/proc/512/exe"] = "/opt/systemd-timesync-third";
    put(512, "systemd-timesyn", 'S', "140733193399999", "201");
    EXPECT_EQ(name_of(512), "systemd-timesync-third") << "another process";
    put(512, "another-process", 'S', "140733193399999", "201");
    machine.texts["/proc/512/exe"] = "/opt/another-process-of-it";
    EXPECT_EQ(name_of(512), "another-process-of-it") << "another name";
}

TEST_F(recorded_processes, that_may_not_be_looked_into_are_asked_each_time) {
    put(512, "systemd-timesyn", 'S', "0");
    EXPECT_EQ(name_of(512), "systemd-timesyncd");
    machine.texts["/proc/512/exe"] = "/opt/systemd-timesync-other";
    EXPECT_EQ(name_of(512), "systemd-timesync-other") << "of another program in it nothing tells";
    put(512, "systemd-timesyn", 'D', "0");
    EXPECT_EQ(name_of(512), "systemd-timesync-other");
    EXPECT_EQ(machine.reads, texts{"/proc/512/stat"});
}

TEST_F(recorded_processes, are_not_remembered_where_nothing_could_be_read) {
    put(512, "systemd-timesyn", 'S');
    std::string program = machine.text("/proc/512/exe");
    machine.texts["/proc/512/exe"] = machine.texts["/proc/512/cmdline"] = "";
    EXPECT_EQ(name_of(512), "systemd-timesyn");
    machine.texts["/proc/512/exe"] = program;
    EXPECT_EQ(name_of(512), "systemd-timesyncd");
}

TEST_F(recorded_processes, in_an_uninterruptible_sleep_are_not_asked) {
    put(512, "systemd-timesyn", 'D');
    EXPECT_EQ(name_of(512), "systemd-timesyn...");
    EXPECT_EQ(machine.reads, texts{"/proc/512/stat"});
    put(512, "systemd-timesyn", 'S');
    EXPECT_EQ(name_of(512), "systemd-timesyncd");
    put(512, "systemd-timesyn", 'D', "140733193399999");
    EXPECT_EQ(name_of(512), "systemd-timesyn...") << "another program";
    put(512, "systemd", 'D');
    EXPECT_EQ(name_of(512), "systemd");
}

TEST_F(recorded_processes, in_an_uninterruptible_sleep_are_not_missing) {
    put(512, "systemd-timesyn", 'D');
    EXPECT_EQ(scanned()[4], "systemd-timesyn");
    EXPECT_EQ(checked_process("Systemd-TimeSyncd"), 1);
    EXPECT_EQ(checked_process("systemd-timesyn"), 1);
    EXPECT_EQ(checked_process("systemd-timesy"), 0);
    EXPECT_EQ(checked_process("systemd-timesXncd"), 0);
    put(512, "systemd-timesyn", 'S');
    EXPECT_EQ(checked_process("systemd-timesyncd"), 1);
    EXPECT_EQ(checked_process("systemd-timesync-other"), 0);
    put(512, "systemd-timesyn", 'D');
    EXPECT_EQ(checked_process("systemd-timesyncd"), 1);
    EXPECT_EQ(checked_process("systemd-timesync-other"), 0) << "its name is known";
}

TEST_F(recorded_processes, without_a_name_are_not_every_process) {
    put(1, "", 'D');
    EXPECT_EQ(name_of(1), "");
    EXPECT_EQ(machine.reads, texts{"/proc/1/stat"});
    EXPECT_EQ(checked_process("nothing of the kind"), 0);
    EXPECT_EQ(checked_process("Idle"), 1);
}

TEST_F(recorded_processes, that_have_gone_are_forgotten) {
    put(512, "systemd-timesyn", 'S');
    put(1500, "worker-thread-1", 'S');
    put(1700, "a-name-of-15-by", 'S');
    machine.texts["/proc/1700/exe"] = "/opt/a-name-of-15-bytes-and-more";
    scanned();
    int64_t before = host.blocks;
    machine.texts["/proc/1700/stat"] = "";
    scanned();
    EXPECT_EQ(host.blocks, before - 2) << "the last one";
    machine.texts["/proc/512/stat"] = std::string("512 (systemd-timesyn)") + ZOMBIE;
    checked_process("worker-thread-1");
    EXPECT_EQ(host.blocks, before - 4) << "one that a check has passed";
    put(1500, "short", 'S');
    scanned();
    EXPECT_EQ(host.blocks, before - 6) << "one that is cut no more";
}

TEST(next_listed_process, ends_with_the_snapshot) {
    recorded_machine machine("relay");
    uint32_t ids[] = {1, 2};
    process_walk walk = {.snapshot = reinterpret_cast<const uint8_t *>(ids), .size = 7};
    char name[IMAGE_NAME_SIZE];
    EXPECT_TRUE(next_listed_process(RECORDED, &walk, name, sizeof name));
    EXPECT_FALSE(next_listed_process(RECORDED, &walk, name, sizeof name)) << "half an id is none";
}

TEST(recorded_machines, have_processes_of_odd_names) {
    test_host host;
    processes_host = &RECORDED_OPS;
    const std::pair<const char *, texts> machines[] = {{"container", {"init", "web server", "sh"}},
                                                       {"numa", {"systemd", "kthreadd", "a) R 1 (b"}}};
    for (const auto &[name, expected] : machines) {
        recorded_machine machine(name);
        EXPECT_EQ(scanned(), expected) << name;
    }
    processes_host = nullptr;
}
