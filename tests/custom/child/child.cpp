#include "custom/child/child.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

static std::string last_words;

static void put(FILE *stream, const std::string &text) {
    fwrite(text.data(), 1, text.size(), stream);
    fflush(stream);
}

static void put_bytes(size_t count) {
    std::string line = std::string(99, 'x') + "\n";
    std::string block;
    while (block.size() < 65'000)
        block += line;
    for (size_t left = count; left > 0;) {
        size_t part = left < block.size() ? left : block.size();
        if (fwrite(block.data(), 1, part, stdout) != part) break;
        left -= part;
    }
    fflush(stdout);
}

static void wait_seconds(int seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

static void mark(const std::string &path) {
    FILE *file = fopen(path.c_str(), "ab");
    if (file == nullptr) exit(99);
    fprintf(file, "%d\n", own_number());
    fclose(file);
}

// The words up to the next ".", which is taken too.
static child_words take_inner(const child_words &words, size_t *at) {
    child_words inner;
    int depth = 0;
    for (; *at < words.size(); ++*at) {
        const std::string &word = words[*at];
        if (word == "child" || word == "orphan") depth++;
        if (word == "." && depth-- == 0) {
            ++*at;
            break;
        }
        inner.push_back(word);
    }
    return inner;
}

static void say_last_words() {
    put(stdout, last_words + "\n");
}

void run_words(const child_words &words) {
    for (size_t at = 0; at < words.size();) {
        const std::string &word = words[at++];
        auto next = [&]() -> const std::string & { return words.at(at++); };
        if (word == "line") {
            put(stdout, next() + "\n");
        } else if (word == "write") {
            put(stdout, next());
        } else if (word == "error") {
            put(stderr, next() + "\n");
        } else if (word == "long") {
            put(stdout, std::string(std::stoul(next()), 'x') + "\n");
        } else if (word == "bytes") {
            put_bytes(std::stoul(next()));
        } else if (word == "flood") {
            put_bytes(SIZE_MAX);
        } else if (word == "drip") {
            for (;; wait_seconds(1))
                put(stdout, "x");
        } else if (word == "at-exit") {
            last_words = next();
            atexit(say_last_words);
        } else if (word == "mark") {
            mark(next());
        } else if (word == "child" || word == "orphan") {
            start_copy(take_inner(words, &at), word == "orphan");
        } else if (word == "ignore") {
            ignore_termination();
        } else if (word == "close") {
            close_output();
        } else if (word == "sleep") {
            wait_seconds(3600);
        } else if (word == "moment") {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        } else if (word == "exit") {
            exit(std::stoi(next()));
        } else if (!host_word(word, &at, words)) {
            exit(98);
        }
    }
}

int main(int argc, char **argv) {
    prepare_streams();
    run_words(child_words(argv + 1, argv + argc));
}
