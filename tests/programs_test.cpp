// The sample programs run as subprocesses against a fresh server home: exit
// statuses, standard output and error, the files and the directory's rows.
// Every run preloads a library that reports descriptors left open at exit,
// and no run may report one.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "testkit.hpp"

extern char **environ;

namespace {

const std::vector<std::string> kNames = {"qx-inithome", "qx-useradd",    "qx-usershow",     "qx-userlist",
                                         "qx-userdel",  "qx-defmnode",   "qx-pmn",          "qx-startcount",
                                         "qx-checkinstall", "qx-import", "qx-export"};
const std::string kDamaged = " : E100-4766 A file of the server home is damaged; it was not shown.\n  File: ";
const std::string kUnknownOption = " : E100-4768 An option is not known.\n  Option: ";

struct Result {
    int status = -1;
    std::string out, err;
};

// One run of a program and what it must give: the status, standard output
// exactly, and the start of standard error.
struct Step {
    std::string program;
    std::vector<std::string> args;
    int status;
    std::string out, err;
};

// Starts a program of the build, its output into files (its input from one
// when in is given), with the descriptor check preloaded; returns the pid.
pid_t start(const std::string &program, const std::vector<std::string> &args, const std::string &out,
            const std::string &err, const std::string &in = "") {
    std::string path = program.find('/') == std::string::npos ? std::string(QX_PROGRAM_DIR) + "/" + program : program;
    std::vector<std::string> env = {"LD_PRELOAD=" QX_FDCHECK};
    const char *asan = getenv("ASAN_OPTIONS");  // the check is loaded before a sanitizer's runtime
    env.push_back(std::string("ASAN_OPTIONS=") + (asan ? asan : "") + ":verify_asan_link_order=0");
    for (char **e = environ; *e; ++e)
        if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0 && std::strncmp(*e, "ASAN_OPTIONS=", 13) != 0) env.push_back(*e);
    std::vector<char *> argv = {path.data()}, envp;
    for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    for (auto &e : env) envp.push_back(e.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (!in.empty()) posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, path.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

int wait_status(pid_t pid) {
    int raw = 0;
    if (pid < 0 || waitpid(pid, &raw, 0) != pid) return -1;
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
}

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class Programs : public ::testing::Test {
protected:
    // out_path: where standard output goes instead of a scratch file.
    Result run(const std::string &program, const std::vector<std::string> &args = {},
               const std::string &out_path = "", const std::string &in_path = "") {
        const std::string out = out_path.empty() ? scratch_ + "/out" : out_path, err = scratch_ + "/err";
        Result r;
        r.status = wait_status(start(program, args, out, err, in_path));
        if (out_path.empty()) r.out = slurp(out);
        r.err = slurp(err);
        EXPECT_EQ(r.err.find("fdcheck:"), std::string::npos) << program << ": " << r.err;
        return r;
    }
    void play(const std::vector<Step> &steps) {
        for (const auto &s : steps) {
            const std::string what = s.program + " " + (s.args.empty() ? "" : s.args.back());
            Result r = run(s.program, s.args);
            EXPECT_EQ(r.status, s.status) << what << ": " << r.err;
            EXPECT_EQ(r.out, s.out) << what;
            EXPECT_EQ(r.err.substr(0, s.err.size()), s.err) << what;
        }
    }
    void init_home(const std::string &mail_node = "Sales,London") {
        Result r = run("qx-inithome", {mail_node});
        ASSERT_EQ(r.status, 0) << r.err;
    }
    // Every row of the user directory (of home_, or of the home at home) as
    // "<packed name shown>=<display>@<added>".
    std::vector<std::string> rows(const std::string &home = "") {
        std::vector<std::string> out;
        sqlite3 *db = nullptr;
        sqlite3_stmt *st = nullptr;
        const std::string path = (home.empty() ? home_.path() : home) + "/sys/users.db";
        if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
            sqlite3_prepare_v2(db, "SELECT name, display, added FROM users ORDER BY name", -1, &st, nullptr) ==
                SQLITE_OK) {
            while (sqlite3_step(st) == SQLITE_ROW)
                out.push_back(testkit::show(std::string(static_cast<const char *>(sqlite3_column_blob(st, 0)),
                                                        static_cast<std::size_t>(sqlite3_column_bytes(st, 0)))) +
                              "=" + reinterpret_cast<const char *>(sqlite3_column_text(st, 1)) + "@" +
                              std::to_string(sqlite3_column_int64(st, 2)));
        }
        sqlite3_finalize(st);
        sqlite3_close(db);
        return out;
    }

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

// --help, --version and usage errors on every name, directly and through the
// dispatcher; a usage error creates nothing.
TEST_F(Programs, HelpVersionAndUsageErrors) {
    for (const auto &name : kNames) {
        Result r = run(name, {"--help"});
        EXPECT_EQ(r.status, 0) << name;
        EXPECT_EQ(r.out.rfind("usage: " + name, 0), 0u) << name << ": " << r.out;
        EXPECT_NE(r.out.find("\n\n"), std::string::npos) << name;  // a description follows the usage
        EXPECT_EQ(r.err, "") << name;
        EXPECT_EQ(run("qxadm", {name, "--help"}).out, r.out) << name;
        Result version = run(name, {"x", "--version"});  // options may follow operands
        EXPECT_EQ(version.status, 0) << name;
        EXPECT_EQ(version.out.rfind(name + " (cl) ", 0), 0u) << version.out;
    }
    Result list = run("qxadm", {"--help"});
    EXPECT_EQ(list.status, 0);
    for (const auto &name : kNames) EXPECT_NE(list.out.find("  " + name + "\n"), std::string::npos) << name;
    EXPECT_EQ(run("qxadm", {"--version"}).out.rfind("qxadm (cl) ", 0), 0u);

    const std::string add = "usage: qx-useradd 'Given Surname/Unit,Unit[/attribute=value...]'\n",
                      defmnode = "usage: qx-defmnode [RECORD [MAILNODE]]\n",
                      dispatch = "usage: qxadm NAME [ARGUMENT...]\n";
    play({
        {"qx-useradd", {}, 2, "", add},
        {"qx-useradd", {"a", "b"}, 2, "", add},
        {"qx-usershow", {}, 2, "", "usage: qx-usershow 'Given Surname/Unit,Unit'\n"},
        {"qx-userdel", {"a", "b"}, 2, "", "usage: qx-userdel 'Given Surname/Unit,Unit'\n"},
        {"qx-userlist", {"x"}, 2, "", "usage: qx-userlist\n"},
        {"qx-pmn", {"x"}, 2, "", "usage: qx-pmn\n"},
        {"qx-checkinstall", {"x"}, 2, "", "usage: qx-checkinstall\n"},
        {"qx-defmnode", {"one"}, 2, "", defmnode},
        {"qx-defmnode", {"-1"}, 2, "", "qx-defmnode" + kUnknownOption + "-1\n" + defmnode},
        {"qx-defmnode", {"--", "-1"}, 2, "", defmnode},
        {"qx-defmnode", {"1", "A", "B"}, 2, "", defmnode},
        {"qx-startcount", {"--inc"}, 2, "", "qx-startcount" + kUnknownOption + "--inc\nusage: qx-startcount [--count]\n"},
        {"qx-startcount", {"--count=2"}, 2, "", "qx-startcount" + kUnknownOption + "--count=2\n"},
        {"qx-inithome", {"A", "B"}, 2, "", "usage: qx-inithome [MAILNODE]\n"},
        {"qx-inithome", {"--frob"}, 2, "", "qx-inithome" + kUnknownOption + "--frob\nusage: qx-inithome [MAILNODE]\n"},
        {"qx-useradd", {"Ann Lee/Sales", "-x"}, 2, "", "qx-useradd" + kUnknownOption + "-x\n"},
        {"qx-userlist", {"--help=all"}, 2, "", "qx-userlist" + kUnknownOption + "--help=all\n"},
        {"qxadm", {}, 2, "", "qxadm : E100-4770 The program name is missing.\n\n" + dispatch},
        {"qxadm", {"--frob", "qx-pmn"}, 2, "", "qxadm" + kUnknownOption + "--frob\n" + dispatch},
        {"qxadm", {"x"}, 2, "", "qxadm : E100-4769 There is no program of that name.\n  Program: x\nqx-inithome, "},
    });
    struct stat st;
    EXPECT_NE(stat(home_.file("sys/config").c_str(), &st), 0);  // not set up by "--frob"
    // A failure in a home not set up says how to set it up.
    const std::string nowhere = scratch_ + "/no-home";
    setenv("QX_HOME", nowhere.c_str(), 1);
    Result unset = run("qx-useradd", {"John Smith/Sales"});
    EXPECT_EQ(run("qx-inithome", {"A", "B"}).err.find("4779"), std::string::npos);
    setenv("QX_HOME", home_.path().c_str(), 1);
    EXPECT_EQ(unset.status, 100);
    EXPECT_NE(unset.err.find("qx-useradd : I100-4779 The server home is not set up: run qx-inithome first "
                             "(QX_HOME names the home, else ~/.qx).\n  Home: " + nowhere + "\n"),
              std::string::npos)
        << unset.err;

    // Another name of the program file lists the names it answers to.
    const std::string link = scratch_ + "/qx-bogus";
    ASSERT_EQ(symlink((std::string(QX_PROGRAM_DIR) + "/qxadm").c_str(), link.c_str()), 0);
    Result r = run(link, {"x"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.rfind("qx-inithome, qx-useradd, ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("qx-export, qxadm?\nqx-bogus : E100-4769 "), std::string::npos) << r.err;
}

// Setting up a home writes its files once, with their modes; the mail nodes
// are shown, set, and refused before anything is written, at the bounds.
TEST_F(Programs, HomeAndMailNodes) {
    const std::string unit(32, 'U');
    play({
        {"qx-inithome", {"A,B,C,D,E,F"}, 103, "", "qx-inithome : E100-8003 "},  // E and F join D
        {"qx-inithome", {"John Smith"}, 103, "", "qx-inithome : E100-8005 "},
        {"qx-inithome", {"Sales.Dev"}, 103, "", "qx-inithome : E100-8010 "},
        {"qx-inithome", {unit + "x"}, 103, "", "qx-inithome : E100-8004 "},
        {"qx-inithome", {unit + ",London"}, 0, "Server home: " + home_.path() + "\nPrimary mail node: " + unit +
                                                   ",London\n", ""},
    });
    const std::string config = home_.read("sys/config");
    ASSERT_GE(config.size(), 268u);
    for (int at : {8, 140}) EXPECT_EQ(config.substr(at, 32), unit) << at;
    for (int at : {40, 172}) EXPECT_EQ(std::string(config.c_str() + at), "London") << at;
    EXPECT_EQ(std::string(config.c_str() + 204), "");
    EXPECT_EQ(home_.read("sys/sysdata"), std::string(48, '\0'));
    struct stat st;
    EXPECT_EQ(stat(home_.file("sys/install").c_str(), &st), 0);
    for (const char *file : {"sys/config", "sys/sysdata", "sys/.lock0"}) {
        ASSERT_EQ(stat(home_.file(file).c_str(), &st), 0) << file;
        EXPECT_EQ(st.st_mode & 0777, 0660u) << file;
    }

    const std::string pmn = "Primary mail node: " + unit + ",London\n";
    // A mail node of valid fields whose packed form outgrows a record (1024 bytes).
    auto smileys = [](int n) {
        std::string s;
        while (n-- > 0) s += "\U0001F600";
        return s;
    };
    std::string huge = unit + "," + unit + "," + unit + "," + unit + "/organization=Acme/country=GB/admd=X/prmd=Y";
    for (const char *ou : {"utf8Ou1", "utf8Ou2", "utf8Ou3", "utf8Ou4"}) huge += std::string("/") + ou + "=" + smileys(32);
    huge += "/utf8Organization=" + smileys(64) + "/utf8Admd=" + smileys(16) + "/utf8Prmd=" + smileys(16);
    play({
        {"qx-inithome", {"Other"}, 100, "", "qx-inithome : E100-4761 The server home is set up already"},
        {"qx-pmn", {}, 0, pmn, ""},
        {"qx-defmnode", {}, 0, "Default mail node 1: " + unit + ",London\n", ""},  // the older mail node
        {"qx-defmnode", {"2", "Support,Paris"}, 0, "Default mail node 2: Support,Paris\n", ""},
        {"qx-defmnode", {"2", "Sales/surname=Smith"}, 103, "", "qx-defmnode : E100-"},
        {"qx-defmnode", {"2", "John Smith"}, 103, "", "qx-defmnode : E100-8005 "},
        {"qx-defmnode", {"2", "Sales\x01"}, 103, "", "qx-defmnode : E100-8013 "},
        {"qx-defmnode", {"2", "Sales\\\\Dev"}, 103, "", "qx-defmnode : E100-8013 "},  // an escaped backslash
        {"qx-defmnode", {"2", ",Sales"}, 103, "", "qx-defmnode : E100-8016 "},
        {"qx-defmnode", {"2", "A,B,C,D,E"}, 103, "", "qx-defmnode : E100-8003 "},
        {"qx-defmnode", {"2", "Sales/Ac#me"}, 103, "", "qx-defmnode : E100-4764 "},  // a positional organization
        {"qx-defmnode", {"2", huge}, 103, "", "qx-defmnode : E100-4762 "},
        {"qx-defmnode", {"1024"}, 103, "", "qx-defmnode : E100-4767 "},
        {"qx-defmnode", {"2097151", "X,Y"}, 103, "", "qx-defmnode : E100-4767 "},
        {"qx-defmnode", {"2"}, 0, "Default mail node 2: Support,Paris\n", ""},
        {"qx-defmnode", {"3"}, 0, "Default mail node 3: (none)\n", ""},
        {"qx-defmnode", {"1023", "Sales,London"}, 0, "Default mail node 1023: Sales,London\n", ""},
        {"qx-defmnode", {"4", "Sales_Dev,London"}, 0, "Default mail node 4: Sales_Dev,London\n", ""},
        {"qx-defmnode", {"5", "Sales/organization=Acme"}, 0, "Default mail node 5: Sales/Acme\n", ""},
        {"qx-pmn", {}, 0, pmn, ""},
    });
    EXPECT_EQ(home_.read("sys/config"), config);
    EXPECT_EQ(home_.read("sys/defmnode").size(), 1024u * 1024);
}

TEST_F(Programs, StartCountAndInstallationCheck) {
    const std::string incomplete = "The installation is not complete: " + home_.path();
    play({{"qx-checkinstall", {}, 1, incomplete + "/sys/config is missing.\n", ""}});
    init_home();
    play({{"qx-startcount", {}, 0, "Start count: 0\nLast start: never\n", ""}});
    Result counted = run("qx-startcount", {"--count"});
    EXPECT_EQ(counted.status, 0) << counted.err;
    EXPECT_EQ(counted.out.rfind("Start count: 1\nLast start: 20", 0), 0u) << counted.out;
    EXPECT_EQ(static_cast<unsigned char>(home_.read("sys/sysdata")[40]), 1);
    EXPECT_EQ(run("qx-startcount").out, counted.out);

    play({{"qx-checkinstall", {}, 0, "The installation is complete.\n", ""}});
    std::filesystem::rename(home_.file("sys/sysdata"), home_.file("sysdata"));
    play({{"qx-checkinstall", {}, 1, incomplete + "/sys/sysdata is missing.\n", ""}});
    std::filesystem::rename(home_.file("sysdata"), home_.file("sys/sysdata"));
    home_.write("sys/install/base.inst", "");
    EXPECT_EQ(run("qx-checkinstall").status, 1);
}

// Users added, shown in another typing, listed, deleted; every refusal
// leaves the rows as they were, timestamps included.
TEST_F(Programs, Users) {
    init_home();
    play({
        {"qx-useradd", {"John Smith/Sales,London"}, 0, "Added: John Smith /Sales,London\n", ""},
        {"qx-useradd", {"Mary Jones/Sales,London/organization=Acme/country=GB"}, 0,
         "Added: Mary Jones /Sales,London/Acme/GB\n", ""},
    });
    const std::vector<std::string> before = rows();
    ASSERT_EQ(before.size(), 2u);
    EXPECT_EQ(before[0].substr(0, before[0].rfind('@')),
              "Jones|Mary|||Sales|London|||Acme|GB=Mary Jones /Sales,London/Acme/GB");
    EXPECT_EQ(before[1].substr(0, before[1].rfind('@')), "Smith|John|||Sales|London=John Smith /Sales,London");
    EXPECT_NE(home_.read("log/events").find("qx-useradd John Smith/Sales,London"), std::string::npos);
    play({
        {"qx-useradd", {"John Smith/Sales,London"}, 100, "", "qx-useradd : E102-1612 The user exists already.\n\n"},
        {"qx-useradd", {"John Smith/Sales,London/"}, 100, "", "qx-useradd : E102-1612 "},
        {"qx-useradd", {"John Smith"}, 103, "", "qx-useradd : E100-8016 The name has no mail node.\n\n"},
        {"qx-useradd", {"Ann Lee/Sales/title=Boss"}, 103, "", "qx-useradd : E100-8119 "},
        {"qx-useradd", {"Ann Lee/Sales/colour=red"}, 103, "", "qx-useradd : E100-4634 Unknown attribute name.\n\n"},
        {"qx-useradd", {std::string(5000, 'a')}, 103, "", "qx-useradd : E100-9801 "},
        {"qx-useradd", {"Ann Lee/Sales/organization=Ac!me"}, 103, "", "qx-useradd : E100-4808 "},
        {"qx-useradd", {"Bo Ek/Sales/country=ZZZZ"}, 103, "", "qx-useradd : E100-4809 "},
        {"qx-useradd", {"Bo Ek/Sales,London/ou3=" + std::string(33, 'x')}, 103, "", "qx-useradd : E100-4806 "},
        {"qx-useradd", {"Bo Ek/Sales/utf8Surname=E\x01k"}, 103, "", "qx-useradd : E100-4864 "},
        {"qx-useradd", {"Cy Fox/Sales/Acme/DE(T1|v1)"}, 103, "", "qx-useradd : E100-8119 "},
        {"qx-useradd", {"Cy Fox/Sales/ext1Type=T1/ext1Value=v1"}, 103, "", "qx-useradd : E100-8119 "},
        {"qx-useradd", {"Di Gu/Sales\\=Dev"}, 103, "", "qx-useradd : E100-4763 "},  // would list as an attribute
        // A typed argument of 4095 bytes is read (and not found); one more is refused.
        {"qx-usershow", {"Ann Lee/Sales/title=" + std::string(4095 - 20, 'x')}, 100, "", "qx-usershow : E102-1611 "},
        {"qx-usershow", {"Ann Lee/Sales/title=" + std::string(4096 - 20, 'x')}, 103, "", "qx-usershow : E100-"},
        // The attributes in another order, and a trailing '/', name the same users.
        {"qx-usershow", {"Mary Jones/Sales,London/country=GB/organization=Acme"}, 0,
         "Mary Jones /Sales,London/Acme/GB\n", ""},
        {"qx-usershow", {"John Smith/Sales,London/"}, 0, "John Smith /Sales,London\n", ""},
    });
    EXPECT_EQ(rows(), before);

    // Every listed line names its user again, and no two users list alike.
    play({
        {"qx-useradd", {"Ann Lee/Sales/Ac!me"}, 0, "Added: Ann Lee /Sales/Ac!me\n", ""},
        {"qx-useradd", {"Bo Ek/Sales,London/ou3=Zed"}, 0, "Added: Bo Ek /Sales,London,Zed\n", ""},
        {"qx-useradd", {"Bo Ek/Sales/organization=Acme/country=DE/utf8Surname=\u00C9kstr\u00F6m"}, 0,
         "Added: Bo Ek /Sales/Acme/DE/utf8Surname=\u00C9kstr\u00F6m\n", ""},
    });
    std::vector<std::string> lines;
    std::istringstream listing(run("qx-userlist").out);
    for (std::string line; std::getline(listing, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size());
    for (const auto &line : lines)
        play({{"qx-usershow", {"--", line}, 0, line + "\n", ""},
              {"qx-userdel", {"--", line}, 0, "Deleted: " + line + "\n", ""},
              {"qx-userdel", {"--", line}, 100, "", "qx-userdel : E102-1611 The user does not exist.\n\n"}});
    EXPECT_EQ(rows().size(), 0u);
    EXPECT_EQ(run("qx-userlist").out, "");
}

// Concurrent programs: twenty adds lose none; of set-ups started at once on
// one new home, one wins and the others change nothing.
TEST_F(Programs, ConcurrentAddsAndSetUps) {
    init_home();
    constexpr int kAdds = 20, kTries = 5, kSetUps = 6;
    std::vector<pid_t> pids;
    for (int i = 0; i < kAdds; ++i) {
        const std::string base = scratch_ + "/p" + std::to_string(i);
        pids.push_back(start("qx-useradd", {"Ann Lee" + std::string(1, 'a' + i) + "/Sales,London"}, base + ".out",
                             base + ".err"));
    }
    for (int i = 0; i < kAdds; ++i) EXPECT_EQ(wait_status(pids[i]), 0) << slurp(scratch_ + "/p" + std::to_string(i) + ".err");
    const std::vector<std::string> all = rows();
    ASSERT_EQ(all.size(), static_cast<std::size_t>(kAdds));
    for (int i = 0; i < kAdds; ++i) EXPECT_EQ(all[i].rfind("Lee" + std::string(1, 'a' + i) + "|Ann|", 0), 0u) << all[i];

    for (int t = 0; t < kTries; ++t) {
        const std::string home = scratch_ + "/home" + std::to_string(t);
        setenv("QX_HOME", home.c_str(), 1);
        pids.clear();
        for (int i = 0; i < kSetUps; ++i) {
            const std::string base = scratch_ + "/p" + std::to_string(i);
            pids.push_back(start("qx-inithome", {"Node" + std::to_string(i)}, base + ".out", base + ".err"));
        }
        int winner = -1;
        for (int i = 0; i < kSetUps; ++i) {
            const int status = wait_status(pids[i]);
            if (status == 0 && winner < 0) {
                winner = i;
                continue;
            }
            EXPECT_EQ(status, 100);
            EXPECT_EQ(slurp(scratch_ + "/p" + std::to_string(i) + ".err"),
                      "qx-inithome : E100-4761 The server home is set up already; nothing was changed.\n\n");
        }
        ASSERT_GE(winner, 0);
        EXPECT_EQ(run("qx-pmn").out, "Primary mail node: Node" + std::to_string(winner) + "\n");
        std::set<std::string> files;  // no temporary file is left behind
        for (const auto &e : std::filesystem::directory_iterator(home + "/sys")) files.insert(e.path().filename());
        EXPECT_EQ(files, (std::set<std::string>{".lock0", "config", "install", "sysdata"}));
    }
    setenv("QX_HOME", home_.path().c_str(), 1);
}

// Failures the programs find, each with its documented status: a damaged or
// short file is named, never shown; the directory cannot be opened or is
// damaged; standard output cannot be written; the lock stays taken.
TEST_F(Programs, FailuresAreReportedWithTheirStatus) {
    setenv("QX_HOME", (scratch_ + "/nowhere").c_str(), 1);
    play({{"qx-userlist", {}, 100, "", "qx-userlist : E102-1613 The user directory cannot be opened.\n\n"}});
    setenv("QX_HOME", home_.path().c_str(), 1);
    init_home("Sales,London");
    ASSERT_EQ(run("qx-defmnode", {"2", "Support"}).status, 0);
    const std::string config = home_.read("sys/config"), sysdata = home_.read("sys/sysdata"),
                      defmnode = home_.read("sys/defmnode"), home = home_.path();
    std::string control = config, after_end = config, record = defmnode, packed = defmnode;
    control[141] = '\x01';                  // "S\x01les"
    after_end[160] = 'x';                    // inside unit 1's field, after its terminator
    record[1024 + 100] = 'x';                // after record 1's terminator
    packed.replace(2048 + 4, 3, "S\x01p");  // record 2's unit
    struct Case {
        std::string file, bytes;  // written before the step, put back after
        Step step;
    };
    const std::vector<Case> cases = {
        {"sys/config", control, {"qx-pmn", {}, 105, "", "qx-pmn" + kDamaged + home + "/sys/config\n"}},
        {"sys/config", after_end, {"qx-pmn", {}, 105, "", "qx-pmn" + kDamaged + home + "/sys/config\n"}},
        {"sys/config", std::string(512, '\0'), {"qx-pmn", {}, 105, "", "qx-pmn" + kDamaged + home + "/sys/config\n"}},
        {"sys/config", config.substr(0, 200), {"qx-pmn", {}, 105, "",
         "qx-pmn : E100-4624 The configuration file is too short.\n  File: " + home + "/sys/config\n"}},
        {"sys/config", config.substr(0, 100), {"qx-defmnode", {"1"}, 105, "",
         "qx-defmnode" + kDamaged + home + "/sys/config\n"}},
        {"sys/defmnode", record, {"qx-defmnode", {"1"}, 105, "", "qx-defmnode" + kDamaged + home + "/sys/defmnode\n"}},
        {"sys/defmnode", packed, {"qx-defmnode", {"2"}, 105, "", "qx-defmnode" + kDamaged + home + "/sys/defmnode\n"}},
        {"sys/sysdata", sysdata.substr(0, 20), {"qx-startcount", {}, 105, "",
         "qx-startcount : E3-6015 The system data file is too short to hold the start count and date.\n  File: " +
             home + "/sys/sysdata\n"}},
        {"sys/users.db", std::string(4096, 'x'), {"qx-userlist", {}, 105, "",
         "qx-userlist : E102-1615 The user directory is damaged.\n\n"}},
    };
    for (const auto &c : cases) {
        const std::string kept = home_.read(c.file);
        home_.write(c.file, c.bytes);
        play({c.step});
        home_.write(c.file, kept);
    }
    std::filesystem::remove(home_.file("sys/users.db"));
    // A default mail node that does not read back after its write.
    std::filesystem::remove(home_.file("sys/defmnode"));
    std::filesystem::create_symlink("/dev/full", home_.file("sys/defmnode"));
    play({{"qx-defmnode", {"2", "X,Y"}, 100, "", "qx-defmnode : E100-4771 The default mail node could not be written"}});
    std::filesystem::remove(home_.file("sys/defmnode"));

    const std::string unwritten = " : E100-4765 Standard output could not be written.\n  No space left on device";
    Result added = run("qx-useradd", {"Ann Lee/Sales,London"}, "/dev/full");
    EXPECT_EQ(added.status, 100);
    EXPECT_EQ(added.err, "qx-useradd" + unwritten + "; the user was added all the same.\n");
    EXPECT_EQ(rows().size(), 1u);
    Result listed = run("qx-userlist", {}, "/dev/full");
    EXPECT_EQ(listed.status, 100);
    EXPECT_EQ(listed.err, "qx-userlist" + unwritten + ".\n");
    EXPECT_EQ(run("qxadm", {"--help"}, "/dev/full").status, 100);

    // A directory that another program keeps busy beyond the wait.
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(home_.file("sys/users.db").c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    setenv("CL_DIRECTORY_WAIT", "1", 1);
    play({{"qx-userlist", {}, 3, "", "qx-userlist : E100-4620 The server is busy; try again later.\n"}});
    unsetenv("CL_DIRECTORY_WAIT");
    sqlite3_close(db);  // rolls the transaction back

    // The time-out of the configuration lock states the wait it had.
    const int fd = open(home_.file("sys/.lock0").c_str(), O_RDWR | O_CLOEXEC);
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    ASSERT_EQ(fcntl(fd, F_SETLK, &range), 0);
    setenv("CL_CFGLOCK_WAIT", "2", 1);
    play({{"qx-useradd", {"Bo Ek/Sales,London"}, 3, "",
           "qx-useradd : E100-8001 The configuration stayed locked by another program; try again later.\n"
           "  Waited 2 seconds for the configuration lock.\n"}});
    unsetenv("CL_CFGLOCK_WAIT");
    close(fd);
    EXPECT_EQ(rows().size(), 1u);
}

// qx-import reports every refused or duplicate line as FILE:LINE: in the
// order of the input, stores the good ones under one logged command line,
// and the options decide what is kept.
TEST_F(Programs, ImportReportsLinesAndOptionsDecideWhatIsKept) {
    init_home();
    ASSERT_EQ(run("qx-useradd", {"John Smith/Sales,London"}).status, 0);
    const std::string file = scratch_ + "/names.txt";
    testkit::write_file(file,
                        "# users of Sales\n"
                        "Ann Lee/Sales,London/organization=Acme\r\n"
                        "\n \t\n"
                        "John Smith/Sales,London/\n"                               // 5: stored, typed otherwise
                        "Ann Lee/Customer_Relations_and_Support_Europe,London\n"  // 6
                        "Bo Ek/Sales,London\n"
                        "Ann Lee/Sales,London/organization=Acme\n"  // 8: as line 2
                        + std::string(5000, 'a') + "\n"              // 9
                        "Cy Fox/Sales/colour=red\n"                  // 10
                        "Di Gu/Sales,London");                       // no newline at the end
    const std::string report = file + ":5: W100-4774 The user is stored already; the line was skipped.\n" +
                               file + ":6: E100-8004 An organizational unit is longer than 32 characters.\n" +
                               file + ":8: W100-4775 An earlier line names the same user; the line was skipped.\n" +
                               file + ":9: E100-9801 The name part is longer than 4095 characters.\n" + file +
                               ":10: E100-4634 Unknown attribute name.\n";
    const std::string eight = "Ann Lee/Sales,London/organization=Acme\nBo Ek/Sales,London\n";
    testkit::write_file(scratch_ + "/good.txt", eight);

    // What each option keeps: rows after the run, beside John's.
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string out, err;
        std::size_t rows;
    };
    const std::string nothing = "; nothing was stored.\n";
    for (const Case &c : std::vector<Case>{
             {{"--dry-run", file}, 1, "Checked: 3 to add, 3 refused, 2 duplicate" + nothing, report, 1},
             {{"--atomic", file}, 1, "Checked: 3 to add, 3 refused, 2 duplicate" + nothing, report, 1},
             {{"--dry-run", scratch_ + "/good.txt"}, 0, "Checked: 2 to add, 0 refused, 0 duplicate" + nothing, "", 1},
             {{"--stop-on-error", "--batch=1", file}, 1, "Added: 1, refused: 1, duplicate: 1.\n",
              report.substr(0, report.find(":8:") - file.size()), 2},
             {{file}, 1, "Added: 2, refused: 3, duplicate: 3.\n",  // Ann was added by --stop-on-error
              file + ":2: W100-4774 The user is stored already; the line was skipped.\n" +
                  std::regex_replace(report, std::regex(":8: .*"), ":8: W100-4774 The user is stored already; the line was skipped."),
              4},
         }) {
        const std::string what = c.args.front();
        Result r = run("qx-import", c.args);
        EXPECT_EQ(r.status, c.status) << what << ": " << r.err;
        EXPECT_EQ(r.out, c.out) << what;
        EXPECT_EQ(r.err, c.err) << what;
        EXPECT_EQ(rows().size(), c.rows) << what;
    }
    // Standard input, and --atomic with every line good.
    Result r = run("qx-import", {"--atomic", "-"}, "", scratch_ + "/good.txt");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "Added: 0, refused: 0, duplicate: 2.\n");
    EXPECT_EQ(r.err, "(standard input):1: W100-4774 The user is stored already; the line was skipped.\n"
                     "(standard input):2: W100-4774 The user is stored already; the line was skipped.\n");
    // One logged command line for each run that took the lock: qx-useradd's
    // and the five imports that stored or checked.
    const std::string events = home_.read("log/events");
    std::size_t logged = 0;
    for (std::size_t at = 0; (at = events.find("qx-import", at)) != std::string::npos; ++at) ++logged;
    EXPECT_EQ(logged, 6u);

    const std::string import_usage =
        "usage: qx-import [--format=lines|attributes] [--stop-on-error] [--atomic] [--dry-run] [--batch=N] [FILE|-]\n";
    const std::string bad_value = " : E100-4777 The value of an option is not valid.\n  Option: ";
    play({
        {"qx-import", {"a", "b"}, 2, "", import_usage},
        {"qx-import", {"--format=xml"}, 2, "", "qx-import" + bad_value + "--format=xml\n" + import_usage},
        {"qx-import", {"--batch=0", file}, 2, "", "qx-import" + bad_value + "--batch=0\n"},
        {"qx-import", {"--batch=12x", file}, 2, "", "qx-import" + bad_value + "--batch=12x\n"},
        {"qx-import", {file, "--batch"}, 2, "", "qx-import" + bad_value + "--batch\n"},
        {"qx-import", {"--count", file}, 2, "", "qx-import" + kUnknownOption + "--count\n"},
        {"qx-import", {scratch_ + "/none"}, 100, "",
         "qx-import : E100-4776 The input cannot be read.\n  File: " + scratch_ + "/none: No such file or directory\n"},
        {"qx-import", {scratch_}, 100, "", "qx-import : E100-4776 The input cannot be read.\n  File: " + scratch_},
        {"qx-export", {"x"}, 2, "", "usage: qx-export [--format=lines|attributes]\n"},
        {"qx-export", {"--atomic"}, 2, "", "qx-export" + kUnknownOption + "--atomic\n"},
    });
    EXPECT_EQ(rows().size(), 4u);
}

// Export, then import into a fresh home, gives the same directory, byte for
// byte, from either form; names use every field the programs accept.
TEST_F(Programs, ExportThenImportGivesTheSameDirectory) {
    init_home();
    const std::string names =
        "John Q. Smith Jr./Sales,London,Europe,HQ/organization=Acme/country=GB/admd=Mail/prmd=Corp/"
        "commonName=Johnny/utf8Surname=Sm\u00EFth/utf8GivenName=J\u00F6hn/utf8Initials=Q/utf8Generation=Jr/"
        "utf8Ou1=S\u00E4les/utf8Ou2=L\u00F6ndon/utf8Organization=\u00C4cme/utf8CommonName=J\u00F6hnny\n"
        "Zoe Muller/Sales,London/organization=Acme/country=DE/utf8Surname=M\u00FCller\n"
        "J.R.R. Gruteda/Research,Oxford/organization=A\\/B (Tales)/country=GB\n"
        "Smith/Sales\n"
        "Ann Lee/Support,Paris/utf8Surname=\u674E\n";
    testkit::write_file(scratch_ + "/names.txt", names);
    Result added = run("qx-import", {scratch_ + "/names.txt"});
    ASSERT_EQ(added.status, 0) << added.err;
    ASSERT_EQ(added.out, "Added: 5, refused: 0, duplicate: 0.\n");
    auto keys = [this](const std::string &home) {
        std::vector<std::string> out;
        for (const std::string &row : rows(home)) out.push_back(row.substr(0, row.rfind('@')));
        return out;
    };
    const std::vector<std::string> stored = keys("");
    ASSERT_EQ(stored.size(), 5u);
    const Result lines = run("qx-export");
    const Result attributes = run("qx-export", {"--format=attributes"});
    ASSERT_EQ(lines.status, 0);
    ASSERT_EQ(attributes.status, 0);
    EXPECT_EQ(lines.out, run("qx-userlist").out);
    EXPECT_NE(attributes.out.find("utf8Surname=M~C3~BCller"), std::string::npos) << attributes.out;

    for (const Result *form : {&lines, &attributes}) {
        const bool attr = form == &attributes;
        testkit::write_file(scratch_ + "/export.txt", form->out);
        {
            testkit::TempHome fresh;  // QX_HOME names it while it lives
            init_home();
            Result r = run("qx-import", {attr ? "--format=attributes" : "--format=lines", scratch_ + "/export.txt"});
            EXPECT_EQ(r.out, "Added: 5, refused: 0, duplicate: 0.\n") << attr << r.err;
            EXPECT_EQ(keys(fresh.path()), stored) << attr;
            EXPECT_EQ(run("qx-export", {attr ? "--format=attributes" : "--format=lines"}).out, form->out) << attr;
        }
        setenv("QX_HOME", home_.path().c_str(), 1);
    }

    // A stored key that is not a user's name is reported with its user's
    // display text and left out; the others are written.
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(home_.file("sys/users.db").c_str(), &db), SQLITE_OK);
    const std::string bad(200, '\x1D');  // fields beyond 160
    sqlite3_stmt *st = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(db, "INSERT INTO users VALUES (?1, 'Bad Row', 0)", -1, &st, nullptr), SQLITE_OK);
    sqlite3_bind_blob(st, 1, bad.data(), static_cast<int>(bad.size()), SQLITE_STATIC);
    EXPECT_EQ(sqlite3_step(st), SQLITE_DONE);
    sqlite3_finalize(st);
    sqlite3_close(db);
    Result damaged = run("qx-export", {"--format=attributes"});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.out, attributes.out);
    EXPECT_EQ(damaged.err, "qx-export : E102-1615 The user directory is damaged.\n  User: Bad Row\n");
}

// Waits up to 20 s for done(); false if it never held.
template <class Done>
bool eventually(Done &&done) {
    for (int i = 0; i < 2000; ++i) {
        if (done()) return true;
        usleep(10000);
    }
    return false;
}

// An interrupt between batches keeps the committed ones and rolls back the
// open one; a kill under --atomic leaves the directory as it was, which the
// next program finds rolled back. Either way the lock is free at once.
TEST_F(Programs, InterruptedImportKeepsWhatWasCommitted) {
    init_home();
    ASSERT_EQ(run("qx-useradd", {"John Smith/Sales,London"}).status, 0);
    const std::string fifo = scratch_ + "/names", out = scratch_ + "/import.out", err = scratch_ + "/import.err";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // Batches of two: the first four lines are committed, the fifth waits
    // in the open batch; under --atomic the first two are stored, uncommitted.
    const std::string five = "Ann Lee/Sales\nBo Ek/Sales\nCy Fox/Sales\nDi Gu/Sales\nEd Ho/Sales\n";
    setenv("CL_CFGLOCK_WAIT", "1", 1);  // a lock left held would fail the adds below

    struct Case {
        std::vector<std::string> options;
        std::string lines;
        int sig;
        std::function<bool()> stored;  // the import has stored what it will before the signal
        std::string out;
    };
    const std::string journal = home_.file("sys/users.db-journal");
    for (const Case &c : std::vector<Case>{
             {{"--batch=2"}, five, SIGINT, [&] { return rows().size() == 5; }, "Added: 4, refused: 0, duplicate: 0.\n"},
             {{"--batch=2", "--atomic"}, five.substr(0, 26), SIGTERM, [&] { return access(journal.c_str(), F_OK) == 0; },
              "Checked: 2 to add, 0 refused, 0 duplicate; nothing was stored.\n"},
             {{"--batch=2", "--atomic"}, five.substr(0, 26), SIGKILL,
              [&] { return access(journal.c_str(), F_OK) == 0; }, ""},
         }) {
        std::vector<std::string> args = c.options;
        args.push_back(fifo);
        const pid_t pid = start("qx-import", args, out, err);
        const int fd = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);  // waits for the import to open it
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, c.lines.data(), c.lines.size()), static_cast<ssize_t>(c.lines.size()));
        EXPECT_TRUE(eventually(c.stored)) << c.sig;
        kill(pid, c.sig);
        EXPECT_EQ(wait_status(pid), 128 + c.sig);
        close(fd);
        EXPECT_EQ(slurp(out), c.out) << c.sig;
        if (c.sig != SIGKILL) {
            EXPECT_EQ(slurp(err), "qx-import : E100-4778 The import was interrupted; the lines not yet committed "
                                  "were not stored.\n\n")
                << c.sig;
        }
        Result listed = run("qx-userlist");  // rolls back what a kill left in the journal
        EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'), 5 - 4 * (c.sig != SIGINT)) << c.sig;
        Result added = run("qx-useradd", {"Fay Gill/Sales"});
        EXPECT_EQ(added.status, 0) << c.sig << added.err;
        ASSERT_EQ(run("qx-userdel", {"Fay Gill/Sales"}).status, 0);
        if (c.sig == SIGINT) {
            for (const char *name : {"Ann Lee/Sales", "Bo Ek/Sales", "Cy Fox/Sales", "Di Gu/Sales"})
                ASSERT_EQ(run("qx-userdel", {name}).status, 0) << name;
        }
    }
    unsetenv("CL_CFGLOCK_WAIT");
    EXPECT_EQ(rows().size(), 1u);
}

}  // namespace