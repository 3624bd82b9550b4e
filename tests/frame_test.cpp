// The call frame: protected blocks with each handler kind, tracing, and
// escapes with no protected block.
#include <gtest/gtest.h>

#include "frame.hpp"
#include "testkit.hpp"

namespace {

constexpr const char kSourceFile[] = "tests/frame_test";
using testkit::run;

void raise_1813() { CL_RAISE(100, 1813); }

TEST(ProtectedBlock, TranslateReplacesTheMatchingEscape) {
    auto outcome = run([] { cl::translate_block(CL_HERE, raise_1813, {100, 1813}, {100, 2601}); });
    EXPECT_TRUE(outcome.is(100, 2601));
    EXPECT_EQ(er_GetLive(), 0);
}

TEST(ProtectedBlock, TranslatePassesOtherEscapesOnUnchanged) {
    auto outcome = run([] { cl::translate_block(CL_HERE, [] { CL_RAISE(100, 9999); }, {100, 1813}, {100, 2601}); });
    EXPECT_TRUE(outcome.is(100, 9999));
}

TEST(ProtectedBlock, EnvironmentIsRestoredOnBothPaths) {
    sigjmp_buf *before = er_GetCurrEnv();
    cl::protect(CL_HERE, [] {}, [] {});
    EXPECT_EQ(er_GetCurrEnv(), before);
    cl::protect(CL_HERE, [] { CL_RAISE(100, 1); }, [] { er_Clear(); });
    EXPECT_EQ(er_GetCurrEnv(), before);
}

TEST(ProtectedBlock, SwallowOneClearsOnlyItsEscapeAndAlwaysUndoes) {
    static volatile int undone = 0;
    undone = 0;
    volatile bool continued = false;
    auto cleared = run([&] {
        cl::swallow_one_block(CL_HERE, [] { CL_RAISE(100, 4637); }, [] { ++undone; }, {100, 4637});
        continued = true;
    });
    EXPECT_FALSE(cleared.escaped);
    EXPECT_FALSE(cleared.pending_after);
    EXPECT_TRUE(continued);

    auto passed = run([] { cl::swallow_one_block(CL_HERE, [] { CL_RAISE(100, 2601); }, [] { ++undone; }, {100, 4637}); });
    EXPECT_TRUE(passed.is(100, 2601));
    EXPECT_EQ(undone, 2);
}

TEST(ProtectedBlock, SwallowAllLeavesNothingPending) {
    volatile int result = 1;
    auto outcome = run([&] { cl::swallow_all_block(CL_HERE, [] { CL_RAISE(3, 6015); }, [&] { result = 0; }); });
    EXPECT_FALSE(outcome.escaped);
    EXPECT_FALSE(outcome.pending_after);
    EXPECT_EQ(result, 0);
}

TEST(ProtectedBlock, PassOnReleasesThenContinues) {
    static char *volatile copy = nullptr;
    auto outcome = run([] {
        cl::pass_on_block(
            CL_HERE,
            [] {
                copy = static_cast<char *>(std::malloc(8));
                CL_RAISE(100, 4635);
            },
            [] {
                std::free(copy);
                copy = nullptr;
            });
    });
    EXPECT_TRUE(outcome.is(100, 4635));
    EXPECT_EQ(copy, nullptr);
}

TEST(ProtectedBlock, GuardedCleanUpKeepsTheFirstEscapeWhenTheReleaseFails) {
    static volatile int held = 0;
    static volatile int releases = 0;
    held = 1;
    auto outcome = run([] {
        cl::guarded_cleanup_block(
            CL_HERE, [] { CL_RAISE(3, 6015); }, [] { return held != 0; },
            [] {
                ++releases;
                CL_RAISE(1, 9);  // the release itself fails
            });
    });
    EXPECT_TRUE(outcome.is(3, 6015));
    EXPECT_EQ(releases, 1);
    EXPECT_FALSE(outcome.pending_after);
}

TEST(ProtectedBlock, GuardedCleanUpAcceptsAndSkipsReleaseWhenNothingIsHeld) {
    static volatile int releases = 0;
    static volatile int accepted = 0;
    auto outcome = run([] {
        cl::guarded_cleanup_block(
            CL_HERE, [] { CL_RAISE(3, 6015); },
            [] {
                accepted = er_GetAccepted();
                return false;
            },
            [] { ++releases; });
    });
    EXPECT_TRUE(outcome.is(3, 6015));
    EXPECT_EQ(accepted, 3);
    EXPECT_EQ(releases, 0);
}

TEST(ProtectedBlock, NestedBlocksUnwindInOrder) {
    static int order[3];
    static int n = 0;
    n = 0;
    auto outcome = run([] {
        cl::pass_on_block(
            CL_HERE,
            [] { cl::pass_on_block(CL_HERE, [] { CL_RAISE(100, 7); }, [] { order[n++] = 1; }); },
            [] { order[n++] = 2; });
    });
    EXPECT_TRUE(outcome.is(100, 7));
    ASSERT_EQ(n, 2);
    EXPECT_EQ(order[0], 1);
    EXPECT_EQ(order[1], 2);
}

// Tracing.

void traced(int id) {
    cl::Trace t(id, "traced");
    t.exit();
}

void traced_then_escape() {
    cl::Trace t(cl::kTrace17, "escaping");
    CL_RAISE(100, 1);
    t.exit();
}

TEST(Tracing, LevelTestAppliesTo19And21Only) {
    testkit::TraceCapture capture;
    int saved = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 9;
    traced(19);
    traced(21);
    EXPECT_TRUE(capture.records().empty());
    traced(17);
    traced(15);
    std::vector<testkit::TraceRecord> expected = {
        {17, "traced", 1}, {17, "traced", 0}, {15, "traced", 1}, {15, "traced", 0}};
    EXPECT_EQ(capture.records(), expected);

    capture.clear();
    er_SubSystemLoggingLevel = 10;
    traced(19);
    traced(21);
    expected = {{19, "traced", 1}, {19, "traced", 0}, {21, "traced", 1}, {21, "traced", 0}};
    EXPECT_EQ(capture.records(), expected);
    er_SubSystemLoggingLevel = saved;
}

TEST(Tracing, AnEscapeLeavesWithoutTheExitTrace) {
    testkit::TraceCapture capture;
    auto outcome = run(traced_then_escape);
    EXPECT_TRUE(outcome.is(100, 1));
    std::vector<testkit::TraceRecord> expected = {{17, "escaping", 1}};
    EXPECT_EQ(capture.records(), expected);
}

TEST(Tracing, LibraryFunctionTracesUnderItsOwnName) {
    testkit::TraceCapture capture;
    int saved = er_SubSystemLoggingLevel;
    er_SubSystemLoggingLevel = 10;
    char text[] = "a b";
    cl_ConvertToSpecialChar(text);
    er_SubSystemLoggingLevel = saved;
    std::vector<testkit::TraceRecord> expected = {{19, "cl_ConvertToSpecialChar", 1},
                                                  {19, "cl_ConvertToSpecialChar", 0}};
    EXPECT_EQ(capture.records(), expected);
}

TEST(Escape, WithNoProtectedBlockPrintsAndExitsWithTheDocumentedStatus) {
    EXPECT_EXIT(er_TracedEscape(100, 8013, "cl/cl_parse", 42), testing::ExitedWithCode(ER_UNHANDLED_STATUS),
                "unhandled error 100/8013 raised at cl/cl_parse:42");
}

TEST(Escape, StatusRecordRoundTrips) {
    auto outcome = run([] {
        cl::protect(CL_HERE, [] { CL_RAISE(3, 6015); },
                    [] {
                        er_Status status;
                        er_RecordStatus(&status);
                        er_Clear();
                        EXPECT_EQ(er_GetLive(), 0);
                        er_RestoreStatus(&status);
                    });
    });
    EXPECT_TRUE(outcome.is(3, 6015));
}

}  // namespace
