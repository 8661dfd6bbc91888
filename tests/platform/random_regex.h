// Random patterns and texts over few letters, so that they meet often.
#pragma once

#include <cstdint>
#include <random>
#include <string>

class random_regex {
public:
    explicit random_regex(uint32_t seed) : chance(seed) {}

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(chance() % limit); }

    std::string pattern() { return either(3); }

    std::string text(uint32_t limit) {
        static const std::string letters = "aaabbbc_ .A0\xE4";
        std::string all;
        for (uint32_t length = below(limit + 1); length > 0; length--)
            all += letters[below(static_cast<uint32_t>(letters.size()))];
        return all;
    }

private:
    std::mt19937 chance;

    std::string pick(std::initializer_list<const char *> from) {
        return from.begin()[below(static_cast<uint32_t>(from.size()))];
    }

    std::string either(int depth) {
        std::string all = branch(depth);
        while (below(5) == 0)
            all += "|" + branch(depth);
        return all;
    }

    std::string branch(int depth) {
        std::string all;
        for (uint32_t count = below(12) == 0 ? 0 : 1 + below(4); count > 0; count--)
            all += expression(depth);
        return all;
    }

    std::string expression(int depth) {
        std::string all = primary(depth);
        if (below(3) == 0) all += pick({"*", "+", "?", "{2}", "{0}", "{1,2}", "{,1}", "{2,}", "{0,}", "*?"});
        return all;
    }

    std::string primary(int depth) {
        switch (below(depth > 0 ? 16 : 12)) {
        case 0:
            return ".";
        case 1:
            return pick({"^", "$", "\\<", "\\>", "\\b", "\\B", "\\`", "\\'"});
        case 2:
            return pick({"\\w", "\\W", "\\s", "\\S", "\\.", "\\a", "\\{", "\\\\"});
        case 3:
            return pick({"[ab]", "[^a]", "[a-c]", "[]a]", "[^]b]", "[a-]", "[[:alpha:]_]", "[[:space:]]",
                         "[^[:alnum:]]", "[.x]", "[[.a.]b]", "[[=c=]]", "[[:upper:][:digit:]]", "[--a]",
                         "[\\.]", "[[:punct:]]"});
        case 4:
            return below(6) == 0 && groups > 0 ? "\\1" : "b";
        case 5:
            return ")";
        case 12:
        case 13:
        case 14:
        case 15:
            groups++;
            return "(" + either(depth - 1) + ")";
        default:
            return pick({"a", "b", "c", "a", "b", " ", "_", "0"});
        }
    }

    uint32_t groups = 0;
};
