#include "state/variables.h"

#include "fakes/scripted_registry.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/heap.h"
#include "settings/settings.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

static constexpr const char *PRODUCT_KEY = "SOFTWARE\\Tarnix";
static constexpr const char *STORE = "SOFTWARE\\Tarnix\\TNAgent\\Variables";

using pairs = scripted_registry::values;

class variables : public testing::Test {
protected:
    test_host host;
    scripted_registry registry;

    void SetUp() override {
        user_hive_flag = 0;
        var_reset();
        registry.keys[{MACHINE_HIVE, PRODUCT_KEY}];
        registry.keys[{MACHINE_HIVE, STORE}];
    }
    void TearDown() override {
        var_reset();
        EXPECT_EQ(registry.open_keys, 0);
        EXPECT_EQ(host.blocks, 0);
    }

    void store(const char *key, const std::string &value) { registry.set(MACHINE_HIVE, STORE, key, value); }

    // What is stored, as "key=value|key=value".
    std::string stored(registry_hive hive = MACHINE_HIVE) {
        std::string all;
        for (const auto &[name, bytes] : registry.keys[{hive, STORE}]) {
            EXPECT_EQ(bytes.back(), '\0');
            all += (all.empty() ? "" : "|") + name + "=" + bytes.c_str();
        }
        return all;
    }

    static void set(const char *key, const char *value) { EXPECT_SUCCESS(var_set(var_make(key, value))); }
    static std::string get(const char *key) {
        const variable *found = var_get(key);
        return found != nullptr ? found->value : "(absent)";
    }
    // All keys from the head of the list, which is where a new one goes.
    static std::string keys_from(const char *head) {
        std::string all;
        for (const variable *entry = var_get(head); entry != nullptr; entry = entry->next)
            all += (all.empty() ? "" : " ") + std::string(entry->key);
        return all;
    }
};

TEST_F(variables, remember_a_file_where_the_host_has_files) {
    EXPECT_SUCCESS(var_set_file("/var/lib/tarnix/variables"));
    EXPECT_STREQ(registry.variables_file, "/var/lib/tarnix/variables");
    registry_ops with_registry = scripted_registry::ops;
    with_registry.use_variables_file = nullptr;
    registry_host = &with_registry;
    EXPECT_SUCCESS(var_set_file("/x"));
}

// Reading.

TEST_F(variables, are_read_in_the_order_of_the_registry) {
    store("b", "2");
    store("a", "1");
    store("c", "");
    EXPECT_SUCCESS(var_read_all());
    EXPECT_EQ(keys_from("b"), "b a c");
    EXPECT_EQ(get("a"), "1");
    EXPECT_EQ(get("c"), "");
}

TEST_F(variables, are_clean_when_they_are_read) {
    store("a", "1");
    EXPECT_SUCCESS(var_read_all());
    registry.broken = "open";
    EXPECT_SUCCESS(var_flush(1));
    EXPECT_EQ(registry.broken_at, 1); // nothing was opened
}

TEST_F(variables, of_the_user_are_read_from_the_users_hive) {
    store("a", "machine");
    registry.keys[{USER_HIVE, PRODUCT_KEY}];
    registry.set(USER_HIVE, STORE, "a", "user");
    user_hive_flag = 1;
    EXPECT_SUCCESS(var_read_all());
    EXPECT_EQ(get("a"), "user");
}

TEST_F(variables, are_not_there_without_the_key_of_the_product) {
    registry.keys.clear();
    EXPECT_FAILURE(var_read_all(), "Cannot open variables registrykey. returncode ");
}

TEST_F(variables, are_not_there_at_a_first_start) {
    registry.keys.erase({MACHINE_HIVE, STORE});
    EXPECT_FAILURE(var_read_all(), "Couldn't create the variable registrykey during read");
    EXPECT_EQ(registry.find(MACHINE_HIVE, STORE), nullptr);
}

TEST_F(variables, cannot_be_counted) {
    registry.broken = "info";
    EXPECT_FAILURE(var_read_all(), "Cannot get registry info on variables key");
}

TEST_F(variables, are_passed_over_where_they_cannot_be_listed) {
    store("a", "1");
    store("b", "2");
    registry.broken = "enum";
    registry.broken_at = 2; // the first call asks behind the last one
    EXPECT_SUCCESS(var_read_all());
    EXPECT_EQ(get("b"), "(absent)");
    EXPECT_EQ(get("a"), "1");
}

