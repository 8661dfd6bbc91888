#include "core/start_fixture.h"

#include "platform/version.h"

using startup = start_fixture;

static const std::vector<const char *> BARE = {"-c",  "bare", "-s",           "srv:9", "-d",
                                               "dom", "-t",   "/v/variables", "-m",    "/l/agent.log"};

// Without settings.

TEST_F(startup, five_options_replace_the_settings) {
    start(BARE);
    EXPECT_STREQ(config_in_force->name, "bare");
    EXPECT_STREQ(config_in_force->domain, "dom");
    EXPECT_STREQ(config_in_force->servers[0].name, "srv");
    EXPECT_STREQ(config_in_force->variable_file, "/v/variables");
    EXPECT_STREQ(config_in_force->logfile, "/l/agent.log");
    EXPECT_EQ(config_in_force->server_port, 3241);
    EXPECT_EQ(config_in_force->log_days, 0);
    EXPECT_EQ(config_in_force->max_log_files, 0);
    EXPECT_EQ(config_in_force->loglevel, 1);
    EXPECT_EQ(config_in_force->checkin_freq, 30);
    EXPECT_TRUE(host.has_file("/l/agent.log"));
}

TEST_F(startup, one_option_less_than_five_is_fatal) {
    for (size_t left_out = 0; left_out < BARE.size(); left_out += 2) {
        auto options = BARE;
        options.erase(options.begin() + static_cast<long>(left_out),
                      options.begin() + static_cast<long>(left_out) + 2);
        host.log.clear();
        host.events.clear();
        EXPECT_EQ(status_of(options), 1);
        EXPECT_TRUE(host.logged(LOG_ERROR, "Fatal error: Unable to read agent configuration."));
        ASSERT_EQ(host.events.size(), 1U);
        EXPECT_EQ(host.events[0].message, "Unable to read agent configuration.");
        EXPECT_TRUE(host.events[0].error);
    }
}

TEST_F(startup, zero_level_and_port_of_the_fall_back_become_defaults) {
    auto options = BARE;
    options.insert(options.end(), {"-l", "0", "-p", "abc"});
    start(options);
    EXPECT_EQ(config_in_force->loglevel, 1);
    EXPECT_EQ(config_in_force->server_port, 3241);
}

TEST_F(startup, settings_without_domain_or_servers_count_as_none) {
    host.write_file(SETTINGS, "domain = home\n");
    EXPECT_EQ(status_of({}), 1);
    host.write_file(SETTINGS, "server_list = one\n");
    EXPECT_EQ(status_of({}), 1);
}

TEST_F(startup, out_of_memory_in_the_fall_back_is_fatal_in_its_own_words) {
    // The settings' own record takes the first allocations; walk on until the fall-back's are hit.
    bool seen = false;
    for (uint32_t n = 1; n < 200 && !seen; n++) {
        host.fail_allocation = n;
        if (status_of(BARE) == 1)
            seen = host.logged(LOG_ERROR, "Fatal error: Out of memory when allocating configuration space");
        host.fail_allocation = 0;
        free_config(config_in_force);
        config_in_force = nullptr;
        reset();
        log_to_stderr();
        log_set_level(LOG_TRACE);
    }
    EXPECT_TRUE(seen);
}

// With settings.

TEST_F(startup, values_of_the_command_line_are_told_and_win) {
    write_settings("name = old\n");
    start({"-c", "new", "-s", "three", "-d", "away", "-t", "/v/variables", "-p", "99", "-l", "-1"});
    for (const char *line :
         {"Config: Using specified name \"new\"", "Config: Using specified server-names \"three\"",
          "Config: Using specified domain \"away\"",
          "Config: Using specified variables file \"/v/variables\"", "Config: Using specified server-port 99",
          "Config: Using specified loglevel: -1"})
        EXPECT_TRUE(host.logged(LOG_DETAIL, line)) << line;
    EXPECT_STREQ(config_in_force->name, "new");
    EXPECT_STREQ(config_in_force->domain, "away");
    EXPECT_STREQ(config_in_force->servers[0].name, "three");
    EXPECT_EQ(config_in_force->server_count, 1);
    EXPECT_EQ(config_in_force->server_port, 99);
    EXPECT_EQ(config_in_force->loglevel, -1);
}

