// What the formatter suites share: names built from {field, value} pairs,
// unpacked field tables, display names, and a UTF-8 check for cut texts.
#ifndef CL_FORMAT_SUPPORT_HPP
#define CL_FORMAT_SUPPORT_HPP

#include <cstring>
#include <map>
#include <string>

#include "da.h"
#include "os.h"
#include "testkit.hpp"

namespace format_support {

using Fields = std::map<int, std::string>;

// The packed text of a name with the given fields.
inline std::string tf(const Fields &fields) {
    char **slots = nullptr;
    cl_UnPackToLargeArray("", &slots);
    std::size_t total = 162;
    for (const auto &[field, value] : fields) {
        slots[field] = os_strdup(value.c_str());
        total += value.size();
    }
    std::string out(total, '\0');
    cl_ORNArray2Tf(slots, out.data());
    cl_FreeArray(slots);
    return out.c_str();
}

inline Fields with(Fields base, const Fields &extra) {
    base.insert(extra.begin(), extra.end());
    return base;
}

// An unpacked field table of packed text (length: the ornLength given).
struct Table {
    char **t = nullptr;
    Table(const std::string &text, int count, int length = -1) {
        nm_ParsedORN parsed;
        int status = 0;
        nm_ParseORN(text.c_str(), &parsed, &status);
        cl_UnpackFullORN(text.c_str(), &t, &parsed, count, length < 0 ? static_cast<int>(text.size()) : length);
    }
    explicit Table(const Fields &fields, int count = 161) : Table(tf(fields), count) {}
    ~Table() { cl_FreeORN(t); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;
};

inline std::string name(int field) { return da_AttribNumberToLocName(da_nmFieldNum2DANum(field)); }

inline bool valid_utf8(const std::string &s) {
    for (std::size_t i = 0; i < s.size();) {
        auto c = static_cast<unsigned char>(s[i]);
        std::size_t n = c < 0x80 ? 1 : c >= 0xC2 && c <= 0xDF ? 2 : c >= 0xE0 && c <= 0xEF ? 3 : 4;
        if (i + n > s.size()) return false;
        for (std::size_t k = 1; k < n; ++k)
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        i += n;
    }
    return true;
}

}  // namespace format_support
#endif
