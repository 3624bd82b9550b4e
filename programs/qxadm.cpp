// qxadm: the server's sample administrative programs. One program file
// serves under every name of kPrograms through cl_CallProc; each name is
// installed as a link to it.
//
//   qx-inithome [MAILNODE]        set up a fresh server home
//   qx-useradd NAME               add a user to the user directory
//   qx-usershow NAME              show a user
//   qx-userlist                   list the users
//   qx-userdel NAME               delete a user
//   qx-defmnode [RECORD [MNODE]]  show or set a default mail node
//   qx-pmn                        show the primary mail node
//   qx-startcount [--count]       show (or count) the server starts
//   qx-checkinstall               check that the installation is complete
//
// Every program runs its body under one protected block: an escape that ends
// its work is reported with the status of kChosen when the program chooses
// it, else handed to cl_SortAllErrors, whose status is the exit status.
// Standard output is checked once the body has run (main). The user
// directory is an SQLite database, <home>/sys/users.db, one row per user
// keyed by the packed O/R name.
#include <fcntl.h>
#include <getopt.h>
#include <setjmp.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "ccs.h"
#include "cl.h"
#include "er.h"
#include "ext.h"
#include "mes.h"
#include "nm.h"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/qxadm";

struct Code {
    int group;
    int reason;
};

[[noreturn]] void raise(Code code, int line) { er_TracedEscape(code.group, code.reason, kSourceFile, line); }
#define QX_RAISE(code) ::qxadm::raise((code), __LINE__)

// Codes of the catalogue that the programs raise or report themselves.
constexpr Code kNameTooLong{100, 9801};      // a typed argument over kTextMax
constexpr Code kNotMailNodeOnly{100, 8119};  // a home's mail node with more than units
constexpr Code kUnitTooLong{100, 8004};
constexpr Code kBusy{100, 4620};             // the user directory stayed locked
constexpr Code kHomeExists{100, 4761};       // qx-inithome on a home already set up
constexpr Code kRecordTooLong{100, 4762};    // a default mail node over one record
constexpr Code kNotListable{100, 4763};      // a name whose listing would not name it again
constexpr Code kFieldNotValid{100, 4764};    // a mail node's field breaks its field's rule
constexpr Code kOutputFailed{100, 4765};     // standard output could not be written
constexpr Code kFileDamaged{100, 4766};      // a file of the home, named in the detail
constexpr Code kRecordOutOfRange{100, 4767}; // a record number over kRecordMax
constexpr Code kUnknownOption{100, 4768};
constexpr Code kUnknownProgram{100, 4769};
constexpr Code kNoProgram{100, 4770};
constexpr Code kLockTimeOut{100, 8001};      // cl_GetCfgLock's wait ended
constexpr Code kConfigShort{100, 4624};      // cl_ReadPMN: sys/config too short
constexpr Code kOldConfigShort{102, 1420};   // cl_ReadDefMNode: sys/config too short
constexpr Code kSysdataShort{3, 6015};       // the start counter: sys/sysdata too short
constexpr Code kNoSuchUser{102, 1611};
constexpr Code kUserExists{102, 1612};
constexpr Code kDirectoryUnopenable{102, 1613};
constexpr Code kDirectoryDamaged{102, 1615};

bool same(Code a, Code b) { return a.group == b.group && a.reason == b.reason; }

// Usage codes: the catalogue's usage text for each argument shape.
constexpr Code kUsageDispatch{100, 4681};  // qxadm NAME [ARGUMENT...]
constexpr Code kUsageName{100, 4709};      // PROG NAME
constexpr Code kUsageAdd{100, 4722};       // PROG NAME[/attribute=value...]
constexpr Code kUsageDefMNode{100, 4728};  // PROG [RECORD [MAILNODE]]
constexpr Code kUsageNone{100, 4738};      // PROG
constexpr Code kUsageCount{100, 4751};     // PROG [--count]
constexpr Code kUsageHome{102, 1600};      // PROG [MAILNODE]

// Exit statuses the programs choose themselves (see kChosen); the others
// are cl_SortAllErrors'.
constexpr int kStatusIncomplete = 1;  // qx-checkinstall: not installed or not set up
constexpr int kStatusUsage = 2;
constexpr int kStatusLocked = 3;
constexpr int kStatusExistsOrMissing = 100;
constexpr int kStatusDamaged = 105;

