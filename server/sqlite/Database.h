// A SQLite file as the server keeps its records: write-ahead log, every commit on the disk when it
// returns. A thin cover that turns return codes into kit::Error and owns what must be closed.
//
// One thread at a time; a connection is not shared between threads. A file may be open several
// times.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "kit/message/Types.h"
#include "kit/support/Result.h"

struct sqlite3;
struct sqlite3_stmt;

namespace server {

class Database;

// One prepared statement. Parameters count from 1, columns from 0. It must end before its database.
class Statement {
public:
    Statement& Bind(int index, int64_t value);
    Statement& Bind(int index,
                    std::string_view text);  // any bytes; must live until the statement ran
    Statement& Bind(int index, std::span<const uint8_t> blob);  // the same
    // Makes the statement ready to be bound and stepped from the beginning, whatever it did before.
    Statement& Reset();

    // Steps to the next row; false at the end and on an error (ask Result).
    bool Next();
    // Runs a statement that gives no rows, and makes it ready to be bound again.
    kit::Status Run();
    kit::Status Result() const;

    int64_t Integer(int column) const;
    std::string Text(int column) const;
    std::span<const uint8_t> Blob(int column) const;  // valid until the next step
    bool IsNull(int column) const;

private:
    friend class Database;
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const;
    };
    Statement(sqlite3* database, const char* sql);

    sqlite3* fDatabase;
    std::unique_ptr<sqlite3_stmt, Finalize> fStatement;
    int fCode = 0;
};

class Database {
public:
    // Opens or makes the file (mode 0600). Damaged: this is no database, or not one of ours.
    static kit::Result<Database> Open(const std::string& path);
    // For readers beside a writer; the file must be there.
    static kit::Result<Database> OpenReadOnly(const std::string& path);
    // Opens or makes a file that nobody relies on before it is finished and synced by its owner: no
    // journal, nothing is synced. A crash leaves a damaged one.
    static kit::Result<Database> OpenScratch(const std::string& path);

    kit::Status Execute(const char* sql);  // one or several statements without results
    Statement Prepare(const char* sql);    // a mistake in it shows in the first step
    int64_t LastInsertId() const;
    // Reads every page; Damaged where something does not fit.
    kit::Status Check();
    // Takes back what was not committed when it ends without Commit.
    class Transaction {
    public:
        explicit Transaction(Database& database);
        ~Transaction();
        kit::Status Commit();

    private:
        Database& fDatabase;
        kit::Status fBegun;
        bool fDone = false;
    };

private:
    struct Close {
        void operator()(sqlite3* database) const;
    };
    explicit Database(sqlite3* database) : fDatabase(database) {}
    static kit::Result<Database> OpenWith(const std::string& path, int flags);

    std::unique_ptr<sqlite3, Close> fDatabase;
};

}  // namespace server