TEST_F(startup, level_0_stands_with_settings) {
    write_settings();
    start({"-l", "0"});
    EXPECT_EQ(config_in_force->loglevel, 0);
}

TEST_F(startup, port_is_cut_to_16_bits_without_a_warning) {
    write_settings();
    start({"-p", "70000"});
    EXPECT_EQ(config_in_force->server_port, 4464);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Config: Using specified server-port 4464"));
    EXPECT_EQ(host.count_logged("Couldn't parse"), 0);
}

TEST_F(startup, port_that_is_no_number_falls_back_with_a_warning) {
    for (const char *port : {"abc", "0", "65536", "0x10"}) {
        write_settings("server_port = 7\n");
        host.log.clear();
        start({"-p", port});
        EXPECT_EQ(config_in_force->server_port, 3241) << port;
        EXPECT_TRUE(host.logged(LOG_WARNING, "Config: Couldn't parse server-port. Using default")) << port;
        free_config(config_in_force);
        config_in_force = nullptr;
        reset();
        log_to_stderr();
        log_set_level(LOG_TRACE);
    }
}

TEST_F(startup, settings_file_of_the_command_line_stands_alone) {
    write_settings();
    host.write_file("/own.conf", "domain = own\nserver_list = own\n");
    start({"-f", "/own.conf"});
    EXPECT_STREQ(config_in_force->domain, "own");
}

TEST_F(startup, missing_settings_file_of_the_command_line_asks_no_other) {
    write_settings();
    EXPECT_EQ(status_of({"-f", "/missing.conf"}), 1);
}

// Log target.

TEST_F(startup, log_goes_to_the_file_of_the_settings) {
    write_settings();
    start({"-m", "/l/other.log"});
    EXPECT_TRUE(host.has_file(LOGFILE));
    EXPECT_FALSE(host.has_file("/l/other.log"));
}

TEST_F(startup, log_stays_on_stderr_with_v) {
    write_settings();
    start({"-v"});
    EXPECT_FALSE(host.has_file(LOGFILE));
    EXPECT_TRUE(log_is_console());
}

TEST_F(startup, v_and_m_together_move_the_log_to_that_file) {
    write_settings();
    start({"-v", "-m", "/l/other.log"});
    EXPECT_TRUE(host.has_file("/l/other.log"));
    EXPECT_FALSE(host.has_file(LOGFILE));
}

TEST_F(startup, threshold_comes_from_the_settings) {
    write_settings("loglevel = 2\n");
    start();
    agent_log(LOG_NORMAL, "below");
    agent_log(LOG_WARNING, "at");
    EXPECT_EQ(host.count_logged("below"), 0);
    EXPECT_TRUE(host.logged(LOG_WARNING, "at"));
}

// Variables.

TEST_F(startup, missing_variables_are_told_and_survived) {
    write_settings();
    start();
    EXPECT_TRUE(
        host.logged(LOG_WARNING, "Unable to read variables: Cannot open variables registrykey. returncode "));
    EXPECT_TRUE(host.logged(LOG_WARNING, std::string("Variables file (") + VARIABLES + ") will be created."));
}

TEST_F(startup, first_start_remembers_list_and_name) {
    write_settings("name = me\n");
    start();
    EXPECT_STREQ(var_get("server_list_conf")->value, "one:1,two");
    EXPECT_STREQ(var_get("name_conf")->value, "me");
    EXPECT_EQ(config_in_force->server_count, 2);
    EXPECT_EQ(server_index, 0);
}

TEST_F(startup, list_of_the_server_outlives_a_restart) {
    write_settings();
    host.write_file(VARIABLES, "server_list_conf\tone:1,two\nserver_list_cluster\tcluster:5,\n");
    start();
    EXPECT_STREQ(config_in_force->servers[0].name, "cluster");
    EXPECT_EQ(config_in_force->servers[0].port, 5);
    EXPECT_EQ(config_in_force->server_count, 1);
    EXPECT_STREQ(var_get("server_list_conf")->value, "one:1,two");
}