// Bounds. A typed argument is at most kTextMax bytes: the conversion's own
// working storage holds no more. Its packed form holds the typed fields
// (fewer bytes than the text, but a PSAP value at most doubles in packed
// form) and 161 separators, so kPackedSize bytes hold it whole.
constexpr std::size_t kTextMax = 4095;
constexpr std::size_t kPackedSize = 2 * (kTextMax + 1) + 256;
constexpr std::size_t kDisplaySize = 4080;  // the full-name formatter's result
constexpr std::size_t kRecordSize = 1024;   // a default mail node record
constexpr int kRecordMax = 1023;            // records 0 .. 1023: sys/defmnode stays within 1 MiB
constexpr int kUnitLen = 32;                // a mail node unit in sys/config
constexpr std::size_t kParsedSize = 200;    // cl_ParseLoclAddr's result
constexpr std::size_t kDetailSize = QX_PATH_MAX + 160;  // a detail line: a file name or a short text

// The home's binary files: what qx-inithome writes.
constexpr std::size_t kConfigSize = 512;    // at least 268: the primary node ends there
constexpr std::array<int, 4> kOlderUnitAt = {8, 40, 72, 104};
constexpr std::array<int, 4> kPrimaryUnitAt = {140, 172, 204, 236};
constexpr std::size_t kSysdataSize = 48;    // count at 40, date at 44
constexpr const char kDefaultMailNode[] = "HQ,Example";
constexpr const char kConfigName[] = "~/sys/config";
constexpr const char kSysdataName[] = "~/sys/sysdata";
constexpr const char kDefMNodeName[] = "~/sys/defmnode";

// Protected block: runs body under a fresh jump environment; true when an
// escape arrived (it is still pending). Never inlined: sigsetjmp needs a
// frame that is live when the jump lands.
template <class Body>
__attribute__((noinline)) bool attempt(Body &body) {
    sigjmp_buf env;
    sigjmp_buf *volatile previous = er_SetCurrEnv(&env);
    if (sigsetjmp(env, 0) == 0) {
        body();
        er_SetCurrEnv(previous);
        return false;
    }
    er_SetCurrEnv(previous);
    return true;
}

// Runs body; an escape from it is cleared and reported as true.
template <class Body>
bool fails(Body &&body) {
    if (!attempt(body)) return false;
    er_Clear();
    return true;
}

// Frees the configuration lock if this process holds it, without losing the
// escape being handled.
void release_lock_keeping_escape() {
    er_Status status;
    er_RecordStatus(&status);
    auto release = [] {
        if (cl_TestConfigLock()) cl_FreeConfigLock();
    };
    attempt(release);
    er_RestoreStatus(&status);
}

// State of one run, for the report at its end: the detail of a damaged file,
// when the lock wait began, and what a changing program has done already.
char g_detail[kDetailSize];
timespec g_lock_wait_began{};
bool g_lock_waited = false;
const char *g_done = nullptr;  // e.g. "the user was added"
const char *g_prog = nullptr;  // the program the run is for

void note_done(const char *what) { g_done = what; }

// ---------------------------------------------------------------------------
// Arguments, character set, typed names.

struct Args {
    const char *prog;  // the base name the program was invoked under
    char **argv;       // the whole command line, argv[0] the invoked name
    int count;         // operands, after the options
    char **operands;
    bool count_option;  // qx-startcount --count
    Code usage;
    const char *arg(int i) const { return operands[i - 1]; }
};

void need(const Args &a, bool ok) {
    if (!ok) QX_RAISE(a.usage);
}

// The programs read and write UTF-8.
ccs_Descriptor *charset() {
    static ccs_Descriptor utf8;
    static bool ready = false;
    if (!ready) ready = ccs_GetCSDescriptor("UTF8", &utf8) == 1;
    return ready ? &utf8 : nullptr;
}

// Copies a typed argument into text (kTextMax + 1 bytes): the conversion
// rewrites its text in place, and argv is not ours to rewrite.
void copy_typed(const char *typed, char *text) {
    std::size_t n = std::strlen(typed);
    if (n > kTextMax) QX_RAISE(kNameTooLong);
    std::memcpy(text, typed, n + 1);
}

// The stored form of a name: unpacked and packed again, so that every typing
// of one name (a trailing '/', attributes in another order) gives one key.
void canonical(const char *packed, char *key) {
    char **array = nullptr;
    cl_UnPackToLargeArray(packed, &array);
    cl_ORNArray2Tf(array, key);
    cl_FreeArray(array);
}

// 'Given Surname/Unit,Unit[/attribute=value...]' into its key (kPackedSize
// bytes).
void user_key(const char *typed, char *key) {
    char text[kTextMax + 1];
    char packed[kPackedSize];
    copy_typed(typed, text);
    cl_ConvCltoORN(text, packed, 0, 0, charset());
    canonical(packed, key);
}

