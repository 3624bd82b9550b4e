// Mail nodes: the primary one of the configuration file, the default mail
// node file (exact bytes, modes, what an escape leaves), the display form,
// wildcard resolution and counterpart removal in O/R names.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "testkit.hpp"

namespace {

using testkit::open_fd_count;
using testkit::packed;
using testkit::run;
using testkit::show;
using Units = std::array<std::string, 4>;

TEST(SetNodeForDisplay, DropsTrailingEmptyUnitsAndParts) {
    const std::pair<std::string, std::string> rows[] = {
        {"A,B,,", "A,B"}, {"A,,B", "A,,B"}, {",,,", ""},   {"A,B,,/C,D//", "A,B/C,D"}, {"A/", "A"},
        {"A,,/", "A"},    {"A//B/", "A//B"}, {"/C", "/C"}, {",,/C", "/C"},             {"", ""},
        {"/", ""},        {",/,", "/,"},     {"A/,/,//", "A/,/,"},
        // The work buffer holds 4095 characters: a longer text is cut there.
        {std::string(5000, 'a'), std::string(4095, 'a')}, {std::string(4095, 'b') + ",", std::string(4095, 'b')},
    };
    for (const auto &[in, out] : rows) {
        std::string text = in;
        cl_SetNodeForDisplay(text.data());
        EXPECT_EQ(std::string(text.c_str()), out) << in.substr(0, 20);
    }
}

// Fields 0 to 31, '#', 32 to 63, '#', 64 to 95...: field i + 64 is the
// counterpart of field i.
TEST(Routes, WildcardsGiveWayToTheirCounterpartsAndCounterpartsAreRemoved) {
    const struct {
        void (*rewrite)(char *);
        const char *in, *out;
    } rows[] = {
        {cl_SimplifyRoute, "Smith||||*##||||Sales", "Smith||||##||||Sales"},
        {cl_SimplifyRoute, "Smith||||*##||||*", "Smith||||*##||||"},
        {cl_SimplifyRoute, "Smith|||||Dev##|||||*x", "Smith|||||Dev##|||||"},
        {cl_SimplifyRoute, "Smith||||||*", "Smith||||||*"},
        {cl_SimplifyRoute, "Smith|||||||x*##|||||||y", "Smith|||||||x*##|||||||y"},
        {cl_SimplifyRoute, "*|Jo|Q|Jr|Sales", "*||||Sales"},
        // The surname wildcard gave way to its counterpart: the rest stays.
        {cl_SimplifyRoute, "*|Jo##Smith", "|Jo##Smith"},
        {cl_SimplifyRoute, "*|Jo##*|Jo", "*|##|Jo"},
        // Fields 64 to 115 and 128 go: u0, a, b, y (115) and c; z (116) stays.
        {cl_RemoveTxTFields, "Smith#g1#u0|a#b|||||||||||||||||||y|z#c|e#f", "Smith#g1#|#||||||||||||||||||||z#|e#f"},
    };
    for (const auto &row : rows) {
        std::string text = packed(row.in);
        row.rewrite(text.data());
        EXPECT_EQ(show(text.c_str()), row.out) << row.in;
    }
}

// A configuration file of `size` bytes with the older units at 8, 40, 72,
// 104 and the primary units at 140, 172, 204, 236; other bytes are 0xEE so
// that a read outside the fields would show.
std::string config(const Units &older, const Units &primary, std::size_t size = 268) {
    std::string bytes(300, '\xEE');
    for (int i = 0; i < 4; ++i) {
        bytes.replace(8 + 32 * i, 32, older[i] + std::string(32 - older[i].size(), '\0'));
        bytes.replace(140 + 32 * i, 32, primary[i] + std::string(32 - primary[i].size(), '\0'));
    }
    return bytes.substr(0, size);
}

TEST(ReadPMN, UnitsFollowOneAnotherWithoutGaps) {
    const std::string k32(32, 'U');
    const std::pair<Units, std::string> rows[] = {
        {{"", "", "", ""}, ""},      {{"A", "", "C", ""}, "A|C"}, {{"", "B", "", ""}, "|B"},
        {{"Sales", "London", "Europe", "World"}, "Sales|London|Europe|World"},
        {{k32, "X", "", ""}, k32 + "|X"}, {{"A", "", "", k32}, "A|" + k32},
    };
    testkit::TempHome home;
    for (const auto &[units, node] : rows) {
        home.write("sys/config", config({"old", "", "", ""}, units));
        char buf[136];
        std::memset(buf, 'Z', sizeof buf);
        EXPECT_EQ(cl_ReadPMN(buf), buf + 4);
        EXPECT_EQ(show(buf), "||||" + node);
    }
}

TEST(ReadPMN, ShortOrMissingFileEscapesWithEveryDescriptorClosed) {
    testkit::TempHome home;
    const int fds = open_fd_count();
    static char buf[136];
    EXPECT_TRUE(run([] { cl_ReadPMN(buf); }).is(1, ENOENT));
    EXPECT_EQ(open_fd_count(), fds);
    // 220 bytes: the read at 204 gets 16 bytes, after units 1 and 2 are in.
    home.write("sys/config", config({}, {"A", "B", "C", "D"}, 220));
    EXPECT_TRUE(run([] { cl_ReadPMN(buf); }).is(100, 4624));
    EXPECT_EQ(show(buf), "||||A|B");
    EXPECT_EQ(open_fd_count(), fds);
}

std::string read_def(int record) {
    char buf[1024];
    cl_ReadDefMNode(record, buf);
    return buf;
}

TEST(DefMNode, MissingFileIsCreated0660WhateverTheUmaskAndRecordOneFilled) {
    for (mode_t mask : {mode_t{077}, mode_t{022}, mode_t{0}}) {
        testkit::TempHome home;
        home.write("sys/config", config({"Sales", "London", "", ""}, {}));
        const mode_t before = umask(mask);
        const std::string text = read_def(1);
        EXPECT_EQ(umask(before), mask) << "the caller's umask is put back";
        EXPECT_EQ(show(text), "||||Sales|London");
        struct stat st {};
        stat(home.file("sys/defmnode").c_str(), &st);
        EXPECT_EQ(st.st_mode & 0777, 0660u) << std::oct << mask;
        const std::string file = home.read("sys/defmnode");
        EXPECT_EQ(file, std::string(1024, '\0') + text + std::string(1024 - text.size(), '\0'));
        home.write("sys/config", config({"Other", "", "", ""}, {}));
        EXPECT_EQ(read_def(1), text) << "a record once filled is read from the file";
    }
}

TEST(DefMNode, EmptyRecordsAndWholeTerminatedWrites) {
    testkit::TempHome home;
    // Only record 1 consults the configuration file, which is missing here.
    EXPECT_EQ(read_def(0), "");
    EXPECT_EQ(read_def(2), "");
    EXPECT_EQ(home.read("sys/defmnode"), "");
    // Older units all empty: record 1 stays empty and nothing is written.
    home.write("sys/config", config({"", "", "", ""}, {"P", "", "", ""}));
    EXPECT_EQ(read_def(1), "");
    EXPECT_EQ(home.read("sys/defmnode"), "");

    home.write("sys/defmnode", std::string(500, 'x'));
    EXPECT_EQ(read_def(0), "") << "an incomplete record reads as empty";
    home.write("sys/defmnode", "r0" + std::string(1022, '\0'));
    cl_WriteDefMNode(3, "third");
    cl_WriteDefMNode(0, std::string(2000, 'L').c_str());
    EXPECT_EQ(home.read("sys/defmnode"),
              std::string(1023, 'L') + std::string(2049, '\0') + "third" + std::string(1019, '\0'));
    EXPECT_EQ(read_def(0), std::string(1023, 'L'));
    EXPECT_EQ(read_def(2), "") << "the gap reads as empty records";
}

TEST(DefMNode, FailuresLoseNothingAndLeaveNothingOpen) {
    testkit::TempHome home;
    home.write("sys/defmnode", "r0" + std::string(1022, '\0'));
    const int fds = open_fd_count();
    static int record;
    for (int r : {-1, 2097152, 2147483647}) {
        record = r;
        EXPECT_TRUE(run([] { cl_WriteDefMNode(record, "x"); }).is(100, 4626)) << r;
        EXPECT_EQ(read_def(r), "") << r;
    }
    EXPECT_EQ(home.read("sys/defmnode"), "r0" + std::string(1022, '\0'));

    // The older units end at 136; a 60-byte file holds unit 1 only.
    static char buf[1024];
    home.write("sys/config", config({"A", "B", "", ""}, {}, 60));
    EXPECT_TRUE(run([] { cl_ReadDefMNode(1, buf); }).is(102, 1420));
    EXPECT_EQ(show(buf), "||||A") << "the partial name stays in the buffer";
    std::remove(home.file("sys/config").c_str());
    EXPECT_TRUE(run([] { cl_ReadDefMNode(1, buf); }).is(1, ENOENT));
    EXPECT_EQ(home.read("sys/defmnode").size(), 1024u);

    std::remove(home.file("sys/defmnode").c_str());
    mkdir(home.file("sys/defmnode").c_str(), 0700);  // a directory cannot be opened read-write
    EXPECT_TRUE(run([] { cl_WriteDefMNode(0, "x"); }).is(1, EISDIR));
    EXPECT_EQ(open_fd_count(), fds);
}

}  // namespace
