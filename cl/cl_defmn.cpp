// The default mail node file ~/sys/defmnode: records of 1024 bytes, each a
// NUL-terminated O/R name text. The file is created on first use; record 1
// falls back to the older mail node of the configuration file.
#include <fcntl.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "cl.h"
#include "ext.h"
#include "file_field.hpp"
#include "frame.hpp"
#include "mdc.h"
#include "nm.h"
#include "os.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_defmn";
constexpr const char kDefMnFile[] = "~/sys/defmnode";
constexpr int kRecordSize = 1024;
constexpr int kLastRecord = 2097151;  // the last whose offset fits 31 bits
constexpr int kCreateMode = 0660;
constexpr int kFirstUnitField = 4;    // units 1 to 4 are fields 4 to 7

// The offset is the product in 32 bits, widened with its sign: records
// beyond kLastRecord (and negative ones) give offsets the file cannot be
// positioned at.
std::int64_t record_offset(int record) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(record) * kRecordSize);
}

// Creates the missing file with mode 0660 whatever the umask, owned like
// the server's files. The umask is put back and the descriptor closed on
// every path out.
int create_file(const char *actual) {
    volatile int fd = -1;
    const int kept = os_umask(0);
    volatile bool restored = false;
    pass_on_block(
        CL_HERE,
        [&] {
            fd = os_open(actual, O_RDWR | O_CREAT, kCreateMode);
            os_umask(kept);
            restored = true;
            ext_ChownToGenesis(actual);
        },
        [&] {
            if (!restored) os_umask(kept);
            if (fd >= 0) guarded_release([&] { os_close(fd); });
        });
    return fd;
}

// Opens the file with flags, creating it when it does not exist (1/ENOENT).
int open_with_creation(const char *actual, int flags) {
    volatile int fd = -1;
    volatile bool missing = false;
    protect(
        CL_HERE, [&] { fd = os_open(actual, flags, 0); },
        [&] {
            if (Code{1, ENOENT}.pending()) {
                er_Clear();
                missing = true;
            }
        });
    return missing ? create_file(actual) : fd;
}

// The older mail node as an O/R name in buf (1024 bytes), or the empty
// text when its four units are all empty.
void get_old_mail_node(char *buf) {
    Trace t(kTrace15, "cl_GetOldUXMN");
    const int fd = os_open(kConfigFile, 0, 0);
    nm_ParsedORN parsed;
    bool any = false;
    read_units(
        fd, kOlderUnits, mdc_read,
        [&](int index, const char *unit) {
            if (index == 0) nm_InitORN(buf, &parsed);
            nm_PutFieldStr(buf, &parsed, kFirstUnitField + index, unit);
            any = any || unit[0] != '\0';
        },
        [&](FieldIo) {
            mdc_close(fd);
            CL_RAISE(102, 1420);
        });
    if (!any) buf[0] = '\0';
    mdc_close(fd);
    t.exit();
}

void write_record(int record, const char *text) {
    Trace t(kTrace19, "cl_WriteDefMNode");
    if (record < 0 || record > kLastRecord) CL_RAISE(100, 4626);
    char bytes[kRecordSize] = {};
    std::strncpy(bytes, text, kRecordSize - 1);  // at most 1023 characters, always terminated
    char actual[QX_PATH_MAX];
    ext_GetActualFName(kDefMnFile, actual);
    const int fd = open_with_creation(actual, O_RDWR);
    // The transfer's result is not tested, as the file's contract says: a
    // caller that must know reads the record back (the programs do).
    static_cast<void>(write_field(fd, record_offset(record), bytes, kRecordSize));
    os_close(fd);
    t.exit();
}

// buf (1024 bytes) receives the record's text; a record that is missing or
// incomplete reads as the empty text.
void read_record(int record, char *buf) {
    Trace t(kTrace19, "cl_ReadDefMNode");
    char actual[QX_PATH_MAX];
    ext_GetActualFName(kDefMnFile, actual);
    volatile int fd = open_with_creation(actual, O_RDONLY);
    pass_on_block(
        CL_HERE,
        [&] {
            if (read_field(fd, record_offset(record), buf, kRecordSize) != FieldIo::kDone) buf[0] = '\0';
            buf[kRecordSize - 1] = '\0';  // a damaged record is cut, not overrun
            if (buf[0] == '\0' && record == 1) {
                get_old_mail_node(buf);
                if (buf[0] != '\0') write_record(1, buf);
            }
        },
        [&] { guarded_release([&] { os_close(fd); }); });
    os_close(fd);
    t.exit();
}

}  // namespace
}  // namespace cl

extern "C" {
void cl_ReadDefMNode(int record, char *buf) { cl::read_record(record, buf); }
void cl_WriteDefMNode(int record, const char *text) { cl::write_record(record, text); }
}
