// Conversion availability: a mapping exists when both sets are known, both
// have a converter, and iconv can open the pair. Each pair is asked of
// iconv once; the answer is kept for the life of the process.
#include <iconv.h>

#include <array>

#include "ccs.h"
#include "cvc.h"

namespace cvc {
namespace {

struct Answer {
    const char *from;  // iconv names, static in the ccs_ table
    const char *to;
    bool available;
};

// Known sets are few: every pair of them fits.
std::array<Answer, 64> g_answers{};
std::size_t g_count = 0;

bool ask_iconv(const char *from, const char *to) {
    iconv_t cd = iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    iconv_close(cd);
    return true;
}

bool available(const char *from_set, const char *to_set) {
    const char *from = ccs_IconvName(from_set ? from_set : "UTF8");
    const char *to = ccs_IconvName(to_set ? to_set : "UTF8");
    if (!from || !to) return false;
    for (std::size_t i = 0; i < g_count; ++i)  // one static name per set: the pointers tell
        if (g_answers[i].from == from && g_answers[i].to == to) return g_answers[i].available;
    bool answer = ask_iconv(from, to);
    if (g_count < g_answers.size()) g_answers[g_count++] = {from, to, answer};
    return answer;
}

}  // namespace
}  // namespace cvc

extern "C" {

int cvc_IsMappingAvail(const char *from, const char *to) { return cvc::available(from, to) ? 1 : 0; }

}  // extern "C"
