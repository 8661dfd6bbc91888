// An event log in memory for tests, with the files in which its messages are: any call can be made to fail,
// and any answer to a read can be put in the place of what the log holds.
#pragma once

#include "logcheck/event_log_ops.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

inline void put_number(std::string &bytes, size_t at, uint32_t value, int size) {
    for (int i = 0; i < size; i++)
        bytes[at + static_cast<size_t>(i)] = static_cast<char>(value >> 8 * i);
}

inline std::string wide_bytes(const std::u16string &text) {
    std::string bytes(2 * text.size(), '\0');
    for (size_t i = 0; i < text.size(); i++)
        put_number(bytes, 2 * i, text[i], 2);
    return bytes;
}

// A record as the host lays it out.
struct event_bytes {
    uint32_t id = 7;
    uint16_t type = 4;
    uint16_t category = 3;
    std::u16string source = u"Disk";
    std::u16string computer = u"HOST";
    std::string user; // a security identifier
    std::vector<std::u16string> inserts;

    std::string make() const {
        std::string bytes(56, '\0');
        bytes += wide_bytes(source + u'\0') + wide_bytes(computer + u'\0');
        bytes.resize((bytes.size() + 3) / 4 * 4);
        put_number(bytes, 40, static_cast<uint32_t>(user.size()), 4);
        put_number(bytes, 44, static_cast<uint32_t>(bytes.size()), 4);
        bytes += user;
        put_number(bytes, 36, static_cast<uint32_t>(bytes.size()), 4);
        for (const std::u16string &insert : inserts)
            bytes += wide_bytes(insert + u'\0');
        bytes.resize((bytes.size() + 3) / 4 * 4);
        put_number(bytes, 0, static_cast<uint32_t>(bytes.size()), 4);
        put_number(bytes, 20, id, 4);
        put_number(bytes, 24, type, 2);
        put_number(bytes, 26, static_cast<uint32_t>(inserts.size()), 2);
        put_number(bytes, 28, category, 2);
        return bytes;
    }
};

// A sound identifier with that many sub-authorities, each of them `last`.
inline std::string sid_bytes(uint8_t count, uint8_t last) {
    std::string sid = {1, static_cast<char>(count), 0, 0, 0, 0, 0, 5};
    for (uint8_t i = 0; i < count; i++)
        sid += std::string{static_cast<char>(last), 0, 0, 0};
    return sid;
}

// One answer to a read.
struct scripted_read {
    std::string bytes;
    uint32_t error = 0; // 0 for a success
    uint32_t needed = 0;
};

struct scripted_event_log;
inline scripted_event_log *the_event_log;

struct scripted_event_log {
    // The log.
    uint32_t oldest = 1;
    std::vector<std::string> records;
    std::map<uint32_t, scripted_read> answers; // by the number of the read, from 1 on
    std::function<scripted_read()> answer_all; // stands for all reads

    // By path, then by number.
    std::map<std::string, std::map<uint32_t, std::u16string>> modules;
    std::map<uint32_t, std::u16string> system_messages;
    std::map<std::string, std::string> accounts;  // by identifier
    std::map<std::string, std::string> variables; // of the environment, with their percent signs

    // The operation that fails with `error`, the `broken_at`-th time that it is called; 0 for every time.
    std::string broken;
    int broken_at = 0;
    uint32_t error = 5;

    // What was asked.
    std::vector<std::string> reads; // "flags record size"
    std::vector<std::string> opened;
    std::vector<std::string> loaded;
    std::vector<std::string> formatted; // "flags id"
    std::vector<uint32_t> sizes;        // of the texts that were to be filled
    int open_logs = 0;
    int open_modules = 0;
    int open_texts = 0;

    std::function<void(uint32_t)> set_last_error = [](uint32_t) {};

    scripted_event_log() {
        the_event_log = this;
        event_log_host = &ops;
    }
    ~scripted_event_log() {
        event_log_host = nullptr;
        the_event_log = nullptr;
    }
    scripted_event_log(const scripted_event_log &) = delete;
    scripted_event_log &operator=(const scripted_event_log &) = delete;

    static const event_log_ops ops;

    // Leaves the reason where it was not called for.
    bool fails(const std::string &name) {
        if (name != broken || (broken_at != 0 && ++calls != broken_at)) return false;
        set_last_error(error);
        return true;
    }
    bool fail(uint32_t with) const {
        set_last_error(with);
        return false;
    }

    // The records that fit, from the cursor on.
    scripted_read read_on(uint32_t size) {
        if (cursor >= records.size()) return {.error = 38};
        if (records[cursor].size() > size)
            return {.error = 122, .needed = static_cast<uint32_t>(records[cursor].size())};
        scripted_read answer;
        for (; cursor < records.size() && answer.bytes.size() + records[cursor].size() <= size; cursor++)
            answer.bytes += records[cursor];
        return answer;
    }
    scripted_read read(uint32_t flags, uint32_t record, uint32_t size) {
        reads.push_back(std::to_string(flags) + " " + std::to_string(record) + " " + std::to_string(size));
        if (answer_all) return answer_all();
        auto scripted = answers.find(static_cast<uint32_t>(reads.size()));
        if (scripted != answers.end()) return scripted->second;
        if ((flags & EVENTLOG_SEEK_READ) != 0) cursor = record - oldest;
        return read_on(size);
    }

