// The sample programs run as subprocesses against a fresh server home:
// exit statuses, standard output and error, the user directory's rows.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "testkit.hpp"

extern char **environ;

namespace {

const std::vector<std::string> kNames = {"qx-inithome", "qx-useradd",  "qx-usershow",   "qx-userlist",    "qx-userdel",
                                         "qx-defmnode", "qx-pmn",      "qx-startcount", "qx-checkinstall"};

struct Result {
    int status = -1;
    std::string out, err;
};

// Starts a program of the build with its output into files; returns the pid.
pid_t start(const std::string &program, const std::vector<std::string> &args, const std::string &out,
            const std::string &err) {
    std::string path = program.find('/') == std::string::npos ? std::string(QX_PROGRAM_DIR) + "/" + program : program;
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(path.c_str()));
    for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

int wait_status(pid_t pid) {
    int raw = 0;
    if (pid < 0 || waitpid(pid, &raw, 0) != pid) return -1;
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
}

std::string slurp(const std::string &path) {
    std::string text;
    if (FILE *f = std::fopen(path.c_str(), "rb")) {
        char buf[4096];
        for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) text.append(buf, n);
        std::fclose(f);
    }
    return text;
}

class Programs : public ::testing::Test {
protected:
    // out_path: where standard output goes instead of a scratch file.
    Result run(const std::string &program, const std::vector<std::string> &args = {},
               const std::string &out_path = "") {
        std::string out = out_path.empty() ? scratch_ + "/out" : out_path, err = scratch_ + "/err";
        Result r;
        r.status = wait_status(start(program, args, out, err));
        if (out_path.empty()) r.out = slurp(out);
        r.err = slurp(err);
        return r;
    }
    void init_home(const std::string &mail_node = "Sales,London") {
        Result r = run("qx-inithome", {mail_node});
        ASSERT_EQ(r.status, 0) << r.err;
    }
    // Every row of the user directory as "<packed name shown>=<display>".
    std::vector<std::string> rows() {
        std::vector<std::string> out;
        sqlite3 *db = nullptr;
        std::string path = home_.file("sys/users.db");
        if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
            sqlite3_stmt *st = nullptr;
            if (sqlite3_prepare_v2(db, "SELECT name, display, added FROM users ORDER BY name", -1, &st, nullptr) ==
                SQLITE_OK) {
                while (sqlite3_step(st) == SQLITE_ROW) {
                    std::string name(static_cast<const char *>(sqlite3_column_blob(st, 0)),
                                     static_cast<std::size_t>(sqlite3_column_bytes(st, 0)));
                    out.push_back(testkit::show(name) + "=" + reinterpret_cast<const char *>(sqlite3_column_text(st, 1)) +
                                  "@" + std::to_string(sqlite3_column_int64(st, 2)));
                }
            }
            sqlite3_finalize(st);
        }
        sqlite3_close(db);
        return out;
    }
    static std::string without_time(const std::string &row) { return row.substr(0, row.rfind('@')); }

    testkit::TempHome home_;
    std::string scratch_ = [] {
        char pattern[] = "/tmp/cl-programs-XXXXXX";
        return std::string(mkdtemp(pattern));
    }();
    ~Programs() override {
        std::error_code ignored;
        std::filesystem::remove_all(scratch_, ignored);
    }
};

TEST_F(Programs, HelpOnEveryNameAndTheDispatcher) {
    for (const auto &name : kNames) {
        Result r = run(name, {"--help"});
        EXPECT_EQ(r.status, 0) << name;
        EXPECT_EQ(r.out.rfind("usage: " + name, 0), 0u) << name << ": " << r.out;
        EXPECT_NE(r.out.find("\n\n"), std::string::npos) << name;  // a description follows the usage
        EXPECT_EQ(r.err, "") << name;
        Result through = run("qxadm", {name, "--help"});
        EXPECT_EQ(through.out, r.out) << name;
        Result version = run(name, {"x", "--version"});  // options may follow operands
        EXPECT_EQ(version.status, 0) << name;
        EXPECT_EQ(version.out.rfind(name + " (cl) ", 0), 0u) << version.out;
    }
    Result list = run("qxadm", {"--help"});
    EXPECT_EQ(list.status, 0);
    for (const auto &name : kNames) EXPECT_NE(list.out.find("  " + name + "\n"), std::string::npos) << name;
    EXPECT_EQ(run("qxadm", {"--version"}).out.rfind("qxadm (cl) ", 0), 0u);
}

