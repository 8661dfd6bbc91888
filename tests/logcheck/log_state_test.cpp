#include "logcheck/log_state.h"

#include "logcheck/log_fixture.h"

#include <cstring>

class log_states : public log_fixture {
protected:
    static constexpr const char *NAME = "log./.var.app\\.log";

    static void keep(log_state *state, const char *first, const char *last) {
        state->first_data_len = strlen(first);
        memcpy(state->first_data, first, state->first_data_len);
        state->last_data_len = strlen(last);
        memcpy(state->last_data, last, state->last_data_len);
    }
    log_state *fresh() const {
        bool first;
        return log_state_of(file, &first);
    }
};

TEST_F(log_states, are_made_once_and_start_at_nothing) {
    bool first = false;
    log_state *state = log_state_of(file, &first);
    EXPECT_TRUE(first);
    EXPECT_EQ(state->offset, 0);
    EXPECT_EQ(state->size, -1);
    EXPECT_EQ(state->first_data_len, 0U);
    EXPECT_EQ(state->last_data_len, 0U);
    EXPECT_EQ(log_state_of(file, &first), state);
    EXPECT_FALSE(first);
    EXPECT_EQ(memcmp(&file->state_magic, "GOLA", 4), 0);
}

TEST_F(log_states, of_another_kind_are_fatal) {
    fresh();
    file->state_magic = NO_STATE_MAGIC;
    expect_fatal([this] { fresh(); }, "Check state corrupt");
    expect_fatal([this] { file->state_free(file); }, "Magic mismatch in log_free_state");
    file->state_magic = LOG_STATE_MAGIC;
}

TEST_F(log_states, need_memory) {
    host.fail_allocation = 1;
    expect_fatal([this] { fresh(); }, "Out of memory");
}

TEST_F(log_states, are_stored_in_four_variables) {
    log_state state = {.offset = 5'000'000'000, .size = 5'000'000'007};
    keep(&state, "AB", "yz");
    write_log_state(file, &state);
    EXPECT_EQ(get(NAME), "5000000000");
    EXPECT_EQ(get("size:log./.var.app\\.log"), "5000000007");
    EXPECT_EQ(get("first_bin:log./.var.app\\.log"), "4142");
    EXPECT_EQ(get("last_bin:log./.var.app\\.log"), "797A");
}

TEST_F(log_states, come_back_from_their_variables) {
    log_state state = {.offset = 5'000'000'000, .size = 5'000'000'007};
    keep(&state, "AB", "yz");
    write_log_state(file, &state);
    log_state back = {};
    EXPECT_TRUE(read_log_state(file, &back));
    EXPECT_EQ(back.offset, state.offset);
    EXPECT_EQ(back.size, state.size);
    EXPECT_EQ(std::string(back.first_data, back.first_data_len), "AB");
    EXPECT_EQ(std::string(back.last_data, back.last_data_len), "yz");
}

TEST_F(log_states, of_a_parked_log_keep_no_size) {
    log_state state = {.offset = 1, .size = 0};
    write_log_state(file, &state);
    EXPECT_EQ(get("size:log./.var.app\\.log"), "0");
    state = {.offset = -1, .size = -1};
    write_log_state(file, &state);
    EXPECT_EQ(get("size:log./.var.app\\.log"), "(absent)");
    log_state back = {};
    EXPECT_TRUE(read_log_state(file, &back));
    EXPECT_EQ(back.offset, -1);
    EXPECT_EQ(back.size, -1);
}

TEST_F(log_states, of_a_new_log_are_unknown) {
    log_state back = {.offset = 7, .size = 7, .first_data_len = 7, .last_data_len = 7};
    EXPECT_FALSE(read_log_state(file, &back));
    EXPECT_EQ(back.offset, 7);
    EXPECT_EQ(back.size, -1);
    EXPECT_EQ(back.first_data_len, 0U);
    EXPECT_EQ(back.last_data_len, 0U);
}

TEST_F(log_states, are_found_under_the_name_without_escapes_too) {
    set("log./.var.app.log", "12");
    int64_t offset = 0;
    EXPECT_TRUE(read_log_offset(file, &offset));
    EXPECT_EQ(offset, 12);
    set(NAME, "34");
    EXPECT_TRUE(read_log_offset(file, &offset));
    EXPECT_EQ(offset, 34);
}

TEST_F(log_states, are_numbers_with_a_base) {
    int64_t offset = 0;
    set(NAME, "0x200000000");
    EXPECT_TRUE(read_log_offset(file, &offset));
    EXPECT_EQ(offset, 0x200000000);
    set(NAME, "017");
    EXPECT_TRUE(read_log_offset(file, &offset));
    EXPECT_EQ(offset, 15);
    set("size:log./.var.app\\.log", "0x10");
    log_state back = {};
    EXPECT_TRUE(read_log_state(file, &back));
    EXPECT_EQ(back.size, 16);
}

TEST_F(log_states, have_keys_that_are_cut_at_their_buffers) {
    text_replace(&file->id, text_copy(std::string(1100, 'n').c_str()));
    std::string name = "log./.var." + std::string(1100, 'n');
    log_state state = {.offset = 1, .size = 2};
    keep(&state, "A", "");
    write_log_state(file, &state);
    EXPECT_EQ(get(name.c_str()), "1");
    EXPECT_EQ(get(("size:" + name).substr(0, 255).c_str()), "2");
    EXPECT_EQ(get(("first_bin:" + name).substr(0, 1023).c_str()), "41");
    EXPECT_EQ(get(("last_bin:" + name).substr(0, 1023).c_str()), "");
    log_state back = {};
    EXPECT_TRUE(read_log_state(file, &back));
    EXPECT_EQ(back.size, 2);
    EXPECT_EQ(back.first_data_len, 1U);
}

TEST_F(log_states, cannot_be_stored_without_memory) {
    log_state state = {.offset = 1, .size = 2};
    host.fail_allocation = 6; // the five before it make the name
    expect_fatal([this, &state] { write_log_state(file, &state); },
                 "Out of memory during alloc of offset_var");
}
