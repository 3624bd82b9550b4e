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
    Result run(const std::string &program, const std::vector<std::string> &args = {}) {
        std::string out = scratch_ + "/out", err = scratch_ + "/err";
        Result r;
        r.status = wait_status(start(program, args, out, err));
        r.out = slurp(out);
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
    }
    Result list = run("qxadm", {"--help"});
    EXPECT_EQ(list.status, 0);
    for (const auto &name : kNames) EXPECT_NE(list.out.find("  " + name + "\n"), std::string::npos) << name;
}

TEST_F(Programs, UsageErrorsShowTheUsageTextWithStatus2) {
    struct Case {
        std::string program;
        std::vector<std::string> args;
        std::string usage;
    };
    const std::vector<Case> cases = {
        {"qx-useradd", {}, "usage: qx-useradd 'Given Surname/Unit,Unit[/attribute=value...]'\n"},
        {"qx-useradd", {"a", "b"}, "usage: qx-useradd 'Given Surname/Unit,Unit[/attribute=value...]'\n"},
        {"qx-usershow", {}, "usage: qx-usershow 'Given Surname/Unit,Unit'\n"},
        {"qx-userdel", {"a", "b"}, "usage: qx-userdel 'Given Surname/Unit,Unit'\n"},
        {"qx-userlist", {"x"}, "usage: qx-userlist\n"},
        {"qx-pmn", {"x"}, "usage: qx-pmn\n"},
        {"qx-checkinstall", {"x"}, "usage: qx-checkinstall\n"},
        {"qx-defmnode", {"one"}, "usage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-defmnode", {"2097152"}, "usage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-defmnode", {"-1"}, "usage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-defmnode", {"1", "A", "B"}, "usage: qx-defmnode [RECORD [MAILNODE]]\n"},
        {"qx-startcount", {"--inc"}, "usage: qx-startcount [--count]\n"},
        {"qx-inithome", {"A", "B"}, "usage: qx-inithome [MAILNODE]\n"},
        {"qxadm", {}, "usage: qxadm NAME [ARGUMENT...]\n"},
    };
    for (const auto &c : cases) {
        Result r = run(c.program, c.args);
        EXPECT_EQ(r.status, 2) << c.program;
        EXPECT_EQ(r.err.substr(0, c.usage.size()), c.usage) << c.program;
        EXPECT_EQ(r.out, "") << c.program;
    }
}

TEST_F(Programs, AnUnknownNameListsTheNames) {
    std::string link = scratch_ + "/qx-bogus";
    ASSERT_EQ(symlink((std::string(QX_PROGRAM_DIR) + "/qxadm").c_str(), link.c_str()), 0);
    Result r = run(link, {"x"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.rfind("qx-inithome, qx-useradd, ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("qx-checkinstall, qxadm?\n"), std::string::npos) << r.err;
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

    Result again = run("qx-inithome", {"Other"});
    EXPECT_EQ(again.status, 103);
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

TEST_F(Programs, StartCountAndInstallationCheck) {
    init_home();
    EXPECT_EQ(run("qx-startcount").out, "Start count: 0\nLast start: never\n");
    Result counted = run("qx-startcount", {"--count"});
    EXPECT_EQ(counted.status, 0) << counted.err;
    EXPECT_EQ(counted.out.rfind("Start count: 1\nLast start: 20", 0), 0u) << counted.out;
    std::string sysdata = home_.read("sys/sysdata");
    EXPECT_EQ(static_cast<unsigned char>(sysdata[40]), 1);
    EXPECT_EQ(run("qx-startcount").out, counted.out);

    EXPECT_EQ(run("qx-checkinstall").status, 0);
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

}  // namespace
