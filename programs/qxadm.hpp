// What the sample administrative programs share: the codes and statuses
// they give, their bounds, protected blocks, the state of one run, and the
// pieces each family of programs is built from.
//
//   names.cpp      typed names and mail nodes, checked as the library checks them
//   home_files.cpp the home's files: written whole, checked for damage
//   directory.cpp  the user directory (SQLite)
//   users.cpp      qx-useradd, qx-usershow, qx-userdel, qx-userlist
//   bulk.cpp       qx-import, qx-export, and the listing qx-userlist shares
//   mailnodes.cpp  qx-defmnode, qx-pmn
//   server.cpp     qx-inithome, qx-startcount, qx-checkinstall
//   qxadm.cpp      options, dispatch by name, reports and exit statuses
//
// An escape skips frames without running destructors: everything here that
// lives across a call that can escape is trivially destructible.
#ifndef QXADM_HPP
#define QXADM_HPP

#include <sys/types.h>

#include <array>
#include <cstdio>
#include <ctime>

#include "ccs.h"
#include "cl.h"
#include "cl_escape.h"
#include "er.h"
#include "ext.h"
#include "orn.h"

namespace qxadm {

// Protected blocks and the programs' own escapes: the library's installed
// cl_escape.h.
using cl::attempt;
using cl::Code;
using cl::fails;
using cl::guarded_release;
using cl::raise;

// Each source defines `constexpr const char kSourceFile[] = "programs/x";`.
#define QX_RAISE(code) ::cl::raise((code), kSourceFile, __LINE__)

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
constexpr Code kRecordNotWritten{100, 4771}; // a default mail node record that does not read back
constexpr Code kStoredAlready{100, 4774};    // qx-import: a line's user is stored (a warning)
constexpr Code kGivenBefore{100, 4775};      // qx-import: an earlier line names the same user (a warning)
constexpr Code kInputUnreadable{100, 4776};  // qx-import: the input file, named in the detail
constexpr Code kBadOptionValue{100, 4777};   // e.g. --format=xml, --batch=0
constexpr Code kInterrupted{100, 4778};      // qx-import ended by SIGINT or SIGTERM
constexpr Code kHomeNotSetUp{100, 4779};     // the hint after a failure in a home not set up
constexpr Code kLockTimeOut{100, 8001};      // cl_GetCfgLock's wait ended
constexpr Code kConfigShort{100, 4624};      // cl_ReadPMN: sys/config too short
constexpr Code kOldConfigShort{102, 1420};   // cl_ReadDefMNode: sys/config too short
constexpr Code kSysdataShort{3, 6015};       // the start counter: sys/sysdata too short
constexpr Code kNoSuchUser{102, 1611};
constexpr Code kUserExists{102, 1612};
constexpr Code kDirectoryUnopenable{102, 1613};
constexpr Code kDirectoryDamaged{102, 1615};

inline bool same(Code a, Code b) { return a.group == b.group && a.reason == b.reason; }

// Usage codes: the catalogue's usage text for each argument shape.
constexpr Code kUsageDispatch{100, 4681};  // qxadm NAME [ARGUMENT...]
constexpr Code kUsageName{100, 4709};      // PROG NAME
constexpr Code kUsageAdd{100, 4722};       // PROG NAME[/attribute=value...]
constexpr Code kUsageDefMNode{100, 4728};  // PROG [RECORD [MAILNODE]]
constexpr Code kUsageNone{100, 4738};      // PROG
constexpr Code kUsageCount{100, 4751};     // PROG [--count]
constexpr Code kUsageHome{102, 1600};      // PROG [MAILNODE]
constexpr Code kUsageImport{100, 4772};    // PROG [OPTION]... [FILE|-]
constexpr Code kUsageExport{100, 4773};    // PROG [--format=lines|attributes]

// Exit statuses the programs choose themselves (see kChosen); the others
// are cl_SortAllErrors'.
constexpr int kStatusIncomplete = 1;  // qx-checkinstall: not installed or not set up
constexpr int kStatusRefused = 1;     // qx-import, qx-export: some lines or users were refused
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
constexpr std::size_t kPrimaryNodeSize = 4 + 4 * (kUnitLen + 1) + 1;  // cl_ReadPMN: separators, units, NUL

// Frees the configuration lock if this process holds it, and runs
// g_cleanup when a program set one, without losing the escape being
// handled.
void release_lock_keeping_escape();
extern void (*g_cleanup)();

// State of one run, for the report at its end: the detail of a damaged file,
// when the lock wait began, and what a changing program has done already.
extern char g_detail[kDetailSize];
extern timespec g_lock_wait_began;
extern bool g_lock_waited;
extern const char *g_done;  // e.g. "the user was added"
extern const char *g_prog;  // the program the run is for

inline void note_done(const char *what) { g_done = what; }

struct Args {
    const char *prog;  // the base name the program was invoked under
    char **argv;       // the whole command line, argv[0] the invoked name
    int count;         // operands, after the options
    char **operands;
    Code usage;
    bool count_option;   // qx-startcount --count
    bool attributes;     // --format=attributes (qx-import, qx-export)
    bool dry_run;        // qx-import --dry-run
    bool stop_on_error;  // qx-import --stop-on-error
    bool atomic;         // qx-import --atomic
    long batch;          // qx-import --batch=N: lines per transaction
    const char *arg(int i) const { return operands[i - 1]; }
};

// A usage error unless ok.
void need(const Args &a, bool ok);

// Typed names and mail nodes (names.cpp).
ccs_Descriptor *charset();  // the programs read and write UTF-8
void user_key(const char *typed, char *key);       // key: kPackedSize bytes
void mail_node_key(const char *typed, char *key);  // key: kPackedSize bytes
bool sound_mail_node(const char *packed);
// A new user's name from its typed form or its attribute-list form
// (ascii-encoded), checked as qx-useradd checks it. key: kPackedSize bytes,
// display: kDisplaySize bytes.
enum class NameForm { kTyped, kAttributes };
void new_user(const char *text, NameForm form, char *key, char *display);
void show_mail_node(const char *label, const char *packed);

// The home's files (home_files.cpp).
void actual_name(const char *name, char *buf);  // buf: QX_PATH_MAX bytes
[[noreturn]] void raise_damaged(const char *name, int line);
void make_dirs(const char *path);
void write_whole_file(const char *path, const unsigned char *bytes, std::size_t size);
bool exists(const char *path, mode_t type);
bool home_set_up(char *home);  // home: QX_PATH_MAX bytes, its path
void check_config_units(const std::array<int, 4> &at, bool empty_ok);

// The user directory (directory.cpp): each raises its failure once the
// database is closed again. display: kDisplaySize bytes.
void directory_add(const char *key, const char *display);
void directory_find(const char *key, char *display);
void directory_delete(const char *key, char *display);

// Every user, in the order qx-userlist shows them: fn gets each row and
// returns false to stop. fn must not escape (the database is open).
struct UserRow {
    const char *key;  // the packed name, not NUL-terminated
    std::size_t key_len;
    const char *display;
};
struct UserVisitor {
    bool (*fn)(void *context, const UserRow &row);
    void *context;
};
void directory_each(const UserVisitor &visit);

// Bulk import: one session of the process, under the configuration lock.
// bulk_begin opens the directory and a write transaction; bulk_add stores a
// user unless the key is stored already (by an earlier line of this import
// or before it); bulk_commit makes what was added so far durable and opens
// the next transaction; bulk_end commits (keep) or rolls back and closes.
// A failure rolls back the open transaction and closes before it raises.
// bulk_abandon rolls back and closes whatever is open, raising nothing.
enum class Added { kNew, kStored, kRepeated };
void bulk_begin();
Added bulk_add(const char *key, const char *display);
void bulk_commit();
void bulk_end(bool keep);
void bulk_abandon();

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

// The programs.
int user_add(const Args &a);
int user_show(const Args &a);
int user_delete(const Args &a);
int user_list(const Args &a);
int default_mail_node(const Args &a);
int primary_mail_node(const Args &a);
int init_home(const Args &a);
int start_count(const Args &a);
int check_install(const Args &a);
int import_users(const Args &a);
int export_users(const Args &a);

// Every user, one a line, in the order of the display texts: the display
// text, or the attribute-list form. Status 0, or kStatusRefused when a
// stored user could not be shown (reported).
int print_users(NameForm form);

}  // namespace qxadm

#endif
