// What a host once answered to the calls of the operation tables, so that its answers can be given again on
// any host.
//
// The file holds one call a line: the words of the question, "=", and the words of the answer, with a tab
// between them. A call that can fail answers "1" and what it gives, or "0" and the system error code.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

using call_words = std::vector<std::string>;

struct recorded_calls {
    std::map<call_words, call_words> answers; // by question

    // The answer to a question. One that was not asked when the record was made fails the test.
    const call_words &answer(const call_words &question) const;
};

// Of a file in tests/data/answers.
recorded_calls read_recorded_calls(const std::string &name);
std::string format_recorded_calls(const recorded_calls &record);

inline std::string word(uint64_t number) {
    return std::to_string(number);
}
inline uint64_t number_at(const call_words &answer, size_t place) {
    return place < answer.size() ? std::stoull(answer[place]) : 0;
}
inline std::string text_at(const call_words &answer, size_t place) {
    return place < answer.size() ? answer[place] : "";
}