TEST_F(variables, are_read_up_to_the_one_that_cannot_be) {
    store("a", "1");
    store("b", "2");
    store("c", "3");
    registry.broken = "query";
    registry.broken_at = 2;
    EXPECT_FAILURE(var_read_all(), "Cannot read variabel key");
    EXPECT_EQ(get("c"), "3"); // the walk goes backwards
    EXPECT_EQ(get("b"), "(absent)");
    EXPECT_EQ(get("a"), "(absent)");
}

TEST_F(variables, are_read_up_to_1023_characters) {
    std::string fits(1023, 'v');
    store("a", fits);
    EXPECT_SUCCESS(var_read_all());
    EXPECT_EQ(get("a"), fits);
    var_reset();
    store("a", fits + "v");
    EXPECT_FAILURE(var_read_all(), "Cannot read variabel key");
}

TEST_F(variables, are_read_whatever_their_stored_form) {
    registry.keys[{MACHINE_HIVE, STORE}] = {
        {"raw", "no end"}, {"none", ""}, {"full", std::string(1024, 'f')}};
    EXPECT_SUCCESS(var_read_all());
    EXPECT_EQ(get("raw"), "no end");
    EXPECT_EQ(get("none"), "");
    EXPECT_EQ(get("full"), std::string(1024, 'f'));
}

TEST_F(variables, tell_which_memory_they_lacked) {
    store("a", "1");
    const char *texts[] = {"Memory allocation error while parsing variables file",
                           "Memory allocation error when duplicating key in variables parser",
                           "Memory allocation error when duplicating value in variables parser"};
    for (uint32_t n = 1; n <= 3; n++) {
        host.fail_allocation = n;
        EXPECT_FAILURE(var_read_all(), texts[n - 1]);
        EXPECT_EQ(host.blocks, 0) << n;
        EXPECT_EQ(registry.open_keys, 0) << n;
    }
}

// Setting and deleting.

TEST_F(variables, go_to_the_head_when_they_are_new) {
    set("a", "1");
    set("b", "2");
    EXPECT_EQ(keys_from("b"), "b a");
}

TEST_F(variables, take_the_place_of_the_old_entry) {
    set("a", "1");
    set("b", "2");
    set("c", "3");
    set("b", "two");
    EXPECT_EQ(keys_from("c"), "c b a");
    EXPECT_EQ(get("b"), "two");
    EXPECT_EQ(host.blocks, 9); // the old entry is gone
}

TEST_F(variables, compare_keys_exactly) {
    set("Key", "1");
    EXPECT_EQ(get("key"), "(absent)");
    EXPECT_EQ(get("Ke"), "(absent)");
}

TEST_F(variables, take_an_absent_entry_for_a_lack_of_memory) {
    EXPECT_FAILURE(var_set(nullptr), "Out of memory when cloning variable");
    host.fail_allocation = 1;
    EXPECT_FAILURE(var_set(var_new()), "Out of memory when cloning variable");
}

TEST_F(variables, are_made_of_copies_or_not_at_all) {
    char key[] = "key", value[] = "value";
    variable *entry = var_make(key, value);
    key[0] = value[0] = '#';
    EXPECT_STREQ(entry->key, "key");
    EXPECT_STREQ(entry->value, "value");
    var_free(entry);
    for (uint32_t n = 1; n <= 3; n++) {
        host.fail_allocation = n;
        EXPECT_EQ(var_make("key", "value"), nullptr) << n;
        EXPECT_EQ(host.blocks, 0) << n;
    }
    var_free(nullptr);
}

TEST_F(variables, give_copies_of_their_values) {
    set("a", "1");
    text_guard value(var_value("a"));
    set("a", "2");
    EXPECT_STREQ(value.get(), "1");
    EXPECT_EQ(var_value("b"), nullptr);
    host.fail_allocation = 1;
    EXPECT_EQ(var_value("a"), nullptr);
}

TEST_F(variables, are_gone_when_deleted_and_back_after_a_restart) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(1));
    set("a", "2");
    var_delete("a");
    EXPECT_EQ(get("a"), "(absent)");
    EXPECT_SUCCESS(var_flush(1));
    var_reset();
    EXPECT_SUCCESS(var_read_all());
    EXPECT_EQ(get("a"), "1"); // the last value that was flushed
}

