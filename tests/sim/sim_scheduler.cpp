#include "sim/sim_scheduler.h"

#include <exception>
#include <vector>

sim_scheduler::sim_scheduler(uint64_t seed) : chance(seed) {
    tasks.emplace_back().name = "test";
    tasks.front().of_agent = false;
    current = &tasks.front();
}

sim_scheduler::~sim_scheduler() {
    kill_tasks(false);
    std::unique_lock held(lock);
    closing = true;
    for (sim_task &task : tasks)
        task.turn.notify_one();
    held.unlock();
    for (sim_task &task : tasks)
        if (task.thread.joinable()) task.thread.join();
}

// Threads are dear, above all under a sanitizer: one whose task has ended takes the next.
sim_task *sim_scheduler::find_idle() {
    for (sim_task &task : tasks)
        if (task.ended) return &task;
    sim_task *task = &tasks.emplace_back();
    task->thread = std::thread([this, task] { work(task); });
    return task;
}

sim_task *sim_scheduler::start(const std::string &name, bool of_agent, std::function<void()> body) {
    sim_task *task = find_idle();
    task->name = name;
    task->of_agent = of_agent;
    task->body = std::move(body);
    task->ready = [] { return true; };
    task->deadline = NEVER;
    task->killed = task->ended = false;
    return task;
}

void sim_scheduler::work(sim_task *task) {
    std::unique_lock held(lock);
    for (;;) {
        task->turn.wait(held, [&] { return current == task || closing; });
        if (closing) return;
        held.unlock();
        try {
            if (!task->killed) task->body();
        } catch (const task_killed &) {
        }
        held.lock();
        task->ended = true;
        pass_baton();
    }
}

bool sim_scheduler::wait_until(const std::function<bool()> &ready, int64_t deadline_ms) {
    sim_task *self = current;
    // A killed task that is being unwound does not wait any more: its clean-up would throw a second time.
    if (self->killed && std::uncaught_exceptions() > 0) return false;
    if (!self->killed) {
        if (ready()) return true;
        if (deadline_ms <= now_ms) return false;
        self->ready = ready;
        self->deadline = deadline_ms;
        std::unique_lock held(lock);
        pass_baton();
        self->turn.wait(held, [&] { return current == self; });
    }
    if (self->killed) throw task_killed{};
    return ready();
}

void sim_scheduler::sleep_until(int64_t deadline_ms) {
    wait_until([] { return false; }, deadline_ms);
}

void sim_scheduler::yield() {
    sim_task *self = current;
    if (self->killed && std::uncaught_exceptions() > 0) return;
    if (!self->killed) {
        self->ready = [] { return true; };
        self->deadline = NEVER;
        std::unique_lock held(lock);
        pass_baton();
        self->turn.wait(held, [&] { return current == self; });
    }
    if (self->killed) throw task_killed{};
}

void sim_scheduler::wake_at(int64_t moment_ms) {
    moments.insert(moment_ms);
}

bool sim_scheduler::can_go_on(const sim_task *task) const {
    if (task->ended) return false;
    return task->killed || task->deadline <= now_ms || task->ready();
}

// False when there is no moment to go to.
bool sim_scheduler::advance_clock() {
    moments.erase(moments.begin(), moments.upper_bound(now_ms));
    int64_t next = moments.empty() ? NEVER : *moments.begin();
    for (const sim_task &task : tasks)
        if (!task.ended && task.deadline < next) next = task.deadline;
    if (next == NEVER) return false;
    now_ms = next;
    return true;
}

sim_task *sim_scheduler::choose_next() {
    for (;;) {
        std::vector<sim_task *> able;
        for (sim_task &task : tasks)
            if (can_go_on(&task)) able.push_back(&task);
        if (able.size() == 1) return able[0];
        if (!able.empty()) return able[choose ? choose(able.size()) : chance() % able.size()];
        if (advance_clock()) continue;
        stuck = true;
        return &tasks.front();
    }
}

void sim_scheduler::pass_baton() {
    sim_task *next = choose_next();
    switches += next != current;
    current = next;
    next->turn.notify_one();
}

bool sim_scheduler::any_of_agent() const {
    for (const sim_task &task : tasks)
        if (task.of_agent && !task.ended) return true;
    return false;
}

void sim_scheduler::mark_killed() {
    for (sim_task &task : tasks)
        if (task.of_agent && !task.ended) task.killed = true;
}

void sim_scheduler::kill_tasks(bool of_agent_only) {
    for (sim_task &task : tasks)
        if (&task != &tasks.front() && (task.of_agent || !of_agent_only)) task.killed = true;
    // Each of them goes on at once, without the clock, and ends.
    wait_until(
        [&] {
            for (const sim_task &task : tasks)
                if (task.killed && !task.ended) return false;
            return true;
        },
        NEVER);
}
