// The user directory: an SQLite database, <home>/sys/users.db, one row per
// user keyed by the packed O/R name. SQLite handles live only inside the
// functions of the anonymous namespace, which raise nothing: each returns
// an outcome that the exported functions turn into an escape once the
// database is closed again.
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "qxadm.hpp"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/directory";

enum class Store { kOk, kNoSuchUser, kUserExists, kBusy, kUnopenable, kDamaged };

constexpr int kBusyTimeoutMs = 30000;  // beyond the configuration lock's own wait
// Test seam: CL_DIRECTORY_WAIT may shorten the wait to 1 to 29 seconds; any
// other value is ignored, so it can never lengthen the wait.
constexpr const char kWaitSeam[] = "CL_DIRECTORY_WAIT";

int busy_timeout_ms() {
    const char *seam = std::getenv(kWaitSeam);
    if (!seam) return kBusyTimeoutMs;
    char *end = nullptr;
    const long seconds = std::strtol(seam, &end, 10);
    return *end == '\0' && seconds > 0 && seconds * 1000 < kBusyTimeoutMs ? static_cast<int>(seconds) * 1000
                                                                           : kBusyTimeoutMs;
}

constexpr const char kSchema[] =
    "CREATE TABLE IF NOT EXISTS users ("
    " name BLOB PRIMARY KEY NOT NULL,"  // the packed O/R name
    " display TEXT NOT NULL,"           // its full display text
    " added INTEGER NOT NULL)";         // seconds since the epoch

Store outcome_of(int rc) {
    switch (rc & 0xff) {
    case SQLITE_OK:
    case SQLITE_DONE:
    case SQLITE_ROW: return Store::kOk;
    case SQLITE_BUSY:
    case SQLITE_LOCKED: return Store::kBusy;
    case SQLITE_CONSTRAINT: return Store::kUserExists;
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_NOMEM: return Store::kUnopenable;
    default: return Store::kDamaged;  // NOTADB, CORRUPT, a foreign schema
    }
}

void raise_if_failed(Store s) {
    switch (s) {
    case Store::kOk: return;
    case Store::kNoSuchUser: QX_RAISE(kNoSuchUser);
    case Store::kUserExists: QX_RAISE(kUserExists);
    case Store::kBusy: QX_RAISE(kBusy);
    case Store::kUnopenable: QX_RAISE(kDirectoryUnopenable);
    case Store::kDamaged: QX_RAISE(kDirectoryDamaged);
    }
}

// One open database; closed by the caller with sqlite3_close in every case.
// The file is made here first so that it gets the mode of the home's other
// files (SQLite gives its journal the database's mode).
Store open_directory(const char *path, sqlite3 **db) {
    int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0660);
    if (fd >= 0) close(fd);
    int rc = sqlite3_open_v2(path, db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) return outcome_of(rc);
    sqlite3_busy_timeout(*db, busy_timeout_ms());
    return outcome_of(sqlite3_exec(*db, kSchema, nullptr, nullptr, nullptr));
}

// Runs sql with the key bound to ?1 (and display to ?2 when given); calls
// row(statement) for each result row.
template <class Row>
Store run_statement(sqlite3 *db, const char *sql, const char *key, const char *display, Row &&row) {
    sqlite3_stmt *st = nullptr;
    int rc = sqlite3_prepare_v2(db, sql, -1, &st, nullptr);
    if (rc != SQLITE_OK) return outcome_of(rc);
    if (key) sqlite3_bind_blob(st, 1, key, static_cast<int>(std::strlen(key)), SQLITE_STATIC);
    if (display) {
        sqlite3_bind_text(st, 2, display, -1, SQLITE_STATIC);
        sqlite3_bind_int64(st, 3, static_cast<sqlite3_int64>(std::time(nullptr)));
    }
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) row(st);
    sqlite3_finalize(st);
    return outcome_of(rc);
}

