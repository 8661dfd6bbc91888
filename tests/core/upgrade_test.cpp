#include "core/upgrade.h"

#include "core/download.h"
#include "core/neighbours.h"
#include "core/parent_pipes.h"
#include "core/start_fixture.h"
#include "platform/version.h"

// The fetching itself needs a server: it is tried in the whole agent's scenarios. Here no server can be
// reached, so that each download fails.
struct upgrade : start_fixture {
    upgrade() {
        write_settings();
        start();
        log_set_level(LOG_TRACE);
        set_parent_pipes(5, 6);
        static const sockets_ops nowhere = {
            .inet_addr = [](const char *) { return UINT32_MAX; },
            .gethostbyname = [](const char *, uint32_t *, uint32_t *) { return "unknown host"; }};
        sockets_host = &nowhere;
        beside.threads_held = true;
        blocks = host.blocks;
    }
    ~upgrade() override {
        EXPECT_EQ(host.blocks, blocks);
        EXPECT_EQ(beside.open_handles, 0);
    }
    int64_t blocks;
};

TEST_F(upgrade, is_fetched_at_idle_priority_by_one_thread_however_often_it_is_offered) {
    start_download(config_in_force);
    start_download(config_in_force);
    EXPECT_EQ(beside.threads_made, 1);
    EXPECT_EQ(beside.priorities, std::vector<int32_t>{THREAD_PRIORITY_IDLE});
    EXPECT_EQ(host.count_logged("Server has an upgrade, downloading ..."), 1);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Server has an upgrade, downloading ..."));
    poll_download();
    EXPECT_EQ(host.count_logged("Download"), 0);
    beside.run_held();
    poll_download();
    EXPECT_TRUE(host.logged(LOG_WARNING, "Download failed"));
    EXPECT_EQ(upgrade_pending, 0);
    EXPECT_EQ(beside.reports, "");
}

TEST_F(upgrade, is_fetched_anew_behind_a_failure) {
    for (int i = 0; i < 2; i++) {
        start_download(config_in_force);
        beside.run_held();
        poll_download();
    }
    EXPECT_EQ(beside.threads_made, 2);
    EXPECT_EQ(host.count_logged("Download failed"), 2);
}

TEST_F(upgrade, goes_on_at_normal_priority_where_it_must) {
    beside.priority_refused = true;
    start_download(config_in_force);
    EXPECT_TRUE(host.logged(LOG_WARNING,
                            "Failed decreasing download thread priority, continuing at normal priority"));
    EXPECT_EQ(host.count_logged("downloading ..."), 1);
    beside.run_held();
    poll_download();
}

TEST_F(upgrade, ends_the_sleep_of_the_main_loop_by_both_tables) {
    start_download(config_in_force);
    EXPECT_EQ(add_wait_event(signal_ev), 2U);
    uint32_t place;
    add_wakeup_event(signal_ev, &place);
    EXPECT_EQ(place, 2U);
    beside.run_held();
    poll_download();
    EXPECT_EQ(add_wait_event(signal_ev), 2U) << "still in the table";
}

TEST_F(upgrade, goes_on_where_the_tables_are_full) {
    for (int i = 0; i < 4; i++) {
        add_wait_event(reinterpret_cast<waitable *>(&host));
        add_wakeup_event(reinterpret_cast<waitable *>(&host), nullptr);
    }
    start_download(config_in_force);
    EXPECT_EQ(host.count_logged("add_wakeup_handle failed"), 2);
    EXPECT_TRUE(host.logged(LOG_WARNING, "add_wakeup_handle failed"));
    beside.run_held();
    poll_download();
}

TEST_F(upgrade, is_given_up_where_the_thread_cannot_run) {
    beside.resume_refused = true;
    start_download(config_in_force);
    EXPECT_TRUE(host.logged(LOG_ERROR, "Failed unleashing download thread"));
    EXPECT_EQ(host.count_logged("downloading ..."), 0);
    beside.resume_refused = false;
    beside.thread_refused = true;
    start_download(config_in_force);
    EXPECT_EQ(host.count_logged("Failed unleashing download thread"), 2);
}

TEST_F(upgrade, is_given_up_where_memory_is_out) {
    for (uint32_t i = 1; i <= 5; i++) {
        host.fail_allocation = i;
        start_download(config_in_force);
    }
    host.fail_allocation = 0;
    EXPECT_EQ(host.count_logged("Failed unleashing download thread"), 4)
        << "four blocks: no name, no identity";
    beside.run_held();
    poll_download();
}

TEST_F(upgrade, is_forgotten_where_the_thread_cannot_be_asked) {
    start_download(config_in_force);
    beside.exit_code_refused = true;
    poll_download();
    EXPECT_TRUE(host.logged(LOG_TRACE, "Returning!"));
    poll_download();
    EXPECT_EQ(host.count_logged("Returning!"), 1);
}

TEST_F(upgrade, is_fetched_from_the_server_that_was_current_when_it_began) {
    agent_config *copy = download_config(config_in_force);
    EXPECT_STREQ(copy->servers[0].name, "one");
    EXPECT_EQ(copy->servers[0].port, 1);
    EXPECT_NE(copy->servers[0].name, config_in_force->servers[0].name);
    EXPECT_STREQ(copy->domain, "home");
    EXPECT_EQ(copy->servers[1].name, nullptr);
    free_config(copy);
}

TEST_F(upgrade, that_cannot_be_fetched_says_why_and_where_it_asked) {
    agent_config *copy = download_config(config_in_force);
    EXPECT_FAILURE(fetch_upgrade(copy, "download.tmp"), "Error resolving \"one\": unknown host");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Talking to server: one:1"));
    free_config(copy);
}

TEST_F(upgrade, ends_the_process_for_the_launcher) {
    try {
        attempt_upgrade();
        FAIL();
    } catch (const process_ended &end) {
        EXPECT_EQ(end.status, 0);
    }
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Attempting automatic upgrade"));
}
