#include "protocol/descriptions.h"

#include "crypto/vectors.h"
#include "fakes/notes.h"

TEST(check_descriptions, are_known_word_for_word) {
    enum { NUMBER, GOOD, WARNING, ALERT, FIELDS };
    vector_rows rows = read_vectors("descriptions.txt", FIELDS);
    ASSERT_EQ(rows.size(), size_t{DESCRIPTION_COUNT});
    for (size_t i = 0; i < rows.size(); i++) {
        EXPECT_EQ(std::to_string(check_descriptions[i].id), rows[i][NUMBER]);
        EXPECT_EQ(check_descriptions[i].descriptionGood, rows[i][GOOD]);
        EXPECT_EQ(check_descriptions[i].descriptionWarn, rows[i][WARNING]);
        EXPECT_EQ(check_descriptions[i].descriptionAlert, rows[i][ALERT]);
        for (size_t text : {GOOD, WARNING, ALERT})
            note_text(rows[i][text]);
    }
}

TEST(check_descriptions, are_numbered_by_their_places) {
    for (int32_t i = 0; i < DESCRIPTION_COUNT; i++)
        EXPECT_EQ(check_descriptions[i].id, i + 1);
}