// Usage errors print an error line naming the fault (when the shape of the
// arguments is not the whole story) and the usage text; nothing is created.
TEST_F(Programs, UsageErrorsShowTheUsageTextWithStatus2) {
    struct Case {
        std::string program;
        std::vector<std::string> args;
        std::string usage;  // stderr starts with it
    };
    const std::string unknown = " : E100-4768 An option is not known.\n  Option: ";
    const std::string dispatch = "usage: qxadm NAME [ARGUMENT...]\n";
    const std::vector<Case> cases = {
        {"qx-useradd", {}, "usage: qx-useradd 'Given Surname/Unit,Unit[/attribute=value...]'\n"},
        {"qx-useradd", {"a", "b"}, "usage: qx-useradd 'Given Surname/Unit,Unit[/attribute=value...]'\n"},
        {"qx-usershow", {}, "usage: qx-usershow 'Given Surname/Unit,Unit'\n"},
        {"qx-userdel", {"a", "b"}, "usage: qx-userdel 'Given Surname/Unit,Unit'\n"},
        {"qx-userlist", {"x"}, "usage: qx-userlist\n"},
        {"qx-pmn", {"x"}, "usage: qx-pmn\n"},
        {"qx-checkinstall", {"x"}, "usage: qx-checkinstall\n"},
        {"qx-defmnode", {"one"}, "usage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-defmnode", {"-1"}, "qx-defmnode" + unknown + "-1\nusage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-defmnode", {"--", "-1"}, "usage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-defmnode", {"1", "A", "B"}, "usage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-startcount", {"--inc"}, "qx-startcount" + unknown + "--inc\nusage: qx-startcount [--count]\n"},
        {"qx-startcount", {"--count=2"}, "qx-startcount" + unknown + "--count=2\n"},
        {"qx-inithome", {"A", "B"}, "usage: qx-inithome [MAILNODE]\n"},
        {"qx-inithome", {"--frob"}, "qx-inithome" + unknown + "--frob\nusage: qx-inithome [MAILNODE]\n"},
        {"qx-useradd", {"Ann Lee/Sales", "-x"}, "qx-useradd" + unknown + "-x\n"},
        {"qx-userlist", {"--help=all"}, "qx-userlist" + unknown + "--help=all\n"},
        {"qxadm", {}, "qxadm : E100-4770 The program name is missing.\n\n" + dispatch},
        {"qxadm", {"--frob", "qx-pmn"}, "qxadm" + unknown + "--frob\n" + dispatch},
        {"qxadm", {"x"}, "qxadm : E100-4769 There is no program of that name.\n  Program: x\nqx-inithome, "},
    };
    for (const auto &c : cases) {
        Result r = run(c.program, c.args);
        EXPECT_EQ(r.status, 2) << c.program << " " << c.usage;
        EXPECT_EQ(r.err.substr(0, c.usage.size()), c.usage) << c.program;
        EXPECT_EQ(r.out, "") << c.program;
    }
    struct stat st;
    EXPECT_NE(stat(home_.file("sys/config").c_str(), &st), 0);  // not set up by "--frob"
}

