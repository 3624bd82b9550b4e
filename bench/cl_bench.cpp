// Benchmarks of the typical request's steps, per typical name, beside a peer
// that users of directory names already use (the LDAP library's parse and
// format of the same name as a distinguished name) and a floor (copying the
// same bytes).
//
// Each benchmark reports names per second, nanoseconds per name, and the
// allocations and bytes allocated per call, counted by a malloc hook of this
// binary. After the run a summary shows every figure with its ratio to the
// peer and to the floor, and whether the targets are met: the typical
// request (conversion, validation, full-name text) at least as fast as the
// peer, and each parser within 20 times the copy of its input.
#include <benchmark/benchmark.h>
#include <ldap.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "cl.h"
#include "frame.hpp"

// Allocation counting: every malloc of the process, the library's os_malloc
// included, passes through here.
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
}

namespace {
struct AllocCount {
    unsigned long long calls = 0;
    unsigned long long bytes = 0;
};
AllocCount g_alloc;
}  // namespace

extern "C" {
void *malloc(size_t n) {
    ++g_alloc.calls;
    g_alloc.bytes += n;
    return __libc_malloc(n);
}
void *calloc(size_t count, size_t n) {
    ++g_alloc.calls;
    g_alloc.bytes += count * n;
    return __libc_calloc(count, n);
}
void *realloc(void *p, size_t n) {
    ++g_alloc.calls;
    g_alloc.bytes += n;
    return __libc_realloc(p, n);
}
void free(void *p) { __libc_free(p); }
}

