// The mail node programs: qx-defmnode and qx-pmn. What the library reads
// from the home's files is checked before it is shown.
#include <sys/stat.h>

#include <cstring>

#include "qxadm.hpp"

namespace qxadm {
namespace {

constexpr const char kSourceFile[] = "programs/mailnodes";

// A record number: decimal digits (else a usage error), 0 to kRecordMax.
int record_number(const Args &a, const char *text) {
    long n = 0;
    need(a, *text != '\0');
    for (const char *p = text; *p; ++p) {
        need(a, *p >= '0' && *p <= '9');
        if (n <= kRecordMax) n = n * 10 + (*p - '0');
    }
    if (n > kRecordMax) QX_RAISE(kRecordOutOfRange);
    return static_cast<int>(n);
}

// A default mail node record as cl_ReadDefMNode gave it into a zeroed
// buffer: NUL-terminated text with nothing after its terminator, and that
// text empty or a sound mail node.
void check_record(const char *buf) {
    const char *end = static_cast<const char *>(std::memchr(buf, '\0', kRecordSize));
    bool sound = end != nullptr;
    for (const char *p = end; sound && p < buf + kRecordSize; ++p) sound = *p == '\0';
    if (!sound || (*buf != '\0' && !sound_mail_node(buf))) raise_damaged(kDefMNodeName, __LINE__);
}

}  // namespace

// qx-defmnode [RECORD [MAILNODE]]: shows record RECORD (1 by default) of the
// default mail node file, after setting it to MAILNODE when one is given.
// Record 1 starts out as the configuration's older mail node, which the
// library copies into it on first use: that mail node is checked first, so
// damage in sys/config does not spread into sys/defmnode.
int default_mail_node(const Args &a) {
    need(a, a.count <= 2);
    int record = a.count >= 1 ? record_number(a, a.arg(1)) : 1;
    char buf[kRecordSize] = {};
    if (a.count == 2) {
        under_lock(a, [&] {
            char key[kPackedSize];
            mail_node_key(a.arg(2), key);
            if (std::strlen(key) >= kRecordSize) QX_RAISE(kRecordTooLong);
            cl_WriteDefMNode(record, key);
            // The library does not test its write; reading the record back
            // does, and what it reads is what is shown.
            cl_ReadDefMNode(record, buf);
            if (std::strcmp(buf, key) != 0) QX_RAISE(kRecordNotWritten);
            note_done("the record was written all the same");
        });
    }
    char config[QX_PATH_MAX];
    actual_name(kConfigName, config);
    if (record == 1 && exists(config, S_IFREG)) check_config_units(kOlderUnitAt, true);
    if (a.count < 2) cl_ReadDefMNode(record, buf);
    check_record(buf);
    char label[48];
    std::snprintf(label, sizeof label, "Default mail node %d", record);
    show_mail_node(label, buf);
    return 0;
}

// qx-pmn
int primary_mail_node(const Args &a) {
    need(a, a.count == 0);
    char buf[kPrimaryNodeSize];
    cl_ReadPMN(buf);
    check_config_units(kPrimaryUnitAt, false);
    show_mail_node("Primary mail node", buf);
    return 0;
}

}  // namespace qxadm