TEST_F(Programs, AnUnknownNameListsTheNames) {
    std::string link = scratch_ + "/qx-bogus";
    ASSERT_EQ(symlink((std::string(QX_PROGRAM_DIR) + "/qxadm").c_str(), link.c_str()), 0);
    Result r = run(link, {"x"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.rfind("qx-inithome, qx-useradd, ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("qx-checkinstall, qxadm?\nqx-bogus : E100-4769 "), std::string::npos) << r.err;
}

TEST_F(Programs, InitHomeWritesTheFilesOnceAndShowsTheMailNodes) {
    init_home("Sales,London");
    std::string config = home_.read("sys/config");
    ASSERT_GE(config.size(), 268u);
    EXPECT_EQ(std::string(config.c_str() + 140), "Sales");
    EXPECT_EQ(std::string(config.c_str() + 172), "London");
    EXPECT_EQ(std::string(config.c_str() + 204), "");
    EXPECT_EQ(std::string(config.c_str() + 8), "Sales");
    EXPECT_EQ(std::string(config.c_str() + 40), "London");
    EXPECT_EQ(home_.read("sys/sysdata"), std::string(48, '\0'));
    struct stat st;
    EXPECT_EQ(stat(home_.file("sys/install").c_str(), &st), 0);
    for (const char *file : {"sys/config", "sys/sysdata"}) {
        ASSERT_EQ(stat(home_.file(file).c_str(), &st), 0) << file;
        EXPECT_EQ(st.st_mode & 0777, 0660u) << file;
    }

    Result again = run("qx-inithome", {"Other"});
    EXPECT_EQ(again.status, 100);
    EXPECT_NE(again.err.find("The server home is set up already"), std::string::npos) << again.err;
    EXPECT_EQ(home_.read("sys/config"), config);

    EXPECT_EQ(run("qx-pmn").out, "Primary mail node: Sales,London\n");
    // Record 1 starts out as the configuration's older mail node.
    EXPECT_EQ(run("qx-defmnode").out, "Default mail node 1: Sales,London\n");
    Result set = run("qx-defmnode", {"2", "Support,Paris"});
    EXPECT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(set.out, "Default mail node 2: Support,Paris\n");
    EXPECT_EQ(run("qx-defmnode", {"2"}).out, "Default mail node 2: Support,Paris\n");
    EXPECT_EQ(run("qx-defmnode", {"3"}).out, "Default mail node 3: (none)\n");
    EXPECT_EQ(run("qx-defmnode", {"2", "Sales/surname=Smith"}).status, 103);  // not a mail node
    EXPECT_EQ(run("qx-defmnode", {"2"}).out, "Default mail node 2: Support,Paris\n");
}

// The programs' own bounds, taken at the limit: a unit of 32 characters,
// the last record, and a typed argument of 4095 bytes (one more is refused).
TEST_F(Programs, BoundsAreTakenAtTheirLimit) {
    const std::string unit(32, 'U');
    Result home = run("qx-inithome", {unit + ",London"});
    ASSERT_EQ(home.status, 0) << home.err;
    EXPECT_EQ(std::string(home_.read("sys/config").c_str() + 140, 32), unit);
    Result last = run("qx-defmnode", {"1023", "Sales,London"});
    EXPECT_EQ(last.status, 0) << last.err;
    EXPECT_EQ(last.out, "Default mail node 1023: Sales,London\n");
    const std::string prefix = "Ann Lee/Sales/organization=Acme/title=";
    EXPECT_EQ(run("qx-usershow", {prefix + std::string(4095 - prefix.size(), 'x')}).status, 100);  // read, not found
    EXPECT_EQ(run("qx-usershow", {prefix + std::string(4096 - prefix.size(), 'x')}).status, 103);
}

TEST_F(Programs, StartCountAndInstallationCheck) {
    Result bare = run("qx-checkinstall");  // a home that is not set up is no installation
    EXPECT_EQ(bare.status, 1);
    EXPECT_EQ(bare.out, "The installation is not complete: " + home_.file("sys/config") + " is missing.\n");
    init_home();
    EXPECT_EQ(run("qx-startcount").out, "Start count: 0\nLast start: never\n");
    Result counted = run("qx-startcount", {"--count"});
    EXPECT_EQ(counted.status, 0) << counted.err;
    EXPECT_EQ(counted.out.rfind("Start count: 1\nLast start: 20", 0), 0u) << counted.out;
    std::string sysdata = home_.read("sys/sysdata");
    EXPECT_EQ(static_cast<unsigned char>(sysdata[40]), 1);
    EXPECT_EQ(run("qx-startcount").out, counted.out);

    EXPECT_EQ(run("qx-checkinstall").status, 0);
    std::filesystem::rename(home_.file("sys/sysdata"), home_.file("sysdata"));
    EXPECT_EQ(run("qx-checkinstall").out, "The installation is not complete: " + home_.file("sys/sysdata") + " is missing.\n");
    std::filesystem::rename(home_.file("sysdata"), home_.file("sys/sysdata"));
    home_.write("sys/install/base.inst", "");
    Result incomplete = run("qx-checkinstall");
    EXPECT_EQ(incomplete.status, 1);
    EXPECT_NE(incomplete.out.find("not complete"), std::string::npos);
}

TEST_F(Programs, AddShowListDelete) {
    init_home();
    Result added = run("qx-useradd", {"John Smith/Sales,London"});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.out, "Added: John Smith /Sales,London\n");
    ASSERT_EQ(rows().size(), 1u);
    EXPECT_EQ(without_time(rows()[0]), "Smith|John|||Sales|London=John Smith /Sales,London");
    // The command line is in the event log.
    EXPECT_NE(home_.read("log/events").find("qx-useradd John Smith/Sales,London"), std::string::npos);

    ASSERT_EQ(run("qx-useradd", {"Ann Lee/Sales,London"}).status, 0);
    EXPECT_EQ(run("qx-userlist").out, "Ann Lee /Sales,London\nJohn Smith /Sales,London\n");
    // Another typing of the same name finds the same user.
    EXPECT_EQ(run("qx-usershow", {"John Smith/Sales,London/"}).out, "John Smith /Sales,London\n");

    Result deleted = run("qx-userdel", {"John Smith/Sales,London"});
    EXPECT_EQ(deleted.status, 0) << deleted.err;
    EXPECT_EQ(deleted.out, "Deleted: John Smith /Sales,London\n");
    EXPECT_EQ(run("qx-userlist").out, "Ann Lee /Sales,London\n");
    for (const char *program : {"qx-userdel", "qx-usershow"}) {
        Result gone = run(program, {"John Smith/Sales,London"});
        EXPECT_EQ(gone.status, 100) << program;
        EXPECT_EQ(gone.err, std::string(program) + " : E102-1611 The user does not exist.\n\n");
    }
}

TEST_F(Programs, AttributesFillFieldsOfTheName) {
    init_home();
    Result r = run("qx-useradd", {"Mary Jones/Sales,London/organization=Acme/country=GB"});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(rows().size(), 1u);
    EXPECT_EQ(rows()[0].rfind("Jones|Mary|||Sales|London|||Acme|GB=", 0), 0u) << rows()[0];
    EXPECT_EQ(r.out, "Added: " + without_time(rows()[0]).substr(rows()[0].find('=') + 1) + "\n");
    // The attributes in another order name the same user.
    Result shown = run("qx-usershow", {"Mary Jones/Sales,London/country=GB/organization=Acme"});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_EQ("Added: " + shown.out, r.out);
}

TEST_F(Programs, RefusedAddsChangeNothing) {
    init_home();
    ASSERT_EQ(run("qx-useradd", {"John Smith/Sales,London"}).status, 0);
    const std::vector<std::string> before = rows();
    struct Case {
        std::string name;
        int status;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"John Smith/Sales,London", 100, "qx-useradd : E102-1612 The user exists already.\n\n"},
        {"John Smith/Sales,London/", 100, "qx-useradd : E102-1612 The user exists already.\n\n"},
        {"John Smith", 103, "qx-useradd : E100-8016 The name has no mail node.\n\n"},
        {"Ann Lee/Sales/title=Boss", 103, "qx-useradd : E100-8119 "},
        {"Ann Lee/Sales/colour=red", 103, "qx-useradd : E100-4634 Unknown attribute name.\n\n"},
        {std::string(5000, 'a'), 103, "qx-useradd : E100-9801 "},
    };
    for (const auto &c : cases) {
        Result r = run("qx-useradd", {c.name});
        EXPECT_EQ(r.status, c.status) << c.name;
        EXPECT_EQ(r.err.substr(0, c.message.size()), c.message) << c.name;
        EXPECT_EQ(r.out, "") << c.name;
        EXPECT_EQ(rows(), before) << c.name;  // timestamps included
    }
}

TEST_F(Programs, TwentyConcurrentAddsLoseNone) {
    init_home();
    constexpr int kProcesses = 20;
    std::vector<pid_t> pids;
    for (int i = 0; i < kProcesses; ++i) {
        std::string name = std::string("Ann Lee") + static_cast<char>('a' + i) + "/Sales,London";
        std::string base = scratch_ + "/p" + std::to_string(i);
        pids.push_back(start("qx-useradd", {name}, base + ".out", base + ".err"));
    }
    for (int i = 0; i < kProcesses; ++i)
        EXPECT_EQ(wait_status(pids[i]), 0) << slurp(scratch_ + "/p" + std::to_string(i) + ".err");
    std::vector<std::string> all = rows();
    ASSERT_EQ(all.size(), static_cast<std::size_t>(kProcesses));
    for (int i = 0; i < kProcesses; ++i) {
        std::string surname = std::string("Lee") + static_cast<char>('a' + i);
        bool found = false;
        for (const auto &row : all) found = found || row.rfind(surname + "|Ann|", 0) == 0;
        EXPECT_TRUE(found) << surname;
    }
}

TEST_F(Programs, DirectoryFailuresAreCatalogued) {
    // No home at all: the directory cannot be opened.
    Result missing = run("qx-userlist");
    setenv("QX_HOME", (scratch_ + "/nowhere").c_str(), 1);
    Result nowhere = run("qx-userlist");
    setenv("QX_HOME", home_.path().c_str(), 1);
    EXPECT_EQ(missing.status, 0);  // an empty home's directory is created on first use
    EXPECT_EQ(nowhere.status, 100);
    EXPECT_EQ(nowhere.err, "qx-userlist : E102-1613 The user directory cannot be opened.\n\n");

    home_.write("sys/users.db", std::string(4096, 'x'));
    Result damaged = run("qx-userlist");
    EXPECT_EQ(damaged.status, 105);
    EXPECT_EQ(damaged.err, "qx-userlist : E102-1615 The user directory is damaged.\n\n");
}

// Every line of the listing names its user again, for qx-usershow and
// qx-userdel alike, and no two users list alike: a name whose listing would
// name another user, or none, is refused.
TEST_F(Programs, EveryListedLineNamesItsUser) {
    init_home();
    struct Case {
        std::string name;
        int status;
        std::string error;
    };
    const std::vector<Case> cases = {
        {"Ann Lee/Sales/Ac!me", 0, ""},
        {"Ann Lee/Sales/organization=Ac!me", 103, " E100-4808 "},  // would list as the name above
        {"Bo Ek/Sales,London/ou3=Zed", 0, ""},
        {"Bo Ek/Sales/organization=Acme/country=DE/utf8Surname=\u00C9kstr\u00F6m", 0, ""},
        {"Bo Ek/Sales/country=ZZZZ", 103, " E100-4809 "},
        {"Bo Ek/Sales,London/ou3=" + std::string(33, 'x'), 103, " E100-4806 "},
        {"Bo Ek/Sales/utf8Surname=E\x01k", 103, " E100-4864 "},
        {"Cy Fox/Sales/Acme/DE(T1|v1)", 103, " E100-8119 "},
        {"Cy Fox/Sales/ext1Type=T1/ext1Value=v1", 103, " E100-8119 "},
        {"Di Gu/Sales\\=Dev", 103, " E100-4763 "},  // the unit "Sales=Dev" would list as an attribute
    };
    for (const auto &c : cases) {
        Result r = run("qx-useradd", {c.name});
        EXPECT_EQ(r.status, c.status) << c.name << ": " << r.err;
        EXPECT_NE(r.err.find(c.error), std::string::npos) << c.name << ": " << r.err;
    }
    std::vector<std::string> lines;
    std::istringstream listing(run("qx-userlist").out);
    for (std::string line; std::getline(listing, line);) lines.push_back(line);
    EXPECT_EQ(lines.size(), 3u);
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size());
    for (const auto &line : lines) {
        EXPECT_EQ(run("qx-usershow", {"--", line}).out, line + "\n");
        EXPECT_EQ(run("qx-userdel", {"--", line}).out, "Deleted: " + line + "\n");
    }
    EXPECT_EQ(rows().size(), 0u);
}

