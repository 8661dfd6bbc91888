#include "sim/scenario.h"

// The logs that the administrator's file names, on their way to the server.

struct log_offer : scenario {
    static constexpr const char *CONF = "/etc/tarnix/logs.conf";

    log_offer() {
        sim.settings["log_chk_conf"] = CONF;
        sim.disk.put(CONF, "# web\n/srv/www/**/*.log\n/var/log/app.log\n");
        sim.disk.put("/srv/www/error.log", "");
        sim.disk.put("/srv/www/shop/2024/access.log", "");
        sim.disk.put("/srv/www/shop/index.html", "");
    }

    // The paths of the offered logs.
    std::vector<std::string> offered() const {
        std::vector<std::string> paths;
        for (const std::string &path : wire::device_paths(server.tree()))
            if (path.starts_with("log/")) paths.push_back(path.substr(strlen("log//")));
        return paths;
    }

    size_t trees() const {
        size_t count = 0;
        for (const wire::configuration_request &request : server.requests)
            count += !request.tree.empty();
        return count;
    }
    bool scan_again() {
        size_t before = trees();
        server.scan_wanted = true;
        return sim.run_until([&] { return trees() > before; }, HOUR);
    }
};

using paths = std::vector<std::string>;

TEST_F(log_offer, shows_the_server_the_logs_that_the_file_names) {
    begin({});
    EXPECT_EQ(offered(), (paths{"/srv/www/error.log", "/srv/www/shop/2024/access.log", "/var/log/app.log"}));
}

TEST_F(log_offer, shows_what_a_log_is_and_where_forwarded_entries_may_go) {
    begin({});
    auto tree = server.tree();
    auto log = std::find_if(tree.begin(), tree.end(), [](const auto &group) { return group.id == "log"; });
    ASSERT_NE(log, tree.end());
    EXPECT_EQ(log->name, "Log checks");
    EXPECT_EQ(log->name_template, "Log check %c,1l,\\,0r,");
    EXPECT_EQ(log->groups.back().id, "/forward");
    EXPECT_TRUE(log->groups.back().devices.empty());
    wire::offered_device device = log->groups[0].groups[1].groups[0].devices[0];
    EXPECT_EQ(device.id, "app.log");
    EXPECT_EQ(device.type, 9);
    EXPECT_EQ(device.description, 20);
}

TEST_F(log_offer, follows_the_file_and_the_folders_at_the_next_scan) {
    begin({});
    sim.disk.put("/srv/www/shop/2025/access.log", "");
    sim.disk.remove("/srv/www/error.log");
    sim.disk.put(CONF, "/srv/www/**/*.log\n");
    ASSERT_TRUE(scan_again());
    EXPECT_EQ(offered(), (paths{"/srv/www/shop/2025/access.log", "/srv/www/shop/2024/access.log"}));
}

TEST_F(log_offer, goes_by_the_old_lines_while_the_file_is_bad) {
    begin({});
    paths before = offered();
    sim.disk.put(CONF, "/var/log/other.log\nnonsense\n");
    ASSERT_TRUE(scan_again());
    EXPECT_EQ(offered(), before);
    EXPECT_TRUE(sim.logged(3, "Unable to read new log check configuration! Keeping old configuration"));
}

TEST_F(log_offer, is_empty_for_an_agent_that_starts_with_a_bad_file) {
    begin({});
    stop();
    sim.disk.put(CONF, "nonsense\n");
    sim.start_agent();
    ASSERT_TRUE(scan_again());
    EXPECT_EQ(offered(), paths{});
}
