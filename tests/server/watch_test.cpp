#include "server/watch.h"

#include "fakes/test_host.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

class watching : public testing::Test {
protected:
    ~watching() override { fclose(file); }

    watch make(bool results, bool color = false) {
        return watch(file, {.results = results, .color = color}, [] { return int64_t{1'000'000'000}; });
    }
    std::string printed() {
        rewind(file);
        std::string text;
        for (int c = fgetc(file); c != EOF; c = fgetc(file))
            text += static_cast<char>(c);
        return text;
    }
    void deliver(watch &shower, const check_result &result, const std::string &unit) {
        shower.delivered(agent, {.results = {result}}, {.fresh = {{.index = 0, .unit = unit}}});
    }

    test_host host;
    FILE *file = tmpfile();
    const agent_row agent = {.name = "web1", .domain = "office"};
    const check_result reading = {.check_time = 1'000'000'005,
                                  .comment = "as usual",
                                  .status = STATUS_ALERT,
                                  .path = {"system", "idle"},
                                  .value = 150};
};

} // namespace

TEST_F(watching, gives_a_result_one_line) {
    watch shower = make(true);
    deliver(shower, reading, "%");
    EXPECT_EQ(
        printed(),
        "2001-09-09 01:46:45  web1@office     system.idle           alert            1.50 %  as usual\n");
}

TEST_F(watching, tells_the_steps_of_an_action_without_being_asked_for_results) {
    watch shower = make(false);
    for (action_step step : {action_step::sent, action_step::taken, action_step::pruned})
        shower.action(agent, "backup", step);
    EXPECT_EQ(printed(), "2001-09-09 01:46:40  web1@office     is sent the order to start backup\n"
                         "2001-09-09 01:46:40  web1@office     has taken the order to start backup\n"
                         "2001-09-09 01:46:40  web1@office     has started and pruned backup\n");
}

TEST_F(watching, aligns_results_of_every_status) {
    watch shower = make(true);
    for (uint32_t status : {0U, 1U, 2U}) {
        check_result result = reading;
        result.status = status;
        deliver(shower, result, "%");
    }
    std::string text = printed();
    size_t line = text.find('\n') + 1;
    EXPECT_EQ(text.find("1.50 %"), text.find("1.50 %", line) - line);
    EXPECT_NE(text.find("good   "), std::string::npos);
    EXPECT_NE(text.find("warning"), std::string::npos);
}

TEST_F(watching, shows_no_value_of_an_error) {
    watch shower = make(true);
    check_result result = reading;
    result.status = STATUS_ERROR;
    deliver(shower, result, "%");
    EXPECT_EQ(printed().find("1.50"), std::string::npos);
    EXPECT_NE(printed().find("error                 -  as usual"), std::string::npos);
}

TEST_F(watching, shows_a_log_by_its_path_and_text) {
    watch shower = make(true);
    check_result result = {.check_time = 1'000'000'005,
                           .status = STATUS_WARNING,
                           .path = {"log", "/", "var", "log", "syslog"},
                           .value = std::string("disk\tis \033[2Jfull\n")};
    deliver(shower, result, "");
    EXPECT_EQ(printed(), "2001-09-09 01:46:45  web1@office     /var/log/syslog       warning  "
                         "disk\\tis \\x1B[2Jfull\n");
}

TEST_F(watching, shows_a_dash_for_a_log_that_says_nothing) {
    watch shower = make(true);
    for (const result_value &value : {result_value(std::string()), result_value()})
        deliver(shower, {.path = {"log", "/forward", "ops"}, .value = value}, "");
    std::string text = printed();
    EXPECT_NE(text.find("/forward/ops          good     -\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '-'), 6); // two of them in each date
}

TEST_F(watching, cuts_a_long_record_of_a_log) {
    watch shower = make(true);
    deliver(shower, {.path = {"log", "C:", "app.log"}, .value = std::string(65536, 'x')}, "");
    EXPECT_NE(printed().find("xxx... (65136 more)\n"), std::string::npos);
}

TEST_F(watching, tells_an_upgrade_to_everyone) {
    watch shower = make(false);
    shower.upgraded(agent, 5154);
    EXPECT_EQ(printed(), "2001-09-09 01:46:40  web1@office     has fetched the upgrade to build 5154\n");
}

TEST_F(watching, shows_only_what_is_new) {
    watch shower = make(true);
    shower.delivered(agent, {.results = {reading, reading}}, {.fresh = {}});
    EXPECT_EQ(printed(), "");
}

TEST_F(watching, colors_only_when_asked) {
    watch plain = make(true);
    deliver(plain, reading, "%");
    EXPECT_EQ(printed().find('\033'), std::string::npos);
    watch colored = make(true, true);
    deliver(colored, reading, "%");
    EXPECT_NE(printed().find("\033[31malert  \033[0m"), std::string::npos);
}

TEST_F(watching, lets_no_foreign_text_reach_the_terminal) {
    watch shower = make(true);
    check_result result = reading;
    result.comment = "\033]0;hello\a\n2001-09-09 forged";
    result.path = {"sys\033tem", "id\nle"};
    deliver(shower, result, "%");
    shower.refused("web\n1", "10.0.0.7", "no\r\nreason");
    std::string text = printed();
    EXPECT_EQ(text.find('\033'), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(watching, tells_of_registration_scan_and_configuration) {
    watch shower = make(true);
    shower.registered(agent, {.major = 3, .minor = 8, .build = 5153}, "10.0.0.7", true);
    shower.registered(agent, {.major = 3, .minor = 8, .build = 5153}, "10.0.0.7", false);
    shower.offered(agent, 1, 4);
    shower.configured(agent, 1);
    const char *start = "2001-09-09 01:46:40  web1@office     ";
    EXPECT_EQ(printed(), std::string(start) +
                             "registered with a new key, version 3.8 build 5153, from 10.0.0.7\n" + start +
                             "has started, version 3.8 build 5153, from 10.0.0.7\n" + start +
                             "offers 4 devices in 1 group\n" + start + "is to perform 1 check\n");
}

TEST_F(watching, without_results_tells_what_an_administrator_must_know) {
    watch shower = make(false);
    deliver(shower, reading, "%");
    shower.registered(agent, {}, "10.0.0.7", false);
    shower.offered(agent, 1, 4);
    shower.configured(agent, 1);
    EXPECT_EQ(printed(), "");
    shower.registered(agent, {}, "10.0.0.7", true);
    shower.downtime(agent, 30, 1'000'001'800);
    shower.refused("web1@office", "10.0.0.7", "no");
    shower.failed("", "10.0.0.8", "noise");
    std::string text = printed();
    EXPECT_NE(text.find("registered with a new key"), std::string::npos);
    EXPECT_NE(text.find("is in downtime for 30 minutes, until 2001-09-09 02:16:40"), std::string::npos);
    EXPECT_NE(text.find("web1@office     refused: no, from 10.0.0.7"), std::string::npos);
    EXPECT_NE(text.find("?               failed: noise, from 10.0.0.8"), std::string::npos);
}

TEST_F(watching, leaves_a_flood_of_trouble_out) {
    watch shower = make(false);
    for (int i = 0; i < 1000; i++)
        shower.failed("", "10.0.0.8", "noise");
    shower.report_left_out();
    std::string text = printed();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 21);
    EXPECT_NE(text.find("980 lines of refusals and failures left out"), std::string::npos);
    shower.failed("", "10.0.0.8", "again");
    shower.report_left_out();
    EXPECT_EQ(printed().substr(text.size()),
              "2001-09-09 01:46:40  ?               failed: again, from 10.0.0.8\n");
}
