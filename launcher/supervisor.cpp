#include "launcher/supervisor.h"

#include "launcher/launcher_ops.h"
#include "launcher/program_folder.h"
#include "platform/errors.h"
#include "platform/heap.h"

#include <cstdio>

const launcher_ops *launcher_host;

namespace {

enum : uint8_t { BYTE_STOP = 0, BYTE_UPGRADE = 1, BYTE_ALIVE = 2 };

// How far the launcher has gone in ending the agent.
enum ending_stage { NOT_ENDING, TOLD, CUT_OFF, KILLED };

// One life of the agent.
struct agent_life {
    agent_pipes pipes;
    int64_t process;
    int64_t started_ms;
    bool trial;
    bool alive_reported;
    bool upgrade_reported;
    ending_stage ending;
    int64_t deadline_ms; // of the stage, or WAIT_FOR_EVER
    int32_t status;
};

struct supervisor {
    const char *installed;
    const char *const *agent_words;
    bool stopping;
    bool has_started;    // any program
    bool upgrade_failed; // still to be told to the agent
    int64_t pause_ms;
};

using words_guard = guard<const char *, heap_free>;

void tell_failure(const char *failure) {
    if (failure != nullptr) launcher_host->tell(true, failure);
}

void close_end(int32_t *end) {
    if (*end != 0) launcher_host->close_end(*end);
    *end = 0;
}

void close_pipes(agent_pipes *pipes) {
    close_end(&pipes->read);
    close_end(&pipes->write);
    close_end(&pipes->agent_read);
    close_end(&pipes->agent_write);
}

words_guard make_words(const supervisor &own, const char *read_end, const char *write_end) {
    size_t count = 0;
    while (own.agent_words[count] != nullptr)
        count++;
    words_guard words(static_cast<const char **>(heap_alloc((count + 6) * sizeof(char *))));
    if (words == nullptr) return words;
    const char **at = words.get();
    for (const char *word : {program_file(), "--parent-pipes", read_end, write_end})
        *at++ = word;
    if (own.upgrade_failed) *at++ = "--upgrade-failed";
    for (size_t i = 0; i < count; i++)
        *at++ = own.agent_words[i];
    return words;
}

const char *start_on_pipes(const supervisor &own, agent_life *life) {
    char read_end[16];
    char write_end[16];
    snprintf(read_end, sizeof read_end, "%d", life->pipes.agent_read);
    snprintf(write_end, sizeof write_end, "%d", life->pipes.agent_write);
    words_guard words = make_words(own, read_end, write_end);
    if (words == nullptr) return "cannot start the agent: out of memory";
    if (launcher_host->start(words.get(), &life->pipes, &life->process)) return nullptr;
    return format_error("cannot start the agent: %s", last_error_text());
}

const char *start_agent(const supervisor &own, agent_life *life) {
    if (!launcher_host->make_pipes(&life->pipes))
        return format_error("cannot make pipes: %s", last_error_text());
    life->started_ms = launcher_host->now_ms();
    life->deadline_ms = WAIT_FOR_EVER;
    auto *failure = start_on_pipes(own, life);
    // The end of a pipe is seen only where nobody else holds it open.
    close_end(&life->pipes.agent_read);
    close_end(&life->pipes.agent_write);
    if (failure != nullptr) close_pipes(&life->pipes);
    return failure;
}

void enter_stage(agent_life *life, ending_stage stage, int64_t limit_ms) {
    life->ending = stage;
    life->deadline_ms = limit_ms == WAIT_FOR_EVER ? WAIT_FOR_EVER : launcher_host->now_ms() + limit_ms;
}

// The next way to end the agent, each less polite than the one before.
void press_for_end(agent_life *life) {
    if (life->ending == NOT_ENDING && launcher_host->write_byte(life->pipes.write, BYTE_STOP)) {
        enter_stage(life, TOLD, PATIENCE_MS);
    } else if (life->ending <= TOLD) {
        close_end(&life->pipes.write);
        enter_stage(life, CUT_OFF, LAST_PATIENCE_MS);
    } else if (life->ending == CUT_OFF) {
        launcher_host->tell(true, "the agent does not end: it is killed");
        launcher_host->kill(life->process);
        enter_stage(life, KILLED, WAIT_FOR_EVER);
    }
}

void take_proof(agent_life *life) {
    if (life->trial && !life->alive_reported) {
        launcher_host->tell(false, "the new program works: the upgrade is over");
        tell_failure(end_trial());
    }
    life->alive_reported = true;
}

void take_byte(agent_life *life, uint8_t byte) {
    if (byte == BYTE_ALIVE) take_proof(life);
    if (byte != BYTE_UPGRADE) return;
    life->upgrade_reported = true;
    launcher_host->tell(false, "an upgrade is ready: the agent is to end");
    if (life->ending == NOT_ENDING) press_for_end(life);
}

int64_t time_left(const agent_life &life) {
    if (life.deadline_ms == WAIT_FOR_EVER) return WAIT_FOR_EVER;
    int64_t left = life.deadline_ms - launcher_host->now_ms();
    return left > 0 ? left : 0;
}

// Until the agent has ended.
void accompany(supervisor *own, agent_life *life) {
    for (;;) {
        launcher_event event = launcher_host->wait(life->pipes.read, life->process, time_left(*life));
        switch (event.kind) {
        case EVENT_EXIT:
            life->status = event.status;
            return;
        case EVENT_BYTE:
            take_byte(life, event.byte);
            break;
        case EVENT_PIPE_END:
            close_end(&life->pipes.read);
            break;
        case EVENT_STOP:
            own->stopping = true;
            if (life->ending == NOT_ENDING) press_for_end(life);
            break;
        case EVENT_TIMEOUT:
            press_for_end(life);
            break;
        }
    }
}

// Whether the next start comes without a pause.
bool undo_trial() {
    auto *failure = roll_back();
    tell_failure(failure);
    return failure == nullptr;
}

bool settle_start_failure(supervisor *own, bool trial, const char *failure) {
    launcher_host->tell(true, failure);
    if (!trial || !undo_trial()) return false;
    own->upgrade_failed = true;
    return true;
}

// What the end of the agent means. Whether the next start comes without a pause.
bool settle_end(supervisor *own, const agent_life &life) {
    bool unproven = life.trial && !life.alive_reported;
    if (life.alive_reported || launcher_host->now_ms() - life.started_ms >= LONG_LIFE_MS)
        own->pause_ms = FIRST_PAUSE_MS;
    if (own->stopping) {
        if (unproven && life.status == 0) tell_failure(excuse_trial());
        return true;
    }
    if (life.upgrade_reported && upgrade_waits()) return true;
    launcher_host->tell(true, format_error("the agent has ended with status %d", life.status));
    if (!unproven || !undo_trial()) return false;
    own->upgrade_failed = true;
    return true;
}

bool live_once(supervisor *own, const program_choice &choice) {
    // A trial is of a program that nobody has gone back to.
    own->upgrade_failed = (own->upgrade_failed || choice.upgrade_failed) && !choice.trial;
    agent_life life = {.trial = choice.trial};
    if (auto *failure = start_agent(*own, &life)) return settle_start_failure(own, choice.trial, failure);
    own->upgrade_failed = false;
    own->has_started = true;
    accompany(own, &life);
    close_pipes(&life.pipes);
    return settle_end(own, life);
}

void pause(supervisor *own) {
    launcher_host->tell(false, format_error("next start in %d s", static_cast<int>(own->pause_ms / 1000)));
    int64_t end = launcher_host->now_ms() + own->pause_ms;
    for (int64_t left = own->pause_ms; left > 0; left = end - launcher_host->now_ms())
        if (launcher_host->wait(0, 0, left).kind == EVENT_STOP) {
            own->stopping = true;
            return;
        }
    own->pause_ms = own->pause_ms * 2 < LONGEST_PAUSE_MS ? own->pause_ms * 2 : LONGEST_PAUSE_MS;
}

} // namespace

int supervise(const char *installed, const char *const *agent_words) {
    supervisor own = {.installed = installed, .agent_words = agent_words, .pause_ms = FIRST_PAUSE_MS};
    while (!own.stopping) {
        program_choice choice;
        auto *failure = choose_program(own.installed, &choice);
        tell_failure(failure);
        if (failure != nullptr && !own.has_started) return 1;
        bool at_once = failure == nullptr && live_once(&own, choice);
        if (!at_once && !own.stopping) pause(&own);
    }
    launcher_host->tell(false, "has ended");
    return 0;
}
