// Mail nodes: the primary one of the configuration file, the default mail
// node file (exact bytes, modes, what an escape leaves), the display form,
// wildcard resolution and counterpart removal in O/R names.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "testkit.hpp"

namespace {

using namespace testkit;  // open_fd_count, packed, run, show
using Units = std::array<std::string, 4>;

TEST(InPlaceRewrites, DisplayFormWildcardsAndCounterparts) {
    const auto display = cl_SetNodeForDisplay, route = cl_SimplifyRoute;
    const std::string a(5000, 'a'), b(4095, 'b');
    const struct { void (*rewrite)(char *); std::string in, out; } rows[] = {
        // The display form drops trailing commas of the units and trailing slashes after them.
        {display, "A,B,,", "A,B"}, {display, "A,,B", "A,,B"}, {display, ",,,", ""}, {display, "A,B,,/C,D//", "A,B/C,D"},
        {display, "A/", "A"}, {display, "A,,/", "A"}, {display, "A//B/", "A//B"}, {display, "/C", "/C"}, {display, ",,/C", "/C"},
        {display, "", ""}, {display, "/", ""}, {display, ",/,", "/,"}, {display, "A/,/,//", "A/,/,"},
        {display, a, a.substr(0, 4095)}, {display, b + ",", b},  // the work buffer holds 4095 characters
        // '#' ends a group of 32 fields; field i + 64 is the counterpart of field i.
        {route, "Smith||||*##||||Sales", "Smith||||##||||Sales"}, {route, "Smith||||*##||||*", "Smith||||*##||||"},
        {route, "Smith|||||Dev##|||||*x", "Smith|||||Dev##|||||"}, {route, "Smith||||||*", "Smith||||||*"},
        {route, "Smith|||||||x*##|||||||y", "Smith|||||||x*##|||||||y"}, {route, "*|Jo|Q|Jr|Sales", "*||||Sales"},
        {route, "*|Jo##Smith", "|Jo##Smith"},  // the surname wildcard gave way to its counterpart: the rest stays
        {route, "*|Jo##*|Jo", "*|##|Jo"},
        // Fields 64 to 115 and 128 go: u0, a, b, y (115) and c; z (116) stays.
        {cl_RemoveTxTFields, "Smith#g1#u0|a#b|||||||||||||||||||y|z#c|e#f", "Smith#g1#|#||||||||||||||||||||z#|e#f"},
    };
    for (const auto &row : rows) {
        std::string text = packed(row.in);
        row.rewrite(text.data());
        EXPECT_EQ(show(text.c_str()), row.out) << row.in.substr(0, 30);
    }
    // The name library writes the same text field by field, and reads it back.
    char built[64], field[8];
    nm_ParsedORN parsed;
    nm_InitORN(built, &parsed);
    for (int f : {68, 0, 4}) nm_PutFieldStr(built, &parsed, f, f == 68 ? "Sales" : f ? "*" : "Smith");
    EXPECT_EQ(show(built), "Smith||||*##||||Sales");
    EXPECT_STREQ(nm_GetFieldStr(built, &parsed, 68, field, sizeof field), "Sales");
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

std::string read_def(int record) {
    char buf[1024];
    cl_ReadDefMNode(record, buf);
    return buf;
}

// The primary mail node, then the default mail node file: created with
// mode 0660, record 1 filled from the older mail node, whole records, and
// failures that lose nothing and leave nothing open.
TEST(MailNodeFiles, PrimaryAndDefault) {
    const std::string k32(32, 'U');
    const std::pair<Units, std::string> rows[] = {
        {{"", "", "", ""}, ""}, {{"A", "", "C", ""}, "A|C"}, {{"", "B", "", ""}, "|B"}, {{k32, "X", "", ""}, k32 + "|X"},
        {{"Sales", "London", "Europe", "World"}, "Sales|London|Europe|World"}, {{"A", "", "", k32}, "A|" + k32},
    };
    TempHome home;
    static char buf[1024];  // 136 bytes for the primary mail node
    for (const auto &[units, node] : rows) {
        home.write("sys/config", config({"old", "", "", ""}, units));
        std::memset(buf, 'Z', 136);
        EXPECT_EQ(cl_ReadPMN(buf), buf + 4);
        EXPECT_EQ(show(buf), "||||" + node);
    }
    const int fds = open_fd_count();
    // 220 bytes: the read at 204 gets 16 bytes, after units 1 and 2 are in.
    home.write("sys/config", config({}, {"A", "B", "C", "D"}, 220));
    EXPECT_TRUE(run([] { cl_ReadPMN(buf); }).is(100, 4624));
    EXPECT_EQ(show(buf), "||||A|B");
    EXPECT_EQ(open_fd_count(), fds);
    // A configuration file that cannot be positioned (a pipe, kept open for
    // writing so that opening it does not wait) is neither read nor shown.
    std::remove(home.file("sys/config").c_str());
    ASSERT_EQ(mkfifo(home.file("sys/config").c_str(), 0600), 0);
    const int writer = open(home.file("sys/config").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_TRUE(run([] { cl_ReadPMN(buf); }).is(100, 4623));
    close(writer);
    std::remove(home.file("sys/config").c_str());
    EXPECT_EQ(open_fd_count(), fds);

    // The default mail node file.
    home.write("sys/config", config({"Sales", "London", "", ""}, {}));
    const mode_t before = umask(077);
    EXPECT_EQ(show(read_def(1)), "||||Sales|London");
    EXPECT_EQ(umask(before), 077u) << "the caller's umask is put back";
    struct stat st {};
    stat(home.file("sys/defmnode").c_str(), &st);
    EXPECT_EQ(st.st_mode & 0777, 0660u);
    const std::string name = packed("||||Sales|London");
    EXPECT_EQ(home.read("sys/defmnode"), std::string(1024, '\0') + name + std::string(1024 - name.size(), '\0'));
    home.write("sys/config", config({"Other", "", "", ""}, {}));
    EXPECT_EQ(read_def(1), name) << "a record once filled is read from the file";

    std::remove(home.file("sys/defmnode").c_str());
    std::remove(home.file("sys/config").c_str());
    EXPECT_EQ(read_def(0) + read_def(2), "") << "only record 1 consults the configuration file";
    EXPECT_EQ(home.read("sys/defmnode"), "");
    // Older units all empty: record 1 stays empty and nothing is written.
    home.write("sys/config", config({"", "", "", ""}, {"P", "", "", ""}));
    EXPECT_EQ(read_def(1), "");
    EXPECT_EQ(home.read("sys/defmnode"), "");
    home.write("sys/defmnode", "r0" + std::string(1022, '\0'));
    cl_WriteDefMNode(3, "third");
    static int record;
    for (int r : {-1, 2097152, 2147483647}) {
        record = r;
        EXPECT_TRUE(run([] { cl_WriteDefMNode(record, "x"); }).is(100, 4626)) << r;
        EXPECT_EQ(read_def(r), "") << r;
    }
    cl_WriteDefMNode(0, std::string(2000, 'L').c_str());
    EXPECT_EQ(home.read("sys/defmnode"), std::string(1023, 'L') + std::string(2049, '\0') + "third" + std::string(1019, '\0'));
    EXPECT_EQ(read_def(2), "") << "the gap reads as empty records";

    // The older units end at 136; a 60-byte file holds unit 1 only.
    home.write("sys/config", config({"A", "B", "", ""}, {}, 60));
    EXPECT_TRUE(run([] { cl_ReadDefMNode(1, buf); }).is(102, 1420));
    EXPECT_EQ(show(buf), "||||A") << "the partial name stays in the buffer";
    std::remove(home.file("sys/defmnode").c_str());
    mkdir(home.file("sys/defmnode").c_str(), 0700);  // a directory cannot be opened read-write
    EXPECT_TRUE(run([] { cl_WriteDefMNode(0, "x"); }).is(1, EISDIR));
    EXPECT_EQ(open_fd_count(), fds);
}

}  // namespace
