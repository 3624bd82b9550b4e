// Bulk work on the user directory: qx-import, qx-export, and the listing
// that qx-userlist shares with qx-export.
//
// qx-import reads one name a line and treats each as qx-useradd treats its
// argument, under one configuration lock and one logged command line; rows
// go in transactions of --batch lines. A refused line is reported as
// FILE:LINE: and the import goes on (or stops, --stop-on-error). Input is
// read a bounded line at a time and rows are stored as they come, so memory
// does not grow with the input.
//
// An interrupt (SIGINT, SIGTERM) is noted by its handler and acted on
// between lines: the open transaction is rolled back, the lock freed, the
// summary written, and the process ends by the same signal. A kill leaves
// the open transaction in SQLite's journal, which the next opening of the
// directory rolls back; the lock, an fcntl lock, ends with the process.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cmath>
#include <cstring>
#include <ctime>

#include "mes.h"
#include "qxadm.hpp"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/bulk";

// ---------------------------------------------------------------------------
// Progress on a terminal: a line on stderr, rewritten at most every
// kProgressEvery, while stderr is a terminal.

constexpr double kProgressEvery = 0.25;  // seconds
constexpr long kProgressCheck = 1024;    // lines between looks at the clock

struct Progress {
    bool on;
    bool shown;
    timespec began;
    double last;
    off_t total;  // bytes of the input when it is a regular file, else 0
};
Progress g_progress{};

double since(const timespec &t) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - t.tv_sec) + static_cast<double>(now.tv_nsec - t.tv_nsec) / 1e9;
}

void progress_start(std::FILE *in) {
    g_progress = Progress{};
    g_progress.on = isatty(STDERR_FILENO) == 1;
    clock_gettime(CLOCK_MONOTONIC, &g_progress.began);
    struct stat st {};
    if (in && fstat(fileno(in), &st) == 0 && S_ISREG(st.st_mode)) g_progress.total = st.st_size;
}

void progress_clear() {
    if (!g_progress.shown) return;
    std::fputs("\r\033[K", stderr);
    g_progress.shown = false;
}

// what: "lines" or "users"; done: how many so far; in: the input, whose
// position tells how far it is read when its size is known.
void progress_show(const char *what, long done, std::FILE *in) {
    if (!g_progress.on || done % kProgressCheck != 0) return;
    const double t = since(g_progress.began);
    if (t - g_progress.last < kProgressEvery) return;
    g_progress.last = t;
    const double rate = t > 0 ? static_cast<double>(done) / t : 0;
    std::fprintf(stderr, "\r\033[K%s: %ld %s, %.0f/s", g_prog, done, what, rate);
    const off_t at = in && g_progress.total > 0 ? ftello(in) : 0;
    if (at > 0) {
        const double part = static_cast<double>(at) / static_cast<double>(g_progress.total);
        const long left = part > 0 ? std::lround(t / part - t) : 0;
        std::fprintf(stderr, ", %.0f%%, %ld:%02ld left", part * 100, left / 60, left % 60);
    }
    g_progress.shown = true;
}

// ---------------------------------------------------------------------------
// Input: bounded lines.

// A line of the input: its text (without the newline and a CR before it),
// or too_long when it held more than kTextMax bytes (the rest was skipped).
struct Line {
    char text[kTextMax + 2];  // kTextMax bytes, the newline, the terminator
    long number;
    bool too_long;
};

// Reads the next line into line; false at the end of the input or on a
// read error (ferror tells).
bool read_line(std::FILE *in, Line &line) {
    if (!std::fgets(line.text, sizeof line.text, in)) return false;
    ++line.number;
    std::size_t n = std::strlen(line.text);
    line.too_long = n == sizeof line.text - 1 && line.text[n - 1] != '\n';
    if (line.too_long) {
        char rest[256];
        while (std::fgets(rest, sizeof rest, in) && rest[std::strlen(rest) - 1] != '\n') {
        }
    }
    if (n > 0 && line.text[n - 1] == '\n') line.text[--n] = '\0';
    if (n > 0 && line.text[n - 1] == '\r') line.text[--n] = '\0';
    return true;
}

