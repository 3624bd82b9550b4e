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
// its work is handed to cl_SortAllErrors, whose status is the exit status.
// The user directory is an SQLite database, <home>/sys/users.db, one row per
// user keyed by the packed O/R name.
#include <fcntl.h>
#include <setjmp.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
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

// Codes of the catalogue that the programs raise themselves.
constexpr Code kNameTooLong{100, 9801};      // a typed argument over kTextMax
constexpr Code kNotMailNodeOnly{100, 8119};  // a home's mail node with more than units
constexpr Code kUnitTooLong{100, 8004};
constexpr Code kBusy{100, 4620};             // the user directory stayed locked
constexpr Code kHomeExists{100, 4761};       // qx-inithome on a home already set up
constexpr Code kRecordTooLong{100, 4762};    // a default mail node over one record
constexpr Code kNoSuchUser{102, 1611};
constexpr Code kUserExists{102, 1612};
constexpr Code kDirectoryUnopenable{102, 1613};
constexpr Code kDirectoryDamaged{102, 1615};

// Usage codes: the catalogue's usage text for each argument shape.
constexpr Code kUsageDispatch{100, 4681};  // qxadm NAME [ARGUMENT...]
constexpr Code kUsageName{100, 4709};      // PROG NAME
constexpr Code kUsageAdd{100, 4722};       // PROG NAME[/attribute=value...]
constexpr Code kUsageDefMNode{100, 4728};  // PROG [RECORD [MAILNODE]]
constexpr Code kUsageNone{100, 4738};      // PROG
constexpr Code kUsageCount{100, 4751};     // PROG [--count]
constexpr Code kUsageHome{102, 1600};      // PROG [MAILNODE]

// Bounds. A typed argument is at most kTextMax bytes: the conversion's own
// working storage holds no more. Its packed form holds the typed fields
// (fewer bytes than the text, but a PSAP value at most doubles in packed
// form) and 161 separators, so kPackedSize bytes hold it whole.
constexpr std::size_t kTextMax = 4095;
constexpr std::size_t kPackedSize = 2 * (kTextMax + 1) + 256;
constexpr std::size_t kDisplaySize = 4080;  // the full-name formatter's result
constexpr std::size_t kRecordSize = 1024;   // a default mail node record
constexpr int kRecordMax = 2097151;         // records 0 .. 2^21 - 1
constexpr int kUnitLen = 32;                // a mail node unit in sys/config

// The home's binary files: what qx-inithome writes.
constexpr std::size_t kConfigSize = 512;    // at least 268: the primary node ends there
constexpr std::array<int, 4> kOlderUnitAt = {8, 40, 72, 104};
constexpr std::array<int, 4> kPrimaryUnitAt = {140, 172, 204, 236};
constexpr std::size_t kSysdataSize = 48;    // count at 40, date at 44
constexpr const char kDefaultMailNode[] = "HQ,Example";

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

// ---------------------------------------------------------------------------
// Arguments, character set, typed names.

