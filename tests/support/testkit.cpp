#include "testkit.hpp"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace testkit {

TempHome::TempHome() {
    char pattern[] = "/tmp/cl-home-XXXXXX";
    const char *dir = mkdtemp(pattern);
    if (!dir) std::abort();
    path_ = dir;
    mkdir((path_ + "/sys").c_str(), 0770);
    setenv("QX_HOME", path_.c_str(), 1);
}

TempHome::~TempHome() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    unsetenv("QX_HOME");
}

void write_file(const std::string &path, const std::string &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void TempHome::write(const std::string &relative, const std::string &bytes) const { write_file(file(relative), bytes); }
std::string TempHome::read(const std::string &relative) const { return read_file(file(relative)); }

namespace {
std::vector<TraceRecord> g_traces;
std::vector<LogRecord> g_logs;
void on_trace(int id, const char *name, int entry) { g_traces.push_back({id, name ? name : "", entry}); }
void on_log(int level, int group, int reason, const char *text, int t61) {
    g_logs.push_back({level, group, reason, text ? text : "", t61});
}
}  // namespace

TraceCapture::TraceCapture() : previous_(er_SetTraceHook(on_trace)) { g_traces.clear(); }
TraceCapture::~TraceCapture() { er_SetTraceHook(previous_); }
const std::vector<TraceRecord> &TraceCapture::records() const { return g_traces; }
std::vector<TraceRecord> TraceCapture::named(const std::string &name) const {
    std::vector<TraceRecord> out;
    for (const auto &r : g_traces)
        if (r.name == name) out.push_back(r);
    return out;
}
void TraceCapture::clear() { g_traces.clear(); }

LogCapture::LogCapture() : previous_(er_SetLogHook(on_log)) { g_logs.clear(); }
LogCapture::~LogCapture() { er_SetLogHook(previous_); }
const std::vector<LogRecord> &LogCapture::records() const { return g_logs; }

std::string show(const std::string &packed) {
    std::string out;
    for (unsigned char c : packed) {
        if (c == 0x1D) {
            out += '|';
        } else if (c == 0x17) {
            out += '#';
        } else if (c < 0x20 || c == 0x7F) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string packed(const std::string &readable) {
    std::string out;
    for (char c : readable) out += c == '|' ? '\x1D' : c == '#' ? '\x17' : c;
    return out;
}

// The error library's trace file (QX_TRACE_FILE) stays open for the life
// of the process once a record is written: not a descriptor a call left.
int open_fd_count() {
    const char *trace = std::getenv("QX_TRACE_FILE");
    int count = 0;
    if (DIR *dir = opendir("/proc/self/fd")) {
        while (struct dirent *e = readdir(dir)) {
            if (e->d_name[0] == '.') continue;
            char link[300], target[4096];  // "/proc/self/fd/" and a name of at most 255 bytes
            std::snprintf(link, sizeof link, "/proc/self/fd/%s", e->d_name);
            const ssize_t n = readlink(link, target, sizeof target - 1);
            target[n < 0 ? 0 : n] = '\0';
            count += !(trace && std::strcmp(target, trace) == 0);
        }
        closedir(dir);
        --count;  // the descriptor of the listing itself
    }
    return count;
}

}  // namespace testkit
