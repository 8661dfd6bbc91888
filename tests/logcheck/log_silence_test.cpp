#include "logcheck/log_silence.h"

#include "fakes/test_host.h"
#include "platform/text.h"
#include "state/variables.h"

#include <gtest/gtest.h>

class log_silence : public testing::Test {
protected:
    test_host host;
    devtree_guard top;
    devnode *device = nullptr;

    void SetUp() override {
        var_reset();
        top.reset(heap_new<devtree>());
        top->id = text_copy("log");
        device = alloc_devnode();
        device->id = text_copy("app.log");
        device->lognode = alloc_lognode();
        limits(3600, 7200);
        devtree_add_devices(top.get(), device);
    }
    void TearDown() override {
        var_reset();
        top.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    void limits(int64_t warning, int64_t alert) const {
        device->lognode->warningSilence = warning;
        device->lognode->alertSilence = alert;
    }
    static void set(const char *key, const char *value) { EXPECT_SUCCESS(var_set(var_make(key, value))); }
    static std::string get(const char *key) {
        const variable *found = var_get(key);
        return found != nullptr ? found->value : "(absent)";
    }
    void silent_for(int64_t seconds, int32_t sent) const {
        log_silence_reset(device, host.now - seconds, sent);
    }

    // Evaluates, and gives the results as "status text|status text".
    std::string evaluate() const {
        log_silence_evaluate(device, host.now);
        std::string all;
        while (resnode *result = device->results) {
            EXPECT_EQ(result->check_time, host.now);
            all += (all.empty() ? "" : "|") + std::to_string(result->status) + " " + result->log_text;
            device->results = result->next;
            free_resnode(result);
        }
        device->results_tail = &device->results;
        return all;
    }
};

TEST_F(log_silence, is_kept_in_two_variables_by_the_full_name) {
    log_silence_reset(device, 12345, 2);
    EXPECT_EQ(get("timestamp:log.app\\.log"), "12345");
    EXPECT_EQ(get("status_sent:log.app\\.log"), "2");
    int64_t timestamp = 0;
    int32_t sent = 0;
    log_silence_read(device, &timestamp, &sent);
    EXPECT_EQ(timestamp, 12345);
    EXPECT_EQ(sent, 2);
}

TEST_F(log_silence, starts_now_with_nothing_sent) {
    int64_t timestamp = 0;
    int32_t sent = 99;
    log_silence_read(device, &timestamp, &sent);
    EXPECT_EQ(timestamp, host.now);
    EXPECT_EQ(sent, 0);
    EXPECT_EQ(var_get("timestamp:log.app\\.log"), nullptr); // reading stores nothing
}

TEST_F(log_silence, starts_now_beyond_32_bits_too) {
    host.now = 5'000'000'000;
    int64_t timestamp = 0;
    int32_t sent = 99;
    log_silence_read(device, &timestamp, &sent);
    EXPECT_EQ(timestamp, host.now);
    EXPECT_EQ(evaluate(), "");
}

TEST_F(log_silence, reads_numbers_with_their_base) {
    set("timestamp:log.app\\.log", "0x10");
    set("status_sent:log.app\\.log", "01");
    int64_t timestamp = 0;
    int32_t sent = 0;
    log_silence_read(device, &timestamp, &sent);
    EXPECT_EQ(timestamp, 16);
    EXPECT_EQ(sent, 1);
}

TEST_F(log_silence, cuts_its_keys_at_255_characters) {
    text_replace(&device->id, text_copy(std::string(300, 'n').c_str()));
    log_silence_reset(device, 12345, 1);
    std::string timestamp = "timestamp:log.", sent = "status_sent:log.";
    EXPECT_EQ(get((timestamp + std::string(255 - timestamp.size(), 'n')).c_str()), "12345");
    EXPECT_EQ(get((sent + std::string(255 - sent.size(), 'n')).c_str()), "1");
}

TEST_F(log_silence, warns_from_its_limit_on) {
    silent_for(3599, 0);
    EXPECT_EQ(evaluate(), "");
    silent_for(3600, 0);
    EXPECT_EQ(evaluate(), "1 Log silent for 1 hours and 0 minutes");
}

TEST_F(log_silence, alerts_from_its_limit_on) {
    silent_for(7199, 1);
    EXPECT_EQ(evaluate(), "");
    silent_for(7200, 1);
    EXPECT_EQ(evaluate(), "2 Log silent for 2 hours and 0 minutes");
}

TEST_F(log_silence, may_alert_without_a_warning_before) {
    silent_for(10000, 0);
    EXPECT_EQ(evaluate(), "2 Log silent for 2 hours and 46 minutes");
}

TEST_F(log_silence, tells_hours_and_minutes_cut) {
    for (auto [seconds, words] : {std::pair{7259, "2 hours and 0 minutes"},
                                  {7260, "2 hours and 1 minutes"},
                                  {10799, "2 hours and 59 minutes"},
                                  {360000, "100 hours and 0 minutes"}}) {
        silent_for(seconds, 0);
        EXPECT_EQ(evaluate(), std::string("2 Log silent for ") + words);
    }
}

TEST_F(log_silence, tells_each_step_once) {
    silent_for(3600, 0);
    EXPECT_EQ(evaluate(), "1 Log silent for 1 hours and 0 minutes");
    EXPECT_EQ(evaluate(), "");
    host.now += 3600;
    EXPECT_EQ(evaluate(), "2 Log silent for 2 hours and 0 minutes");
    host.now += 360000;
    EXPECT_EQ(evaluate(), "");
    EXPECT_EQ(get("status_sent:log.app\\.log"), "2");
}

TEST_F(log_silence, never_falls_by_itself) {
    silent_for(0, 1);
    EXPECT_EQ(evaluate(), "");
    EXPECT_EQ(get("status_sent:log.app\\.log"), "1");
    silent_for(0, 2);
    EXPECT_EQ(evaluate(), "");
    EXPECT_EQ(get("status_sent:log.app\\.log"), "2");
}

TEST_F(log_silence, leaves_any_other_status_as_it_is) {
    for (int32_t sent : {3, -1, 17}) {
        silent_for(100000, sent);
        EXPECT_EQ(evaluate(), "") << sent;
        EXPECT_EQ(get("status_sent:log.app\\.log"), std::to_string(sent));
    }
}

TEST_F(log_silence, is_off_with_minus_1) {
    limits(-1, -1);
    silent_for(1000000, 0);
    EXPECT_EQ(evaluate(), "");
    limits(-1, 7200);
    silent_for(7199, 0);
    EXPECT_EQ(evaluate(), "");
    silent_for(7200, 0);
    EXPECT_EQ(evaluate(), "2 Log silent for 2 hours and 0 minutes");
    limits(3600, -1);
    silent_for(1000000, 1);
    EXPECT_EQ(evaluate(), "");
}

TEST_F(log_silence, warns_at_once_with_0) {
    limits(0, -1);
    EXPECT_EQ(evaluate(), "1 Log silent for 0 hours and 0 minutes");
}

TEST_F(log_silence, leaves_the_time_of_activity_as_it_is) {
    silent_for(5000, 0);
    std::string before = get("timestamp:log.app\\.log");
    evaluate();
    EXPECT_EQ(get("timestamp:log.app\\.log"), before);
}

TEST_F(log_silence, starts_its_time_at_the_first_evaluation) {
    EXPECT_EQ(evaluate(), "");
    EXPECT_EQ(get("timestamp:log.app\\.log"), std::to_string(host.now));
    EXPECT_EQ(get("status_sent:log.app\\.log"), "0");
    host.now += 3600;
    EXPECT_EQ(evaluate(), "1 Log silent for 1 hours and 0 minutes");
}

TEST_F(log_silence, queues_its_result_behind_the_others) {
    resnode *first = alloc_resnode();
    append_result(device, first);
    silent_for(3600, 0);
    log_silence_evaluate(device, host.now);
    ASSERT_EQ(device->results, first);
    EXPECT_EQ(first->next->status, STATUS_WARNING);
}

TEST_F(log_silence, watches_nothing_without_limits) {
    free_lognode(device->lognode);
    device->lognode = nullptr;
    EXPECT_EQ(evaluate(), "");
    EXPECT_EQ(var_get("timestamp:log.app\\.log"), nullptr);
}

TEST_F(log_silence, ends_the_agent_when_memory_is_out) {
    // Of each variable three texts for its name, then record, key and value.
    for (uint32_t n = 1; n <= 12; n++) {
        var_reset();
        int64_t blocks = host.blocks;
        host.fail_allocation = n;
        const char *text = n % 6 >= 1 && n % 6 <= 3 ? "alloc_str() ran out of memory!"
                           : n <= 6                 ? "Out of memory during alloc of silence var timestamp"
                                                    : "Out of memory during alloc of silence var status_send";
        expect_fatal([this] { log_silence_reset(device, 1, 1); }, text);
        var_reset();
        EXPECT_EQ(host.blocks, blocks) << n;
    }
}
