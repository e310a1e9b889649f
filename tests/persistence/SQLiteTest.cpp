#include "persistence/SQLite.h"

#include "tests/support/Sandbox.h"

namespace orvanta {
namespace {

using Kind = SkillsError::Kind;

class SQLiteTest : public Sandbox {
 protected:
  SQLiteTest() { db.execute("CREATE TABLE t (a, b UNIQUE)"); }

  SQLiteConnection db{":memory:"};
};

TEST_F(SQLiteTest, EveryErrorSaysWhatWasDoneWithWhichStatement) {
  const std::string tail = " FROM t" + std::string(200, ' ') + "é";
  const std::vector<std::pair<std::function<void()>, std::string>> cases{
      {[&] { db.execute("NONSENSE; x"); }, " — while executing: NONSENSE; x"},
      {[&] { db.run("SELECT c" + tail); },
       "no such column: c — while preparing: " + ("SELECT c" + tail).substr(0, 120)},
      {[&] { db.run("INSERT INTO t VALUES (1, 1), (1, 1)"); },
       "UNIQUE constraint failed: t.b — while running: INSERT INTO t VALUES (1, 1), (1, 1)"},
      {[&] { db.scalarInt("SELECT abs(-9223372036854775808)"); },
       "integer overflow — while querying: SELECT abs(-9223372036854775808)"},
      {[&] {
         db.run("SELECT ?", {std::int64_t{1}, std::int64_t{2}});
       },
       "bind failed: "},
      {[&] { db.run(""); }, " — while preparing: "},
      {[&] { db.hasColumn("skills;", "x"); }, "Invalid SQL identifier: skills;"},
      {[&] { db.addColumnIfMissing("t", "", "TEXT"); }, "Invalid SQL identifier: "},
      {[&] { SQLiteConnection((root / "no" / "such.db").string()); },
       "Cannot open database at " + (root / "no" / "such.db").string() + ": unable to open database file"}};
  for (const auto& [action, message] : cases) EXPECT_THAT(errorOf(action), IsError(Kind::database, message));
  EXPECT_THAT(errorOf(cases[1].first).message(), testing::EndsWith(std::string(105, ' ')))
      << "cut after 120 characters";
  EXPECT_EQ(db.scalarInt("SELECT COUNT(*) FROM t"), 0) << "and the connection is as good as before";
}

TEST_F(SQLiteTest, WhatTheDiskRefusesIsSaidWithWhatToDoAndWithoutTheStatement) {
  const std::string path = (root / "t.db").string();
  SQLiteConnection disk(path);
  const std::string sql = "CREATE TABLE t (a)";
  const std::string big(1 << 20, 'x');
  disk.execute(sql + "; PRAGMA max_page_count = 10");
  const std::string full = "the disk is full (No space left on device); make room there, then try again";
  const std::string takenBack = "The database " + path + " could not be written, and the change was taken back: ";
  const auto fill = [&] { disk.run("INSERT INTO t VALUES (?)", {big}); };
  EXPECT_EQ(errorOf(fill), SkillsError::database("The database " + path + " could not be used: " + full));
  EXPECT_EQ(errorOf([&] { disk.transaction(fill); }), SkillsError::database(takenBack + full));
  // SQLite has ended the transaction by then, and what comes after it is not written by itself.
  for (const bool hasMore : {true, false}) {
    EXPECT_THAT(errorOf([&] {
                  disk.transaction([&] {
                    disk.run("INSERT INTO t VALUES (1)");
                    EXPECT_THROW(fill(), SkillsError);
                    if (hasMore) disk.run("INSERT INTO t VALUES (2)");
                  });
                }),
                IsError(Kind::database, takenBack + "the disk may be full"));
  }
  disk.execute("PRAGMA query_only = 1");
  EXPECT_EQ(errorOf([&] { disk.run("DELETE FROM t"); }),
            SkillsError::database("The database " + path + " could not be used: attempt to write a readonly " +
                                  "database; make it and its folder writable, then try again"));
  EXPECT_EQ(disk.scalarInt("SELECT COUNT(*) FROM t"), 0);
}

TEST_F(SQLiteTest, ValuesComeBackAsTheyWereGiven) {
  const std::string zero("a\0b", 3);
  db.run("INSERT INTO t VALUES (?, ?), (?, ?)", {"é", 2.5, nullptr, std::optional<std::string>()});
  db.run("INSERT INTO t VALUES (?, ?)", {zero, true});
  const auto texts = db.query("SELECT a FROM t ORDER BY rowid", {}, [](const SQLRow& row) { return row.string(0); });
  EXPECT_EQ(texts, (std::vector<std::optional<std::string>>{"é", std::nullopt, zero}));
  EXPECT_EQ(db.queryOne("SELECT b FROM t ORDER BY rowid", {}, [](const SQLRow& row) { return row.real(0); }), 2.5);

  const auto flag = [&](const char* value) {
    return db.queryOne(std::string("SELECT ") + value, {}, [](const SQLRow& row) { return row.boolean(0); });
  };
  EXPECT_EQ(flag("2"), true);
  EXPECT_EQ(flag("NULL"), false);
  for (const auto* nothing : {"SELECT 1 WHERE 0", "SELECT NULL"}) {
    EXPECT_EQ(db.scalarInt(nothing), 0);
    EXPECT_EQ(db.scalarString(nothing), std::nullopt);
  }
  EXPECT_EQ(db.run("UPDATE t SET a = 1 WHERE 0"), 0);
}

TEST_F(SQLiteTest, AFailedTransactionLeavesNothingAndReportsTheFirstError) {
  EXPECT_THAT(errorOf([&] {
                db.transaction([&] {
                  db.run("INSERT INTO t VALUES (1, 1)");
                  db.run("INSERT OR ROLLBACK INTO t VALUES (1, 1)");  // SQLite itself ends the transaction
                });
              }),
              IsError(Kind::database, "UNIQUE constraint failed"));
  EXPECT_EQ(errorOf([&] {
              db.transaction([&] {
                db.run("INSERT INTO t VALUES (1, 1)");
                throw SkillsError::io("body");
              });
            }),
            SkillsError::io("body"));
  EXPECT_EQ(db.scalarInt("SELECT COUNT(*) FROM t"), 0);

  EXPECT_EQ(db.transaction([&] { return db.run("INSERT INTO t VALUES (1, 1), (2, 2)"); }), 2);
  EXPECT_EQ(db.scalarInt("SELECT COUNT(*) FROM t"), 2);
}

TEST_F(SQLiteTest, OneQueryMayRunInsideAnotherWithTheSameText) {
  db.run("INSERT INTO t VALUES (1, 1), (2, 2), (3, 3)");
  const std::string sql = "SELECT a FROM t WHERE a > ? ORDER BY a";
  std::string seen;
  db.forEach(sql, {std::int64_t{0}}, [&](const SQLRow& outer) {
    seen += std::to_string(*outer.int64(0)) + ":";
    db.forEach(sql, {*outer.int64(0)}, [&](const SQLRow& inner) { seen += std::to_string(*inner.int64(0)); });
    seen += " ";
  });
  EXPECT_EQ(seen, "1:23 2:3 3: ");
  EXPECT_THROW(db.forEach(sql, {std::int64_t{0}}, [](const SQLRow&) { throw std::out_of_range("from the row"); }),
               std::out_of_range);
  EXPECT_EQ(db.scalarInt(sql, {std::int64_t{2}}), 3);
}

}  // namespace
}  // namespace orvanta
