#include "crypto/md5.h"

#include "crypto/vectors.h"

static std::string digest_of(md5_state *state) {
    unsigned char digest[MD5_SIZE];
    md5_final(state, digest);
    return hex_of_bytes(digest, sizeof digest);
}

static std::string md5_of(const std::string &text) {
    md5_state state;
    md5_init(&state);
    md5_update(&state, text.data(), text.size());
    return digest_of(&state);
}

TEST(md5, gives_the_known_digests) {
    for (const auto &row : read_vectors("md5.txt", 2))
        EXPECT_EQ(md5_of(row[0]), row[1]) << row[0];
}

TEST(md5, of_a_million_letters) {
    EXPECT_EQ(md5_of(std::string(1'000'000, 'a')), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(md5_update, may_be_given_the_bytes_in_any_pieces) {
    std::string text;
    for (int i = 0; i < 200; i++)
        text.push_back(static_cast<char>(i));
    for (size_t piece = 1; piece < 200; piece++) {
        md5_state state;
        md5_init(&state);
        for (size_t at = 0; at < text.size(); at += piece)
            md5_update(&state, text.data() + at, std::min(piece, text.size() - at));
        ASSERT_EQ(digest_of(&state), md5_of(text)) << piece;
    }
}

TEST(md5_update, of_nothing_changes_nothing) {
    md5_state state;
    md5_init(&state);
    md5_update(&state, "a", 1);
    md5_update(&state, nullptr, 0);
    EXPECT_EQ(digest_of(&state), md5_of("a"));
}

// Messages that differ by 2^32 bits alone.
TEST(md5_final, counts_bits_beyond_32) {
    md5_state empty, long_one;
    md5_init(&empty);
    md5_init(&long_one);
    long_one.length = uint64_t{1} << 29;
    EXPECT_NE(digest_of(&empty), digest_of(&long_one));
}

TEST(md5_final, clears_the_state) {
    md5_state state;
    md5_init(&state);
    md5_update(&state, "secret", 6);
    digest_of(&state);
    for (size_t i = 0; i < sizeof state; i++)
        EXPECT_EQ(reinterpret_cast<unsigned char *>(&state)[i], 0) << i;
}
