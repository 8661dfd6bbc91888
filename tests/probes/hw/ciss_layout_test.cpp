#include "probes/hw/ciss_layout.h"

#include "fakes/hex.h"

#include <gtest/gtest.h>

static std::string encoded(ciss_request request, uint8_t volume, uint32_t expected_size) {
    std::string block(CISS_BLOCK_LIMIT, 'x');
    EXPECT_EQ(encode_ciss_request(request, volume, reinterpret_cast<uint8_t *>(block.data())), expected_size);
    return block;
}

// The bytes at an offset, as text.
static std::string at(const std::string &block, size_t offset, size_t length) {
    return hex(block.substr(offset, length));
}

static void expect_zeros(const std::string &block, size_t from, size_t to) {
    for (size_t i = from; i < to; i++)
        EXPECT_EQ(block[i], '\0') << i;
}

TEST(ciss_request, to_identify_a_controller_has_676_bytes) {
    std::string block = encoded(CISS_IDENTIFY_CONTROLLER, 0, 676);
    EXPECT_EQ(at(block, 0, 28),
              "1C 00 00 00 43 50 51 43 49 53 53 00 00 00 00 00 02 00 00 00 00 00 00 00 88 02 00 00");
    expect_zeros(block, 28, 38);
    EXPECT_EQ(at(block, 38, 10), "0A 00 26 00 00 00 00 00 11 00");
    expect_zeros(block, 48, 676);
}

TEST(ciss_request, to_identify_a_volume_has_674_bytes) {
    std::string block = encoded(CISS_IDENTIFY_VOLUME, 31, 674);
    EXPECT_EQ(at(block, 0, 28),
              "1C 00 00 00 43 50 51 43 49 53 53 00 FF FF FF FF 02 00 00 00 00 00 00 00 86 02 00 00");
    EXPECT_EQ(at(block, 38, 10), "0A 00 26 1F 00 00 00 00 10 00");
    expect_zeros(block, 48, 676);
}

TEST(ciss_request, for_a_volume_status_has_674_bytes) {
    std::string block = encoded(CISS_VOLUME_STATUS, 7, 674);
    EXPECT_EQ(at(block, 12, 4), "FF FF FF FF");
    EXPECT_EQ(at(block, 24, 4), "86 02 00 00");
    EXPECT_EQ(at(block, 38, 10), "0A 00 26 07 00 00 00 00 12 00");
}

TEST(ciss_request, tells_which_one_it_is) {
    for (auto [request, expected] : {std::pair{CISS_IDENTIFY_CONTROLLER, false},
                                     {CISS_IDENTIFY_VOLUME, true},
                                     {CISS_VOLUME_STATUS, false}}) {
        std::string block(CISS_BLOCK_LIMIT, '\0');
        auto *bytes = reinterpret_cast<uint8_t *>(block.data());
        encode_ciss_request(request, 3, bytes);
        EXPECT_EQ(is_ciss_identify_volume(bytes), expected);
        block[40] = 0x27; // a write
        EXPECT_FALSE(is_ciss_identify_volume(bytes));
    }
}

TEST(ciss_reply, has_a_return_code_of_four_bytes) {
    std::string block(CISS_BLOCK_LIMIT, '\0');
    auto *bytes = reinterpret_cast<uint8_t *>(block.data());
    set_ciss_return_code(bytes, 0x01020304);
    EXPECT_EQ(at(block, 20, 4), "04 03 02 01");
    EXPECT_EQ(ciss_return_code(bytes), 0x01020304U);
}

TEST(ciss_reply, of_a_controller_has_volumes_and_firmware) {
    std::string block(CISS_BLOCK_LIMIT, '\xEE');
    block[148] = 3;
    block.replace(153, 4, "5.\0\n", 4);
    ciss_controller found;
    decode_ciss_controller(reinterpret_cast<const uint8_t *>(block.data()), &found);
    EXPECT_EQ(found.volumes, 3);
    EXPECT_EQ(std::string(found.firmware, 4), "5...") << "what cannot be printed is a point";
}

TEST(ciss_reply, of_a_volume_has_its_size) {
    std::string block(CISS_BLOCK_LIMIT, '\xEE');
    block.replace(148, 6, bytes("00 02 78 56 34 12"));
    ciss_volume found;
    decode_ciss_volume(reinterpret_cast<const uint8_t *>(block.data()), &found);
    EXPECT_EQ(found.block_size, 512);
    EXPECT_EQ(found.blocks, 0x12345678U);
}

TEST(ciss_reply, of_a_status_is_one_byte) {
    std::string block(CISS_BLOCK_LIMIT, '\xEE');
    block[148] = 12;
    EXPECT_EQ(decode_ciss_state(reinterpret_cast<const uint8_t *>(block.data())), 12);
}

TEST(ciss_state, has_words_for_thirteen) {
    static constexpr const char *WORDS[] = {
        "Logical device OK",
        "Logical device failing",
        "Logical device not configured",
        "Logical device in interim recovery",
        "Logical device ready for recovery",
        "Logical device recovering",
        "Wrong physical device replaced",
        "Improperly connected physical device",
        "Hardware is overheating",
        "Hardware has overheated",
        "Logical device is expanding",
        "Logical device not available",
        "Logical device queued for expansion",
    };
    for (int state = 0; state < 256; state++)
        EXPECT_STREQ(ciss_state_text(static_cast<uint8_t>(state)),
                     state < 13 ? WORDS[state] : "Unknown state");
}
