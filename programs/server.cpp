// The server programs: qx-inithome, qx-startcount, qx-checkinstall.
#include <sys/stat.h>

#include <cstdint>
#include <cstring>

#include "nm.h"
#include "qxadm.hpp"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/server";

// The four units of a mail node, each at most kUnitLen bytes.
struct Units {
    char unit[4][kUnitLen + 1];
};

Units units_of(const Args &a) {
    char key[kPackedSize];
    mail_node_key(a.count == 1 ? a.arg(1) : kDefaultMailNode, key);
    nm_ParsedORN parsed;
    int status = 0;
    nm_ParseORN(key, &parsed, &status);
    std::uint32_t maps[6];
    nm_GetFieldMaps(&parsed, maps);
    if (maps[0] & ~0xF0u || maps[2] != 0) QX_RAISE(kNotMailNodeOnly);  // units only
    Units u{};
    for (int i = 0; i < 4; ++i) {
        int len = 0;
        const char *field = nm_GetFieldMemPtr(key, &parsed, 4 + i, &len);
        if (len > kUnitLen) QX_RAISE(kUnitTooLong);
        if (field) std::memcpy(u.unit[i], field, static_cast<std::size_t>(len));
    }
    return u;
}

}  // namespace

// qx-startcount [--count]: with --count, counts a start first.
int start_count(const Args &a) {
    need(a, a.count == 0);
    if (a.count_option) {
        under_lock(a, [] {
            cl_IncSystemStartCount();
            note_done("the start was counted all the same");
        });
    }
    std::uint32_t count = cl_GetSystemStartCount();
    std::int32_t date = cl_GetSystemStartDate();
    char when[32] = "never";
    if (date != 0) {
        std::time_t t = date;
        std::tm tm;
        gmtime_r(&t, &tm);
        std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &tm);
    }
    std::printf("Start count: %u\nLast start: %s\n", static_cast<unsigned>(count), when);
    return 0;
}

// qx-checkinstall: status 0 when complete; kStatusIncomplete, with a line on
// standard output, when the home is not set up or a marker remains.
int check_install(const Args &a) {
    need(a, a.count == 0);
    struct Needed {
        const char *name;
        mode_t type;
    };
    constexpr Needed kNeeded[] = {
        {"~", S_IFDIR}, {kConfigName, S_IFREG}, {kSysdataName, S_IFREG}, {"~/sys/install", S_IFDIR}};
    for (const Needed &n : kNeeded) {
        char path[QX_PATH_MAX];
        actual_name(n.name, path);
        if (!exists(path, n.type)) {
            std::printf("The installation is not complete: %s is missing.\n", path);
            return kStatusIncomplete;
        }
    }
    if (cl_IsEveryThingInstalled()) {
        std::printf("The installation is complete.\n");
        return 0;
    }
    std::printf("The installation is not complete: ~/sys/install holds *.inst markers.\n");
    return kStatusIncomplete;
}

// qx-inithome [MAILNODE]: makes the home's directories, then, under the
// configuration lock (whose file lives in sys/), sys/sysdata (no start
// counted yet) and sys/config with MAILNODE as both the primary and the
// older mail node. sys/config is written last and marks the home as set up:
// of programs started at once on one home, the first to hold the lock sets
// it up and the others find it set up and change nothing.
int init_home(const Args &a) {
    need(a, a.count <= 1);
    Units units = units_of(a);
    for (const char *dir : {"~/sys/install", "~/log"}) {
        char actual[QX_PATH_MAX];
        actual_name(dir, actual);
        make_dirs(actual);
    }
    under_lock(a, [&] {
        char path[QX_PATH_MAX];
        actual_name(kConfigName, path);
        if (exists(path, 0)) QX_RAISE(kHomeExists);
        std::array<unsigned char, kSysdataSize> sysdata{};
        char sysdata_path[QX_PATH_MAX];
        actual_name(kSysdataName, sysdata_path);
        write_whole_file(sysdata_path, sysdata.data(), sysdata.size());
        std::array<unsigned char, kConfigSize> config{};
        for (int i = 0; i < 4; ++i) {
            std::memcpy(&config[kOlderUnitAt[i]], units.unit[i], std::strlen(units.unit[i]));
            std::memcpy(&config[kPrimaryUnitAt[i]], units.unit[i], std::strlen(units.unit[i]));
        }
        write_whole_file(path, config.data(), config.size());
        note_done("the server home was set up all the same");
    });
    char home[QX_PATH_MAX];
    actual_name("~", home);
    std::printf("Server home: %s\n", home);
    char buf[kPrimaryNodeSize];
    cl_ReadPMN(buf);
    show_mail_node("Primary mail node", buf);
    return 0;
}

}  // namespace qxadm
