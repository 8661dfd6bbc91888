#include "server/database.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

namespace {

class db : public testing::Test {
protected:
    db() {
        EXPECT_SUCCESS(data.open(":memory:", database::access::read_write));
        data.run("CREATE TABLE t (a, b UNIQUE)");
    }
    int64_t count() {
        query row(data, "SELECT count(*) FROM t");
        return row.row() ? row.integer(0) : -1;
    }
    void insert(int64_t value) { query(data, "INSERT INTO t (b) VALUES (?)").with(value).done(); }

    test_host host;
    database data;
};

} // namespace

TEST_F(db, gives_values_back_as_they_were) {
    std::variant<std::monostate, int32_t, double, std::string> values[] = {{}, -5, 2.0, std::string("a\xFF")};
    for (const auto &value : values)
        query(data, "INSERT INTO t (a) VALUES (?)").with(value).done();
    query row(data, "SELECT a FROM t ORDER BY rowid");
    for (const auto &value : values) {
        ASSERT_TRUE(row.row());
        EXPECT_EQ(row.value(0), value);
    }
    EXPECT_FALSE(row.row());
}

TEST_F(db, binds_absent_as_null) {
    query(data, "INSERT INTO t (a, b) VALUES (?, ?)")
        .with(std::optional<double>(), std::optional(1.5))
        .done();
    query row(data, "SELECT a, b FROM t");
    ASSERT_TRUE(row.row());
    EXPECT_TRUE(row.is_null(0));
    EXPECT_EQ(row.real(1), 1.5);
}

TEST_F(db, takes_a_transaction_back_that_failed) {
    {
        transaction work(data, transaction::durability::durable);
        insert(1);
        insert(1);
        insert(2);
        EXPECT_FAILURE(work.commit(), "the store failed: UNIQUE constraint failed: t.b");
    }
    EXPECT_EQ(count(), 0);
}

TEST_F(db, takes_a_transaction_back_that_was_not_committed) {
    {
        transaction work(data, transaction::durability::relaxed);
        insert(1);
    }
    EXPECT_EQ(count(), 0);
    insert(1);
    EXPECT_EQ(count(), 1);
}

TEST_F(db, keeps_a_transaction_that_was_committed) {
    transaction work(data, transaction::durability::durable);
    insert(1);
    EXPECT_SUCCESS(work.commit());
    EXPECT_EQ(count(), 1);
}

TEST_F(db, does_nothing_behind_a_failure_until_that_is_taken) {
    data.run("nonsense");
    EXPECT_TRUE(data.failed());
    insert(1);
    EXPECT_EQ(count(), -1);
    EXPECT_FAILURE(data.take_failure(), "the store failed: near \"nonsense\": syntax error");
    EXPECT_SUCCESS(data.take_failure());
    EXPECT_EQ(count(), 0);
}

TEST_F(db, reports_a_statement_that_cannot_be_prepared) {
    query(data, "SELECT x FROM nowhere").with(5, std::string("x"), 2.5).done();
    EXPECT_FAILURE(data.take_failure(), "the store failed: no such table: nowhere");
}
