#include "platform/clock.h"

#include "fakes/test_host.h"

#include <algorithm>
#include <gtest/gtest.h>

static std::string ctime_of(int64_t time) {
    char out[CTIME_SIZE + 1];
    out[CTIME_SIZE] = '#';
    format_ctime(time, out);
    EXPECT_EQ(out[CTIME_SIZE], '#');
    return out;
}

TEST(time_now, is_that_of_the_host) {
    test_host host;
    host.now = 17;
    EXPECT_EQ(time_now(), 17);
}

TEST(format_ctime, has_the_24_characters_of_ctime) {
    test_host host;
    EXPECT_EQ(ctime_of(741476948), "Wed Jun 30 21:49:08 1993");
    EXPECT_EQ(ctime_of(0), "Thu Jan  1 00:00:00 1970");
    EXPECT_EQ(ctime_of(951782399), "Mon Feb 28 23:59:59 2000");
}

TEST(format_ctime, names_every_day_and_month) {
    test_host host;
    std::string days, months;
    for (int64_t day = 0; day < 365; day++) {
        std::string text = ctime_of(day * 86400);
        if (day < 7) days += text.substr(0, 4);
        if (text.substr(8, 2) == " 1") months += text.substr(4, 4);
    }
    EXPECT_EQ(days, "Thu Fri Sat Sun Mon Tue Wed ");
    EXPECT_EQ(months, "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec ");
}

TEST(format_ctime, tells_local_time) {
    test_host host;
    host.zone = -3600;
    EXPECT_EQ(ctime_of(0), "Wed Dec 31 23:00:00 1969");
}

TEST(format_ctime, stays_within_its_24_characters) {
    test_host host;
    EXPECT_EQ(ctime_of(INT64_C(67767976233532799)), "Tue Dec 31 23:59:59 2147"); // of the year 2147483647
}

TEST(format_ctime, falls_back_to_1970_where_the_host_has_no_answer) {
    test_host host;
    EXPECT_EQ(ctime_of(INT64_MAX), "Thu Jan  1 00:00:00 1970");
}

static std::vector<int32_t> draws(uint32_t seed, int count) {
    tn_srand(seed);
    std::vector<int32_t> drawn;
    for (int i = 0; i < count; i++)
        drawn.push_back(tn_rand());
    return drawn;
}

TEST(tn_rand, repeats_itself_from_a_seed) {
    EXPECT_EQ(draws(7, 20), draws(7, 20));
    EXPECT_NE(draws(7, 20), draws(8, 20));
}

TEST(tn_rand, is_the_same_on_every_host) {
    EXPECT_EQ(draws(1, 4), (std::vector<int32_t>{16838, 5758, 10113, 17515}));
}

TEST(tn_rand, fills_15_bits) {
    std::vector<int32_t> drawn = draws(1, 100000);
    EXPECT_GE(*std::min_element(drawn.begin(), drawn.end()), 0);
    EXPECT_LT(*std::min_element(drawn.begin(), drawn.end()), 10);
    EXPECT_LE(*std::max_element(drawn.begin(), drawn.end()), 0x7FFF);
    EXPECT_GT(*std::max_element(drawn.begin(), drawn.end()), 0x7FF5);
}
