// Customisation switches: an environment variable of the switch's name, else
// a line NAME=VALUE in <home>/sys/switches.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cust.h"
#include "home.hpp"
#include "qx.h"

namespace qx::cust {
namespace {

// Lines of the switches file longer than this are ignored.
constexpr int kLineMax = 1024;

enum class Value { Absent, False, Other };

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

bool equal_ignoring_case(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
    return true;
}

constexpr std::string_view kFalseWords[] = {"0", "false", "no", "off"};

Value classify(std::string_view value) {
    value = trim(value);
    for (auto word : kFalseWords)
        if (equal_ignoring_case(value, word)) return Value::False;
    return Value::Other;
}

// The last line of the switches file that names the switch decides; blank
// lines and lines starting with '#' are skipped.
Value from_file(std::string_view name) {
    char home[QX_PATH_MAX];
    char path[QX_PATH_MAX];
    if (!qx::home_dir(home, sizeof home)) return Value::Absent;
    const int n = std::snprintf(path, sizeof path, "%s/sys/switches", home);
    if (n < 0 || n >= static_cast<int>(sizeof path)) return Value::Absent;
    std::FILE *file = std::fopen(path, "r");
    if (!file) return Value::Absent;
    Value found = Value::Absent;
    char line[kLineMax];
    while (std::fgets(line, sizeof line, file)) {
        std::size_t len = std::strlen(line);
        if (len > 0 && line[len - 1] == '\n') {
            --len;
        } else if (!std::feof(file)) {  // too long: skip the rest of it
            int c;
            while ((c = std::fgetc(file)) != EOF && c != '\n') {
            }
            continue;
        }
        std::string_view text = trim(std::string_view(line, len));
        if (text.empty() || text.front() == '#') continue;
        const auto eq = text.find('=');
        if (eq == std::string_view::npos || trim(text.substr(0, eq)) != name) continue;
        found = classify(text.substr(eq + 1));
    }
    std::fclose(file);
    return found;
}

Value lookup(const char *name) {
    if (!name || !*name) return Value::Absent;
    if (const char *env = std::getenv(name)) return classify(env);
    return from_file(name);
}

}  // namespace
}  // namespace qx::cust

extern "C" int cust_PresentAndFalse(const char *name) {
    return qx::cust::lookup(name) == qx::cust::Value::False ? 1 : 0;
}