void copy_column_text(sqlite3_stmt *st, int column, char *out) {
    const unsigned char *text = sqlite3_column_text(st, column);
    std::snprintf(out, kDisplaySize, "%s", text ? reinterpret_cast<const char *>(text) : "");
}

// Opens the directory, runs work(db), closes it; the first failure decides.
template <class Work>
Store with_directory(const char *path, Work &&work) {
    sqlite3 *db = nullptr;
    Store s = open_directory(path, &db);
    if (s == Store::kOk) s = work(db);
    sqlite3_close(db);
    return s;
}

// Adds a user in one transaction: a refused add leaves the directory as it
// was.
Store add(const char *path, const char *key, const char *display) {
    return with_directory(path, [&](sqlite3 *db) {
        Store s = outcome_of(sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr));
        if (s != Store::kOk) return s;
        s = run_statement(db, "INSERT INTO users (name, display, added) VALUES (?1, ?2, ?3)", key, display,
                          [](sqlite3_stmt *) {});
        if (s == Store::kOk) s = outcome_of(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr));
        if (s != Store::kOk) sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
        return s;
    });
}

// Runs sql, which yields the display text of the user keyed ?1 (one row at
// most), and copies that text into display (kDisplaySize bytes). No row is
// kNoSuchUser.
constexpr const char kFindUser[] = "SELECT display FROM users WHERE name = ?1";
constexpr const char kDeleteUser[] = "DELETE FROM users WHERE name = ?1 RETURNING display";

Store user(const char *path, const char *sql, const char *key, char *display) {
    return with_directory(path, [&](sqlite3 *db) {
        bool found = false;
        Store s = run_statement(db, sql, key, nullptr, [&](sqlite3_stmt *st) {
            copy_column_text(st, 0, display);
            found = true;
        });
        return s == Store::kOk && !found ? Store::kNoSuchUser : s;
    });
}

// Calls fn for every user in a stable order, that of the display texts
// (and of the keys for the same text), until fn returns false.
Store each(const char *path, const UserVisitor &visit) {
    return with_directory(path, [&](sqlite3 *db) {
        bool going = true;
        return run_statement(db, "SELECT name, display FROM users ORDER BY display, name", nullptr, nullptr,
                             [&](sqlite3_stmt *st) {
                                 if (!going) return;
                                 const void *key = sqlite3_column_blob(st, 0);
                                 const unsigned char *text = sqlite3_column_text(st, 1);
                                 const UserRow row{static_cast<const char *>(key ? key : ""),
                                                   static_cast<std::size_t>(sqlite3_column_bytes(st, 0)),
                                                   text ? reinterpret_cast<const char *>(text) : ""};
                                 going = visit.fn(visit.context, row);
                             });
    });
}

// Bulk import: one open database, one write transaction at a time, one
// prepared insert. The session is the process's only one; its handles are
// plain pointers, so an escape elsewhere cannot run anything here.
struct Bulk {
    sqlite3 *db;
    sqlite3_stmt *insert;  // INSERT OR IGNORE: a key stored already changes nothing
    sqlite3_stmt *rowid;   // the row of a key, to tell an earlier line from an earlier store
    sqlite3_int64 last_before;  // the last row stored before the import began
};
Bulk g_bulk{};

constexpr const char kInsert[] = "INSERT OR IGNORE INTO users (name, display, added) VALUES (?1, ?2, ?3)";
constexpr const char kRowOf[] = "SELECT rowid FROM users WHERE name = ?1";

// Page cache of a bulk session: a fixed bound, so memory does not grow with
// the input (negative: KiB).
constexpr const char kBulkCache[] = "PRAGMA cache_size = -16384";

Store exec(const char *sql) { return outcome_of(sqlite3_exec(g_bulk.db, sql, nullptr, nullptr, nullptr)); }