struct Args {
    const char *prog;  // the base name the program was invoked under
    int count;         // arguments after the name
    char **argv;       // argv[0] is the invoked name
    Code usage;
    const char *arg(int i) const { return argv[i]; }
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

// A typed name converted by convert (cl_ConvCltoORN for a user's name,
// cl_ConvClMntoORN for a mail node) into its key (kPackedSize bytes).
using Conversion = char *(*)(char *, char *, int, int, ccs_Descriptor *);
void typed_key(const char *typed, Conversion convert, char *key) {
    char text[kTextMax + 1];
    char packed[kPackedSize];
    copy_typed(typed, text);
    convert(text, packed, 0, 0, charset());
    canonical(packed, key);
}

// 'Given Surname/Unit,Unit[/attribute=value...]'
void user_key(const char *typed, char *key) { typed_key(typed, cl_ConvCltoORN, key); }

// 'Unit,Unit[/attribute=value...]', checked as a mail node.
void mail_node_key(const char *typed, char *key) {
    typed_key(typed, cl_ConvClMntoORN, key);
    cl_ValidateORNFields(key, 1);
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

// Writes the file whole or not at all: into <path>.new, then renamed.
void write_whole_file(const char *path, const unsigned char *bytes, std::size_t size) {
    char temp[QX_PATH_MAX + 8];
    std::snprintf(temp, sizeof temp, "%s.new", path);
    int fd = open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
    if (fd < 0) raise_errno(temp, errno, __LINE__);
    ssize_t written = write(fd, bytes, size);
    int err = written == static_cast<ssize_t>(size) ? 0 : (written < 0 ? errno : ENOSPC);
    if (err == 0 && fsync(fd) != 0) err = errno;
    if (close(fd) != 0 && err == 0) err = errno;
    if (err == 0 && rename(temp, path) != 0) err = errno;
    if (err != 0) {
        unlink(temp);
        raise_errno(path, err, __LINE__);
    }
}

bool file_exists(const char *path) {
    struct stat st;
    return stat(path, &st) == 0;
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
template <class Work>
void under_lock(const Args &a, Work &&work) {
    cl_GetCfgLock();
    cl_LogCommandLine(a.argv);
    work();
    cl_FreeConfigLock();
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
        char path[QX_PATH_MAX];
        directory_path(path);
        raise_if_failed(directory_add(path, key, display));
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
    under_lock(a, [&] { user_lookup(a, kDeleteUser, display); });
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

// A record number: decimal digits, 0 to kRecordMax.
int record_number(const Args &a, const char *text) {
    long n = 0;
    need(a, *text != '\0');
    for (const char *p = text; *p; ++p) {
        need(a, *p >= '0' && *p <= '9');
        n = n * 10 + (*p - '0');
        need(a, n <= kRecordMax);
    }
    return static_cast<int>(n);
}

void show_mail_node(const char *label, const char *packed) {
    const char *text = *packed ? cl_FormatMailNode(packed, charset(), 1) : "";
    std::printf("%s: %s\n", label, *text ? text : "(none)");
}

// qx-defmnode [RECORD [MAILNODE]]: shows record RECORD (1 by default) of the
// default mail node file, after setting it to MAILNODE when one is given.
int default_mail_node(const Args &a) {
    need(a, a.count <= 2);
    int record = a.count >= 1 ? record_number(a, a.arg(1)) : 1;
    if (a.count == 2) {
        under_lock(a, [&] {
            char key[kPackedSize];
            mail_node_key(a.arg(2), key);
            if (std::strlen(key) >= kRecordSize) QX_RAISE(kRecordTooLong);
            cl_WriteDefMNode(record, key);
        });
    }
    char buf[kRecordSize];
    cl_ReadDefMNode(record, buf);
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
    show_mail_node("Primary mail node", buf);
    return 0;
}

// qx-startcount [--count]: with --count, counts a start first.
int start_count(const Args &a) {
    need(a, a.count == 0 || (a.count == 1 && std::strcmp(a.arg(1), "--count") == 0));
    if (a.count == 1) under_lock(a, [] { cl_IncSystemStartCount(); });
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

// qx-checkinstall: status 0 when complete, 1 when a marker remains.
int check_install(const Args &a) {
    need(a, a.count == 0);
    if (cl_IsEveryThingInstalled()) {
        std::printf("The installation is complete.\n");
        return 0;
    }
    std::printf("The installation is not complete: ~/sys/install holds *.inst markers.\n");
    return 1;
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

// qx-inithome [MAILNODE]: makes the home's directories, sys/sysdata (no
// start counted yet) and sys/config with MAILNODE as both the primary and
// the older mail node. A home that has sys/config already is left alone.
int init_home(const Args &a) {
    need(a, a.count <= 1);
    Units units = units_of(a);
    char path[QX_PATH_MAX];
    actual_name("~/sys/config", path);
    if (file_exists(path)) QX_RAISE(kHomeExists);
    for (const char *dir : {"~/sys/install", "~/log"}) {
        char actual[QX_PATH_MAX];
        actual_name(dir, actual);
        make_dirs(actual);
    }
    std::array<unsigned char, kSysdataSize> sysdata{};
    char sysdata_path[QX_PATH_MAX];
    actual_name("~/sys/sysdata", sysdata_path);
    write_whole_file(sysdata_path, sysdata.data(), sysdata.size());
    std::array<unsigned char, kConfigSize> config{};
    for (int i = 0; i < 4; ++i) {
        std::memcpy(&config[kOlderUnitAt[i]], units.unit[i], std::strlen(units.unit[i]));
        std::memcpy(&config[kPrimaryUnitAt[i]], units.unit[i], std::strlen(units.unit[i]));
    }
    write_whole_file(path, config.data(), config.size());  // last: it marks the home as set up
    cl_LogCommandLine(a.argv);
    char home[QX_PATH_MAX];
    actual_name("~", home);
    std::printf("Server home: %s\n", home);
    char buf[4 + 4 * (kUnitLen + 1) + 1];
    cl_ReadPMN(buf);
    show_mail_node("Primary mail node", buf);
    return 0;
}

// ---------------------------------------------------------------------------
// Dispatch.

struct Program {
    const char *name;
    int (*body)(const Args &);
    Code usage;
    const char *summary;
};

constexpr std::array<Program, 9> kPrograms = {{
    {"qx-inithome", init_home, kUsageHome,
     "Sets up a fresh server home: $QX_HOME, else $HOME/.qx. Writes sys/config with\n"
     "MAILNODE (default HQ,Example) as the primary mail node, sys/sysdata, and makes\n"
     "sys/install and log/. A home that is set up already is left alone.\n"},
    {"qx-useradd", user_add, kUsageAdd,
     "Adds a user to the user directory (~/sys/users.db) under the configuration\n"
     "lock and shows the stored name. Attributes of the name's fields follow the\n"
     "mail node as attribute=value pairs: 'Ann Lee/Sales,London/organization=Acme'.\n"},
    {"qx-usershow", user_show, kUsageName, "Shows a user of the user directory.\n"},
    {"qx-userlist", user_list, kUsageNone, "Lists the users of the user directory, one a line, in order.\n"},
    {"qx-userdel", user_delete, kUsageName, "Deletes a user from the user directory under the configuration lock.\n"},
    {"qx-defmnode", default_mail_node, kUsageDefMNode,
     "Shows record RECORD (default 1) of the default mail node file; with MAILNODE,\n"
     "sets it first, under the configuration lock.\n"},
    {"qx-pmn", primary_mail_node, kUsageNone, "Shows the primary mail node of the server's configuration.\n"},
    {"qx-startcount", start_count, kUsageCount,
     "Shows how often the server has started and when it last did; --count counts a\n"
     "start first.\n"},
    {"qx-checkinstall", check_install, kUsageNone,
     "Exits 0 when the installation is complete, 1 while ~/sys/install holds a\n"
     "marker file ending in .inst.\n"},
}};

void print_usage(std::FILE *out, Code usage, const char *prog) {
    const char *format = mes_GetAnyErMsg(usage.group, usage.reason, nullptr, 0);
    // A usage text's only conversions are %s, each the program name.
    std::fprintf(out, format, prog, prog, prog);
}

int run(const Program &p, int argc, char **argv) {
    const char *prog = ext_BaseName(argv[0]);
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        print_usage(stdout, p.usage, prog);
        std::printf("\n%s", p.summary);
        return 0;
    }
    const Args args{prog, argc - 1, argv, p.usage};
    volatile int status = 0;
    auto body = [&] { status = p.body(args); };
    if (!attempt(body)) return status;
    release_lock_keeping_escape();
    return cl_SortAllErrors(prog);
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

// qxadm NAME [ARGUMENT...] runs NAME as its link would.
int dispatch(int argc, char **argv) {
    if (argc >= 2 && std::strcmp(argv[1], "--help") != 0) return cl_CallProc(kTable.data(), argc - 1, argv + 1);
    std::FILE *out = argc >= 2 ? stdout : stderr;
    print_usage(out, kUsageDispatch, ext_BaseName(argv[0]));
    for (const Program &p : kPrograms) std::fprintf(out, "  %s\n", p.name);
    return argc >= 2 ? 0 : 2;
}

}  // namespace
}  // namespace qxadm

int main(int argc, char **argv) {
    int status = cl_CallProc(qxadm::kTable.data(), argc, argv);
    return status < 0 ? 2 : status;  // -1: no program of that name
}