// The units typed in the first segment of a mail node, judged as a user's
// mail node is. text is the caller's copy after the conversion, which has
// rewritten each escaped character of that segment into its substitute with
// the backslash left before it, so the segment ends at the first '/' or '='.
// A segment with '=' is an attribute, not units; an empty one (the mail node
// given by later fields alone) has no units to judge. A backslash keeps the
// character after it, as the conversion's transformation does.
void check_typed_units(const char *text) {
    const std::size_t end = std::strcspn(text, "/=");
    if (text[end] == '=' || end == 0) return;
    char units[kTextMax + 1];
    std::size_t n = 0;
    for (std::size_t i = 0; i < end; ++i) {
        if (text[i] == '\\') {
            if (++i == end) break;
        }
        units[n++] = text[i];
    }
    units[n] = '\0';
    char parsed[kParsedSize];
    cl_ParseLoclAddr(units, parsed);
}

// Whether every field present in the packed text keeps its field's rule
// (length bound and characters).
bool fields_keep_rules(const char *packed) {
    nm_ParsedORN parsed;
    int status = 0;
    nm_ParseORN(packed, &parsed, &status);
    for (int field = 0; field < NM_FIELDS; ++field) {
        int len = 0;
        const char *value = nm_GetFieldMemPtr(packed, &parsed, field, &len);
        if (value && !nm_CheckFieldText(value, len, field, 0)) return false;
    }
    return true;
}

// 'Unit,Unit[/attribute=value...]' into its key, checked as a mail node:
// its typed units as a user's are, its fields by kind 1 and their rules.
void mail_node_key(const char *typed, char *key) {
    char text[kTextMax + 1];
    char packed[kPackedSize];
    copy_typed(typed, text);
    cl_ConvClMntoORN(text, packed, 0, 0, charset());
    check_typed_units(text);
    canonical(packed, key);
    cl_ValidateORNFields(key, 1);
    if (!fields_keep_rules(key)) QX_RAISE(kFieldNotValid);
}

// Whether a packed text read from a file of the home is a sound mail node:
// it parses, passes kind 1, and each field keeps its rule.
bool sound_mail_node(const char *packed) {
    bool sound = false;
    bool escaped = fails([&] {
        int reason = 0;
        cl_ValidateORNFieldsNoEscape(packed, 1, &reason);
        sound = reason == 0 && fields_keep_rules(packed);
    });
    return sound && !escaped;
}

void copy_display(const char *text, char *out) {
    std::snprintf(out, kDisplaySize, "%s", text);
}

// ---------------------------------------------------------------------------
// Files of the home. Plain POSIX calls: a failure raises group 1 with errno
// and names the file in log information slot 1, so cl_SortAllErrors shows it.

[[noreturn]] void raise_errno(const char *path, int err, int line) {
    er_SetLogInfo(1, path);
    raise(Code{1, err}, line);
}

void actual_name(const char *name, char *buf) {  // buf: QX_PATH_MAX bytes
    ext_GetActualFName(name, buf);
}

// Reports the file (a "~" name) as damaged: 100/4766 with the file named.
[[noreturn]] void raise_damaged(const char *name, int line) {
    char path[QX_PATH_MAX];
    actual_name(name, path);
    std::snprintf(g_detail, sizeof g_detail, "File: %s", path);
    raise(kFileDamaged, line);
}

// mkdir -p, each directory mode 0770.
void make_dirs(const char *path) {
    char partial[QX_PATH_MAX];
    std::snprintf(partial, sizeof partial, "%s", path);
    for (char *p = partial + 1;; ++p) {
        if (*p != '/' && *p != '\0') continue;
        char saved = *p;
        *p = '\0';
        if (mkdir(partial, 0770) != 0 && errno != EEXIST) raise_errno(partial, errno, __LINE__);
        *p = saved;
        if (saved == '\0') break;
    }
}

// Writes the file whole or not at all: into a temporary file of its own in
// the same directory (mode 0660), flushed to disk, then renamed into place.
void write_whole_file(const char *path, const unsigned char *bytes, std::size_t size) {
    char temp[QX_PATH_MAX + 8];  // the path and ".XXXXXX"
    std::snprintf(temp, sizeof temp, "%s.XXXXXX", path);
    int fd = mkostemp(temp, O_CLOEXEC);
    if (fd < 0) raise_errno(path, errno, __LINE__);
    int err = fchmod(fd, 0660) == 0 ? 0 : errno;
    for (std::size_t done = 0; err == 0 && done < size;) {
        ssize_t n = write(fd, bytes + done, size - done);
        if (n < 0 && errno != EINTR) err = errno;
        if (n > 0) done += static_cast<std::size_t>(n);
    }
    if (err == 0 && fsync(fd) != 0) err = errno;
    if (close(fd) != 0 && err == 0) err = errno;
    if (err == 0 && rename(temp, path) != 0) err = errno;
    if (err != 0) {
        unlink(temp);
        raise_errno(path, err, __LINE__);
    }
}

// Whether path exists as a file of the type (S_IFREG, S_IFDIR; 0: any).
bool exists(const char *path, mode_t type) {
    struct stat st;
    return stat(path, &st) == 0 && (type == 0 || (st.st_mode & S_IFMT) == type);
}