TEST_F(startup, list_of_the_server_goes_when_the_setting_changes_by_one_character) {
    write_settings();
    host.write_file(VARIABLES, "server_list_conf\tone:1,two,\nserver_list_cluster\tcluster:5,\n");
    start();
    EXPECT_STREQ(config_in_force->servers[0].name, "one");
    EXPECT_STREQ(var_get("server_list_conf")->value, "one:1,two");
}

TEST_F(startup, list_of_the_command_line_is_reconciled_too) {
    write_settings();
    host.write_file(VARIABLES, "server_list_conf\tthree\nserver_list_cluster\tcluster\n");
    start({"-s", "three"});
    EXPECT_STREQ(config_in_force->servers[0].name, "cluster");
}

TEST_F(startup, identity_is_kept_with_the_name) {
    write_settings("name = me\n");
    host.write_file(VARIABLES, "name_conf\tme\nhost_id\tabc\n");
    start();
    EXPECT_STREQ(config_in_force->host_id, "abc");
}

TEST_F(startup, renamed_agent_forgets_its_identity) {
    write_settings("name = me\n");
    host.write_file(VARIABLES, "name_conf\tother\nhost_id\tabc\n");
    start();
    EXPECT_EQ(config_in_force->host_id, nullptr);
    EXPECT_STREQ(var_get("name_conf")->value, "me");
}

TEST_F(startup, agent_without_a_name_has_the_empty_one_as_identity) {
    write_settings();
    host.write_file(VARIABLES, "name_conf\t\nhost_id\tabc\n");
    start();
    EXPECT_STREQ(config_in_force->host_id, "abc");
}

TEST_F(startup, bad_port_in_the_server_list_is_fatal) {
    host.write_file(SETTINGS, "domain = home\nserver_list = a:b\n");
    EXPECT_EQ(status_of({}), 1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "Fatal error: Could not parse port number"));
}

TEST_F(startup, failed_socket_layer_is_fatal) {
    write_settings();
    socket_start_code = 7;
    EXPECT_EQ(status_of({}), 1);
    EXPECT_TRUE(host.logged(LOG_ERROR,
                            "Fatal error: Error initializing socket subsystem: Error with wsastartup: "
                            "system error 7 (7)\n"));
}

// Downtime.

TEST_F(startup, failed_socket_layer_is_fatal_for_downtime_too) {
    write_settings();
    static const sockets_ops broken = {
        .WSAStartup = [](uint16_t) { return int32_t{7}; },
        .inet_addr = [](const char *) { return 0xFFFFFFFFU; },
        .gethostbyname = [](const char *, uint32_t *, uint32_t *) { return "nobody"; }};
    sockets_host = &broken;
    EXPECT_EQ(status_of({"--down", "--quiet"}), 1);
    EXPECT_EQ(host.count_logged("Fatal error: Error initializing socket subsystem: "), 1);
    EXPECT_EQ(errors.find("FAILED Could not connect"), std::string::npos);
}

TEST_F(startup, downtime_without_a_reachable_server_ends_with_status_1) {
    write_settings("loglevel = 0\n");
    static const sockets_ops unresolved = {
        .WSAStartup = [](uint16_t) { return int32_t{0}; },
        .inet_addr = [](const char *) { return 0xFFFFFFFFU; },
        .gethostbyname = [](const char *, uint32_t *, uint32_t *) { return "nobody"; }};
    sockets_host = &unresolved;
    EXPECT_EQ(status_of({"--down=5", "--quiet", "-s", "nowhere"}), 1);
    EXPECT_NE(errors.find("FAILED Could not connect to server: Error resolving \"nowhere\": nobody\n"),
              std::string::npos)
        << errors;
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] connect_and_request_downtime"));
    EXPECT_FALSE(host.has_file(LOGFILE));
}

TEST_F(startup, shown_downtime_result_decides_the_status) {
    quiet_flag = 1;
    EXPECT_EQ(show_down_result("OK granted"), 0);
    EXPECT_EQ(show_down_result("FAILURE no"), 1);
    EXPECT_EQ(show_down_result("OK"), 1);
    EXPECT_EQ(errors, "OK granted\nFAILURE no\nToo short message from server received\n");
}