// Blank lines and lines that start with '#' hold no name.
bool holds_no_name(const char *text) {
    if (text[0] == '#') return true;
    return text[std::strspn(text, " \t")] == '\0';
}

// The input being read, closed by finish_input or by the clean-up of a run
// that failed.
std::FILE *g_input = nullptr;

void finish_input() {
    if (g_input && g_input != stdin) std::fclose(g_input);
    g_input = nullptr;
}

[[noreturn]] void raise_unreadable(const char *name, int err) {
    std::snprintf(g_detail, sizeof g_detail, "File: %.*s: %s", QX_PATH_MAX, name, std::strerror(err));
    QX_RAISE(kInputUnreadable);
}

// Opens FILE, or standard input for "-" or no operand. A file that cannot
// be opened is reported naming it.
std::FILE *open_input(const char *name) {
    if (!name || std::strcmp(name, "-") == 0) return stdin;
    std::FILE *in = std::fopen(name, "re");
    struct stat st {};
    if (in && fstat(fileno(in), &st) == 0 && S_ISDIR(st.st_mode)) {
        std::fclose(in);
        in = nullptr;
        errno = EISDIR;
    }
    if (in) return in;
    raise_unreadable(name, errno);
}

// ---------------------------------------------------------------------------
// Interrupts.

volatile sig_atomic_t g_signal = 0;

extern "C" void note_signal(int sig) { g_signal = sig; }