TEST_F(variables, are_not_marked_by_a_deletion) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(1));
    var_delete("a");
    var_delete("unknown");
    registry.broken = "open";
    EXPECT_SUCCESS(var_flush(1));
}

TEST_F(variables, keep_the_others_when_one_is_deleted) {
    set("a", "1");
    set("b", "2");
    set("c", "3");
    var_delete("b");
    EXPECT_EQ(keys_from("c"), "c a");
    var_delete("c");
    EXPECT_EQ(keys_from("a"), "a");
}

// A plain list says what thousands of them must be. Some keys stand twice, as after a second reading of the
// store.
TEST_F(variables, of_any_number_are_those_of_a_plain_list) {
    std::vector<std::pair<std::string, std::string>> list; // the head first
    auto find = [&list](const std::string &key) {
        return std::find_if(list.begin(), list.end(), [&](const auto &each) { return each.first == key; });
    };
    for (int i = 0; i < 40; i++)
        store(("k" + std::to_string(i)).c_str(), "stored");
    std::mt19937 chance(1);
    for (int step = 0; step < 4'000; step++) {
        std::string key = "k" + std::to_string(chance() % 400), value = std::to_string(step);
        if (step == 2'000 || step == 2'001) {
            EXPECT_SUCCESS(var_read_all());
            const auto &all = registry.keys[{MACHINE_HIVE, STORE}];
            for (size_t i = all.size(); i-- > 0;)
                list.insert(list.begin(), {all[i].first, "stored"});
        } else if (chance() % 4 == 0) {
            var_delete(key.c_str());
            if (find(key) != list.end()) list.erase(find(key));
        } else {
            set(key.c_str(), value.c_str());
            if (find(key) != list.end())
                find(key)->second = value;
            else
                list.insert(list.begin(), {key, value});
        }
        std::string asked = "k" + std::to_string(chance() % 400);
        ASSERT_EQ(get(asked.c_str()), find(asked) != list.end() ? find(asked)->second : "(absent)") << step;
    }
    std::string expected;
    for (const auto &[key, value] : list)
        expected += (expected.empty() ? "" : " ") + key;
    EXPECT_EQ(keys_from(list.front().first.c_str()), expected);
}

TEST_F(variables, are_kept_where_there_is_no_memory_to_find_them_faster) {
    for (int i = 0; i < 64; i++)
        set(("k" + std::to_string(i)).c_str(), "1");
    variable *entry = var_make("more", "2");
    host.fail_allocation = 1;
    EXPECT_SUCCESS(var_set(entry));
    EXPECT_EQ(get("more") + get("k0") + get("k63"), "211");
}

// Flushing.

TEST_F(variables, that_are_new_are_written_at_the_next_flush) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=1");
}

TEST_F(variables, that_changed_are_written_after_30_seconds) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    set("a", "2");
    host.now += 29;
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=1");
    host.now += 1;
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=2");
}

TEST_F(variables, wait_from_the_first_change) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    set("a", "2");
    host.now += 20;
    set("a", "3");
    host.now += 10;
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=3");
}

TEST_F(variables, that_are_new_wait_with_an_earlier_change) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    set("a", "2");
    set("b", "1");
    host.now += 29;
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=1");
    host.now += 1;
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=2|b=1");
}

TEST_F(variables, that_changed_after_a_new_one_go_out_with_it) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    set("b", "1");
    set("a", "2");
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=2|b=1");
}

TEST_F(variables, are_marked_by_the_same_value_too) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    set("a", "1");
    host.now += 30;
    registry.broken = "open";
    EXPECT_FAILURE(var_flush(0), "Cannot open variables path for write returncode ");
}

TEST_F(variables, are_written_at_once_by_force) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    set("a", "2");
    EXPECT_SUCCESS(var_flush(1));
    EXPECT_EQ(stored(), "a=2");
}

TEST_F(variables, are_clean_behind_a_flush) {
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    registry.broken = "open";
    EXPECT_SUCCESS(var_flush(1));
}

TEST_F(variables, of_the_user_are_written_to_the_users_hive) {
    registry.keys[{USER_HIVE, PRODUCT_KEY}];
    user_hive_flag = 1;
    set("a", "1");
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(USER_HIVE), "a=1");
    EXPECT_EQ(stored(), "");
}

