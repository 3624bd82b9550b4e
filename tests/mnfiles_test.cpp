// The primary mail node of the configuration file and the default mail
// node file: exact bytes, lengths, modes, and what an escape leaves behind.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "testkit.hpp"

namespace {

using testkit::open_fd_count;
using testkit::packed;
using testkit::run;
using testkit::show;
using Units = std::array<std::string, 4>;

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

std::string record_of(const std::string &file, int record) { return file.substr(record * 1024, 1024); }

std::string read_def(int record) {
    char buf[1024];
    cl_ReadDefMNode(record, buf);
    return buf;
}

mode_t mode_of(const std::string &path) {
    struct stat st {};
    stat(path.c_str(), &st);
    return st.st_mode & 0777;
}

const std::string k32(32, 'U');

TEST(ReadPMN, UnitsFollowOneAnotherWithoutGaps) {
    struct Case {
        Units units;
        std::string node;
    };
    const Case cases[] = {
        {{"", "", "", ""}, ""},
        {{"A", "", "C", ""}, "A|C"},
        {{"", "B", "", ""}, "|B"},
        {{"Sales", "London", "Europe", "World"}, "Sales|London|Europe|World"},
        {{k32, "X", "", ""}, k32 + "|X"},
        {{"A", "", "", k32}, "A|" + k32},
    };
    testkit::TempHome home;
    for (const Case &c : cases) {
        home.write("sys/config", config({"old", "", "", ""}, c.units));
        char buf[136];
        std::memset(buf, 'Z', sizeof buf);
        char *node = cl_ReadPMN(buf);
        EXPECT_EQ(node, buf + 4);
        EXPECT_EQ(show(buf), "||||" + c.node) << c.node;
    }
}

TEST(ReadPMN, ShortOrMissingFileEscapesWithEveryDescriptorClosed) {
    testkit::TempHome home;
    const int fds = open_fd_count();
    char buf[136] = {};

    auto missing = run([&] { cl_ReadPMN(buf); });
    EXPECT_TRUE(missing.is(1, ENOENT));
    EXPECT_EQ(open_fd_count(), fds);

    // 220 bytes: the read at 204 gets 16 bytes, after units 1 and 2 are in.
    home.write("sys/config", config({}, {"A", "B", "C", "D"}, 220));
    auto short_file = run([&] { cl_ReadPMN(buf); });
    EXPECT_TRUE(short_file.is(100, 4624));
    EXPECT_EQ(show(buf), "||||A|B");
    EXPECT_EQ(open_fd_count(), fds);
}

TEST(DefMNode, MissingFileIsCreated0660WhateverTheUmaskAndRecordOneFilled) {
    for (mode_t mask : {mode_t{077}, mode_t{022}, mode_t{0}}) {
        testkit::TempHome home;
        home.write("sys/config", config({"Sales", "London", "", ""}, {}));
        const mode_t before = umask(mask);
        testkit::TraceCapture traces;
        const std::string text = read_def(1);
        EXPECT_EQ(traces.named("cl_GetOldUXMN"),
                  (std::vector<testkit::TraceRecord>{{15, "cl_GetOldUXMN", 1}, {15, "cl_GetOldUXMN", 0}}));
        EXPECT_EQ(umask(before), mask) << "the caller's umask is put back";
        const std::string expected = packed("||||Sales|London");
        EXPECT_EQ(show(text), show(expected));
        EXPECT_EQ(mode_of(home.file("sys/defmnode")), 0660u) << std::oct << mask;
        const std::string file = home.read("sys/defmnode");
        ASSERT_EQ(file.size(), 2048u);
        EXPECT_EQ(record_of(file, 0), std::string(1024, '\0'));
        EXPECT_EQ(record_of(file, 1), expected + std::string(1024 - expected.size(), '\0'));
        EXPECT_EQ(read_def(1), expected) << "read again from the file";
    }
}

TEST(DefMNode, EmptyRecordsAndTheFallback) {
    testkit::TempHome home;
    // Record 0 never consults the configuration file, which is missing here.
    char buf[1024] = "x";
    auto record0 = run([&] { cl_ReadDefMNode(0, buf); });
    EXPECT_FALSE(record0.escaped);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(home.read("sys/defmnode").size(), 0u);

    // Older units all empty: record 1 stays empty and nothing is written.
    home.write("sys/config", config({"", "", "", ""}, {"P", "", "", ""}));
    EXPECT_EQ(read_def(1), "");
    EXPECT_EQ(home.read("sys/defmnode").size(), 0u);

    // An incomplete last record reads as empty.
    home.write("sys/defmnode", std::string(500, 'x'));
    EXPECT_EQ(read_def(0), "");
    // A record once filled is not refilled from the configuration file.
    cl_WriteDefMNode(1, "kept");
    home.write("sys/config", config({"Other", "", "", ""}, {}));
    EXPECT_EQ(read_def(1), "kept");
}

TEST(DefMNode, WritesAreWholeTerminatedRecords) {
    testkit::TempHome home;
    home.write("sys/config", config({}, {}));
    home.write("sys/defmnode", "r0" + std::string(1022, '\0'));
    cl_WriteDefMNode(3, "third");
    std::string file = home.read("sys/defmnode");
    ASSERT_EQ(file.size(), 4096u);
    EXPECT_EQ(file.substr(0, 2), "r0");
    EXPECT_EQ(record_of(file, 3), "third" + std::string(1019, '\0'));
    EXPECT_EQ(read_def(2), "");
    EXPECT_EQ(read_def(1), "") << "the gap reads as empty records";

    const std::string long_text(2000, 'L');
    cl_WriteDefMNode(0, long_text.c_str());
    file = home.read("sys/defmnode");
    EXPECT_EQ(record_of(file, 0), std::string(1023, 'L') + '\0');
    EXPECT_EQ(read_def(0), std::string(1023, 'L'));
    EXPECT_EQ(file.size(), 4096u);
}

TEST(DefMNode, BadRecordNumbersAndShortConfigurationLoseNothing) {
    testkit::TempHome home;
    home.write("sys/defmnode", "r0" + std::string(1022, '\0'));
    const int fds = open_fd_count();
    for (int record : {-1, 2097152, 2147483647}) {
        auto out = run([record] { cl_WriteDefMNode(record, "x"); });
        EXPECT_TRUE(out.is(100, 4626)) << record;
        EXPECT_EQ(read_def(record), "") << record;
    }
    EXPECT_EQ(home.read("sys/defmnode"), "r0" + std::string(1022, '\0'));

    // The older units end at 136; a 60-byte file holds unit 1 only.
    home.write("sys/config", config({"A", "B", "", ""}, {}, 60));
    char buf[1024] = {};
    auto out = run([&] { cl_ReadDefMNode(1, buf); });
    EXPECT_TRUE(out.is(102, 1420));
    EXPECT_EQ(show(buf), "||||A") << "the partial name stays in the buffer";
    EXPECT_EQ(open_fd_count(), fds);
    EXPECT_EQ(home.read("sys/defmnode").size(), 1024u);

    std::remove(home.file("sys/config").c_str());
    out = run([&] { cl_ReadDefMNode(1, buf); });
    EXPECT_TRUE(out.is(1, ENOENT));
    EXPECT_EQ(open_fd_count(), fds);
}

TEST(DefMNode, UnopenableFileEscapesUnchanged) {
    testkit::TempHome home;
    mkdir(home.file("sys/defmnode").c_str(), 0700);  // a directory cannot be opened read-write
    const int fds = open_fd_count();
    auto out = run([] { cl_WriteDefMNode(0, "x"); });
    EXPECT_TRUE(out.is(1, EISDIR));
    EXPECT_EQ(open_fd_count(), fds);
}

}  // namespace