// A mail node's typed units are judged as a user's are, before anything is
// written; its other fields keep their rules.
TEST_F(Programs, MailNodeUnitsAreCheckedAsAUsersAre) {
    struct Case {
        std::string program;
        std::vector<std::string> args;
        std::string error;  // each refused with status 103
    };
    const std::vector<Case> cases = {
        {"qx-inithome", {"A,B,C,D,E,F"}, " E100-8003 "},  // the conversion joins E and F into D
        {"qx-inithome", {"John Smith"}, " E100-8005 "},
        {"qx-inithome", {"Sales.Dev"}, " E100-8010 "},
        {"qx-inithome", {std::string(33, 'x')}, " E100-8004 "},
        {"qx-defmnode", {"2", "John Smith"}, " E100-8005 "},
        {"qx-defmnode", {"2", "Sales\x01"}, " E100-8013 "},
        {"qx-defmnode", {"2", "Sales\\\\Dev"}, " E100-8013 "},  // an escaped backslash stays a backslash
        {"qx-defmnode", {"2", ",Sales"}, " E100-8016 "},
        {"qx-defmnode", {"2", "A,B,C,D,E"}, " E100-8003 "},
        {"qx-defmnode", {"2", "Sales/Ac#me"}, " E100-4764 "},  // a positional organization
    };
    for (const auto &c : cases) {
        if (c.program == "qx-defmnode" && home_.read("sys/config").empty()) init_home();
        Result r = run(c.program, c.args);
        EXPECT_EQ(r.status, 103) << c.args.back() << ": " << r.err;
        EXPECT_NE(r.err.find(c.error), std::string::npos) << c.args.back() << ": " << r.err;
    }
    EXPECT_EQ(run("qx-pmn").out, "Primary mail node: Sales,London\n");
    EXPECT_EQ(run("qx-defmnode", {"2"}).out, "Default mail node 2: (none)\n");
    for (const std::string mail_node : {"Sales_Dev,London", "Sales/organization=Acme", "/Acme"})
        EXPECT_EQ(run("qx-defmnode", {"2", mail_node}).status, 0) << mail_node;
}

