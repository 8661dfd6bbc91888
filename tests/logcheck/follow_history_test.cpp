// Random histories of a log, each told to the reader and to its model. A history that they tell differently
// is made as short as it goes and printed; TN_HISTORIES runs more of them.

#include "logcheck/follow_model.h"
#include "logcheck/log_fixture.h"
#include "platform/agent_log.h"

#include <cstdlib>
#include <random>

namespace {

enum step_kind { APPEND, ROTATE, TRUNCATE, REPLACE, REMOVE, RESTART, CHECK, LAST_KIND };

struct history_step {
    step_kind kind;
    std::string text;     // of APPEND, ROTATE, TRUNCATE
    int overdue_at = 0;   // the chunk of a CHECK behind which a check-in is due, 0 for none
    bool refused = false; // the CHECK cannot open its file
};

struct history {
    std::string separator;
    uint32_t inclusion;
    bool all_entries; // are reported
    bool traced;
    std::vector<history_step> steps;
};

class history_maker {
public:
    explicit history_maker(uint32_t seed) : chance(seed) {}

    history make() {
        history made = {.separator = std::vector<std::string>{"\n", "\n", "\n", ";", "\r\n", "aab"}[below(6)],
                        .inclusion = below(3),
                        .all_entries = below(2) == 0,
                        .traced = below(3) == 0};
        separator = made.separator;
        for (uint32_t count = 3 + below(18); count > 0; count--)
            made.steps.push_back(step());
        made.steps.push_back({.kind = CHECK});
        return made;
    }

private:
    std::mt19937 chance;
    std::string separator;

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(chance() % limit); }

    std::string letters(uint32_t length) {
        static const std::string from = "aaabbc\xC3\xE9;x\n\r";
        std::string all;
        for (; length > 0; length--)
            all += from[below(static_cast<uint32_t>(from.size()))];
        return all;
    }

    std::string text() {
        std::string all;
        for (uint32_t lines = below(6); lines > 0; lines--) {
            all += letters(below(60));
            if (below(40) == 0) all += '\0' + letters(below(5));
            if (below(30) == 0) all += std::string(16'384 - 200 + below(400), below(2) == 0 ? 'a' : 'b');
            if (below(6) != 0) all += separator;
        }
        return all;
    }

    history_step step() {
        switch (below(16)) {
        case 0:
            return {.kind = ROTATE, .text = text()};
        case 1:
            return {.kind = TRUNCATE, .text = below(2) == 0 ? "" : text()};
        case 2:
            return {.kind = REPLACE};
        case 3:
            return {.kind = below(3) == 0 ? REMOVE : RESTART};
        case 4:
        case 5:
        case 6:
        case 7:
        case 8:
            return {.kind = APPEND, .text = text()};
        default:
            return {.kind = CHECK,
                    .overdue_at = below(8) == 0 ? static_cast<int>(1 + below(3)) : 0,
                    .refused = below(20) == 0};
        }
    }
};

int overdue_countdown;

bool answer_overdue() {
    return overdue_countdown > 0 && --overdue_countdown == 0;
}

std::string describe(const history_step &step) {
    static const char *const names[] = {"append", "rotate",  "truncate", "replace",
                                        "remove", "restart", "check"};
    std::string all = names[step.kind];
    if (step.kind == CHECK) {
        if (step.refused) all += " refused";
        if (step.overdue_at > 0) all += " overdue at " + std::to_string(step.overdue_at);
    }
    return step.text.empty() ? all : all + " " + testing::PrintToString(step.text);
}

std::string describe(const history &told) {
    std::string all = "separator " + testing::PrintToString(told.separator) + " inclusion " +
                      std::to_string(told.inclusion) + (told.all_entries ? " all" : " some") +
                      (told.traced ? " traced\n" : "\n");
    for (const history_step &step : told.steps)
        all += "  " + describe(step) + "\n";
    return all;
}

} // namespace

class log_histories : public log_fixture {
protected:
    // What the rules of a history make of the entries.
    static std::string report(const std::vector<std::string> &entries, bool all_entries) {
        std::string all;
        for (const std::string &entry : entries) {
            if (all_entries || entry.find('x') != std::string::npos)
                all += "1 " + entry + "|";
            else if (entry.find("aab") == std::string::npos && entry.find('c') != std::string::npos)
                all += "2|";
        }
        return all.empty() ? "0" : all.substr(0, all.size() - 1);
    }