// The platform's half.

TEST_F(startup, platform_half_is_set_up_and_taken_back) {
    init_os_arch_specific();
    EXPECT_NE(signal_ev, nullptr);
    EXPECT_TRUE(host.logged(LOG_DETAIL, std::string("init_os_arch_specific (") + host_word + ")"));
    platform_cleanup();
    EXPECT_EQ(signal_ev, nullptr);
    EXPECT_EQ(del_wait_event(signal_ev), 0U);
    platform_cleanup(); // again, as fatal may
    EXPECT_EQ(host.count_logged("failed"), 0);
}

TEST_F(startup, events_are_made_as_their_waits_need_them) {
    static std::vector<std::pair<bool, bool>> made;
    made.clear();
    static const waits_ops *wrapped_waits;
    wrapped_waits = waits_host;
    waits_ops recording = *waits_host;
    recording.CreateEventA = [](bool manual_reset, bool signalled) {
        made.push_back({manual_reset, signalled});
        return wrapped_waits->CreateEventA(manual_reset, signalled);
    };
    waits_host = &recording;
    init_os_arch_specific();
    platform_cleanup();
    waits_host = wrapped_waits;
    std::vector<std::pair<bool, bool>> expected = {
        {false, false}, // a stop
        {true, false},  // the same for the thread that watches the launcher, which sleeps through nothing
        {true, true},   // the command channel
        {false, false}, // the user's signals
    };
    EXPECT_EQ(made, expected);
}

TEST_F(startup, stop_ends_every_sleep_and_a_signal_of_the_user_that_of_the_loop_alone) {
    init_os_arch_specific();
    waitable *other = reinterpret_cast<waitable *>(&host);
    uint32_t wakeup_place = 0;
    add_wakeup_event(other, &wakeup_place);
    EXPECT_EQ(wakeup_place, 2U);
    EXPECT_EQ(add_wait_event(other), 4U) << "behind the stop, the command channel and the user's signals";
    del_wakeup_event(other);
    del_wait_event(other);
    platform_cleanup();
}

TEST_F(startup, fatal_end_takes_the_platform_half_back) {
    write_settings();
    start();
    init_os_arch_specific();
    expect_fatal([] { fatal("the end"); }, "the end");
    EXPECT_EQ(signal_ev, nullptr);
}

TEST_F(startup, full_wait_tables_are_told) {
    waitable *other = reinterpret_cast<waitable *>(&host);
    for (int i = 0; i < 4; i++) {
        add_wait_event(other);
        add_wakeup_event(other, nullptr);
    }
    init_os_arch_specific();
    platform_cleanup();
    std::vector<std::string> told;
    for (const logged_line &line : host.log)
        if (line.level == LOG_WARNING) told.push_back(line.text);
    EXPECT_EQ(told, (std::vector<std::string>{"add_wakeup_event() failed", "add_wait_event() failed",
                                              "add_wait_event() failed", // of the user's signals
                                              "del_wakeup_event() failed for signal_ev",
                                              "del_wait_event() failed for signal_ev",
                                              "del_wait_event() failed for g_pipe_event"}));
}

TEST_F(startup, failed_upgrade_is_told_once) {
    command_line line;
    const char *argv[] = {"tnagent", "--upgrade-failed", nullptr};
    parse_options(2, const_cast<char **>(argv), &line);
    init_os_arch_specific();
    platform_cleanup();
    init_os_arch_specific();
    platform_cleanup();
    EXPECT_EQ(host.count_logged("Upgrade failed, using latest working version"), 1);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Upgrade failed, using latest working version"));
}

TEST_F(startup, wait_of_the_loop_tells_what_ended_it) {
    init_os_arch_specific();
    host.wait_answers = {2};
    wait_for_object(5);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] wait_for_object Got 3"));
    wait_for_object(5);
    EXPECT_EQ(host.count_logged("[cmd] wait_for_object"), 1);
    platform_cleanup();
}