    const std::u16string *find_message(uint32_t flags, message_module *module, uint32_t id) const {
        const auto &own = *reinterpret_cast<std::map<uint32_t, std::u16string> *>(module);
        if (auto found = own.find(id); found != own.end()) return &found->second;
        if ((flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0) return nullptr;
        auto found = system_messages.find(id);
        return found != system_messages.end() ? &found->second : nullptr;
    }

    // With "%1" to "%99" for inserts and "%%" for a percent sign.
    static std::u16string fill(const std::u16string &text, const char16_t *const *arguments) {
        std::u16string filled;
        auto digit = [&](size_t at) { return at < text.size() && text[at] >= u'0' && text[at] <= u'9'; };
        for (size_t at = 0; at < text.size(); at++) {
            if (text[at] != u'%') {
                filled += text[at];
            } else if (digit(at + 1)) {
                size_t number = text[++at] - u'0';
                if (digit(at + 1)) number = number * 10 + (text[++at] - u'0');
                filled += arguments[number - 1];
            } else {
                filled += text[++at];
            }
        }
        return filled;
    }

private:
    int calls = 0;
    size_t cursor = 0;
};

inline const event_log_ops scripted_event_log::ops = {
    .OpenEventLogA = [](const char *name) -> event_log * {
        the_event_log->opened.push_back(name);
        if (the_event_log->fails("open")) return nullptr;
        the_event_log->open_logs++;
        return reinterpret_cast<event_log *>(the_event_log);
    },
    .GetOldestEventLogRecord =
        [](event_log *, uint32_t *out_number) {
            *out_number = the_event_log->oldest;
            return !the_event_log->fails("oldest");
        },
    .GetNumberOfEventLogRecords =
        [](event_log *, uint32_t *out_count) {
            *out_count = static_cast<uint32_t>(the_event_log->records.size());
            return !the_event_log->fails("count");
        },
    .ReadEventLogW =
        [](event_log *, uint32_t flags, uint32_t record, uint8_t *buffer, uint32_t size, uint32_t *out_read,
           uint32_t *out_needed) {
            scripted_read answer = the_event_log->read(flags, record, size);
            *out_needed = answer.needed;
            if (answer.error != 0) return the_event_log->fail(answer.error);
            memcpy(buffer, answer.bytes.data(), answer.bytes.size() < size ? answer.bytes.size() : size);
            *out_read = static_cast<uint32_t>(answer.bytes.size());
            return true;
        },
    .CloseEventLog = [](event_log *) { the_event_log->open_logs--; },
    .LookupAccountSidA =
        [](const uint8_t *sid, char *user, uint32_t user_size, char *domain, uint32_t domain_size) {
            the_event_log->sizes = {user_size, domain_size};
            if (the_event_log->fails("lookup")) return false;
            std::string bytes(reinterpret_cast<const char *>(sid), 8 + 4U * sid[1]);
            auto found = the_event_log->accounts.find(bytes);
            if (found == the_event_log->accounts.end()) return the_event_log->fail(1332);
            if (found->second.size() >= user_size) return the_event_log->fail(122);
            strcpy(user, found->second.c_str());
            strcpy(domain, "DOMAIN");
            return true;
        },
    .ExpandEnvironmentStringsA = [](const char *text, char *out, uint32_t size) -> uint32_t {
        if (the_event_log->fails("expand")) return 0;
        std::string expanded = text;
        for (const auto &[name, value] : the_event_log->variables)
            if (size_t at = expanded.find(name); at != std::string::npos)
                expanded.replace(at, name.size(), value);
        if (expanded.size() < size) strcpy(out, expanded.c_str());
        return static_cast<uint32_t>(expanded.size() + 1);
    },
    .LoadLibraryExA = [](const char *path, uint32_t flags) -> message_module * {
        the_event_log->loaded.push_back(std::string(path) + " " + std::to_string(flags));
        if (the_event_log->fails("load")) return nullptr;
        auto found = the_event_log->modules.find(path);
        if (found == the_event_log->modules.end()) {
            the_event_log->set_last_error(126);
            return nullptr;
        }
        the_event_log->open_modules++;
        return reinterpret_cast<message_module *>(&found->second);
    },
    .FreeLibrary = [](message_module *) { the_event_log->open_modules--; },
    .FormatMessageW = [](uint32_t flags, message_module *module, uint32_t id, char16_t *out, uint32_t size,
                         const char16_t *const *arguments) -> uint32_t {
        the_event_log->formatted.push_back(std::to_string(flags) + " " + std::to_string(id));
        the_event_log->sizes = {size};
        const std::u16string *message = the_event_log->find_message(flags, module, id);
        if (message == nullptr || the_event_log->fails("format")) {
            the_event_log->set_last_error(317);
            return 0;
        }
        std::u16string filled = scripted_event_log::fill(*message, arguments);
        if (filled.size() >= size) {
            the_event_log->set_last_error(122);
            return 0;
        }
        memcpy(out, filled.c_str(), 2 * (filled.size() + 1));
        return static_cast<uint32_t>(filled.size());
    },
    .FormatMessageW_allocating = [](uint32_t flags, message_module *module, uint32_t id) -> char16_t * {
        the_event_log->formatted.push_back(std::to_string(flags) + " " + std::to_string(id));
        const std::u16string *message = the_event_log->find_message(flags, module, id);
        if (message == nullptr) return nullptr;
        the_event_log->open_texts++;
        auto *text = new char16_t[message->size() + 1];
        memcpy(text, message->c_str(), 2 * (message->size() + 1));
        return text;
    },
    .LocalFree =
        [](char16_t *text) {
            the_event_log->open_texts--;
            delete[] text;
        },
    .WideCharToMultiByte =
        [](uint32_t code_page, const char16_t *text, char *out, uint32_t size) {
            if (code_page != ISO_8859_1 || the_event_log->fails("convert")) return false;
            uint32_t used = 0;
            for (; text[used] != u'\0' && used < size; used++)
                out[used] = text[used] < 0x100 ? static_cast<char>(text[used]) : '?';
            if (used == size) return the_event_log->fail(122);
            out[used] = '\0';
            return true;
        },
};