// Four unit fields of sys/config at offsets at, each 32 bytes of text padded
// with NUL bytes. The units are judged as a mail node's; a block whose units
// are all empty is sound only when empty_ok. Anything else is damage, and so
// is a file too short to hold the block.
void check_config_units(const std::array<int, 4> &at, bool empty_ok) {
    char path[QX_PATH_MAX];
    actual_name(kConfigName, path);
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) raise_errno(path, errno, __LINE__);
    char packed[4 + 4 * (kUnitLen + 1) + 1] = "\x1D\x1D\x1D\x1D";  // units keep their places
    bool sound = true, empty = true;
    for (std::size_t i = 0; i < at.size(); ++i) {
        char field[kUnitLen + 1] = {};
        sound = sound && pread(fd, field, kUnitLen, at[i]) == kUnitLen;
        const std::size_t len = strnlen(field, kUnitLen);
        for (std::size_t k = len; k < kUnitLen; ++k) sound = sound && field[k] == '\0';
        if (i > 0) std::strcat(packed, "\x1D");
        std::strcat(packed, field);
        empty = empty && len == 0;
    }
    close(fd);
    if (!sound || (empty ? !empty_ok : !sound_mail_node(packed))) raise_damaged(kConfigName, __LINE__);
}

// ---------------------------------------------------------------------------
// The user directory. SQLite handles live only inside these functions, which
// raise nothing: each returns an outcome that its caller turns into an
// escape once the database is closed again.

enum class Store { kOk, kNoSuchUser, kUserExists, kBusy, kUnopenable, kDamaged };

