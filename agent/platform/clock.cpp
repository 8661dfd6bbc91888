#include "platform/clock.h"

#include "platform/text.h"

#include <cstdio>

const clock_ops *clock_host;

int64_t time_now() {
    return clock_host->time();
}

void format_ctime(int64_t time, char out[CTIME_SIZE]) {
    static constexpr const char *days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    tm local = {};
    if (!clock_host->localtime(time, &local)) local = tm{.tm_mday = 1, .tm_year = 70, .tm_wday = 4};
    char line[64];
    snprintf(line, sizeof line, "%s %s %2d %02d:%02d:%02d %lld", days[local.tm_wday % 7],
             months[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
             local.tm_year + 1900LL);
    copy_bounded(out, line, CTIME_SIZE);
}