    static void add_rules(devnode *device, bool all_entries) {
        add_rule(device, all_entries ? "'.' or '^$'" : "'x'", LOG_ENTRY, 1);
        add_rule(device, "'aab'", QUIET, 0);
        add_rule(device, "'c'", QUIET, 2);
    }

    model_variables variables() {
        std::string size = get("size:log./.var.app\\.log");
        return {.offset = std::stoll(get("log./.var.app\\.log")),
                .size = size == "(absent)" ? -1 : std::stoll(size),
                .first = get("first_bin:log./.var.app\\.log"),
                .last = get("last_bin:log./.var.app\\.log")};
    }

    // The difference that a check shows, "" for none.
    std::string check(const history &told, const history_step &step, log_model *model) {
        std::optional<std::string> content;
        if (host.has_file(PATH) && !step.refused) content = host.files[PATH].content;
        if (step.refused) host.broken["open"][PATH] = 13;
        overdue_countdown = step.overdue_at;
        bool sound = check_log(file, nullptr) == nullptr;
        host.broken.clear();
        std::string found = results(file);
        overdue_countdown = step.overdue_at;
        if (model->check(content) != sound) return sound ? "no failure" : "a failure";
        std::string expected = report(model->entries, told.all_entries);
        if (found != expected)
            return "results " + testing::PrintToString(found) + " instead of " +
                   testing::PrintToString(expected);
        if (variables() != *model->stored)
            return "offset " + std::to_string(variables().offset) + ", size " +
                   std::to_string(variables().size) + " instead of " + std::to_string(model->stored->offset) +
                   ", " + std::to_string(model->stored->size);
        host.log.clear();
        return "";
    }

    void change_file(const history_step &step) {
        std::string content = host.has_file(PATH) ? host.files[PATH].content : "";
        if (step.kind == APPEND) content += step.text;
        if (step.kind == ROTATE || step.kind == TRUNCATE) content = step.text;
        if (step.kind == REPLACE)
            for (size_t i = 0; i < content.size(); i += 37)
                content[i] ^= 1;
        host.write_file(PATH, content);
    }

    void restart() {
        if (file->state != nullptr) file->state_free(file);
        file->state_free = free_no_state;
    }

    std::string tell(const history &told) {
        var_reset();
        restart();
        free_lognode(file->lognode);
        file->lognode = alloc_lognode();
        file->lognode->warningSilence = file->lognode->alertSilence = -1;
        separate(file, told.separator.c_str(), told.inclusion);
        add_rules(file, told.all_entries);
        log_set_level(told.traced ? LOG_TRACE : LOG_DETAIL);
        host.files.erase(PATH);
        host.write_file(PATH, "");
        log_model model;
        model.separator = told.separator;
        model.inclusion = told.inclusion;
        model.is_overdue = answer_overdue;
        for (const history_step &step : told.steps) {
            if (step.kind == CHECK) {
                if (std::string difference = check(told, step, &model); !difference.empty())
                    return difference;
            } else if (step.kind == RESTART) {
                restart();
                model.restart();
            } else if (step.kind == REMOVE) {
                host.files.erase(PATH);
            } else {
                change_file(step);
            }
        }
        return "";
    }

    // Leaves out what the difference does not need.
    history shrink(history told) {
        for (bool shorter = true; shorter;) {
            shorter = false;
            for (size_t i = 0; i < told.steps.size(); i++) {
                history tried = told;
                tried.steps.erase(tried.steps.begin() + static_cast<ptrdiff_t>(i));
                if (tell(tried).empty()) continue;
                told = tried;
                shorter = true;
                i--;
            }
        }
        return told;
    }
};

TEST_F(log_histories, are_told_by_the_reader_as_by_its_model) {
    checkin_overdue_hook = answer_overdue;
#ifdef __SANITIZE_ADDRESS__
    uint32_t count = 300;
#else
    uint32_t count = 3'000;
#endif
    if (const char *wanted = getenv("TN_HISTORIES")) count = static_cast<uint32_t>(atoi(wanted));
    for (uint32_t seed = 0; seed < count; seed++) {
        history told = history_maker(seed).make();
        if (tell(told).empty()) continue;
        history least = shrink(told);
        FAIL() << "seed " << seed << ": " << tell(least) << "\n" << describe(least);
    }
}