constexpr int kBusyTimeoutMs = 30000;  // beyond the configuration lock's own wait

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
    sqlite3_busy_timeout(*db, kBusyTimeoutMs);
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
Store directory_add(const char *path, const char *key, const char *display) {
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

Store directory_user(const char *path, const char *sql, const char *key, char *display) {
    return with_directory(path, [&](sqlite3 *db) {
        bool found = false;
        Store s = run_statement(db, sql, key, nullptr, [&](sqlite3_stmt *st) {
            copy_column_text(st, 0, display);
            found = true;
        });
        return s == Store::kOk && !found ? Store::kNoSuchUser : s;
    });
}

// Writes every user's display text, one a line, in a stable order.
Store directory_list(const char *path, std::FILE *out) {
    return with_directory(path, [&](sqlite3 *db) {
        return run_statement(db, "SELECT display FROM users ORDER BY display, name", nullptr, nullptr,
                             [&](sqlite3_stmt *st) {
                                 const unsigned char *text = sqlite3_column_text(st, 0);
                                 std::fprintf(out, "%s\n", text ? reinterpret_cast<const char *>(text) : "");
                             });
    });
}

void directory_path(char *buf) { actual_name("~/sys/users.db", buf); }

// ---------------------------------------------------------------------------
// The programs.

// A change to the server's data: under the configuration lock, with the
// command line logged. An escape from work leaves the lock to the top level.
// When the wait began is kept for the report of a time-out.
template <class Work>
void under_lock(const Args &a, Work &&work) {
    clock_gettime(CLOCK_MONOTONIC, &g_lock_wait_began);
    g_lock_waited = true;
    cl_GetCfgLock();
    g_lock_waited = false;
    cl_LogCommandLine(a.argv);
    work();
    cl_FreeConfigLock();
}

// A user's listing names the user again: its display text, typed back,
// gives the same key. So every line that qx-userlist shows is accepted by
// qx-usershow and qx-userdel, and two users never list alike.
void check_listable(const char *display, const char *key) {
    char again[kPackedSize];
    if (fails([&] { user_key(display, again); }) || std::strcmp(again, key) != 0) QX_RAISE(kNotListable);
}

// qx-useradd NAME: the typical request of an administrative program.
int user_add(const Args &a) {
    need(a, a.count == 1);
    char display[kDisplaySize];
    under_lock(a, [&] {
        char key[kPackedSize];
        user_key(a.arg(1), key);
        cl_ValidateORNFields(key, 3);
        copy_display(cl_FormatFullName(key, charset()), display);
        check_listable(display, key);
        char path[QX_PATH_MAX];
        directory_path(path);
        raise_if_failed(directory_add(path, key, display));
        note_done("the user was added all the same");
    });
    std::printf("Added: %s\n", display);
    return 0;
}

// The user that NAME names, found (kFindUser) or deleted (kDeleteUser); its
// display text into display (kDisplaySize bytes).
void user_lookup(const Args &a, const char *sql, char *display) {
    char key[kPackedSize];
    user_key(a.arg(1), key);
    char path[QX_PATH_MAX];
    directory_path(path);
    raise_if_failed(directory_user(path, sql, key, display));
}

// qx-usershow NAME
int user_show(const Args &a) {
    need(a, a.count == 1);
    char display[kDisplaySize];
    user_lookup(a, kFindUser, display);
    std::printf("%s\n", display);
    return 0;
}

// qx-userdel NAME
int user_delete(const Args &a) {
    need(a, a.count == 1);
    char display[kDisplaySize];
    under_lock(a, [&] {
        user_lookup(a, kDeleteUser, display);
        note_done("the user was deleted all the same");
    });
    std::printf("Deleted: %s\n", display);
    return 0;
}

// qx-userlist
int user_list(const Args &a) {
    need(a, a.count == 0);
    char path[QX_PATH_MAX];
    directory_path(path);
    raise_if_failed(directory_list(path, stdout));
    return 0;
}

// A record number: decimal digits (else a usage error), 0 to kRecordMax.
int record_number(const Args &a, const char *text) {
    long n = 0;
    need(a, *text != '\0');
    for (const char *p = text; *p; ++p) {
        need(a, *p >= '0' && *p <= '9');
        if (n <= kRecordMax) n = n * 10 + (*p - '0');
    }
    if (n > kRecordMax) QX_RAISE(kRecordOutOfRange);
    return static_cast<int>(n);
}

void show_mail_node(const char *label, const char *packed) {
    const char *text = *packed ? cl_FormatMailNode(packed, charset(), 1) : "";
    std::printf("%s: %s\n", label, *text ? text : "(none)");
}

// A default mail node record as cl_ReadDefMNode gave it into a zeroed
// buffer: NUL-terminated text with nothing after its terminator, and that
// text empty or a sound mail node.
void check_record(const char *buf) {
    const char *end = static_cast<const char *>(std::memchr(buf, '\0', kRecordSize));
    bool sound = end != nullptr;
    for (const char *p = end; sound && p < buf + kRecordSize; ++p) sound = *p == '\0';
    if (!sound || (*buf != '\0' && !sound_mail_node(buf))) raise_damaged(kDefMNodeName, __LINE__);
}

// qx-defmnode [RECORD [MAILNODE]]: shows record RECORD (1 by default) of the
// default mail node file, after setting it to MAILNODE when one is given.
// Record 1 starts out as the configuration's older mail node, which the
// library copies into it on first use: that mail node is checked first, so
// damage in sys/config does not spread into sys/defmnode.
int default_mail_node(const Args &a) {
    need(a, a.count <= 2);
    int record = a.count >= 1 ? record_number(a, a.arg(1)) : 1;
    if (a.count == 2) {
        under_lock(a, [&] {
            char key[kPackedSize];
            mail_node_key(a.arg(2), key);
            if (std::strlen(key) >= kRecordSize) QX_RAISE(kRecordTooLong);
            cl_WriteDefMNode(record, key);
            note_done("the record was written all the same");
        });
    }
    char config[QX_PATH_MAX];
    actual_name(kConfigName, config);
    if (record == 1 && exists(config, S_IFREG)) check_config_units(kOlderUnitAt, true);
    char buf[kRecordSize] = {};
    cl_ReadDefMNode(record, buf);
    check_record(buf);
    char label[48];
    std::snprintf(label, sizeof label, "Default mail node %d", record);
    show_mail_node(label, buf);
    return 0;
}

// qx-pmn
int primary_mail_node(const Args &a) {
    need(a, a.count == 0);
    char buf[4 + 4 * (kUnitLen + 1) + 1];  // 136: four separators, four units, NUL
    cl_ReadPMN(buf);
    check_config_units(kPrimaryUnitAt, false);
    show_mail_node("Primary mail node", buf);
    return 0;
}

// qx-startcount [--count]: with --count, counts a start first.
int start_count(const Args &a) {
    need(a, a.count == 0);
    if (a.count_option) {
        under_lock(a, [] {
            cl_IncSystemStartCount();
            note_done("the start was counted all the same");
        });
    }
    std::uint32_t count = cl_GetSystemStartCount();
    std::int32_t date = cl_GetSystemStartDate();
    char when[32] = "never";
    if (date != 0) {
        std::time_t t = date;
        std::tm tm;
        gmtime_r(&t, &tm);
        std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &tm);
    }
    std::printf("Start count: %u\nLast start: %s\n", static_cast<unsigned>(count), when);
    return 0;
}

