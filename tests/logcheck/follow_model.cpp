#include "logcheck/follow_model.h"

static constexpr size_t BUFFER = 16'384;
static constexpr size_t SAMPLE = 100;

static std::string hexadecimal(const std::string &bytes) {
    static const std::string digits = "0123456789ABCDEF", instead = "g '%c'";
    std::string all;
    for (char c : bytes) {
        auto byte = static_cast<unsigned char>(c);
        if (byte >= 0xE0) break;
        all += byte >= 0x80 ? instead[byte / 16 - 8] : digits[byte / 16];
        all += digits[byte % 16];
    }
    return all;
}

static std::string from_hexadecimal(const std::string &text) {
    static const std::string digits = "0123456789ABCDEF";
    std::string all;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        size_t high = digits.find(text[i]), low = digits.find(text[i + 1]);
        if (high == std::string::npos || low == std::string::npos) return "";
        all += static_cast<char>(high * 16 + low); // no stored text has a letter for its high digit
    }
    return all;
}

// The text as those see it who stop at a zero byte.
static std::string visible(const std::string &text) {
    return text.substr(0, text.find('\0'));
}

void log_model::load(const std::string &file) {
    memory->offset = stored ? stored->offset : static_cast<int64_t>(file.size());
    memory->size = stored ? stored->size : -1;
    memory->first = stored ? from_hexadecimal(stored->first) : "";
    memory->last = stored ? from_hexadecimal(stored->last) : "";
}

bool log_model::was_rotated(const std::string &file) const {
    auto offset = static_cast<size_t>(memory->offset);
    if (file.size() < offset) return true;
    if (file.size() >= memory->first.size() && file.substr(0, memory->first.size()) != memory->first)
        return true;
    return offset >= SAMPLE && file.substr(offset - SAMPLE, memory->last.size()) != memory->last;
}

void log_model::cut(const std::string &file, bool is_growing) {
    std::string text = file.substr(static_cast<size_t>(memory->offset));
    std::string held;            // what the reader has in hand
    size_t read = 0;             // of the text
    size_t search = 0, last = 0; // in what is held: behind the last separator, and its start
    size_t left_over;
    auto unfinished = [&] { return held.substr(inclusion == 1 ? last : search); };
    for (;;) {
        std::string chunk = text.substr(read, BUFFER - held.size());
        if (chunk.empty()) {
            left_over = is_growing ? unfinished().size() : 0;
            if (!is_growing && !visible(unfinished()).empty()) entries.push_back(visible(unfinished()));
            break;
        }
        held += chunk;
        read += chunk.size();
        for (;;) {
            size_t found = held.find(separator, search);
            if (found == std::string::npos || held.find('\0', search) < found) break;
            size_t from = inclusion == 1 ? last : search,
                   to = inclusion == 0 ? found + separator.size() : found;
            if (found > search) entries.push_back(held.substr(from, to - from));
            last = found;
            search = found + separator.size();
        }
        if (is_overdue()) {
            left_over = unfinished().size();
            break;
        }
        if (held.size() < BUFFER) continue;
        if (last == 0) {
            entries.push_back(visible(unfinished()));
            held.clear();
            search = 0;
        } else {
            held.erase(0, last);
            search -= last;
            last = 0;
        }
    }
    memory->size = memory->offset + static_cast<int64_t>(read);
    memory->offset = memory->size - static_cast<int64_t>(left_over);
}

void log_model::store() {
    stored = {memory->offset, memory->size, hexadecimal(memory->first), hexadecimal(memory->last)};
}

bool log_model::check(const std::optional<std::string> &file) {
    entries.clear();
    bool is_first = !memory;
    if (is_first) memory = {.offset = 0, .size = -1};
    if (file) {
        if (is_first) load(*file);
        bool is_growing = static_cast<int64_t>(file->size()) != memory->size;
        if (was_rotated(*file)) {
            *memory = {.offset = 0, .size = 0};
            is_growing = true;
        }
        cut(*file, is_growing);
        memory->first = file->substr(0, SAMPLE);
        auto offset = static_cast<size_t>(memory->offset);
        memory->last = offset >= SAMPLE ? file->substr(offset - SAMPLE, SAMPLE) : "";
    }
    store();
    return file.has_value();
}