// Of set-ups started at once on one new home, one wins; the others change
// nothing and say that the home is set up already.
TEST_F(Programs, OneOfConcurrentSetUpsWins) {
    constexpr int kTries = 5, kProcesses = 6;
    for (int t = 0; t < kTries; ++t) {
        const std::string home = scratch_ + "/home" + std::to_string(t);
        setenv("QX_HOME", home.c_str(), 1);
        std::vector<pid_t> pids;
        for (int i = 0; i < kProcesses; ++i) {
            std::string base = scratch_ + "/p" + std::to_string(i);
            pids.push_back(start("qx-inithome", {"Node" + std::to_string(i)}, base + ".out", base + ".err"));
        }
        int winner = -1;
        for (int i = 0; i < kProcesses; ++i) {
            int status = wait_status(pids[i]);
            std::string err = slurp(scratch_ + "/p" + std::to_string(i) + ".err");
            if (status == 0 && winner < 0) {
                winner = i;
                continue;
            }
            EXPECT_EQ(status, 100) << err;
            EXPECT_EQ(err, "qx-inithome : E100-4761 The server home is set up already; nothing was changed.\n\n");
        }
        ASSERT_GE(winner, 0);
        EXPECT_EQ(run("qx-pmn").out, "Primary mail node: Node" + std::to_string(winner) + "\n");
        std::set<std::string> files;  // no temporary file is left behind
        for (const auto &e : std::filesystem::directory_iterator(home + "/sys")) files.insert(e.path().filename());
        EXPECT_EQ(files, (std::set<std::string>{".lock0", "config", "install", "sysdata"}));
    }
    setenv("QX_HOME", home_.path().c_str(), 1);
}

