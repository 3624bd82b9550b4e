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
// This file reads the options, dispatches by name and reports. Every
// program runs its body under one protected block: an escape that ends its
// work is reported with the status of kChosen when the program chooses it,
// else handed to cl_SortAllErrors, whose status is the exit status.
// Standard output is checked once the body has run (main).
#include <getopt.h>

#include <cerrno>
#include <cmath>
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
void release_lock_keeping_escape() {
    guarded_release([] {
        if (cl_TestConfigLock()) cl_FreeConfigLock();
    });
}

namespace {

// Escapes whose status the programs choose: a file of the home that is
// damaged or too short is reported naming the file; the lock time-out with
// the wait it actually had; a home set up already as something that exists;
// a record that did not read back as a failed system call.
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
    {kRecordNotWritten, kStatusExistsOrMissing, kDefMNodeName},  // a write that failed
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
