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
//   qx-import [OPTION]... [FILE]  add users from a file, one name a line
//   qx-export [--format=FORM]     write every user, one a line
//
// This file reads the options, dispatches by name and reports. Every
// program runs its body under one protected block: an escape that ends its
// work is reported with the status of kChosen when the program chooses it,
// else handed to cl_SortAllErrors, whose status is the exit status.
// Standard output is checked once the body has run (main).
#include <getopt.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "mes.h"
#include "qxadm.hpp"

namespace qxadm {

char g_detail[kDetailSize];
timespec g_lock_wait_began{};
bool g_lock_waited = false;
const char *g_done = nullptr;
const char *g_prog = nullptr;

namespace {
constexpr const char kSourceFile[] = "programs/qxadm";
}  // namespace

void need(const Args &a, bool ok) {
    if (!ok) QX_RAISE(a.usage);
}

// Frees the configuration lock if this process holds it, without losing the
// escape being handled.
void (*g_cleanup)() = nullptr;

void release_lock_keeping_escape() {
    if (g_cleanup) g_cleanup();
    guarded_release([] {
        if (cl_TestConfigLock()) cl_FreeConfigLock();
    });
}

namespace {

// Escapes whose status the programs choose: a file of the home that is
// damaged or too short is reported naming the file; the lock time-out with
// the wait it actually had; a home set up already as something that exists;
// a record that did not read back, or an input that cannot be read, as a
// failed system call; the usage texts of the programs' own.
enum class Detail {
    kNone,
    kRaiser,    // the raiser wrote g_detail
    kFile,      // the home's file a library code is about
    kLockWait,  // the seconds waited for the lock
    kUsage,     // a usage text, shown as cl_DisplayUsage shows it
};
struct Chosen {
    Code code;
    int status;
    Detail detail;
    const char *file;
};
constexpr Chosen kChosen[] = {
    {kHomeExists, kStatusExistsOrMissing, Detail::kNone, nullptr},
    {kFileDamaged, kStatusDamaged, Detail::kRaiser, nullptr},
    {kConfigShort, kStatusDamaged, Detail::kFile, kConfigName},
    {kOldConfigShort, kStatusDamaged, Detail::kFile, kConfigName},
    {kSysdataShort, kStatusDamaged, Detail::kFile, kSysdataName},
    {kLockTimeOut, kStatusLocked, Detail::kLockWait, nullptr},
    {kRecordNotWritten, kStatusExistsOrMissing, Detail::kFile, kDefMNodeName},  // a write that failed
    {kInputUnreadable, kStatusExistsOrMissing, Detail::kRaiser, nullptr},
    {kUsageImport, kStatusUsage, Detail::kUsage, nullptr},
    {kUsageExport, kStatusUsage, Detail::kUsage, nullptr},
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
    switch (chosen->detail) {
    case Detail::kNone: g_detail[0] = '\0'; break;
    case Detail::kRaiser: break;
    case Detail::kFile: {
        char path[QX_PATH_MAX];
        if (fails([&] { actual_name(chosen->file, path); })) std::snprintf(path, sizeof path, "%s", chosen->file);
        std::snprintf(g_detail, sizeof g_detail, "File: %s", path);
        break;
    }
    case Detail::kLockWait: {
        const long s = seconds_waited();
        std::snprintf(g_detail, sizeof g_detail, "Waited %ld second%s for the configuration lock.", s,
                      s == 1 ? "" : "s");
        if (!g_lock_waited) g_detail[0] = '\0';  // not from our wait: no figure to give
        break;
    }
    case Detail::kUsage:
        cl_DisplayUsage(code.group, code.reason, prog);
        er_TidyUp();
        return chosen->status;
    }
    cl_DisplayError(code.group, code.reason, prog, g_detail);
    er_TidyUp();
    return chosen->status;
}

// The error line for a program name that no program has.
void report_unknown_program(const char *prog, const char *name) {
    char detail[kDetailSize];
    std::snprintf(detail, sizeof detail, "Program: %.*s", static_cast<int>(sizeof detail) - 16, name);
    cl_DisplayError(kUnknownProgram.group, kUnknownProgram.reason, prog, detail);
}

// The error line of the programs' own argument faults, with the usage text
// after it.
int usage_error(Code what, const char *detail, Code usage, const char *prog) {
    cl_DisplayError(what.group, what.reason, prog, detail);
    cl_DisplayUsage(usage.group, usage.reason, prog);
    return kStatusUsage;
}

// Options beyond --help and --version, by the programs that take them.
enum Takes : unsigned { kNoOptions = 0, kTakesCount = 1u << 0, kTakesFormat = 1u << 1, kTakesImport = 1u << 2 };

struct Program {
    const char *name;
    int (*body)(const Args &);
    Code usage;
    unsigned takes;
    const char *summary;
};

constexpr std::array<Program, 11> kPrograms = {{
    {"qx-inithome", init_home, kUsageHome, kNoOptions,
     "Sets up a fresh server home: $QX_HOME, else $HOME/.qx. Writes sys/config with\n"
     "MAILNODE (default HQ,Example) as the primary mail node, sys/sysdata, and makes\n"
     "sys/install and log/. A home that is set up already is left alone (status 100).\n"},
    {"qx-useradd", user_add, kUsageAdd, kNoOptions,
     "Adds a user to the user directory (~/sys/users.db) under the configuration\n"
     "lock and shows the stored name. Attributes of the name's fields follow the\n"
     "mail node as attribute=value pairs: 'Ann Lee/Sales,London/organization=Acme'.\n"},
    {"qx-usershow", user_show, kUsageName, kNoOptions, "Shows a user of the user directory.\n"},
    {"qx-userlist", user_list, kUsageNone, kNoOptions, "Lists the users of the user directory, one a line, in order.\n"},
    {"qx-userdel", user_delete, kUsageName, kNoOptions,
     "Deletes a user from the user directory under the configuration lock.\n"},
    {"qx-defmnode", default_mail_node, kUsageDefMNode, kNoOptions,
     "Shows record RECORD (0 to 1023, default 1) of the default mail node file; with\n"
     "MAILNODE, sets it first, under the configuration lock.\n"},
    {"qx-pmn", primary_mail_node, kUsageNone, kNoOptions, "Shows the primary mail node of the server's configuration.\n"},
    {"qx-startcount", start_count, kUsageCount, kTakesCount,
     "Shows how often the server has started and when it last did; --count counts a\n"
     "start first.\n"},
    {"qx-checkinstall", check_install, kUsageNone, kNoOptions,
     "Exits 0 when the installation is complete, 1 when the home is not set up or\n"
     "~/sys/install holds a marker file ending in .inst.\n"},
    {"qx-import", import_users, kUsageImport, kTakesFormat | kTakesImport,
     "Adds the users named in FILE (standard input for - or none), one name a line as\n"
     "qx-useradd takes it; blank lines and lines starting with # are skipped. A refused\n"
     "line is reported as FILE:LINE: and the import goes on; a user stored already, or\n"
     "named on an earlier line, is reported and skipped. Rows are committed every N lines.\n"
     "Exit status 1 when a line was refused.\n"
     "  --format=attributes  the lines are attribute lists, as qx-export writes them\n"
     "  --stop-on-error      stop at the first refused line\n"
     "  --atomic             store nothing unless every line is good\n"
     "  --dry-run            check every line, store nothing\n"
     "  --batch=N            lines per transaction (default 100000)\n"},
    {"qx-export", export_users, kUsageExport, kTakesFormat,
     "Writes every user of the user directory, one a line, in the order of qx-userlist:\n"
     "  --format=lines       as qx-userlist shows them (the default)\n"
     "  --format=attributes  as attribute lists that qx-import --format=attributes reads\n"
     "Either form, imported into a fresh home, gives the same directory.\n"},
}};

// Writes a usage text of the catalogue with each "%s" in it replaced by the
// program's name. The text is never a printf format: a translated text with
// another '%' in it is written as it stands.
void print_usage(std::FILE *out, Code usage, const char *prog) {
    std::string_view text = mes_GetAnyErMsg(usage.group, usage.reason, nullptr, 0);
    for (std::size_t at; (at = text.find("%s")) != std::string_view::npos; text.remove_prefix(at + 2))
        std::fprintf(out, "%.*s%s", static_cast<int>(at), text.data(), prog);
    std::fprintf(out, "%.*s", static_cast<int>(text.size()), text.data());
}

void print_version(const char *prog) { std::printf("%s (cl) %s\n", prog, QX_VERSION); }

enum Option { kHelp = 1, kVersion, kCount, kFormat, kStopOnError, kAtomic, kDryRun, kBatch };
struct OptionOf {
    option spec;
    unsigned takes;  // the programs that take it; kNoOptions: every program
};
constexpr OptionOf kOptions[] = {
    {{"help", no_argument, nullptr, kHelp}, kNoOptions},
    {{"version", no_argument, nullptr, kVersion}, kNoOptions},
    {{"count", no_argument, nullptr, kCount}, kTakesCount},
    {{"format", required_argument, nullptr, kFormat}, kTakesFormat},
    {{"stop-on-error", no_argument, nullptr, kStopOnError}, kTakesImport},
    {{"atomic", no_argument, nullptr, kAtomic}, kTakesImport},
    {{"dry-run", no_argument, nullptr, kDryRun}, kTakesImport},
    {{"batch", required_argument, nullptr, kBatch}, kTakesImport},
};
constexpr std::size_t kOptionCount = sizeof kOptions / sizeof kOptions[0];
constexpr long kDefaultBatch = 100000;
constexpr long kBatchMax = 1000000000;

// The options a program takes, ended as getopt_long wants.
using OptionTable = std::array<option, kOptionCount + 1>;
OptionTable options_of(unsigned takes) {
    OptionTable table{};
    std::size_t n = 0;
    for (const OptionOf &o : kOptions)
        if (o.takes == kNoOptions || (o.takes & takes) != 0) table[n++] = o.spec;
    return table;
}

// The value of --format or --batch; false when it is not one.
bool read_value(int which, const char *value, Args &args) {
    if (which == kFormat) {
        args.attributes = std::strcmp(value, "attributes") == 0;
        return args.attributes || std::strcmp(value, "lines") == 0;
    }
    char *end = nullptr;
    errno = 0;
    args.batch = std::strtol(value, &end, 10);
    return *value != '\0' && *end == '\0' && errno == 0 && args.batch >= 1 && args.batch <= kBatchMax;
}

// The argument getopt_long refused, for the error line: "-x" for a short
// option, else the element itself ("--frob", "--help=x", "--batch").
void name_refused_option(char **argv, char *out, std::size_t size) {
    if (optopt > ' ' && optopt < 0x7F) {  // a short option; long ones give 0 or their value
        std::snprintf(out, size, "Option: -%c", optopt);
    } else {
        std::snprintf(out, size, "Option: %.*s", static_cast<int>(size) - 16, argv[optind - 1]);
    }
}

// After a failure in a home that is not set up (most often: no home at
// all, so the lock file is missing), say how to set one up.
void hint_if_not_set_up(const Program &p, const char *prog) {
    char home[QX_PATH_MAX];
    if (p.body == init_home || home_set_up(home)) return;
    char detail[kDetailSize];
    std::snprintf(detail, sizeof detail, "Home: %s", home);
    cl_DisplayError(kHomeNotSetUp.group, kHomeNotSetUp.reason, prog, detail);
}

// Options as coreutils reads them: anywhere among the operands up to "--",
// long ones abbreviated as long as they stay unambiguous; --help and
// --version answer at once with status 0; an unknown option is a usage error.
int run(const Program &p, int argc, char **argv) {
    const char *prog = ext_BaseName(argv[0]);
    g_prog = prog;
    Args args{prog, argv, 0, nullptr, p.usage, false, false, false, false, false, kDefaultBatch};
    const OptionTable table = options_of(p.takes);
    optind = 0;  // a fresh scan: qxadm may have scanned its own options
    opterr = 0;
    for (int c; (c = getopt_long(argc, argv, ":", table.data(), nullptr)) != -1;) {
        if (c == kHelp) {
            print_usage(stdout, p.usage, prog);
            std::printf("\n%s", p.summary);
            return 0;
        }
        if (c == kVersion) {
            print_version(prog);
            return 0;
        }
        bool *flag = c == kCount         ? &args.count_option
                     : c == kStopOnError ? &args.stop_on_error
                     : c == kAtomic      ? &args.atomic
                     : c == kDryRun      ? &args.dry_run
                                         : nullptr;
        if (flag) {
            *flag = true;
            continue;
        }
        const bool valued = c == kFormat || c == kBatch;
        if (valued && read_value(c, optarg, args)) continue;
        char detail[kDetailSize];
        if (valued) {
            std::snprintf(detail, sizeof detail, "Option: --%s=%.*s", c == kFormat ? "format" : "batch",
                          static_cast<int>(sizeof detail) - 32, optarg);
        } else {
            name_refused_option(argv, detail, sizeof detail);
        }
        return usage_error(valued || c == ':' ? kBadOptionValue : kUnknownOption, detail, p.usage, prog);
    }
    args.count = argc - optind;
    args.operands = argv + optind;
    volatile int status = 0;
    auto body = [&] { status = p.body(args); };
    if (!attempt(body)) return status;
    release_lock_keeping_escape();
    const int failed = report(prog);
    hint_if_not_set_up(p, prog);
    return failed;
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
    const OptionTable table = options_of(kNoOptions);
    for (int c; (c = getopt_long(argc, argv, "+", table.data(), nullptr)) != -1;) {
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
    if (!known_program(argv[optind])) report_unknown_program(prog, argv[optind]);
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
        qxadm::report_unknown_program(qxadm::g_prog, qxadm::g_prog);
        status = qxadm::kStatusUsage;
    }
    return qxadm::finish_output(status);
}
