// Character-set conversion on iconv. One iconv handle per (from, to) pair,
// opened on first use and kept for the life of the process. Results live in
// two alternating buffers, so the previous result stays readable while the
// next conversion runs (a caller may convert a result again).
#include <iconv.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ccs.h"
#include "er.h"
#include "go.h"
#include "os.h"

namespace go {
namespace {

constexpr const char kSourceFile[] = "platform/go/go";
constexpr int kLossLevel = 9;
constexpr int kLossReason = 4672;  // catalogue: characters written as '?'
const iconv_t kNoHandle = reinterpret_cast<iconv_t>(-1);

// Handle cache: the known sets are few (every pair of them fits), so each
// handle is opened once and stays open.
struct Handle {
    const char *from;  // iconv names, static in the ccs_ table
    const char *to;
    iconv_t cd;
};
std::array<Handle, 64> g_handles{};
std::size_t g_handle_count = 0;

iconv_t handle(const char *from_set, const char *to_set) {
    const char *from = ccs_IconvName(from_set ? from_set : "UTF8");
    const char *to = ccs_IconvName(to_set ? to_set : "UTF8");
    if (!from || !to) return kNoHandle;
    for (std::size_t i = 0; i < g_handle_count; ++i) {
        const Handle &h = g_handles[i];
        if (std::strcmp(h.from, from) == 0 && std::strcmp(h.to, to) == 0) return h.cd;
    }
    iconv_t cd = iconv_open(to, from);
    if (g_handle_count < g_handles.size()) g_handles[g_handle_count++] = {from, to, cd};
    return cd;
}

// Result buffers.
struct Buffer {
    char *data;
    std::size_t capacity;
};
std::array<Buffer, 2> g_buffers{};
std::size_t g_current = 0;

// Makes room for `need` bytes in b, keeping the first `used`.
void reserve(Buffer &b, std::size_t used, std::size_t need) {
    if (b.data && need <= b.capacity) return;
    std::size_t capacity = b.capacity ? b.capacity : 64;
    while (capacity < need) capacity *= 2;
    char *grown = static_cast<char *>(os_malloc(capacity));
    if (used) std::memcpy(grown, b.data, used);
    os_free(b.data);
    b.data = grown;
    b.capacity = capacity;
}

// The buffer not holding the previous result; taken once per conversion.
Buffer &next_buffer() {
    g_current ^= 1;
    return g_buffers[g_current];
}

const char *copy_unchanged(Buffer &b, const char *text, std::size_t n) {
    reserve(b, 0, n + 1);
    std::memcpy(b.data, text, n);
    b.data[n] = '\0';
    return b.data;
}

// Bytes of the character at p in a UTF-8 source: the length of a valid
// sequence, else 1, so that an invalid byte is skipped alone.
std::size_t utf8_char_len(const unsigned char *p, std::size_t left) {
    std::size_t n = *p >= 0xF0 && *p <= 0xF4 ? 4 : *p >= 0xE0 ? 3 : *p >= 0xC2 && *p <= 0xDF ? 2 : 1;
    if (*p >= 0xF5 || n > left) return 1;
    for (std::size_t i = 1; i < n; ++i)
        if ((p[i] & 0xC0) != 0x80) return 1;
    return n;
}

enum class OnLoss { kQuestionMark, kRetain };

// Converts n bytes of text; returns null when on_loss is kRetain and a
// character cannot be converted. *lost counts the characters written as '?'.
const char *run(Buffer &b, iconv_t cd, const char *text, std::size_t n, bool utf8_source, OnLoss on_loss,
                int *lost) {
    std::size_t used = 0;
    reserve(b, 0, n * 2 + 16);
    iconv(cd, nullptr, nullptr, nullptr, nullptr);  // initial shift state
    char *in = const_cast<char *>(text);
    std::size_t in_left = n;
    *lost = 0;
    for (;;) {
        char *out = b.data + used;
        std::size_t out_left = b.capacity - used - 1;  // keeps room for the terminator
        std::size_t rc = in_left ? iconv(cd, &in, &in_left, &out, &out_left)
                                 : iconv(cd, nullptr, nullptr, &out, &out_left);
        int error = errno;
        used = static_cast<std::size_t>(out - b.data);
        if (rc != static_cast<std::size_t>(-1)) {
            if (in_left == 0 && rc == 0) break;  // flushed
            continue;
        }
        if (error == E2BIG) {
            reserve(b, used, b.capacity * 2);
            continue;
        }
        // EILSEQ or EINVAL: a character with no mapping, or invalid input.
        if (on_loss == OnLoss::kRetain) return nullptr;
        std::size_t skip = utf8_source ? utf8_char_len(reinterpret_cast<unsigned char *>(in), in_left) : 1;
        in += skip;
        in_left -= skip;
        reserve(b, used, used + 2);
        b.data[used++] = '?';
        ++*lost;
    }
    b.data[used] = '\0';
    return b.data;
}

void log_loss(int lost, const char *from, const char *to) {
    char text[160];
    std::snprintf(text, sizeof text, "%d character(s) of %.20s text had no mapping in %.20s and were written as '?'.",
                  lost, from, to);
    er_LogMsg(kLossLevel, 100, kLossReason, text, 0);
}

bool is_utf8(const char *set) {
    const char *name = ccs_IconvName(set ? set : "UTF8");
    return name && std::strcmp(name, "UTF-8") == 0;
}

// Both conversions: text unchanged without a converter for the pair, or
// (kRetain) when any character cannot be converted.
const char *convert(const char *text, int len, const char *from, const char *to, OnLoss on_loss) {
    std::size_t n = len < 0 ? std::strlen(text) : static_cast<std::size_t>(len);
    Buffer &b = next_buffer();
    iconv_t cd = handle(from, to);
    if (cd == kNoHandle) return copy_unchanged(b, text, n);
    int lost = 0;
    const char *out = run(b, cd, text, n, is_utf8(from), on_loss, &lost);
    if (lost) log_loss(lost, from ? from : "UTF8", to ? to : "UTF8");
    return out ? out : copy_unchanged(b, text, n);
}

}  // namespace
}  // namespace go

extern "C" {

const char *go_ConvertStrEscapeLog(const char *text, int len, const char *from, const char *to) {
    return go::convert(text, len, from, to, go::OnLoss::kQuestionMark);
}

const char *go_ConvertStringOrRetain(const char *text, int len, const char *from, const char *to) {
    return go::convert(text, len, from, to, go::OnLoss::kRetain);
}

}  // extern "C"
