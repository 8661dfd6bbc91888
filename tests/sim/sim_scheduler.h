// One baton for all threads of a simulation: exactly one of them runs, and it hands the baton on only where
// it waits.
//
// Who is next among those that can go on is drawn from the seed. The fake clock moves when nobody can, to the
// next moment at which somebody can. So the same seed gives the same run. The test's own thread is one of the
// tasks.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>

inline constexpr int64_t NEVER = INT64_MAX;

// Thrown out of a wait of a task that has been killed.
struct task_killed {};

struct sim_task {
    std::string name;
    bool of_agent;
    std::function<void()> body;
    std::function<bool()> ready; // what it waits for
    int64_t deadline = NEVER;
    bool killed = false;
    bool ended = false;
    std::condition_variable turn;
    std::thread thread;
};

struct sim_scheduler {
    explicit sim_scheduler(uint64_t seed);
    ~sim_scheduler(); // kills what is left

    int64_t now_ms = 0; // only ever goes up
    std::mt19937_64 chance;
    uint64_t switches = 0;

    // A new task, which begins when it gets the baton.
    sim_task *start(const std::string &name, bool of_agent, std::function<void()> body);

    // Waits until `ready` or the fake time; whether it is ready. Whatever `ready` looks at changes only while
    // somebody else has the baton.
    bool wait_until(const std::function<bool()> &ready, int64_t deadline_ms);
    void sleep_until(int64_t deadline_ms);
    // Lets whoever can go on do so, the caller among them.
    void yield();

    // Chooses among so many that can go on, from 0 up; drawn from the seed where it is not set.
    std::function<size_t(size_t count)> choose;

    // Somebody's `ready` may change at this moment by itself.
    void wake_at(int64_t moment_ms);

    // All tasks of the agent end at their next wait.
    void mark_killed();

    // Ends all tasks of the agent, or all at all, each at its next wait.
    void kill_tasks(bool of_agent_only);
    bool any_of_agent() const;
    bool in_agent() const { return current->of_agent; }
    const sim_task *running() const { return current; }

    // Everybody waits for what can not come.
    bool stuck = false;

private:
    sim_task *find_idle();
    void work(sim_task *task);
    void pass_baton();
    sim_task *choose_next();
    bool can_go_on(const sim_task *task) const;
    bool advance_clock();

    std::mutex lock;
    std::list<sim_task> tasks; // the test's first
    sim_task *current;
    bool closing = false;
    std::multiset<int64_t> moments;
};
