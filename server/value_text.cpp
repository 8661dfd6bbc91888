#include "server/value_text.h"

#include "platform/clock.h"

#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace {

__attribute__((format(printf, 1, 2))) std::string formatted(const char *format, ...) {
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string size_text(double kilobytes) {
    static constexpr const char *units[] = {"kB", "MB", "GB", "TB", "PB"};
    size_t unit = 0;
    while (std::fabs(kilobytes) >= 1024 && unit + 1 < std::size(units)) {
        kilobytes /= 1024;
        unit++;
    }
    return formatted(unit == 0 ? "%.0f %s" : "%.1f %s", kilobytes, units[unit]);
}

std::string number_text(double number) {
    return number == std::floor(number) && std::fabs(number) < 1e15 ? formatted("%.0f", number)
                                                                    : formatted("%.6g", number);
}

// A time that is measured in fractions, as that of a read, says nothing as a clock.
bool is_short_time(double number, const std::string &unit) {
    return unit == "s" && std::fabs(number) < 60;
}

std::string number_in_unit(double number, const std::string &unit) {
    if (unit == "kB") return size_text(number);
    if (unit == "%") return formatted("%.2f %%", number / 100);
    if (unit == "1%") return number_text(number) + " %";
    if (unit == "s") return duration_text(static_cast<int64_t>(number));
    return unit.empty() ? number_text(number) : number_text(number) + " " + shown(unit, 32);
}

} // namespace

std::string time_text(int64_t time) {
    tm local = {};
    char text[64] = "?";
    if (clock_host->localtime(time, &local)) strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string duration_text(int64_t seconds) {
    if (seconds < 0) return "-" + duration_text(-seconds);
    std::string clock = formatted("%02" PRId64 ":%02" PRId64 ":%02" PRId64, seconds / 3600 % 24,
                                  seconds / 60 % 60, seconds % 60);
    return seconds < 86400 ? clock : formatted("%" PRId64 " d ", seconds / 86400) + clock;
}

std::string value_text(const result_value &value, const std::string &unit) {
    if (auto *number = std::get_if<int32_t>(&value)) return number_in_unit(*number, unit);
    if (auto *real = std::get_if<double>(&value)) {
        if (!std::isfinite(*real)) return formatted("%f", *real);
        return is_short_time(*real, unit) ? number_text(*real) + " s" : number_in_unit(*real, unit);
    }
    if (auto *text = std::get_if<std::string>(&value)) return shown(*text);
    return "-";
}

std::string shown(const std::string &text, size_t limit) {
    std::string line;
    for (unsigned char c : text.substr(0, limit))
        line += c < ' ' || c == 0x7F ? ' ' : static_cast<char>(c);
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return text.size() > limit ? line + "..." : line;
}

// The length of the UTF-8 character that begins here; 0 where none does, or one that controls a terminal.
static size_t printable_length(const std::string &text, size_t at) {
    auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80) return first >= ' ' && first != 0x7F ? 1 : 0;
    size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (first < 0xC2 || first > 0xF4 || text.size() - at < length) return 0;
    for (size_t i = 1; i < length; i++)
        if ((static_cast<unsigned char>(text[at + i]) & 0xC0) != 0x80) return 0;
    bool is_control = first == 0xC2 && static_cast<unsigned char>(text[at + 1]) < 0xA0;
    return is_control ? 0 : length;
}

static std::string written_out(char c) {
    if (c == '\n') return "\\n";
    if (c == '\r') return "\\r";
    if (c == '\t') return "\\t";
    return formatted("\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
}

std::string log_text(const std::string &text, size_t limit) {
    size_t end = text.find_last_not_of("\r\n") + 1; // 0 where there is nothing else
    std::string line;
    size_t at = 0;
    while (at < end && at < limit) {
        size_t length = printable_length(text, at);
        line += length != 0 ? text.substr(at, length) : written_out(text[at]);
        at += length != 0 ? length : 1;
    }
    return at < end ? line + "... (" + std::to_string(end - at) + " more)" : line;
}

const char *status_word(uint32_t status) {
    static constexpr const char *words[] = {"good", "warning", "alert", "error"};
    return status < std::size(words) ? words[status] : "?";
}
