// Fixed-size fields of the server's binary files, read and written at fixed
// offsets, and the mail node units of the configuration file.
#ifndef CL_FILE_FIELD_HPP
#define CL_FILE_FIELD_HPP

#include <stdio.h>

#include <array>
#include <cstdint>

#include "os.h"

namespace cl {

enum class FieldIo { kDone, kNotPositioned, kShort };

using ReadFn = int (*)(int fd, void *buf, int count);

// Positions fd at offset from the start of the file, then transfers size
// bytes. A file that cannot be positioned is neither read nor written (a
// transfer at the old position would touch the wrong field).
[[nodiscard]] inline FieldIo read_field(int fd, std::int64_t offset, void *buf, int size, ReadFn read = os_read) {
    if (os_lseek(fd, offset, SEEK_SET) == -1) return FieldIo::kNotPositioned;
    return read(fd, buf, size) == size ? FieldIo::kDone : FieldIo::kShort;
}

[[nodiscard]] inline FieldIo write_field(int fd, std::int64_t offset, const void *buf, int size) {
    if (os_lseek(fd, offset, SEEK_SET) == -1) return FieldIo::kNotPositioned;
    return os_write(fd, buf, size) == size ? FieldIo::kDone : FieldIo::kShort;
}

// The configuration file ~/sys/config names a mail node as four units of
// 32 bytes, NUL-padded; a unit of 32 characters has no terminator there.
constexpr const char kConfigFile[] = "~/sys/config";
constexpr int kUnitSize = 32;
using UnitOffsets = std::array<std::int64_t, 4>;
constexpr UnitOffsets kOlderUnits = {8, 40, 72, 104};     // the older mail node
constexpr UnitOffsets kPrimaryUnits = {140, 172, 204, 236};  // the primary mail node

// Reads the four units of fd at offsets in order, handing each to
// take(index, unit) as a terminated text as soon as it is read; a failed
// field goes to fail(result), which must not return (it closes fd and
// raises). The unit buffer is zeroed once: its 33rd byte ends every unit.
template <class Take, class Fail>
void read_units(int fd, const UnitOffsets &offsets, ReadFn read, Take &&take, Fail &&fail) {
    char unit[kUnitSize + 1] = {};
    for (int i = 0; i < static_cast<int>(offsets.size()); ++i) {
        FieldIo result = read_field(fd, offsets[i], unit, kUnitSize, read);
        if (result != FieldIo::kDone) fail(result);
        take(i, static_cast<const char *>(unit));
    }
}

}  // namespace cl
#endif  // CL_FILE_FIELD_HPP