// Without SA_RESTART, so that a read waiting on a pipe or a terminal
// returns and the loop sees the interrupt.
void catch_interrupts() {
    struct sigaction sa {};
    sa.sa_handler = note_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

// Ends the process by the signal that interrupted it, as its sender expects.
[[noreturn]] void die_by(int sig) {
    std::fflush(stdout);
    ::signal(sig, SIG_DFL);
    ::raise(sig);
    _exit(128 + sig);
}

// ---------------------------------------------------------------------------
// The import.

struct Counts {
    long added;      // committed
    long pending;    // added in the open transaction
    long unkept;     // added, then rolled back at the end (--dry-run, --atomic)
    long refused;
    long duplicate;
    long txn_lines;  // lines checked since the last batch ended, refused ones included
};

// "FILE:LINE: E100-8004 text" for one line of the input.
void report_line(const char *source, long number, Code code) {
    progress_clear();
    char message[2048];  // a catalogue text; longer ones are cut
    mes_GetAnyErMsg(code.group, code.reason, message, sizeof message);
    std::size_t n = std::strlen(message);
    while (n > 0 && message[n - 1] == '\n') message[--n] = '\0';
    std::fprintf(stderr, "%s:%ld: %s %s\n", source, number, mes_GetErrMsgPrefix(code.group, code.reason), message);
}

// A run: the lines read since the last store, kept until the run is stored
// in the order of their keys. Rows stored in key order touch each page of
// the directory's key index once per run, in order, where rows stored in
// the order of the input touch its pages at random; that is most of an
// import's time once the index outgrows SQLite's page cache. A refused
// line is kept too, as its code, so that every line's report comes out in
// the order of the input when the run is stored.
//
// Bounds: at most kRunLines lines; keys and display texts in kArenaSize
// bytes, which hold at least one line at its largest.
constexpr std::size_t kRunLines = 1u << 17;
constexpr std::size_t kArenaSize = 16u << 20;
static_assert(kArenaSize >= kRunLines * 64 && kArenaSize > kPackedSize + kDisplaySize);

struct RunLine {
    long number;
    std::uint32_t key;      // offset in the arena; the display text follows the key's NUL
    std::uint32_t key_len;
    Code report;            // what the line's report says: a refusal, or once stored a duplicate's
                            // warning; {0, 0} for none
};

struct Run {
    RunLine lines[kRunLines];
    std::uint32_t order[kRunLines];  // lines to store, by key, then by line
    char arena[kArenaSize];
    std::size_t used;
    std::size_t count;
};
Run g_run;

bool run_full() { return g_run.count == kRunLines || kArenaSize - g_run.used < kPackedSize + kDisplaySize; }

struct Import {
    const Args &args;
    std::FILE *in;
    const char *source;  // the input's name in reports
    Counts counts;
    int read_error;  // errno of a read that failed, else 0
    bool stopped;  // --stop-on-error met a refused line
};

// Whether what was added may be kept at the end.
bool keeps(const Import &im) {
    if (g_signal || im.read_error || im.args.dry_run) return false;
    return !(im.args.atomic && im.counts.refused > 0);
}

// One line that holds a name: converted and checked into the run's arena
// (an escape refuses the line).
void check_line(Import &im, const Line &line) {
    RunLine &r = g_run.lines[g_run.count++];
    r = RunLine{line.number, static_cast<std::uint32_t>(g_run.used), 0, Code{0, 0}};
    char *key = g_run.arena + g_run.used;
    const NameForm form = im.args.attributes ? NameForm::kAttributes : NameForm::kTyped;
    auto check = [&] {
        if (line.too_long) QX_RAISE(kNameTooLong);
        char display[kDisplaySize];
        new_user(line.text, form, key, display);
        const std::size_t key_len = std::strlen(key);
        const std::size_t display_len = std::strlen(display);
        std::memcpy(key + key_len + 1, display, display_len + 1);
        r.key_len = static_cast<std::uint32_t>(key_len);
        g_run.used += key_len + display_len + 2;
    };
    if (attempt(check)) {
        r.report = Code{er_GetGroup(), er_GetReason()};
        er_Clear();
        ++im.counts.refused;
        im.stopped = im.args.stop_on_error;
    }
    ++im.counts.txn_lines;
}

bool key_before(std::uint32_t a, std::uint32_t b) {
    const RunLine &x = g_run.lines[a];
    const RunLine &y = g_run.lines[b];
    const int c = std::memcmp(g_run.arena + x.key, g_run.arena + y.key, std::min(x.key_len, y.key_len) + 1);
    return c != 0 ? c < 0 : x.number < y.number;
}

// Stores the run's good lines in key order, then reports its lines in the
// order of the input. Of lines that name one user, the first stores it.
void store_run(Import &im) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < g_run.count; ++i)
        if (g_run.lines[i].report.group == 0) g_run.order[n++] = static_cast<std::uint32_t>(i);
    std::sort(g_run.order, g_run.order + n, key_before);
    for (std::size_t k = 0; k < n; ++k) {
        RunLine &r = g_run.lines[g_run.order[k]];
        const char *key = g_run.arena + r.key;
        const Added added = bulk_add(key, key + r.key_len + 1);
        if (added == Added::kNew) {
            ++im.counts.pending;
            continue;
        }
        r.report = added == Added::kStored ? kStoredAlready : kGivenBefore;
        ++im.counts.duplicate;
    }
    for (std::size_t i = 0; i < g_run.count; ++i) {
        const RunLine &r = g_run.lines[i];
        if (r.report.group != 0) report_line(im.source, r.number, r.report);
    }
    g_run.count = 0;
    g_run.used = 0;
}

// Stores the run when it is full or holds the rest of a transaction, and
// commits every --batch lines unless nothing may be kept before the end.
void store_if_due(Import &im) {
    const bool batch_due = im.counts.txn_lines >= im.args.batch;
    if (!run_full() && !batch_due) return;
    store_run(im);
    if (!batch_due) return;
    im.counts.txn_lines = 0;
    if (im.args.atomic || im.args.dry_run) return;
    bulk_commit();
    im.counts.added += im.counts.pending;
    im.counts.pending = 0;
}

