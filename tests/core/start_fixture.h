// A host in memory on which the agent can be started from its command line.
#pragma once

#include "core/command_channel.h"
#include "core/families.h"
#include "core/local_down.h"
#include "core/neighbours.h"
#include "core/options.h"
#include "core/os_arch.h"
#include "core/run_loop.h"
#include "core/schedule.h"
#include "core/signals.h"
#include "core/startup.h"
#include "devtree/fake_checks.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/crash.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/regex.h"
#include "platform/sockets_ops.h"
#include "platform/waits.h"
#include "protocol/authentication.h"
#include "protocol/checkin.h"
#include "protocol/configure.h"
#include "settings/places.h"
#include "settings/registry_file.h"
#include "settings/settings.h"
#include "state/log_rotation.h"
#include "state/variables.h"

#include <gtest/gtest.h>

inline constexpr const char *SETTINGS = "/etc/tarnix/tnagent.conf";
inline constexpr const char *VARIABLES = "/var/lib/tarnix/variables";
inline constexpr const char *LOGFILE = "/var/log/tarnix/agent.log";

struct start_fixture : testing::Test {
    test_host host;
    neighbours beside;
    std::string errors;       // what went to stderr
    std::string crash_folder; // of the crash handler

    start_fixture() {
        self = this;
        static const places_ops fake_places = {.find = [](places *out) {
            unix_user root = {.is_root = true, .home = "/root"};
            unix_places(&root, out);
        }};
        static files_ops files = *files_host;
        files.write = keep_stderr;
        wrapped = files_host;
        files_host = &files;
        places_host = &fake_places;
        registry_host = &registry_file_ops;
        regex_host = &regex_ops_host;
        static const sockets_ops fake_sockets = {.WSAStartup = [](uint16_t) { return socket_start_code; }};
        sockets_host = &fake_sockets;
        socket_start_code = 0;
        static const crash_ops fake_crash = {
            .install = [](const char *folder) { self->crash_folder = folder; }};
        crash_host = &fake_crash;
        static const signals_ops fake_signals = {.install = [](const signal_events &) {}, .remove = [] {}};
        signals_host = &fake_signals;
        reset();
    }

    ~start_fixture() override {
        free_config(config_in_force);
        config_in_force = nullptr;
        reset();
    }

    static void reset() {
        var_reset();
        registry_file_reset();
        options_reset();
        command_channel_reset();
        run_loop_reset();
        configure_reset();
        checkin_reset();
        fake_checks_reset();
        log_rotation_reset();
        user_hive_flag = 0;
    }

    // The settings that are needed, and some more.
    void write_settings(const std::string &more = "") {
        host.write_file(SETTINGS, "domain = home\nserver_list = one:1,two\n" + more);
    }

    void start(std::vector<const char *> options = {}) {
        options.insert(options.begin(), "tnagent");
        std::vector<char *> argv;
        for (const char *option : options)
            argv.push_back(const_cast<char *>(option));
        argv.push_back(nullptr);
        start_up(static_cast<int>(options.size()), argv.data());
    }

    // The status with which the start ends the process, -1 when it does not.
    int status_of(const std::vector<const char *> &options) {
        try {
            start(options);
        } catch (const process_ended &end) {
            return end.status;
        }
        return -1;
    }

    static inline start_fixture *self;
    static inline const files_ops *wrapped;
    static inline int32_t socket_start_code;

private:
    static int64_t keep_stderr(host_file file, const void *buffer, size_t size) {
        if (file != wrapped->stderr_handle) return wrapped->write(file, buffer, size);
        self->errors.append(static_cast<const char *>(buffer), size);
        return static_cast<int64_t>(size);
    }
};
