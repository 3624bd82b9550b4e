// Ascii encoding of values. Printable ASCII other than the space, the key
// characters "/=*[]%", the backslash and '~' stands for itself; every other
// byte is written '~' and two upper-case hex digits. The encoded text is thus
// printable ASCII that needs no escaping in an attribute list, and decoding
// gives back exactly the bytes encoded, whatever they were.
#include <array>
#include <cstring>
#include <string_view>

#include "enc.h"
#include "os.h"

namespace enc {
namespace {

constexpr char kEscape = '~';
constexpr std::string_view kNeverPlain = "/=*[]%\\~";
constexpr char kHex[] = "0123456789ABCDEF";

constexpr bool plain(unsigned char c) {
    return c > 0x20 && c < 0x7F && kNeverPlain.find(static_cast<char>(c)) == std::string_view::npos;
}

constexpr std::array<bool, 256> make_plain_table() {
    std::array<bool, 256> t{};
    for (int c = 0; c < 256; ++c) t[static_cast<std::size_t>(c)] = plain(static_cast<unsigned char>(c));
    return t;
}
constexpr std::array<bool, 256> kPlain = make_plain_table();

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// A result buffer of the library, grown as needed and kept. The block it
// replaces is released only by done(), so the input may be a previous result.
struct Buffer {
    char *data;
    std::size_t capacity;
    char *replaced;
    char *reserve(std::size_t need) {
        if (!data || need > capacity) {
            std::size_t grown = capacity ? capacity : 64;
            while (grown < need) grown *= 2;
            replaced = data;
            data = static_cast<char *>(os_malloc(grown));
            capacity = grown;
        }
        return data;
    }
    char *done() {
        os_free(replaced);
        replaced = nullptr;
        return data;
    }
};
Buffer g_encoded{};
Buffer g_decoded{};

const char *encode(const unsigned char *value, std::size_t n) {
    std::size_t need = 1;
    for (std::size_t i = 0; i < n; ++i) need += kPlain[value[i]] ? 1 : 3;
    char *out = g_encoded.reserve(need);
    for (std::size_t i = 0; i < n; ++i) {
        unsigned char c = value[i];
        if (kPlain[c]) {
            *out++ = static_cast<char>(c);
        } else {
            *out++ = kEscape;
            *out++ = kHex[c >> 4];
            *out++ = kHex[c & 0x0F];
        }
    }
    *out = '\0';
    return g_encoded.done();
}

// A '~' not followed by two hex digits is kept as it stands.
char *decode(const char *text, int *len) {
    std::size_t n = std::strlen(text);
    char *out = g_decoded.reserve(n + 1);
    std::size_t k = 0;
    for (std::size_t i = 0; i < n; ++i) {
        int high = text[i] == kEscape ? hex_value(text[i + 1]) : -1;
        int low = high >= 0 ? hex_value(text[i + 2]) : -1;
        if (low >= 0) {
            out[k++] = static_cast<char>(high << 4 | low);
            i += 2;
        } else {
            out[k++] = text[i];
        }
    }
    out[k] = '\0';
    *len = static_cast<int>(k);
    return g_decoded.done();
}

}  // namespace
}  // namespace enc

extern "C" {

const char *enc_EncodeToAscii(const char *value, int len, int *status) {
    if (status) *status = 0;
    std::size_t n = len < 0 ? std::strlen(value) : static_cast<std::size_t>(len);
    return enc::encode(reinterpret_cast<const unsigned char *>(value), n);
}

char *enc_DecodeFromAscii(const char *value, int *len) { return enc::decode(value, len); }

}  // extern "C"
