// The end of a failed run: the pending escape shown on the standard error
// stream as an error message or a usage text, and turned into the program's
// exit status.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "cl.h"
#include "er.h"
#include "frame.hpp"
#include "mes.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_ErrDisplay";

// Message buffer of the error display: the fetch is limited to 2046 bytes
// (2045 characters), which leaves room for the two newlines the layout may
// append and the terminator.
constexpr int kMessageSize = 2048;
constexpr int kMessageFetch = 2046;
constexpr int kLogInfoSize = 200;
constexpr int kThreeNameUsage = 4681;  // the usage text that names the program three times

// Writes a usage-like catalogue text, whose conversions are all "%s", with
// arg for the first `uses` of them ("%%" is a percent sign). Any other
// conversion, or a "%s" beyond `uses`, is written as it stands, so a
// mistaken catalogue text cannot read arguments that were never given.
void print_format(std::string_view format, const char *arg, int uses) {
    for (std::size_t i = 0; i < format.size(); ++i) {
        const char c = format[i];
        const char next = i + 1 < format.size() ? format[i + 1] : '\0';
        if (c == '%' && next == 's' && uses > 0) {
            std::fputs(arg, stderr);
            --uses;
            ++i;
        } else if (c == '%' && next == '%') {
            std::fputc('%', stderr);
            ++i;
        } else {
            std::fputc(c, stderr);
        }
    }
}

void display_error(int group, int reason, const char *prog, const char *detail) {
    Trace t(kTrace19, "cl_DisplayError");
    char message[kMessageSize];
    mes_GetAnyErMsg(group, reason, message, kMessageFetch);
    const char *prefix = mes_GetErrMsgPrefix(group, reason);
    if (detail && *detail) {
        std::fprintf(stderr, "%s : %s %s\n  %s\n", prog, prefix, message, detail);
    } else {
        // End the message in two newlines, so that an empty line follows
        // it: at most two are appended, which the fetch limit left room for.
        std::size_t n = std::strlen(message);
        while (n < 2 || message[n - 1] != '\n' || message[n - 2] != '\n') message[n++] = '\n';
        message[n] = '\0';
        std::fprintf(stderr, "%s : %s %s", prog, prefix, message);
    }
    t.exit();
}

void display_usage(int group, int reason, const char *prog) {
    Trace t(kTrace19, "cl_DisplayUsage");
    const char *usage = mes_GetAnyErMsg(group, reason, nullptr, 0);
    print_format(usage, prog, reason == kThreeNameUsage ? 3 : 1);
    t.exit();
}

// How a code of groups 100, 102 and 3 is shown, and the status it gives.
enum class Show { kError, kUsage };
struct Sorting {
    int group;
    int reason;
    Show show;
    int status;
};

constexpr Sorting kSortings[] = {
    {100, 4620, Show::kError, 3},   {100, 4621, Show::kError, 100}, {100, 4640, Show::kError, 100},
    {100, 4681, Show::kUsage, 2},   {100, 4704, Show::kError, 2},   {100, 4705, Show::kError, 2},
    {100, 4709, Show::kUsage, 2},   {100, 4722, Show::kUsage, 2},   {100, 4728, Show::kUsage, 2},
    {100, 4738, Show::kUsage, 2},   {100, 4751, Show::kUsage, 2},   {100, 4752, Show::kUsage, 2},
    {100, 6031, Show::kError, 1},   {100, 8001, Show::kError, 3},
    {102, 1600, Show::kUsage, 2},   {102, 1609, Show::kUsage, 2},   {102, 1603, Show::kError, 100},
    {102, 1605, Show::kError, 100}, {102, 1606, Show::kError, 100}, {102, 1611, Show::kError, 100},
    {102, 1612, Show::kError, 100}, {102, 1613, Show::kError, 100}, {102, 1615, Show::kError, 105},
    {3, 5801, Show::kError, 3},     {3, 5803, Show::kError, 106},   {3, 5804, Show::kError, 107},
};
// The groups sorted by the table; their other reasons are errors with:
constexpr int kSortedGroups[] = {100, 102, 3};
constexpr int kOtherReasonStatus = 103;
// Every other group is shown without a prefix, with:
constexpr int kOtherGroupStatus = 100;
constexpr int kSystemGroup = 1;
constexpr Code kFileInfo = {100, 2101};

constexpr Sorting sorting_of(int group, int reason) {
    for (const Sorting &s : kSortings)
        if (s.group == group && s.reason == reason) return s;
    return {group, reason, Show::kError, kOtherReasonStatus};
}

constexpr bool sorted_group(int group) {
    for (int g : kSortedGroups)
        if (g == group) return true;
    return false;
}

static_assert(sorting_of(100, 4704).show == Show::kError && sorting_of(100, 4704).status == 2);
static_assert(sorting_of(100, 4623).status == kOtherReasonStatus);

int show_other_group(int group, int reason, const char *prog) {
    std::fprintf(stderr, "%s : %s\n\n", prog, mes_GetAnyErMsg(group, reason, nullptr, 0));
    if (group == kSystemGroup) {
        char info[kLogInfoSize];
        er_GetLogInfo(1, info, 0);
        if (info[0] != '\0') print_format(mes_GetAnyErMsg(kFileInfo.group, kFileInfo.reason, nullptr, 0), info, 1);
    }
    return kOtherGroupStatus;
}

int sort_all_errors(const char *prog) {
    Trace t(kTrace19, "cl_SortAllErrors");
    const int group = er_GetGroup();
    const int reason = er_GetReason();
    er_Clear();
    int status;
    if (sorted_group(group)) {
        const Sorting s = sorting_of(group, reason);
        if (s.show == Show::kUsage) {
            cl_DisplayUsage(group, reason, prog);
        } else {
            cl_DisplayError(group, reason, prog, "");
        }
        status = s.status;
    } else {
        status = show_other_group(group, reason, prog);
    }
    er_TidyUp();
    return t.exit(status);
}

}  // namespace
}  // namespace cl

extern "C" {
void cl_DisplayError(int group, int reason, const char *prog, const char *detail) {
    cl::display_error(group, reason, prog, detail);
}
void cl_DisplayUsage(int group, int reason, const char *prog) { cl::display_usage(group, reason, prog); }
int cl_SortAllErrors(const char *prog) { return cl::sort_all_errors(prog); }
}
