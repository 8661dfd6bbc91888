#include "server/clause_check.h"

#include "platform/errors.h"
#include "platform/regex.h"

#include <cstring>

namespace {

// What a separator meets in a log: nothing, a letter, a blank, line ends. Empty matches show up in one of
// these.
constexpr const char *SAMPLES[] = {"", "a", " ", "\n", "\r\n", "a b"};

constexpr size_t WORDS_SIZE = 80;

class regex_holder {
public:
    explicit regex_holder(const std::string &pattern) : code(tn_regcomp(&regex, pattern.c_str())) {}
    ~regex_holder() { tn_regfree(&regex); }
    regex_holder(const regex_holder &) = delete;
    regex_holder &operator=(const regex_holder &) = delete;

    tn_regex regex = {};
    const int code; // 0 for a sound expression
};

const char *check_regex(const std::string &pattern) {
    regex_holder compiled(pattern);
    if (compiled.code == 0) return nullptr;
    char words[WORDS_SIZE] = "";
    tn_regerror(compiled.code, &compiled.regex, words, sizeof words);
    return format_error("%s", words);
}

// A reader of one clause. The first failure ends the reading: every later step sees the end of the text.
class clause_reader {
public:
    explicit clause_reader(const std::string &clause) : text(clause) {}

    const char *read() {
        read_alternatives();
        if (failure == nullptr && skip_blanks() != '\0') fail("an operator is missing here");
        return failure;
    }

private:
    char current() const { return failure != nullptr || at >= text.size() ? '\0' : text[at]; }

    void fail(const char *reason) {
        if (failure == nullptr) failure = format_error("column %zu: %s", at + 1, reason);
    }

    // Over blanks and comments, to what stands behind them.
    char skip_blanks() {
        while (current() != '\0') {
            if (current() == '#')
                while (current() != '\0' && current() != '\n')
                    at++;
            else if (static_cast<unsigned char>(current()) <= ' ')
                at++;
            else
                break;
        }
        return current();
    }

    // Takes a word whose first letter is current. Agents look at that letter alone to know the word.
    void take_word(const char *word) {
        if (text.compare(at, strlen(word), word) == 0)
            at += strlen(word);
        else
            fail(format_error("\"%s\" is meant here", word));
    }

    void read_alternatives() {
        for (;;) {
            read_conjunction();
            if (current() != 'o') return; // blanks are behind us
            take_word("or");
        }
    }

    void read_conjunction() {
        for (;;) {
            read_primary();
            if (skip_blanks() != 'a') return;
            take_word("and");
        }
    }

    void read_primary() {
        while (skip_blanks() == 'n')
            take_word("not");
        if (current() == '\'') {
            read_string();
        } else if (current() == '(') {
            at++;
            read_alternatives();
            if (skip_blanks() != ')') return fail("a parenthesis is not closed");
            at++;
        } else {
            fail("a text in single quotes, \"not\" or a parenthesis is missing here");
        }
    }

    void read_string() {
        size_t start = at++;
        std::string pattern;
        while (at < text.size()) {
            char c = text[at++];
            bool is_quote = c == '\'';
            if (is_quote && (at == text.size() || text[at] != '\'')) return check_pattern(pattern, start);
            if (is_quote) at++;
            pattern += c;
        }
        at = start;
        fail("a quote is not closed");
    }

    void check_pattern(const std::string &pattern, size_t start) {
        const char *reason = check_regex(pattern);
        if (reason == nullptr) return;
        at = start;
        fail(reason);
    }

    const std::string &text;
    size_t at = 0;
    const char *failure = nullptr;
};

} // namespace

const char *check_clause(const std::string &clause) {
    return clause_reader(clause).read();
}

const char *check_separator(const std::string &separator) {
    if (separator.empty()) return "it is empty";
    if (auto *failure = check_regex(separator)) return failure;
    regex_holder compiled(separator);
    for (const char *sample : SAMPLES) {
        tn_match match = {};
        if (tn_regexec(&compiled.regex, sample, 1, &match) == 0 && match.start == match.end)
            return "it can match nothing at all";
    }
    return nullptr;
}