namespace {

// One typical name in every form the steps take: the personal name alone,
// the full O/R name typed positionally, the command-line argument with
// attributes, and the same name as an LDAP distinguished name.
struct Typical {
    const char *label;
    const char *personal;
    const char *full;
    const char *command;
    const char *dn;
};

constexpr Typical kTypical[] = {
    {"surname", "Smith", "Smith/Sales/Acme", "Smith/Sales/organization=Acme", "sn=Smith,ou=Sales,o=Acme"},
    {"given", "John Smith", "John Smith/Sales,London/Acme/GB", "John Smith/Sales,London/organization=Acme/country=GB",
     "givenName=John+sn=Smith,ou=Sales,ou=London,o=Acme,c=GB"},
    {"initials", "John Q. Smith Jr.", "John Q. Smith Jr./Sales,London,Europe/Acme/GB/Mail",
     "John Q. Smith Jr./Sales,London,Europe/organization=Acme/country=GB/admd=Mail",
     "givenName=John+initials=Q+sn=Smith+generationQualifier=Jr,ou=Sales,ou=London,ou=Europe,o=Acme,c=GB,admd=Mail"},
    {"attributes", "J.R.R. Gruteda", "J.R.R. Gruteda/Research,Oxford/Acme/GB/Mail/Tales",
     "J.R.R. Gruteda/Research,Oxford/organization=Acme/country=GB/admd=Mail/prmd=Tales",
     "initials=JRR+sn=Gruteda,ou=Research,ou=Oxford,o=Acme,c=GB,admd=Mail,prmd=Tales"},
};

constexpr unsigned kNewUser = 3;  // the kind of check of a new user's name
constexpr std::size_t kWork = 8192;

// Buffers of one benchmark: typed text (rewritten in place by the parsers)
// and results, all larger than the texts of the typical names need.
struct Work {
    char typed[kWork];
    char result[kWork];
    char tf[kWork];  // the packed name of the command-line argument
    std::size_t tf_len;
    ccs_Descriptor utf8;
};

Work g_work;

void copy_in(char *to, const char *text) { std::memcpy(to, text, std::strlen(text) + 1); }

// The steps, each on one typical name.
void personal_parse(const Typical &t) {
    copy_in(g_work.typed, t.personal);
    cl_ParseName(g_work.typed, g_work.result);
}
void full_parse(const Typical &t) {
    int errIndex = 0;
    copy_in(g_work.typed, t.full);
    cl_ParseFullOrn(g_work.typed, g_work.result, &errIndex);
}
void conversion(const Typical &t) {
    copy_in(g_work.typed, t.command);
    cl_ConvCltoORN(g_work.typed, g_work.result, 0, 0, &g_work.utf8);
}
void validation(const Typical &) { benchmark::DoNotOptimize(cl_ValidateORNFields(g_work.tf, kNewUser)); }
void full_name_text(const Typical &) { benchmark::DoNotOptimize(cl_FormatFullName(g_work.tf, &g_work.utf8)); }
void ascii_round_trip(const Typical &) { cl_AsciiEncodedToTF(cl_FormatAsciiEncoded(g_work.tf), g_work.result); }
void typical_request(const Typical &t) {
    conversion(t);
    benchmark::DoNotOptimize(cl_ValidateORNFields(g_work.result, kNewUser));
    benchmark::DoNotOptimize(cl_FormatFullName(g_work.result, &g_work.utf8));
}
// The packed name of t's command-line argument, in g_work.tf, as a stored
// name: the conversion made it, then converted another name, so the steps
// that read it read the text itself, as a program reading names back from
// its directory does. Right after converting a name, validation and the
// formatters read the conversion's record of it instead (the typical
// request).
void make_stored_name(const Typical &t) {
    conversion(t);
    std::strcpy(g_work.tf, g_work.result);
    copy_in(g_work.typed, "Other/Unit/organization=Elsewhere");
    cl_ConvCltoORN(g_work.typed, g_work.result, 0, 0, &g_work.utf8);
}

// The peer's parse and format of the distinguished name; LDAP_SUCCESS when
// both worked.
int peer_round(const Typical &t) {
    LDAPDN dn = nullptr;
    char *text = nullptr;
    int rc = ldap_str2dn(t.dn, &dn, LDAP_DN_FORMAT_LDAPV3);
    if (rc == LDAP_SUCCESS) rc = ldap_dn2str(dn, &text, LDAP_DN_FORMAT_LDAPV3);
    benchmark::DoNotOptimize(text);
    ldap_memfree(text);
    ldap_dnfree(dn);
    return rc;
}
void peer(const Typical &t) { peer_round(t); }

// The floor: copying the bytes a step reads.
enum class Input { kPersonal, kFull, kCommand, kPacked, kDn };
const char *input_of(const Typical &t, Input in) {
    switch (in) {
        case Input::kPersonal:
            return t.personal;
        case Input::kFull:
            return t.full;
        case Input::kCommand:
            return t.command;
        case Input::kPacked:
            return g_work.tf;
        case Input::kDn:
            return t.dn;
    }
    return "";
}

struct Step {
    const char *name;
    void (*run)(const Typical &);
    Input input;
    bool parser;  // held to 20 times the floor
};

constexpr Step kSteps[] = {
    {"personal-name parse", personal_parse, Input::kPersonal, true},
    {"full O/R name parse", full_parse, Input::kFull, true},
    {"command-line conversion", conversion, Input::kCommand, true},
    {"validation", validation, Input::kPacked, false},
    {"full-name text", full_name_text, Input::kPacked, false},
    {"ascii-encoded round trip", ascii_round_trip, Input::kPacked, false},
    {"typical request", typical_request, Input::kCommand, false},
    {"peer: ldap_str2dn+ldap_dn2str", peer, Input::kDn, false},
};
constexpr const char *kPeerStep = "peer: ldap_str2dn+ldap_dn2str";
constexpr const char *kRequestStep = "typical request";

const char *kInputName[] = {"personal", "full", "command", "packed", "dn"};

// Runs the loop and sets the counters: names per second, nanoseconds per
// name, allocations and bytes per call (counted after a first call, so the
// formatters' buffers made once per process are not counted).
template <class Call>
void measure(benchmark::State &state, Call &&call) {
    call();
    AllocCount before = g_alloc;
    for (auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
    auto n = static_cast<double>(state.iterations());
    state.counters["names/s"] = benchmark::Counter(n, benchmark::Counter::kIsRate);
    state.counters["ns/name"] = benchmark::Counter(n, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["allocs"] = static_cast<double>(g_alloc.calls - before.calls) / n;
    state.counters["bytes"] = static_cast<double>(g_alloc.bytes - before.bytes) / n;
}

void copy_floor(benchmark::State &state, const char *text) {
    static char to[kWork];
    std::size_t n = std::strlen(text) + 1;
    measure(state, [&] {
        std::memcpy(to, text, n);
        benchmark::DoNotOptimize(to);
    });
}

// Every step of every typical name runs once under a protected block before
// anything is timed: a step that escapes, or a name that does not read back
// or validate, stops the run instead of timing an error path.
bool prepare() {
    if (!ccs_GetCSDescriptor("UTF8", &g_work.utf8)) {
        std::fprintf(stderr, "no UTF8 character set descriptor\n");
        return false;
    }
    bool ok = true;
    for (const Typical &t : kTypical) {
        for (const Step &s : kSteps) {
            if (s.input == Input::kPacked) make_stored_name(t);
            auto body = [&] { s.run(t); };
            if (cl::attempt(body)) {
                std::fprintf(stderr, "%s / %s: escape %d/%d\n", t.label, s.name, er_GetGroup(), er_GetReason());
                er_Clear();
                ok = false;
            }
        }
        if (peer_round(t) != LDAP_SUCCESS) {
            std::fprintf(stderr, "%s: the peer does not read '%s'\n", t.label, t.dn);
            ok = false;
        }
        auto round_trip = [&] {
            conversion(t);
            std::strcpy(g_work.tf, g_work.result);
            cl_AsciiEncodedToTF(cl_FormatAsciiEncoded(g_work.tf), g_work.result);
        };
        if (cl::attempt(round_trip)) er_Clear();
        if (std::strcmp(g_work.tf, g_work.result) != 0) {
            std::fprintf(stderr, "%s: the ascii-encoded text does not read back to the name\n", t.label);
            ok = false;
        }
    }
    return ok;
}

// Keeps every run's figures for the summary: the median when the run is
// repeated, else the one run.
struct Figures {
    double ns = 0, allocs = 0, bytes = 0;
};
std::map<std::string, Figures> g_figures;

class Collector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs) {
            const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
            if (r.error_occurred || (r.run_type != Run::RT_Iteration && !median)) continue;
            Figures &f = g_figures[r.run_name.str()];
            f.ns = r.GetAdjustedRealTime();
            f.allocs = r.counters.at("allocs");
            f.bytes = r.counters.at("bytes");
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

std::string step_key(const Typical &t, const char *step) { return std::string(t.label) + "/" + step; }
std::string copy_key(const Typical &t, Input in) {
    return std::string(t.label) + "/copy " + kInputName[static_cast<int>(in)];
}

void register_all() {
    for (const Typical &t : kTypical) {
        for (const Step &s : kSteps) {
            benchmark::RegisterBenchmark(step_key(t, s.name).c_str(), [&t, &s](benchmark::State &st) {
                if (s.input == Input::kPacked) make_stored_name(t);
                measure(st, [&] { s.run(t); });
            })->Unit(benchmark::kNanosecond);
        }
        for (Input in : {Input::kPersonal, Input::kFull, Input::kCommand, Input::kPacked, Input::kDn}) {
            benchmark::RegisterBenchmark(copy_key(t, in).c_str(), [&t, in](benchmark::State &st) {
                if (in == Input::kPacked) make_stored_name(t);
                copy_floor(st, input_of(t, in));
            })->Unit(benchmark::kNanosecond);
        }
    }
}

const Figures *figures(const std::string &key) {
    auto it = g_figures.find(key);
    return it == g_figures.end() ? nullptr : &it->second;
}

double ratio(const Figures *f, const Figures *to) { return f && to && to->ns > 0 ? f->ns / to->ns : 0; }

void print_row(const Typical &t, const std::string &step, const Figures &f, const Figures *peer, const Figures *floor) {
    std::printf("%-12s %-30s %10.1f %12.0f %8.2f %8.0f %8.2f %8.1f\n", t.label, step.c_str(), f.ns,
                f.ns > 0 ? 1e9 / f.ns : 0, f.allocs, f.bytes, ratio(&f, peer), ratio(&f, floor));
}

// Prints every figure with its ratios and the verdict on the targets, for
// the names that ran. Returns the number of targets missed.
int summarise() {
    int missed = 0;
    std::printf("\n%-12s %-30s %10s %12s %8s %8s %8s %8s\n", "name", "step", "ns/name", "names/s", "allocs", "bytes",
                "x peer", "x floor");
    for (const Typical &t : kTypical) {
        const Figures *peer = figures(step_key(t, kPeerStep));
        for (const Step &s : kSteps)
            if (const Figures *f = figures(step_key(t, s.name)))
                print_row(t, s.name, *f, peer, figures(copy_key(t, s.input)));
        for (Input in : {Input::kPersonal, Input::kFull, Input::kCommand, Input::kPacked, Input::kDn})
            if (const Figures *f = figures(copy_key(t, in)))
                print_row(t, std::string("floor: copy ") + kInputName[static_cast<int>(in)], *f, peer, f);
    }
    std::printf("\nTargets:\n");
    for (const Typical &t : kTypical) {
        const Figures *request = figures(step_key(t, kRequestStep));
        const Figures *peer = figures(step_key(t, kPeerStep));
        if (request && peer) {
            bool met = request->ns <= peer->ns;
            missed += !met;
            std::printf("  %-12s typical request %.1f ns = %.2f x peer (%.1f ns): %s\n", t.label, request->ns,
                        ratio(request, peer), peer->ns, met ? "met" : "MISSED");
        }
        for (const Step &s : kSteps) {
            const Figures *f = figures(step_key(t, s.name));
            const Figures *floor = figures(copy_key(t, s.input));
            if (!s.parser || !f || !floor) continue;
            bool within = f->ns <= 20 * floor->ns;
            missed += !within;
            std::printf("  %-12s %-24s %.1f ns = %.1f x copy floor (%.1f ns): %s\n", t.label, s.name, f->ns,
                        ratio(f, floor), floor->ns, within ? "met" : "MISSED");
        }
    }
    return missed;
}

}  // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!prepare()) return 1;
    register_all();
    Collector reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    int missed = summarise();
    benchmark::Shutdown();
    std::printf("%d target%s missed\n", missed, missed == 1 ? "" : "s");
    return 0;
}
