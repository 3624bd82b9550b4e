// The message catalogue, compiled in from catalogue.def.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "mes.h"

namespace {

struct Message {
    int group;
    int reason;
    char kind;
    const char *text;
};

constexpr Message kCatalogue[] = {
#define MES(group, reason, kind, text) {group, reason, kind, text},
#include "catalogue.def"
#undef MES
};

const Message *find(int group, int reason) {
    for (const Message &m : kCatalogue)
        if (m.group == group && m.reason == reason) return &m;
    return nullptr;
}

// Returned texts that are made, not stored: bounded by these buffers.
char g_text[256];
char g_prefix[32];

const char *text_of(int group, int reason) {
    if (const Message *m = find(group, reason)) return m->text;
    if (group == 1) {
        std::snprintf(g_text, sizeof g_text, "%s.", std::strerror(reason));
    } else {
        std::snprintf(g_text, sizeof g_text, "Error %d/%d (no text in the catalogue).", group, reason);
    }
    return g_text;
}

}  // namespace

extern "C" {

const char *mes_GetAnyErMsg(int group, int reason, char *buf, int size) {
    const char *text = text_of(group, reason);
    if (!buf) return text;
    if (size > 0) std::snprintf(buf, static_cast<std::size_t>(size), "%s", text);
    return buf;
}

const char *mes_GetErrMsgPrefix(int group, int reason) {
    const Message *m = find(group, reason);
    char kind = m ? m->kind : 'E';
    std::snprintf(g_prefix, sizeof g_prefix, "%c%d-%d", kind == 'U' ? 'E' : kind, group, reason);
    return g_prefix;
}

}  // extern "C"