Store bulk_open(const char *path) {
    Store s = open_directory(path, &g_bulk.db);
    if (s == Store::kOk) s = exec(kBulkCache);
    if (s == Store::kOk) s = exec("BEGIN IMMEDIATE");
    if (s == Store::kOk)
        s = run_statement(g_bulk.db, "SELECT coalesce(max(rowid), 0) FROM users", nullptr, nullptr,
                          [](sqlite3_stmt *st) { g_bulk.last_before = sqlite3_column_int64(st, 0); });
    if (s == Store::kOk) s = outcome_of(sqlite3_prepare_v2(g_bulk.db, kInsert, -1, &g_bulk.insert, nullptr));
    if (s == Store::kOk) s = outcome_of(sqlite3_prepare_v2(g_bulk.db, kRowOf, -1, &g_bulk.rowid, nullptr));
    return s;
}

// Ends the session: commits when keep and all went well, else rolls back.
Store bulk_close(bool keep) {
    sqlite3_finalize(g_bulk.insert);
    sqlite3_finalize(g_bulk.rowid);
    Store s = Store::kOk;
    if (keep) s = exec("COMMIT");
    if (!keep || s != Store::kOk) sqlite3_exec(g_bulk.db, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(g_bulk.db);
    g_bulk = Bulk{};
    return s;
}

// Raises s, if a failure, once the session is rolled back and closed.
void bulk_check(Store s) {
    if (s == Store::kOk) return;
    bulk_close(false);
    raise_if_failed(s);
}

Added bulk_insert(const char *key, const char *display) {
    sqlite3_stmt *st = g_bulk.insert;
    const int len = static_cast<int>(std::strlen(key));
    sqlite3_bind_blob(st, 1, key, len, SQLITE_STATIC);
    sqlite3_bind_text(st, 2, display, -1, SQLITE_STATIC);
    sqlite3_bind_int64(st, 3, static_cast<sqlite3_int64>(std::time(nullptr)));
    Store s = outcome_of(sqlite3_step(st));
    sqlite3_reset(st);
    bulk_check(s);
    if (sqlite3_changes(g_bulk.db) == 1) return Added::kNew;
    // Ignored: the key is stored. Rows after the last one of before the
    // import came from earlier lines.
    st = g_bulk.rowid;
    sqlite3_bind_blob(st, 1, key, len, SQLITE_STATIC);
    sqlite3_int64 row = 0;
    s = outcome_of(sqlite3_step(st));
    if (s == Store::kOk) row = sqlite3_column_int64(st, 0);
    sqlite3_reset(st);
    bulk_check(s);
    return row > g_bulk.last_before ? Added::kRepeated : Added::kStored;
}

// Runs work on the directory's path and raises what it returns.
template <class Work>
void on_directory(Work &&work) {
    char path[QX_PATH_MAX];
    actual_name("~/sys/users.db", path);
    raise_if_failed(work(path));
}

}  // namespace

void directory_add(const char *key, const char *display) {
    on_directory([&](const char *path) { return add(path, key, display); });
}

void directory_find(const char *key, char *display) {
    on_directory([&](const char *path) { return user(path, kFindUser, key, display); });
}

void directory_delete(const char *key, char *display) {
    on_directory([&](const char *path) { return user(path, kDeleteUser, key, display); });
}

void directory_each(const UserVisitor &visit) {
    on_directory([&](const char *path) { return each(path, visit); });
}

void bulk_begin() {
    on_directory([](const char *path) {
        Store s = bulk_open(path);
        if (s != Store::kOk) bulk_close(false);
        return s;
    });
}

Added bulk_add(const char *key, const char *display) { return bulk_insert(key, display); }

void bulk_commit() {
    bulk_check(exec("COMMIT"));
    bulk_check(exec("BEGIN IMMEDIATE"));
}

void bulk_end(bool keep) { raise_if_failed(bulk_close(keep)); }

void bulk_abandon() {
    if (g_bulk.db) bulk_close(false);
}

}  // namespace qxadm