// qx-checkinstall: status 0 when complete; kStatusIncomplete, with a line on
// standard output, when the home is not set up or a marker remains.
int check_install(const Args &a) {
    need(a, a.count == 0);
    struct Needed {
        const char *name;
        mode_t type;
    };
    constexpr Needed kNeeded[] = {
        {"~", S_IFDIR}, {kConfigName, S_IFREG}, {kSysdataName, S_IFREG}, {"~/sys/install", S_IFDIR}};
    for (const Needed &n : kNeeded) {
        char path[QX_PATH_MAX];
        actual_name(n.name, path);
        if (!exists(path, n.type)) {
            std::printf("The installation is not complete: %s is missing.\n", path);
            return kStatusIncomplete;
        }
    }
    if (cl_IsEveryThingInstalled()) {
        std::printf("The installation is complete.\n");
        return 0;
    }
    std::printf("The installation is not complete: ~/sys/install holds *.inst markers.\n");
    return kStatusIncomplete;
}

// The four units of a mail node, each at most kUnitLen bytes.
struct Units {
    char unit[4][kUnitLen + 1];
};

Units units_of(const Args &a) {
    char key[kPackedSize];
    mail_node_key(a.count == 1 ? a.arg(1) : kDefaultMailNode, key);
    nm_ParsedORN parsed;
    int status = 0;
    nm_ParseORN(key, &parsed, &status);
    std::uint32_t maps[6];
    nm_GetFieldMaps(&parsed, maps);
    if (maps[0] & ~0xF0u || maps[2] != 0) QX_RAISE(kNotMailNodeOnly);  // units only
    Units u{};
    for (int i = 0; i < 4; ++i) {
        int len = 0;
        const char *field = nm_GetFieldMemPtr(key, &parsed, 4 + i, &len);
        if (len > kUnitLen) QX_RAISE(kUnitTooLong);
        if (field) std::memcpy(u.unit[i], field, static_cast<std::size_t>(len));
    }
    return u;
}

// qx-inithome [MAILNODE]: makes the home's directories, then, under the
// configuration lock (whose file lives in sys/), sys/sysdata (no start
// counted yet) and sys/config with MAILNODE as both the primary and the
// older mail node. sys/config is written last and marks the home as set up:
// of programs started at once on one home, the first to hold the lock sets
// it up and the others find it set up and change nothing.
int init_home(const Args &a) {
    need(a, a.count <= 1);
    Units units = units_of(a);
    for (const char *dir : {"~/sys/install", "~/log"}) {
        char actual[QX_PATH_MAX];
        actual_name(dir, actual);
        make_dirs(actual);
    }
    under_lock(a, [&] {
        char path[QX_PATH_MAX];
        actual_name(kConfigName, path);
        if (exists(path, 0)) QX_RAISE(kHomeExists);
        std::array<unsigned char, kSysdataSize> sysdata{};
        char sysdata_path[QX_PATH_MAX];
        actual_name(kSysdataName, sysdata_path);
        write_whole_file(sysdata_path, sysdata.data(), sysdata.size());
        std::array<unsigned char, kConfigSize> config{};
        for (int i = 0; i < 4; ++i) {
            std::memcpy(&config[kOlderUnitAt[i]], units.unit[i], std::strlen(units.unit[i]));
            std::memcpy(&config[kPrimaryUnitAt[i]], units.unit[i], std::strlen(units.unit[i]));
        }
        write_whole_file(path, config.data(), config.size());
        note_done("the server home was set up all the same");
    });
    char home[QX_PATH_MAX];
    actual_name("~", home);
    std::printf("Server home: %s\n", home);
    char buf[4 + 4 * (kUnitLen + 1) + 1];
    cl_ReadPMN(buf);
    show_mail_node("Primary mail node", buf);
    return 0;
}

// ---------------------------------------------------------------------------
// Reports and dispatch.

// Escapes whose status the programs choose: a file of the home that is
// damaged or too short is reported naming the file; the lock time-out with
// the wait it actually had; a home set up already as something that exists.
// file: the home's file a library code is about (its detail names it).
struct Chosen {
    Code code;
    int status;
    const char *file;
};
constexpr Chosen kChosen[] = {
    {kHomeExists, kStatusExistsOrMissing, nullptr},
    {kFileDamaged, kStatusDamaged, nullptr},  // the raiser wrote the detail
    {kConfigShort, kStatusDamaged, kConfigName},
    {kOldConfigShort, kStatusDamaged, kConfigName},
    {kSysdataShort, kStatusDamaged, kSysdataName},
    {kLockTimeOut, kStatusLocked, nullptr},
};

// The seconds since the lock wait began, to the nearest second.
long seconds_waited() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    double s = static_cast<double>(now.tv_sec - g_lock_wait_began.tv_sec) +
               static_cast<double>(now.tv_nsec - g_lock_wait_began.tv_nsec) / 1e9;
    return std::lround(s);
}

