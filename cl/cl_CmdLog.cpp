// The command line of a program, joined into one line and written to the
// event log, plain or converted into a character set; and the command file.
#include <cstdio>
#include <cstring>

#include "cl.h"
#include "er.h"
#include "frame.hpp"
#include "go.h"
#include "os.h"
#include "str.h"

namespace cl {
namespace {

constexpr const char kSourceFile[] = "cl/cl_CmdLog";

// The log line: 8091 characters and the terminator. A longer command line
// is cut there, possibly inside an argument, and later arguments dropped.
constexpr int kLineSize = 8092;
constexpr int kLineRoom = kLineSize - 1;
constexpr Code kCommandLine = {100, 4630};
constexpr int kLogLevel = 7;

int room_left(const char *line) { return kLineRoom - static_cast<int>(std::strlen(line)); }

// Joins the arguments with single spaces: each argument goes through
// convert, then every piece is added with append(line, piece, room), which
// appends at most room bytes and keeps the line terminated.
template <class Convert, class Append>
void join_arguments(char **argv, char *line, Convert &&convert, Append &&append) {
    line[0] = '\0';
    int room = kLineRoom;
    for (char **arg = argv; room > 0 && *arg;) {
        append(line, convert(*arg), room);
        room = room_left(line);
        if (*++arg) {
            append(line, " ", room);
            room = room_left(line);
        }
    }
}

void log_command_line(char **argv) {
    Trace t(kTrace17, "cl_LogCommandLine");
    char line[kLineSize];
    join_arguments(
        argv, line, [](const char *arg) { return arg; },
        [](char *to, const char *piece, int room) { std::strncat(to, piece, static_cast<std::size_t>(room)); });
    er_LogMsg(kLogLevel, kCommandLine.group, kCommandLine.reason, line, 0);
    t.exit();
}

void log_converted_command_line(char **argv, const char *charset, int charsetId) {
    Trace t(kTrace17, "cl_LogO61CommandLine");
    char line[kLineSize];
    join_arguments(
        argv, line, [&](const char *arg) { return go_ConvertStringOrRetain(arg, -1, er_GetCSStr(), charset); },
        [&](char *to, const char *piece, int room) { str_strncat(to, piece, room, charsetId); });
    er_LogT61Msg(kLogLevel, kCommandLine.group, kCommandLine.reason, line, 0);
    t.exit();
}

// Adds text and a newline to the file, creating it when it is missing.
void update_command_file(const char *text, const char *file) {
    Trace t(kTrace19, "cl_UpdateCommandFile");
    FILE *stream = os_fopen(file, os_fexists(file) ? "a+" : "w+");
    std::fprintf(stream, "%s\n", text);
    os_fclose(stream);
    t.exit();
}

}  // namespace
}  // namespace cl

extern "C" {
void cl_LogCommandLine(char **argv) { cl::log_command_line(argv); }
void cl_LogO61CommandLine(char **argv, const char *charsetName, int charsetId) {
    cl::log_converted_command_line(argv, charsetName, charsetId);
}
void cl_UpdateCommandFile(const char *text, const char *fileName) { cl::update_command_file(text, fileName); }
}
