#include "server/sqlite/Database.h"

#include <sqlite3.h>
#include <sys/stat.h>

namespace server {

namespace {

kit::ErrorKind KindOf(int code) {
    switch (code & 0xff) {
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
        case SQLITE_ERROR:  // our own statements are right: the file has not the tables
            return kit::ErrorKind::Damaged;
        case SQLITE_FULL:
            return kit::ErrorKind::Full;
        case SQLITE_READONLY:
            return kit::ErrorKind::ReadOnly;
        case SQLITE_PERM:
        case SQLITE_AUTH:
        case SQLITE_CANTOPEN:
            return kit::ErrorKind::Denied;
        case SQLITE_TOOBIG:
            return kit::ErrorKind::TooLarge;
        default:
            return kit::ErrorKind::Io;
    }
}

kit::Error ErrorOf(sqlite3* database, int code) {
    const char* path = database ? sqlite3_db_filename(database, "main") : nullptr;
    return kit::Error::Make(KindOf(code), path ? path : "",
                            database ? sqlite3_errmsg(database) : sqlite3_errstr(code));
}

}  // namespace

// --- Statement ----------------------------------------------------------------------------------

void Statement::Finalize::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Statement::Statement(sqlite3* database, const char* sql) : fDatabase(database) {
    sqlite3_stmt* statement = nullptr;
    fCode = sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
    fStatement.reset(statement);
}

Statement& Statement::Bind(int index, int64_t value) {
    if (fCode == SQLITE_OK) fCode = sqlite3_bind_int64(fStatement.get(), index, value);
    return *this;
}

Statement& Statement::Bind(int index, std::string_view text) {
    // An empty view may have no data, which SQLite would take as NULL.
    if (fCode == SQLITE_OK) {
        fCode = sqlite3_bind_text64(fStatement.get(), index, text.data() ? text.data() : "",
                                    text.size(), SQLITE_STATIC, SQLITE_UTF8);
    }
    return *this;
}

Statement& Statement::Bind(int index, std::span<const uint8_t> blob) {
    if (fCode == SQLITE_OK) {
        fCode = sqlite3_bind_blob64(fStatement.get(), index,
                                    blob.data() ? static_cast<const void*>(blob.data()) : "",
                                    blob.size(), SQLITE_STATIC);
    }
    return *this;
}

Statement& Statement::Reset() {
    if (fStatement) {
        sqlite3_reset(fStatement.get());
        fCode = SQLITE_OK;
    }
    return *this;
}

bool Statement::Next() {
    if (fCode != SQLITE_OK && fCode != SQLITE_ROW) return false;
    fCode = sqlite3_step(fStatement.get());
    return fCode == SQLITE_ROW;
}

kit::Status Statement::Run() {
    while (Next()) {
    }
    auto result = Result();
    if (fStatement) {
        sqlite3_reset(fStatement.get());
        if (result.ok()) fCode = SQLITE_OK;
    }
    return result;
}

kit::Status Statement::Result() const {
    if (fCode == SQLITE_OK || fCode == SQLITE_ROW || fCode == SQLITE_DONE) return {};
    return ErrorOf(fDatabase, fCode);
}

int64_t Statement::Integer(int column) const {
    return sqlite3_column_int64(fStatement.get(), column);
}

std::string Statement::Text(int column) const {
    const auto bytes = Blob(column);
    return {bytes.begin(), bytes.end()};
}

std::span<const uint8_t> Statement::Blob(int column) const {
    const void* data = sqlite3_column_blob(fStatement.get(), column);
    const int size = sqlite3_column_bytes(fStatement.get(), column);
    if (!data || size <= 0) return {};
    return {static_cast<const uint8_t*>(data), static_cast<size_t>(size)};
}

bool Statement::IsNull(int column) const {
    return sqlite3_column_type(fStatement.get(), column) == SQLITE_NULL;
}

// --- Database -----------------------------------------------------------------------------------

void Database::Close::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

kit::Result<Database> Database::OpenWith(const std::string& path, int flags) {
    sqlite3* raw = nullptr;
    const int code = sqlite3_open_v2(path.c_str(), &raw, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    Database database(raw);
    if (code != SQLITE_OK) return ErrorOf(raw, code);
    sqlite3_extended_result_codes(raw, 1);
    sqlite3_busy_timeout(raw, 10'000);
    return database;
}

kit::Result<Database> Database::Open(const std::string& path) {
    auto database = OpenWith(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!database) return database;
    ::chmod(path.c_str(), 0600);
    if (auto set = database->Execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                                     "PRAGMA foreign_keys=ON;");
        !set) {
        return set.error();
    }
    return database;
}

kit::Result<Database> Database::OpenReadOnly(const std::string& path) {
    return OpenWith(path, SQLITE_OPEN_READONLY);
}

kit::Result<Database> Database::OpenScratch(const std::string& path) {
    auto database = OpenWith(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (!database) return database;
    ::chmod(path.c_str(), 0600);
    if (auto set = database->Execute("PRAGMA page_size=8192; PRAGMA journal_mode=OFF;"
                                     "PRAGMA synchronous=OFF; PRAGMA locking_mode=EXCLUSIVE;");
        !set) {
        return set.error();
    }
    return database;
}

kit::Status Database::Execute(const char* sql) {
    const int code = sqlite3_exec(fDatabase.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) return ErrorOf(fDatabase.get(), code);
    return {};
}

Statement Database::Prepare(const char* sql) {
    return {fDatabase.get(), sql};
}

int64_t Database::LastInsertId() const {
    return sqlite3_last_insert_rowid(fDatabase.get());
}

kit::Status Database::Check() {
    Statement check = Prepare("PRAGMA quick_check(1)");
    const bool row = check.Next();
    if (!row) {
        auto result = check.Result();
        if (!result) return result;
    }
    if (row && check.Text(0) == "ok") return {};
    return kit::Error::Make(kit::ErrorKind::Damaged, sqlite3_db_filename(fDatabase.get(), "main"),
                            row ? check.Text(0) : "no answer");
}

Database::Transaction::Transaction(Database& database)
    : fDatabase(database), fBegun(database.Execute("BEGIN IMMEDIATE")) {}

Database::Transaction::~Transaction() {
    if (!fDone && fBegun.ok()) (void)fDatabase.Execute("ROLLBACK");
}

kit::Status Database::Transaction::Commit() {
    if (!fBegun) return fBegun;
    auto result = fDatabase.Execute("COMMIT");
    fDone = result.ok();
    return result;
}

}  // namespace server
