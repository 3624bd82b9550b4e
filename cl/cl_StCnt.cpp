// The system start counter in ~/sys/sysdata: the count of server starts at
// offset 40 and the time of the last counted start at offset 44, both
// 4 bytes in the machine's byte order.
#include <fcntl.h>

#include <cstdint>

#include "cl.h"
#include "file_field.hpp"
#include "frame.hpp"
#include "mdc.h"
#include "os.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_StCnt";
constexpr const char kSysDataFile[] = "~/sys/sysdata";
constexpr std::int64_t kCountOffset = 40;
constexpr std::int64_t kDateOffset = 44;
constexpr int kValueSize = 4;

// What each reader read, kept for the life of the process; 0 means nothing
// read yet, so a stored 0 is read again on every call.
std::uint32_t g_count_cache = 0;
std::uint32_t g_date_cache = 0;

// Closes fd, noting first that nothing is open: a close that fails has
// released the descriptor all the same and must not be repeated.
void close_sysdata(volatile int &fd) {
    const int open = fd;
    fd = -1;
    os_close(open);
}

// Runs body, which opens the file into fd and closes it; an escape on the
// way closes what is still open, without losing the escape, and passes on.
template <class Body>
void with_sysdata(volatile int &fd, Body &&body) {
    guarded_cleanup_block(
        CL_HERE, body, [&] { return fd >= 0; }, [&] { close_sysdata(fd); });
}

void transfer_or_raise(FieldIo result) {
    if (result != FieldIo::kDone) CL_RAISE(3, 6015);
}

std::uint32_t read_cached(const char *name, std::int64_t offset, std::uint32_t &cache) {
    Trace t(kTrace19, name);
    if (cache != 0) return t.exit(cache);
    volatile int fd = -1;
    with_sysdata(fd, [&] {
        fd = os_open(kSysDataFile, O_RDONLY, 0);
        std::uint32_t value = 0;
        transfer_or_raise(read_field(fd, offset, &value, kValueSize));
        cache = value;
        close_sysdata(fd);
    });
    return t.exit(cache);
}

// Adds one to the count (wrapping to 0 after 4294967295) and stamps the
// time, taken before the file is opened. The count is written first. Not
// locked: two processes counting at once may both write the same count.
void inc_start_count() {
    Trace t(kTrace17, "cl_IncSystemStartCount");
    volatile int fd = -1;
    with_sysdata(fd, [&] {
        std::int32_t now = 0;
        mdc_time(&now);
        fd = os_open(kSysDataFile, O_RDWR, 0);
        std::uint32_t count = 0;
        transfer_or_raise(read_field(fd, kCountOffset, &count, kValueSize));
        ++count;
        transfer_or_raise(write_field(fd, kCountOffset, &count, kValueSize));
        transfer_or_raise(write_field(fd, kDateOffset, &now, kValueSize));
        close_sysdata(fd);
    });
    t.exit();
}

}  // namespace
}  // namespace cl

extern "C" {
uint32_t cl_GetSystemStartCount(void) {
    return cl::read_cached("cl_GetSystemStartCount", cl::kCountOffset, cl::g_count_cache);
}
int32_t cl_GetSystemStartDate(void) {
    return static_cast<int32_t>(cl::read_cached("cl_GetSystemStartDate", cl::kDateOffset, cl::g_date_cache));
}
void cl_IncSystemStartCount(void) { cl::inc_start_count(); }
}