// Shows the pending escape and gives the exit status, as cl_SortAllErrors
// does for every code that kChosen does not hold.
int report(const char *prog) {
    const Code code{er_GetGroup(), er_GetReason()};
    const Chosen *chosen = nullptr;
    for (const Chosen &c : kChosen)
        if (same(c.code, code)) chosen = &c;
    if (!chosen) return cl_SortAllErrors(prog);
    er_Clear();
    if (same(code, kLockTimeOut)) {
        const long s = seconds_waited();
        std::snprintf(g_detail, sizeof g_detail, "Waited %ld second%s for the configuration lock.", s,
                      s == 1 ? "" : "s");
        if (!g_lock_waited) g_detail[0] = '\0';  // not from our wait: no figure to give
    } else if (chosen->file) {
        char path[QX_PATH_MAX];
        if (fails([&] { actual_name(chosen->file, path); })) std::snprintf(path, sizeof path, "%s", chosen->file);
        std::snprintf(g_detail, sizeof g_detail, "File: %s", path);
    } else if (!same(code, kFileDamaged)) {
        g_detail[0] = '\0';
    }
    cl_DisplayError(code.group, code.reason, prog, g_detail);
    er_TidyUp();
    return chosen->status;
}

// The error line of the programs' own argument faults, with the usage text
// after it.
int usage_error(Code what, const char *detail, Code usage, const char *prog) {
    cl_DisplayError(what.group, what.reason, prog, detail);
    cl_DisplayUsage(usage.group, usage.reason, prog);
    return kStatusUsage;
}

struct Program {
    const char *name;
    int (*body)(const Args &);
    Code usage;
    bool count_option;
    const char *summary;
};

constexpr std::array<Program, 9> kPrograms = {{
    {"qx-inithome", init_home, kUsageHome, false,
     "Sets up a fresh server home: $QX_HOME, else $HOME/.qx. Writes sys/config with\n"
     "MAILNODE (default HQ,Example) as the primary mail node, sys/sysdata, and makes\n"
     "sys/install and log/. A home that is set up already is left alone (status 100).\n"},
    {"qx-useradd", user_add, kUsageAdd, false,
     "Adds a user to the user directory (~/sys/users.db) under the configuration\n"
     "lock and shows the stored name. Attributes of the name's fields follow the\n"
     "mail node as attribute=value pairs: 'Ann Lee/Sales,London/organization=Acme'.\n"},
    {"qx-usershow", user_show, kUsageName, false, "Shows a user of the user directory.\n"},
    {"qx-userlist", user_list, kUsageNone, false, "Lists the users of the user directory, one a line, in order.\n"},
    {"qx-userdel", user_delete, kUsageName, false,
     "Deletes a user from the user directory under the configuration lock.\n"},
    {"qx-defmnode", default_mail_node, kUsageDefMNode, false,
     "Shows record RECORD (0 to 1023, default 1) of the default mail node file; with\n"
     "MAILNODE, sets it first, under the configuration lock.\n"},
    {"qx-pmn", primary_mail_node, kUsageNone, false, "Shows the primary mail node of the server's configuration.\n"},
    {"qx-startcount", start_count, kUsageCount, true,
     "Shows how often the server has started and when it last did; --count counts a\n"
     "start first.\n"},
    {"qx-checkinstall", check_install, kUsageNone, false,
     "Exits 0 when the installation is complete, 1 when the home is not set up or\n"
     "~/sys/install holds a marker file ending in .inst.\n"},
}};

void print_usage(std::FILE *out, Code usage, const char *prog) {
    const char *format = mes_GetAnyErMsg(usage.group, usage.reason, nullptr, 0);
    // A usage text's only conversions are %s, each the program name.
    std::fprintf(out, format, prog, prog, prog);
}

void print_version(const char *prog) { std::printf("%s (cl) %s\n", prog, QX_VERSION); }

enum Option { kHelp = 1, kVersion, kCount };
constexpr option kOptions[] = {
    {"help", no_argument, nullptr, kHelp}, {"version", no_argument, nullptr, kVersion},
    {"count", no_argument, nullptr, kCount}, {nullptr, 0, nullptr, 0}};
constexpr option kOptionsNoCount[] = {
    {"help", no_argument, nullptr, kHelp}, {"version", no_argument, nullptr, kVersion}, {nullptr, 0, nullptr, 0}};

// The argument getopt_long refused, for the error line: "-x" for a short
// option, else the element itself ("--frob", "--help=x").
void name_refused_option(char **argv, char *out, std::size_t size) {
    if (optopt > ' ' && optopt < 0x7F) {  // a short option; long ones give 0 or their value
        std::snprintf(out, size, "Option: -%c", optopt);
    } else {
        std::snprintf(out, size, "Option: %.*s", static_cast<int>(size) - 16, argv[optind - 1]);
    }
}

