#include "probes/os/recorded_calls.h"

#include <fstream>
#include <gtest/gtest.h>

static std::string line_of(const call_words &words) {
    std::string line;
    for (const std::string &each : words)
        line += (line.empty() ? "" : "\t") + each;
    return line;
}

const call_words &recorded_calls::answer(const call_words &question) const {
    static const call_words none;
    auto found = answers.find(question);
    if (found != answers.end()) return found->second;
    ADD_FAILURE() << "not recorded: " << line_of(question);
    return none;
}

recorded_calls read_recorded_calls(const std::string &name) {
    recorded_calls record;
    std::ifstream file(TEST_DATA "/answers/" + name);
    std::string line;
    while (std::getline(file, line)) {
        call_words question;
        call_words *words = &question;
        call_words answer;
        for (size_t start = 0; start <= line.size();) {
            size_t end = std::min(line.find('\t', start), line.size());
            std::string each = line.substr(start, end - start);
            if (words == &question && each == "=")
                words = &answer;
            else
                words->push_back(each);
            start = end + 1;
        }
        record.answers[question] = answer;
    }
    EXPECT_FALSE(record.answers.empty()) << name;
    return record;
}

std::string format_recorded_calls(const recorded_calls &record) {
    std::string text;
    for (const auto &[question, answer] : record.answers)
        text += line_of(question) + "\t=\t" + line_of(answer) + "\n";
    return text;
}
