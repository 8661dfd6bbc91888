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
    if (auto *real = std::get_if<double>(&value))
        return std::isfinite(*real) ? number_in_unit(*real, unit) : formatted("%f", *real);
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

const char *status_word(uint32_t status) {
    static constexpr const char *words[] = {"good", "warning", "alert", "error"};
    return status < std::size(words) ? words[status] : "?";
}