// Failures the programs find themselves, each with its documented status: a
// damaged or short file of the home is named, never shown; a failed write of
// standard output is an error even after the change was made.
TEST_F(Programs, DamagedFilesAndFailedOutputAreReported) {
    init_home("Sales,London");
    ASSERT_EQ(run("qx-defmnode", {"2", "Support"}).status, 0);
    const std::string config = home_.read("sys/config"), sysdata = home_.read("sys/sysdata"),
                      defmnode = home_.read("sys/defmnode"), home = home_.path();
    std::string control = config, after_end = config, record = defmnode, packed = defmnode;
    control[141] = '\x01';                  // "S\x01les"
    after_end[160] = 'x';                    // inside unit 1's field, after its terminator
    record[1024 + 100] = 'x';                // after record 1's terminator
    packed.replace(2048 + 4, 3, "S\x01p");  // record 2's unit
    const std::string damaged = " : E100-4766 A file of the server home is damaged; it was not shown.\n  File: ";
    struct Case {
        std::string file, bytes;  // written first when file is not empty, put back after
        std::string program;
        std::vector<std::string> args;
        int status;
        std::string err;
    };
    const std::vector<Case> cases = {
        {"sys/config", control, "qx-pmn", {}, 105, "qx-pmn" + damaged + home + "/sys/config\n"},
        {"sys/config", after_end, "qx-pmn", {}, 105, "qx-pmn" + damaged + home + "/sys/config\n"},
        {"sys/config", std::string(512, '\0'), "qx-pmn", {}, 105, "qx-pmn" + damaged + home + "/sys/config\n"},
        {"sys/config", config.substr(0, 200), "qx-pmn", {}, 105,
         "qx-pmn : E100-4624 The configuration file is too short.\n  File: " + home + "/sys/config\n"},
        {"sys/config", config.substr(0, 100), "qx-defmnode", {"1"}, 105,
         "qx-defmnode" + damaged + home + "/sys/config\n"},
        {"sys/defmnode", record, "qx-defmnode", {"1"}, 105, "qx-defmnode" + damaged + home + "/sys/defmnode\n"},
        {"sys/defmnode", packed, "qx-defmnode", {"2"}, 105, "qx-defmnode" + damaged + home + "/sys/defmnode\n"},
        {"sys/sysdata", sysdata.substr(0, 20), "qx-startcount", {}, 105,
         "qx-startcount : E3-6015 The system data file is too short to hold the start count and date.\n  File: " +
             home + "/sys/sysdata\n"},
        {"", "", "qx-defmnode", {"1024"}, 103, "qx-defmnode : E100-4767 "},
        {"", "", "qx-defmnode", {"2097151", "X,Y"}, 103, "qx-defmnode : E100-4767 "},
    };
    for (const auto &c : cases) {
        if (!c.file.empty()) home_.write(c.file, c.bytes);
        Result r = run(c.program, c.args);
        EXPECT_EQ(r.status, c.status) << c.program << " " << c.file << ": " << r.err;
        EXPECT_EQ(r.err.substr(0, c.err.size()), c.err) << c.program << " " << c.file;
        EXPECT_EQ(r.out, "") << c.program << " " << c.file;
        if (c.file == "sys/config") home_.write(c.file, config);
        if (c.file == "sys/defmnode") home_.write(c.file, defmnode);
        if (c.file == "sys/sysdata") home_.write(c.file, sysdata);
    }
    EXPECT_EQ(home_.read("sys/defmnode").size(), 3u * 1024);

    const std::string unwritten = " : E100-4765 Standard output could not be written.\n  No space left on device";
    Result added = run("qx-useradd", {"Ann Lee/Sales,London"}, "/dev/full");
    EXPECT_EQ(added.status, 100);
    EXPECT_EQ(added.err, "qx-useradd" + unwritten + "; the user was added all the same.\n");
    EXPECT_EQ(rows().size(), 1u);
    Result listed = run("qx-userlist", {}, "/dev/full");
    EXPECT_EQ(listed.status, 100);
    EXPECT_EQ(listed.err, "qx-userlist" + unwritten + ".\n");
    EXPECT_EQ(run("qxadm", {"--help"}, "/dev/full").status, 100);
}

// The time-out of the configuration lock states the wait it had.
TEST_F(Programs, LockTimeOutStatesTheWait) {
    init_home();
    int fd = open(home_.file("sys/.lock0").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    ASSERT_EQ(fcntl(fd, F_SETLK, &range), 0);
    setenv("CL_CFGLOCK_WAIT", "2", 1);
    Result r = run("qx-useradd", {"Ann Lee/Sales,London"});
    unsetenv("CL_CFGLOCK_WAIT");
    close(fd);
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "qx-useradd : E100-8001 The configuration stayed locked by another program; try again later.\n"
                     "  Waited 2 seconds for the configuration lock.\n");
    EXPECT_EQ(rows().size(), 0u);
}

}  // namespace
