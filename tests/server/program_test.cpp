// The program as an administrator meets it.
#include "server/server_world.h"

#include "fakes/test_host.h"
#include "server/client_socket.h"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A started tnserver, with what it prints.
class program {
public:
    explicit program(std::vector<std::string> arguments) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        std::vector<char *> words = {const_cast<char *>(TNSERVER)};
        for (std::string &argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        process = fork();
        if (process == 0) {
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            execv(TNSERVER, words.data());
            _exit(127);
        }
        close(ends[1]);
        output = ends[0];
    }
    ~program() {
        if (process > 0) end(SIGKILL);
        close(output);
    }
    program(const program &) = delete;

    std::string read_line() {
        std::string line;
        for (char c; read(output, &c, 1) == 1 && c != '\n';)
            line += c;
        return line;
    }
    std::string read_all() {
        std::string text;
        for (char c; read(output, &c, 1) == 1;)
            text += c;
        return text;
    }
    // The exit status, or minus the signal.
    int wait() {
        int status = 0;
        waitpid(process, &status, 0);
        process = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int end(int signal) {
        kill(process, signal);
        return wait();
    }

private:
    pid_t process = 0;
    int output = -1;
};

class tnserver : public server_world {
protected:
    struct outcome {
        int status;
        std::string text;
    };
    static outcome run(const std::vector<std::string> &arguments) {
        program started(arguments);
        std::string text = started.read_all();
        return {started.wait(), text};
    }
    static bool holds(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos;
    }
};

} // namespace

TEST_F(tnserver, serves_until_it_is_interrupted) {
    for (int signal : {SIGINT, SIGTERM}) {
        program started({"--listen", "127.0.0.1:0", "--store", store_path});
        std::string line = started.read_line();
        EXPECT_TRUE(holds(line, "tnserver        listens at 127.0.0.1:")) << line;
        EXPECT_TRUE(holds(line, "store " + store_path)) << line;
        EXPECT_EQ(started.end(signal), 0);
        EXPECT_TRUE(holds(started.read_all(), "has ended"));
    }
}

TEST_F(tnserver, watches_what_agents_do) {
    program started({"--listen", "127.0.0.1:0", "--store", store_path, "--watch"});
    std::string line = started.read_line();
    size_t colon = line.find("127.0.0.1:") + strlen("127.0.0.1:");
    client_socket socket(static_cast<uint16_t>(std::stoi(line.substr(colon))));
    scripted_agent agent(socket.line(), "web1", &secrets);
    ASSERT_TRUE(agent.open());
    agent.configure();
    agent.ask_time(now);
    agent.checkin({{.time = now, .path = {"system", "idle"}, .value = encode_integer(150), .status = 2}});
    EXPECT_TRUE(holds(started.read_line(), "web1@office     registered with a new key"));
    EXPECT_TRUE(holds(started.read_line(), "web1@office     is to perform 0 checks"));
    line = started.read_line();
    EXPECT_TRUE(holds(line, "web1@office     system.idle           alert               150")) << line;
    EXPECT_FALSE(holds(line, "\033"));
    EXPECT_EQ(started.end(SIGTERM), 0);
}

TEST_F(tnserver, does_not_start_with_a_wrong_policy) {
    std::string policy = store_path + ".policy";
    std::ofstream(policy) << "checkin = \"often\"\n";
    outcome wrong = run({"--policy", policy, "--store", store_path});
    std::filesystem::remove(policy);
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.text, "tnserver: " + policy + ", line 1: checkin is to be 10 s to 1 d\n");
}

TEST_F(tnserver, does_not_start_with_an_upgrade_that_no_agent_takes) {
    std::string upgrade = store_path + ".upgrade";
    std::ofstream(upgrade).close();
    std::filesystem::resize_file(upgrade, 10485761);
    outcome wrong = run({"--upgrade", upgrade, "--upgrade-build", "5154", "--store", store_path});
    std::filesystem::remove(upgrade);
    EXPECT_EQ(wrong.status, 2);
    EXPECT_EQ(wrong.text,
              "tnserver: the upgrade " + upgrade + " has 10485761 bytes, and agents take 10485760 at most\n");
}

TEST_F(tnserver, tells_which_upgrade_it_offers) {
    std::string upgrade = store_path + ".upgrade";
    std::ofstream(upgrade) << "v.3.8.0 build 5154 on Linux";
    program started({"--listen", "127.0.0.1:0", "--store", store_path, "--upgrade", upgrade});
    started.read_line();
    std::string line = started.read_line();
    std::filesystem::remove(upgrade);
    EXPECT_TRUE(holds(line, "offers build 5154, " + upgrade + ", to agents of a lower one")) << line;
    EXPECT_EQ(started.end(SIGTERM), 0);
}

TEST_F(tnserver, tells_its_usage) {
    outcome help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(holds(help.text, "usage: tnserver"));
    outcome wrong = run({"--nonsense"});
    EXPECT_EQ(wrong.status, 2);
    EXPECT_TRUE(holds(wrong.text, "tnserver: unknown option --nonsense\nusage: "));
}

TEST_F(tnserver, prints_the_built_in_policy) {
    outcome printed = run({"policy"});
    EXPECT_EQ(printed.status, 0);
    EXPECT_EQ(printed.text, BUILT_IN_POLICY);
}

TEST_F(tnserver, sums_a_store_up) {
    outcome empty = run({"summary", "--store", store_path});
    EXPECT_EQ(empty.status, 1);
    EXPECT_TRUE(holds(empty.text, "no valid result of: (no agent)"));
    register_agent(encode_group("mem", encode_device("phys", 7, "kB", encode_hint(1000))));
    EXPECT_EQ(run({"summary", "--store", store_path}).status, 1);
    deliver({{.time = now, .path = {"mem", "phys"}, .value = encode_real(5)}});
    EXPECT_EQ(run({"summary", "--store", store_path}).status, 0);
    EXPECT_EQ(run({"summary", "--store", store_path, "--require", "mem"}).status, 0);
    outcome missing = run({"summary", "--store", store_path, "--require", "mem,fs"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(holds(missing.text, "no valid result of: fs\n"));
    EXPECT_EQ(run({"summary", "--store", store_path + ".not"}).status, 2);
}

TEST_F(tnserver, allows_a_new_key) {
    open();
    EXPECT_EQ(run({"rekey", "--store", store_path, "web2", "office"}).status, 2);
    outcome allowed = run({"rekey", "--store", store_path, "web1", "office"});
    EXPECT_EQ(allowed.status, 0);
    EXPECT_EQ(allowed.text, "web1 in domain office may make a new key, once\n");
    secrets = {};
    open();
}
