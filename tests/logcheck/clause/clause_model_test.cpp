// The clause language read a second time, the simple way: the text is cut into tokens first, positions are
// worked out from offsets, and a truth table stands for the evaluation. Random clauses must fare alike in
// both.
#include "fakes/test_host.h"
#include "logcheck/clause.h"
#include "logcheck/clause/scripted_regex.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

struct token {
    std::string kind;  // "not" "and" "or" "(" ")" "string" "end" "open string", or "other"
    size_t start, end; // offsets; for a torn keyword the end is where it tears
    std::string value;
};

struct tree {
    std::string name; // an operator or "leaf"
    std::string pattern;
    std::vector<tree> children;
};

struct stop {
    size_t offset;
    std::string reason;
};

size_t next_token(const std::string &text, size_t at) {
    while (at < text.size()) {
        if (text[at] == '#')
            at = std::min(text.find('\n', at), text.size());
        else if (static_cast<unsigned char>(text[at]) <= 32)
            at++;
        else
            break;
    }
    return at;
}

token read_quoted(const std::string &text, size_t start) {
    std::string value;
    for (size_t at = start + 1; at < text.size(); at++) {
        if (text.compare(at, 2, "''") == 0)
            at++;
        else if (text[at] == '\'')
            return {"string", start, at + 1, value};
        value += text[at];
    }
    return {"open string", start, text.size(), value};
}

token token_at(const std::string &text, size_t start) {
    if (start == text.size()) return {"end", start, start, ""};
    if (text[start] == '\'') return read_quoted(text, start);
    for (std::string word : {"not", "and", "or", "(", ")"}) {
        size_t common = 0;
        while (common < word.size() && start + common < text.size() && text[start + common] == word[common])
            common++;
        if (common > 0) return {common == word.size() ? word : "torn " + word, start, start + common, ""};
    }
    return {"other", start, start, ""};
}

std::vector<token> tokens_of(const std::string &text) {
    std::vector<token> tokens;
    size_t at = 0;
    do {
        tokens.push_back(token_at(text, next_token(text, at)));
        at = tokens.back().end;
    } while (tokens.back().end > tokens.back().start && !tokens.back().kind.starts_with("torn"));
    return tokens;
}

// clause = terms joined by or; term = factors joined by and. Throws a stop.
struct model_parser {
    std::vector<token> tokens;
    size_t next = 0;

    const token &here() const { return tokens[next]; }

    tree chain(const std::string &word, tree (model_parser::*part)()) {
        tree left = (this->*part)();
        if (here().kind == "torn " + word) throw stop{here().end, word + " expected"};
        if (here().kind != word) return left;
        next++;
        return {word, "", {left, chain(word, part)}};
    }
    tree alternatives() { return chain("or", &model_parser::factors); }
    tree factors() { return chain("and", &model_parser::primary); }

    tree primary() {
        token it = here();
        if (it.kind == "open string") throw stop{it.end, "Unterminated character string"};
        if (it.kind == "string" && it.value == "!") throw stop{it.end, "Bad pattern 8"};
        if (it.kind == "torn not") throw stop{it.end, "not expected"};
        if (it.kind != "string" && it.kind != "not" && it.kind != "(")
            throw stop{it.start, "Expected condition"};
        next++;
        if (it.kind == "string") return {"leaf", it.value, {}};
        if (it.kind == "not") return {"not", "", {primary()}};
        tree inner = alternatives();
        if (here().kind != ")") throw stop{here().start, "')' expected"};
        next++;
        return inner;
    }

    tree clause() {
        tree whole = alternatives();
        if (here().kind != "end") throw stop{here().start, "Extra input"};
        return whole;
    }
};

std::string print(const tree &t) {
    if (t.name == "leaf") return t.pattern;
    std::string left = print(t.children[0]);
    return t.name + "(" + left + (t.name == "not" ? "" : "," + print(t.children[1])) + ")";
}