void import_all(Import &im) {
    static Line line;
    line.number = 0;
    g_run.count = 0;
    g_run.used = 0;
    catch_interrupts();
    bulk_begin();
    progress_start(im.in);
    while (!g_signal && !im.stopped && read_line(im.in, line)) {
        if (!holds_no_name(line.text)) {
            check_line(im, line);
            store_if_due(im);
        }
        progress_show("lines", line.number, im.in);
    }
    if (std::ferror(im.in) && !g_signal) im.read_error = errno != 0 ? errno : EIO;
    if (!g_signal && !im.read_error) store_run(im);
    progress_clear();
    const bool keep = keeps(im);
    bulk_end(keep);
    (keep ? im.counts.added : im.counts.unkept) += im.counts.pending;
    im.counts.pending = 0;
}

void print_summary(const Import &im) {
    const Counts &c = im.counts;
    if (c.unkept == 0 || c.added > 0) {
        std::printf("Added: %ld, refused: %ld, duplicate: %ld.\n", c.added, c.refused, c.duplicate);
    } else {
        std::printf("Checked: %ld to add, %ld refused, %ld duplicate; nothing was stored.\n", c.unkept, c.refused,
                    c.duplicate);
    }
}

// ---------------------------------------------------------------------------
// The listing.

struct Listing {
    NameForm form;
    long shown;
    long failed;
};

// One user: its display text, or its attribute-list form. A stored key
// that is not a user's name, or does not format, is reported with the
// user's display text and left out. Stops once standard output has failed
// (main reports it).
bool list_user(void *context, const UserRow &row) {
    Listing &l = *static_cast<Listing *>(context);
    static char key[kPackedSize];
    const char *text = row.display;
    if (l.form == NameForm::kAttributes) {
        const char *attributes = nullptr;
        auto format = [&] {
            if (row.key_len >= sizeof key) QX_RAISE(kDirectoryDamaged);
            std::memcpy(key, row.key, row.key_len);
            key[row.key_len] = '\0';
            // A stored key was a new user's name: one that is no longer is
            // damage, whatever it would format to.
            int reason = 0;
            if (!cl_ValidateORNFieldsNoEscape(key, 3, &reason) || reason != 0) QX_RAISE(kDirectoryDamaged);
            attributes = cl_FormatAsciiEncoded(key);
        };
        if (attempt(format)) {
            progress_clear();
            char detail[kDetailSize];
            std::snprintf(detail, sizeof detail, "User: %.*s", static_cast<int>(sizeof detail) - 16, row.display);
            cl_DisplayError(er_GetGroup(), er_GetReason(), g_prog, detail);
            er_Clear();
            ++l.failed;
            return true;
        }
        text = attributes;
    }
    std::fputs(text, stdout);
    std::putchar('\n');
    progress_show("users", ++l.shown, nullptr);
    return !std::ferror(stdout);
}

void close_input_keeping_escape() { guarded_release([] { finish_input(); }); }

}  // namespace

// qx-import [FILE|-]
int import_users(const Args &a) {
    need(a, a.count <= 1);
    const char *name = a.count == 1 ? a.arg(1) : "-";
    g_input = open_input(name);
    g_cleanup = close_input_keeping_escape;
    Import im{a, g_input, std::strcmp(name, "-") == 0 ? "(standard input)" : name, Counts{}, 0, false};
    under_lock(a, [&] { import_all(im); });
    finish_input();
    print_summary(im);
    if (g_signal) {
        cl_DisplayError(kInterrupted.group, kInterrupted.reason, a.prog, nullptr);
        die_by(g_signal);
    }
    if (im.read_error) raise_unreadable(im.source, im.read_error);
    return im.counts.refused > 0 ? kStatusRefused : 0;
}

// Every user, one a line, in the order of the display texts.
int print_users(NameForm form) {
    Listing listing{form, 0, 0};
    progress_start(nullptr);
    directory_each(UserVisitor{list_user, &listing});
    progress_clear();
    return listing.failed > 0 ? kStatusRefused : 0;
}

// qx-export [--format=lines|attributes]
int export_users(const Args &a) {
    need(a, a.count == 0);
    return print_users(a.attributes ? NameForm::kAttributes : NameForm::kTyped);
}

}  // namespace qxadm
