// Error and usage display on the standard error stream, and the exit status
// of every kind of pending escape.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "mes.h"
#include "testkit.hpp"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string message(int group, int reason) { return mes_GetAnyErMsg(group, reason, nullptr, 0); }
std::string prefix(int group, int reason) { return mes_GetErrMsgPrefix(group, reason); }

// What the error form without a detail prints: the message padded to end
// in two newlines.
std::string error_text(int group, int reason, const std::string &prog) {
    std::string text = message(group, reason);
    while (text.size() < 2 || text.compare(text.size() - 2, 2, "\n\n") != 0) text += '\n';
    return prog + " : " + prefix(group, reason) + " " + text;
}

std::string usage_text(int group, int reason, const std::string &prog) {
    char buf[4096];
    const char *p = prog.c_str();
    std::snprintf(buf, sizeof buf, message(group, reason).c_str(), p, p, p);
    return buf;
}

struct Sorted {
    int status;
    std::string output;
};

Sorted sort_pending(int group, int reason, const char *prog = "prog") {
    er_Status pending{1, group, reason, 1, 0, "tests/errdisplay_test"};
    er_RestoreStatus(&pending);
    CaptureStderr();
    int status = cl_SortAllErrors(prog);
    return {status, GetCapturedStderr()};
}

TEST(SortAllErrors, EveryRowOfTheTables) {
    enum Show { kError, kUsage };
    struct Row {
        int group, reason;
        Show show;
        int status;
    };
    const Row rows[] = {
        {100, 4620, kError, 3},   {100, 4621, kError, 100}, {100, 4640, kError, 100}, {100, 4681, kUsage, 2},
        {100, 4704, kError, 2},   {100, 4705, kError, 2},   {100, 4709, kUsage, 2},   {100, 4722, kUsage, 2},
        {100, 4728, kUsage, 2},   {100, 4738, kUsage, 2},   {100, 4751, kUsage, 2},   {100, 4752, kUsage, 2},
        {100, 6031, kError, 1},   {100, 8001, kError, 3},   {100, 4623, kError, 103}, {100, 2601, kError, 103},
        {100, 1, kError, 103},    {102, 1600, kUsage, 2},   {102, 1609, kUsage, 2},   {102, 1603, kError, 100},
        {102, 1605, kError, 100}, {102, 1606, kError, 100}, {102, 1611, kError, 100}, {102, 1612, kError, 100},
        {102, 1613, kError, 100}, {102, 1615, kError, 105}, {102, 1420, kError, 103}, {3, 5801, kError, 3},
        {3, 5803, kError, 106},   {3, 5804, kError, 107},   {3, 6015, kError, 103},   {3, 5802, kError, 103},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.group) + "/" + std::to_string(row.reason));
        const Sorted sorted = sort_pending(row.group, row.reason);
        EXPECT_EQ(sorted.status, row.status);
        EXPECT_EQ(sorted.output, row.show == kUsage ? usage_text(row.group, row.reason, "prog")
                                                    : error_text(row.group, row.reason, "prog"));
        EXPECT_EQ(er_GetLive(), 0);
    }
}

TEST(SortAllErrors, OtherGroupsHaveNoPrefixAndStatus100) {
    er_SetLogInfo(1, "");
    Sorted none = sort_pending(1, 2);
    EXPECT_EQ(none.status, 100);
    EXPECT_EQ(none.output, "prog : " + message(1, 2) + "\n\n");

    er_SetLogInfo(1, "/srv/home/sys/config");
    Sorted with_file = sort_pending(1, 13);
    EXPECT_EQ(with_file.status, 100);
    char file_line[512];
    std::snprintf(file_line, sizeof file_line, message(100, 2101).c_str(), "/srv/home/sys/config");
    EXPECT_EQ(with_file.output, "prog : " + message(1, 13) + "\n\n" + file_line);
    char info[200];
    er_GetLogInfo(1, info, 0);
    EXPECT_STREQ(info, "") << "the escape machinery is tidied";

    er_SetLogInfo(1, "/not/shown");
    for (int group : {5, 0, 101}) {
        Sorted other = sort_pending(group, 7);
        EXPECT_EQ(other.status, 100);
        EXPECT_EQ(other.output, "prog : " + message(group, 7) + "\n\n") << group;
    }
}

TEST(DisplayError, DetailFormAndPadding) {
    CaptureStderr();
    cl_DisplayError(100, 4624, "prog", nullptr);
    const std::string null_detail = GetCapturedStderr();
    CaptureStderr();
    cl_DisplayError(100, 4624, "prog", "");
    EXPECT_EQ(GetCapturedStderr(), null_detail);
    EXPECT_EQ(null_detail, "prog : " + prefix(100, 4624) + " " + message(100, 4624) + "\n\n");

    CaptureStderr();
    cl_DisplayError(100, 4624, "prog", "x");
    EXPECT_EQ(GetCapturedStderr(), "prog : " + prefix(100, 4624) + " " + message(100, 4624) + "\n  x\n");

    // A message that ends in one newline gets one more; shown as a message,
    // a usage text's "%s" stays as it is.
    const std::string one_newline = message(100, 4709);
    ASSERT_EQ(one_newline.back(), '\n');
    CaptureStderr();
    cl_DisplayError(100, 4709, "prog", nullptr);
    EXPECT_EQ(GetCapturedStderr(), "prog : " + prefix(100, 4709) + " " + one_newline + "\n");
    CaptureStderr();
    cl_DisplayError(100, 4709, "prog", "x");
    EXPECT_EQ(GetCapturedStderr(), "prog : " + prefix(100, 4709) + " " + one_newline + "\n  x\n");
}

TEST(DisplayUsage, ProgramNameOnceOrThreeTimes) {
    CaptureStderr();
    cl_DisplayUsage(100, 4681, "tool");
    const std::string three = GetCapturedStderr();
    EXPECT_EQ(three, usage_text(100, 4681, "tool"));
    std::size_t count = 0;
    for (std::size_t at = three.find("tool"); at != std::string::npos; at = three.find("tool", at + 1)) ++count;
    EXPECT_EQ(count, 3u);

    CaptureStderr();
    cl_DisplayUsage(100, 4709, "tool");
    EXPECT_EQ(GetCapturedStderr(), usage_text(100, 4709, "tool"));
    // The program name is never read as a format itself.
    CaptureStderr();
    cl_DisplayUsage(100, 2101, "50%");
    EXPECT_EQ(GetCapturedStderr(), usage_text(100, 2101, "50%"));
}

}  // namespace
