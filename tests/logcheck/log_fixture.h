// A tree with one followed file and a forward group, on the host in memory.
#pragma once

#include "fakes/test_host.h"
#include "logcheck/clause.h"
#include "logcheck/log_check.h"
#include "logcheck/log_path.h"
#include "logcheck/log_rules.h"
#include "logcheck/log_state.h"
#include "platform/text.h"
#include "platform/waits.h"
#include "state/variables.h"

#include <gtest/gtest.h>
#include <string>

inline constexpr uint32_t LOG_ENTRY = 0, QUIET = 1, MOVETO = 2, COPYTO = 3, CALL = 4;

class log_fixture : public testing::Test {
protected:
    static constexpr const char *PATH = "/var/app.log";

    test_host host;
    devtree_guard top;
    devtree *folder = nullptr;
    devtree *forward = nullptr;
    devnode *file = nullptr;

    void SetUp() override {
        regex_host = &regex_ops_host;
        var_reset();
        waits_reset();
        checkin_overdue_hook = nullptr;
        log_path_style_in_force = &ROOT_PATHS;
        top.reset(heap_new<devtree>());
        top->id = text_copy("log");
        folder = devtree_child(devtree_child(top.get(), "/", "/"), "var", "var");
        forward = devtree_child(top.get(), "/forward", "Forward LogChecks");
        file = add_check(folder, "app.log");
        host.write_file("/var/", "");
    }
    void TearDown() override {
        var_reset();
        top.reset();
        EXPECT_EQ(host.blocks, 0);
        EXPECT_TRUE(host.open_files.empty());
    }

    // A configured log check with a line feed as separator, which belongs to no record.
    static devnode *add_check(devtree *group, const char *id, const char *conf_id = nullptr) {
        devnode *device = alloc_devnode();
        device->id = text_copy(id);
        device->conf_id = text_copy(conf_id);
        device->type = TYPE_ADV_LOG;
        device->lognode = alloc_lognode();
        device->lognode->warningSilence = device->lognode->alertSilence = -1;
        devtree_add_devices(group, device);
        separate(device, "\n", 2);
        return device;
    }
    static void separate(devnode *device, const char *separator, uint32_t inclusion) {
        lognode_changed(device->lognode);
        tn_regfree(&device->lognode->separator);
        if (*separator != '\0') {
            EXPECT_EQ(tn_regcomp(&device->lognode->separator, separator), 0);
        }
        device->lognode->separatorInclusion = inclusion;
    }
    static logrule *add_rule(devnode *device, const char *clause, uint32_t decision, uint32_t status = 0,
                             const char *destination = nullptr) {
        logrule *rule = alloc_logrule();
        EXPECT_SUCCESS(log_clause_parse(clause, &rule->clause));
        rule->decision = decision;
        rule->status = status;
        rule->destination = text_copy(destination);
        lognode_add_rule(device->lognode, rule);
        return rule;
    }
    void resolve() const { log_rule_resolve(top.get(), forward); }

    // Takes the results of a queue, as "status text|status text"; a result without a text is its status
    // alone.
    std::string results(devnode *device) const {
        std::string all;
        while (resnode *result = device->results) {
            EXPECT_EQ(result->check_time, host.now);
            all += (all.empty() ? "" : "|") + std::to_string(result->status);
            if (result->log_text != nullptr) all += std::string(" ") + result->log_text;
            device->results = result->next;
            free_resnode(result);
        }
        device->results_tail = &device->results;
        return all;
    }

    static std::string get(const char *key) {
        const variable *found = var_get(key);
        return found != nullptr ? found->value : "(absent)";
    }
    static void set(const char *key, const std::string &value) {
        EXPECT_SUCCESS(var_set(var_make(key, value.c_str())));
    }
};
