#include "server/sqlite/Database.h"

#include <gtest/gtest.h>

#include "tests/TemporaryFolder.h"

namespace server {
namespace {

class DatabaseTest : public testing::Test {
protected:
    const TemporaryFolder fFolder;
    const std::string fPath = fFolder / "test.db";
};

TEST_F(DatabaseTest, ValuesComeBackAsBytes) {
    auto database = Database::Open(fPath);
    ASSERT_TRUE(database.ok());
    ASSERT_TRUE(database->Execute("CREATE TABLE t(a INTEGER, b TEXT, c BLOB)").ok());
    const std::string text("a\xff\0b", 4);
    const Bytes blob{0, 1, 2};
    auto insert = database->Prepare("INSERT INTO t VALUES(?,?,?)");
    ASSERT_TRUE(insert.Bind(1, int64_t{-7}).Bind(2, text).Bind(3, blob).Run().ok());
    ASSERT_TRUE(insert.Bind(1, int64_t{8}).Bind(2, std::string_view()).Bind(3, Bytes()).Run().ok());
    auto select = database->Prepare("SELECT a,b,c FROM t ORDER BY a");
    ASSERT_TRUE(select.Next());
    EXPECT_EQ(select.Integer(0), -7);
    EXPECT_EQ(select.Text(1), text);
    EXPECT_EQ(Bytes(select.Blob(2).begin(), select.Blob(2).end()), blob);
    ASSERT_TRUE(select.Next());
    EXPECT_FALSE(select.IsNull(1));
    EXPECT_TRUE(select.Blob(2).empty());
    EXPECT_FALSE(select.Next());
    EXPECT_TRUE(select.Result().ok());
    EXPECT_EQ(std::filesystem::status(fPath).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(DatabaseTest, UncommittedIsTakenBackAndMistakesShow) {
    auto database = Database::Open(fPath);
    ASSERT_TRUE(database.ok());
    ASSERT_TRUE(database->Execute("CREATE TABLE t(a INTEGER UNIQUE)").ok());
    {
        Database::Transaction transaction(*database);
        ASSERT_TRUE(database->Execute("INSERT INTO t VALUES(1)").ok());
    }
    auto count = database->Prepare("SELECT count(*) FROM t");
    ASSERT_TRUE(count.Next());
    EXPECT_EQ(count.Integer(0), 0);
    EXPECT_FALSE(database->Prepare("SELECT nonsense FROM t").Next());
    EXPECT_FALSE(database->Prepare("SELECT nonsense FROM t").Result().ok());
    auto insert = database->Prepare("INSERT INTO t VALUES(?)");
    EXPECT_TRUE(insert.Bind(1, int64_t{1}).Run().ok());
    EXPECT_FALSE(insert.Bind(1, int64_t{1}).Run().ok());
}

TEST_F(DatabaseTest, ForeignBytesAreDamage) {
    std::ofstream(fPath) << std::string(8192, 'x');
    auto database = Database::Open(fPath);
    ASSERT_FALSE(database.ok());
    EXPECT_EQ(database.error().kind, kit::ErrorKind::Damaged);
    EXPECT_FALSE(Database::OpenReadOnly(fFolder / "missing.db").ok());
}

}  // namespace
}  // namespace server