// Options as coreutils reads them: anywhere among the operands up to "--",
// long ones abbreviated as long as they stay unambiguous; --help and
// --version answer at once with status 0; an unknown option is a usage error.
int run(const Program &p, int argc, char **argv) {
    const char *prog = ext_BaseName(argv[0]);
    g_prog = prog;
    bool count = false;
    optind = 0;  // a fresh scan: qxadm may have scanned its own options
    opterr = 0;
    for (int c; (c = getopt_long(argc, argv, "", p.count_option ? kOptions : kOptionsNoCount, nullptr)) != -1;) {
        if (c == kHelp) {
            print_usage(stdout, p.usage, prog);
            std::printf("\n%s", p.summary);
            return 0;
        }
        if (c == kVersion) {
            print_version(prog);
            return 0;
        }
        if (c == kCount) {
            count = true;
            continue;
        }
        char detail[kDetailSize];
        name_refused_option(argv, detail, sizeof detail);
        return usage_error(kUnknownOption, detail, p.usage, prog);
    }
    const Args args{prog, argv, argc - optind, argv + optind, count, p.usage};
    volatile int status = 0;
    auto body = [&] { status = p.body(args); };
    if (!attempt(body)) return status;
    release_lock_keeping_escape();
    return report(prog);
}

template <std::size_t I>
int entry(int argc, char **argv) {
    return run(kPrograms[I], argc, argv);
}

int dispatch(int argc, char **argv);

template <std::size_t... I>
constexpr std::array<cl_ProcEntry, sizeof...(I) + 2> make_table(std::index_sequence<I...>) {
    return {{{kPrograms[I].name, entry<I>}..., {"qxadm", dispatch}, {nullptr, nullptr}}};
}

constexpr auto kTable = make_table(std::make_index_sequence<kPrograms.size()>{});

void list_names(std::FILE *out) {
    for (const Program &p : kPrograms) std::fprintf(out, "  %s\n", p.name);
}

bool known_program(const char *path) {
    const char *name = ext_BaseName(path);
    for (const cl_ProcEntry &e : kTable)
        if (e.proc && std::strcmp(e.name, name) == 0) return true;
    return false;
}

// qxadm [--help|--version] NAME [ARGUMENT...] runs NAME as its link would;
// options after NAME are NAME's.
int dispatch(int argc, char **argv) {
    const char *prog = ext_BaseName(argv[0]);
    g_prog = prog;
    optind = 0;
    opterr = 0;
    for (int c; (c = getopt_long(argc, argv, "+", kOptionsNoCount, nullptr)) != -1;) {
        if (c == kHelp) {
            print_usage(stdout, kUsageDispatch, prog);
            list_names(stdout);
            return 0;
        }
        if (c == kVersion) {
            print_version(prog);
            return 0;
        }
        char detail[kDetailSize];
        name_refused_option(argv, detail, sizeof detail);
        usage_error(kUnknownOption, detail, kUsageDispatch, prog);
        list_names(stderr);
        return kStatusUsage;
    }
    if (optind >= argc) {
        usage_error(kNoProgram, nullptr, kUsageDispatch, prog);
        list_names(stderr);
        return kStatusUsage;
    }
    if (!known_program(argv[optind])) {
        char detail[kDetailSize];
        std::snprintf(detail, sizeof detail, "Program: %.*s", static_cast<int>(sizeof detail) - 16, argv[optind]);
        cl_DisplayError(kUnknownProgram.group, kUnknownProgram.reason, prog, detail);
    }
    int status = cl_CallProc(kTable.data(), argc - optind, argv + optind);
    return status < 0 ? kStatusUsage : status;  // -1: cl_CallProc listed the names
}

// Standard output is checked once the program has run: a write or flush
// that failed is an error, whatever the program had done.
int finish_output(int status) {
    int err = std::fflush(stdout) == 0 ? 0 : errno;
    if (!std::ferror(stdout)) return status;
    char detail[kDetailSize];
    std::snprintf(detail, sizeof detail, "%s%s%s.", std::strerror(err != 0 ? err : EIO), g_done ? "; " : "",
                  g_done ? g_done : "");
    cl_DisplayError(kOutputFailed.group, kOutputFailed.reason, g_prog, detail);
    return status == 0 ? kStatusExistsOrMissing : status;
}

}  // namespace
}  // namespace qxadm

int main(int argc, char **argv) {
    qxadm::g_prog = ext_BaseName(argv[0]);
    int status = cl_CallProc(qxadm::kTable.data(), argc, argv);
    if (status < 0) {  // no program of that name: cl_CallProc listed the names
        char detail[qxadm::kDetailSize];
        std::snprintf(detail, sizeof detail, "Program: %.*s", static_cast<int>(sizeof detail) - 16, qxadm::g_prog);
        cl_DisplayError(qxadm::kUnknownProgram.group, qxadm::kUnknownProgram.reason, qxadm::g_prog, detail);
        status = qxadm::kStatusUsage;
    }
    return qxadm::finish_output(status);
}
