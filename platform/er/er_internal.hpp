// Shared between the error library's sources.
#ifndef QX_ER_INTERNAL_HPP
#define QX_ER_INTERNAL_HPP

namespace qx::er {

// Appends one formatted line to the trace file ($QX_TRACE_FILE), if any.
void trace_line(const char *format, ...) __attribute__((format(printf, 1, 2)));
void trace_flush();

}  // namespace qx::er
#endif