TEST_F(variables, are_traced_with_their_length) {
    set("a", "12345");
    set("b", "");
    EXPECT_SUCCESS(var_flush(0));
    ASSERT_EQ(host.log.size(), 2U);
    EXPECT_EQ(host.log[0].text, "b: 0"); // in the order of the list
    EXPECT_TRUE(host.logged(LOG_TRACE, "a: 5"));
}

TEST_F(variables, that_are_empty_are_stored_as_one_byte) {
    set("a", "");
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(registry.keys[(std::pair{MACHINE_HIVE, std::string(STORE)})],
              (pairs{{"a", std::string(1, '\0')}}));
    var_reset();
    EXPECT_SUCCESS(var_read_all());
    EXPECT_EQ(get("a"), "");
}

TEST_F(variables, of_1024_characters_are_written_and_not_read_back) {
    std::string fits(1023, 'v');
    set("a", fits.c_str());
    EXPECT_SUCCESS(var_flush(0));
    var_reset();
    EXPECT_SUCCESS(var_read_all());
    set("a", (fits + "v").c_str());
    EXPECT_SUCCESS(var_flush(1));
    var_reset();
    EXPECT_FAILURE(var_read_all(), "Cannot read variabel key");
    EXPECT_FAILURE(var_read_all(), "Cannot read variabel key"); // for good
}

TEST_F(variables, stay_dirty_where_the_store_does_not_open) {
    set("a", "1");
    registry.broken = "open";
    EXPECT_FAILURE(var_flush(0), "Cannot open variables path for write returncode ");
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=1");
}

TEST_F(variables, stay_dirty_where_the_key_is_not_made) {
    set("a", "1");
    registry.broken = "create";
    EXPECT_FAILURE(var_flush(0), "Couldn't create the variable registrykey during flush");
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "a=1");
}

TEST_F(variables, are_written_again_from_the_first_where_one_was_not) {
    set("a", "1");
    set("b", "2");
    set("c", "3");
    registry.broken = "set";
    registry.broken_at = 2;
    EXPECT_FAILURE(var_flush(0), "Couldn't create registryvalue in key variables");
    EXPECT_EQ(stored(), "c=3"); // what was written stays
    host.log.clear();
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(stored(), "c=3|b=2|a=1");
    EXPECT_EQ(host.log[0].text, "c: 1");
}

static int commits;
static uint32_t commit_code;
static uint32_t count_commit(registry_key *) {
    commits++;
    return commit_code;
}

TEST_F(variables, are_committed_with_the_last_one) {
    registry_ops committing = scripted_registry::ops;
    committing.RegFlushKey = count_commit;
    registry_host = &committing;
    commits = 0;
    commit_code = 28;
    set("a", "1");
    set("b", "2");
    EXPECT_FAILURE(var_flush(0), "Couldn't create registryvalue in key variables");
    EXPECT_EQ(commits, 1);
    commit_code = 0;
    EXPECT_SUCCESS(var_flush(0));
    EXPECT_EQ(commits, 2);
    EXPECT_SUCCESS(var_flush(1));
    EXPECT_EQ(commits, 2);
}

TEST_F(variables, are_not_committed_where_one_was_not_written) {
    registry_ops committing = scripted_registry::ops;
    committing.RegFlushKey = count_commit;
    registry_host = &committing;
    commits = 0;
    set("a", "1");
    registry.broken = "set";
    EXPECT_FAILURE(var_flush(0), "Couldn't create registryvalue in key variables");
    EXPECT_EQ(commits, 0);
}

static std::atomic<int64_t> thread_blocks;
static const heap_ops counting_heap = {.allocate =
                                           [](size_t size) {
                                               thread_blocks++;
                                               return heap_ops_host.allocate(size);
                                           },
                                       .release =
                                           [](void *block) {
                                               thread_blocks -= block != nullptr;
                                               heap_ops_host.release(block);
                                           }};

TEST_F(variables, are_shared_with_another_thread) {
    heap_host = &counting_heap; // that of the test host belongs to one thread
    auto work = [](const char *value) {
        for (int i = 0; i < 300; i++) {
            EXPECT_EQ(var_set(var_make("shared", value)), nullptr);
            text_guard copy(var_value("shared"));
            EXPECT_TRUE(copy != nullptr && strlen(copy.get()) == 4);
        }
    };
    std::thread other(work, "that");
    work("this");
    other.join();
    var_reset();
    EXPECT_EQ(thread_blocks, 0);
}