bool holds(const tree &t, const std::string &entry) {
    if (t.name == "leaf") return entry.find(t.pattern) != std::string::npos;
    if (t.name == "not") return !holds(t.children[0], entry);
    bool left = holds(t.children[0], entry), right = holds(t.children[1], entry);
    return t.name == "and" ? left && right : left || right;
}

std::string words_of(const stop &s, const std::string &text) {
    std::string before = text.substr(0, s.offset);
    size_t last = before.rfind('\n'),
           lines = static_cast<size_t>(std::count(before.begin(), before.end(), '\n'));
    size_t column = last == std::string::npos ? before.size() + 1 : before.size() - last;
    return "line " + std::to_string(lines) + " column " + std::to_string(column) + ": " +
           (s.offset < text.size() ? "Extra input" : s.reason);
}

class clause_model : public testing::Test {
protected:
    clause_model() { scripted_regex::install(); }

    void compare_matches(const tree &expected, const log_check_cond *cond) {
        for (const char *entry : {"", "a", "b", "c", "ab", "ac", "bc", "abc", "it's"})
            EXPECT_EQ(log_clause_match(entry, cond), holds(expected, entry)) << entry;
    }

    // Whether the clause is sound.
    bool compare(const std::string &text) {
        log_check_cond *cond = nullptr;
        std::string failure = noted_failure(log_clause_parse(text.c_str(), &cond));
        log_clause_guard kept(cond);
        try {
            tree expected = model_parser{tokens_of(text)}.clause();
            EXPECT_EQ(failure, "(none)") << text;
            EXPECT_EQ(print_tree(cond), print(expected)) << text;
            compare_matches(expected, cond);
            return true;
        } catch (const stop &s) {
            EXPECT_EQ(failure, words_of(s, text)) << text;
            return false;
        }
    }

    std::string pick(std::initializer_list<const char *> choices) {
        return choices.begin()[random() % choices.size()];
    }
    std::string blanks() { return pick({"", "", " ", " ", "\n", "\t ", "#c\n", "# 'x' or\n\n"}); }
    std::string sound_clause(int depth) {
        switch (depth > 0 ? random() % 6 : 0) {
        case 1:
            return "not" + blanks() + sound_clause(depth - 1);
        case 2:
            return "(" + blanks() + sound_clause(depth - 1) + blanks() + ")";
        case 3:
        case 4:
        case 5:
            return sound_clause(depth - 1) + blanks() + pick({"and", "or"}) + blanks() +
                   sound_clause(depth - 1);
        default:
            return pick({"'a'", "'b'", "'c'", "'it''s'"});
        }
    }
    std::string piece() {
        return pick({"'a'", "'b'", "'it''s'", "'!'", "'", "not", "and", "or", "(",   ")",    " ",
                     "\n",  "#x",  "n",       "no",  "a", "an",  "o",   "x",  "NOT", "\x80", "\x01"});
    }

    test_host host;
    std::mt19937 random{31};
};

} // namespace

TEST_F(clause_model, reads_sound_clauses_alike) {
    for (int i = 0; i < 2000 && !HasFailure(); i++)
        EXPECT_TRUE(compare(blanks() + sound_clause(4) + blanks()));
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(clause_model, reads_damaged_clauses_alike) {
    int broken = 0;
    for (int i = 0; i < 4000 && !HasFailure(); i++) {
        std::string text = sound_clause(3);
        size_t at = random() % (text.size() + 1);
        if (random() % 2 == 0)
            text.erase(at, 1 + random() % 3);
        else
            text.insert(at, piece());
        broken += !compare(text);
    }
    EXPECT_GT(broken, 1000);
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(clause_model, reads_cut_clauses_alike) {
    for (int i = 0; i < 2000 && !HasFailure(); i++) {
        std::string text = blanks() + sound_clause(4);
        compare(text.substr(0, random() % (text.size() + 1)));
    }
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(clause_model, reads_any_row_of_pieces_alike) {
    for (int i = 0; i < 4000 && !HasFailure(); i++) {
        std::string text;
        for (size_t count = random() % 10; count > 0; count--)
            text += piece();
        compare(text);
    }
    EXPECT_EQ(host.blocks, 0);
}
