/* cl: command-line support library of the mail and directory server.
 *
 * What every function below has in common:
 * - Failures are escapes. A failing call does not return: it raises an escape (an error group
 *   and a reason code) through the error library (er.h), which jumps to the innermost protected
 *   block (cl_escape.h); cl_SortAllErrors then shows it and gives the exit status. Each comment
 *   names, as group/reason, the escapes the function raises or passes on; "No escape" means
 *   none. Besides these, any call may raise 1/ENOMEM when memory runs out, and a failing system
 *   call raises 1/errno (1/2: no such file or directory).
 * - Packed text is an O/R name in the server's packed form: fields 0 to 160 in order, the byte
 *   0x1D between fields, 0x17 closing a group of 32, NUL at the end. A field array is 161
 *   strings indexed by field number, null for an empty field.
 * - Output buffers belong to the caller and their sizes are not checked: each comment gives
 *   the size its buffers need.
 * - Typed text given as char * is rewritten in place (spaces dropped, substitute characters
 *   replaced): pass a copy to keep the original.
 * - A formatter returns static text of the library, to be neither freed nor kept: the next
 *   call of any formatter (cl_Frmt..., cl_Format...) may rewrite it. Copy it to keep it.
 * - "~/" names a file of the server home: $QX_HOME, else $HOME/.qx.
 * - The library is used from one thread at a time. */
#ifndef CL_H
#define CL_H

#include <stdint.h>
#include "nm.h"
#include "ccs.h"

#if defined(__GNUC__)
#define CL_API __attribute__((visibility("default")))
#else
#define CL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Packed text, field arrays, substitute characters. */

/* Unpacks packed text into a new field array, stored in *array; release it with cl_FreeArray.
 * No escape. */
CL_API void   cl_UnPackToLargeArray(const char *tf, char ***array);
/* Packs a field array into out: the sum of the fields' lengths plus 161 bytes. No escape. */
CL_API void   cl_ORNArray2Tf(char **array, char *out);
/* Releases a field array and its strings; null is accepted. No escape. */
CL_API void   cl_FreeArray(char **array);
/* In place, space . / , ( ) become their substitutes _ ! | ; { }. No escape. */
CL_API void   cl_ConvertToSpecialChar(char *s);
/* In place, the substitutes _ ! | ; { } become space . / , ( ). No escape. */
CL_API void   cl_ConvertSpecialChar(char *s);

/* Parsers: typed text is rewritten in place. */

/* Parses a typed personal name ('John Q. Smith Jr.') into four packed fields, each closed by
 * 0x1D; result: 69 bytes, untouched on an escape. Escapes 100/8006 to 8014 (8014: no surname
 * while surnameRequired). */
CL_API void   cl_ParseORN(char *name, char *result, int surnameRequired);
/* cl_ParseORN with the surname required. */
CL_API void   cl_ParseName(char *name, char *result);
/* Parses 'personal name[/unit,unit...]' into eight packed fields (the name, four units);
 * result: 200 bytes. 1 when a mail node was given. allowMarker admits the byte 0x1F.
 * Escapes 100/8003 to 8082. */
CL_API int    cl_ParseNameLoclAddr2(char *text, char *result, int allowMarker);
/* cl_ParseNameLoclAddr2 without the marker byte. */
CL_API int    cl_ParseNameLoclAddr(char *text, char *result);
/* Parses a mail node typed alone ('Sales,London') into eight packed fields, the personal-name
 * ones empty; result: 200 bytes. Escapes 100/8003 to 8016. */
CL_API void   cl_ParseLoclAddr(char *text, char *result);
/* Parses a full typed name, 'name/node/value8/value9(type|value)...', into packed text;
 * result: strlen(text) + 256 bytes. 1 when non-blank text follows the first '/'. Escapes
 * 100/8003 to 9835; for 9832 to 9835 *errIndex gets the extension attribute's number. */
CL_API int    cl_ParseFullOrn2(char *text, char *result, int *errIndex, int allowMarker);
/* cl_ParseFullOrn2 without the marker byte. */
CL_API int    cl_ParseFullOrn(char *text, char *result, int *errIndex);
/* Appends typed attributes ('/value8(type|value)...') to the packed text in tf, which needs
 * strlen(tf) + strlen(attrs) + 64 bytes. Escapes 100/9803 to 9835, *errIndex naming the field
 * or attribute. */
CL_API void   cl_ParseExternalAttribs2(char *tf, char *attrs, int *errIndex, int allowMarker);
/* cl_ParseExternalAttribs2 without the marker byte. */
CL_API void   cl_ParseExternalAttribs(char *tf, char *attrs, int *errIndex);
/* Checks which fields packed text holds for kind (1 mail node, 2 personal name, 3 new user,
 * 4 old user, 5 personal name and any mail node): *reason gets 0 or a refusal (8013 to 8124).
 * 1 when a mail-node field is present. Escapes 100/1701 (a field beyond field 160) only. */
CL_API int    cl_ValidateORNFieldsNoEscape(const char *orn, unsigned int kind, int *reason);
/* cl_ValidateORNFieldsNoEscape that escapes with 100/reason instead of returning a refusal. */
CL_API int    cl_ValidateORNFields(const char *orn, unsigned int kind);

/* Formatters: results are static text of the library. */

/* Unpacks fields 0 to fieldCount - 1 of tf (ornLength bytes, parsed by nm_ParseORN) into a new
 * table stored in *table; release it with cl_FreeORN. No escape. */
CL_API void   cl_UnpackFullORN(const char *tf, char ***table, const nm_ParsedORN *parsed, int fieldCount, int ornLength);
/* Releases a table of cl_UnpackFullORN. No escape. */
CL_API void   cl_FreeORN(char **table);
/* The personal name of a table as typed, 'John J.R. Smith Jr. '. Static text, at most 4096
 * characters. No escape. */
CL_API char  *cl_FrmtGroup1PNPP(char **table);
/* Group 1 of a table as typed, 'John Smith /Sales,London/Acme (T1|blue) '; mailNodeOnly leaves
 * the personal name out. Static text, at most 4096 characters. No escape. */
CL_API char  *cl_FrmtGroup1PP(char **table, int mailNodeOnly);
/* cl_FrmtGroup1PP of packed text. Static text. Escapes 100/1701 (a field beyond field 160). */
CL_API char  *cl_FormatGroup1(const char *tf);
/* Replaces the packed text in buf by its group 1 text; buf: 4097 bytes, or more when the
 * packed text is longer. Escapes 100/1701. */
CL_API void   cl_FormatName(char *buf);
/* Fields first to last of a table as 'name=value' entries joined by '/'; asciiEncode encodes
 * those cl_ShouldAsciiEncode names. Static text, at most 4096 characters. No escape. */
CL_API char  *cl_FrmtGroup2PP(char **table, int first, int last, int asciiEncode);
/* 1 for the fields whose values the ascii-encoded form encodes (35, 64 to 127, above 130),
 * else 0. No escape. */
CL_API int    cl_ShouldAsciiEncode(int field);
/* Display text of a special entry (a number, 0x1D, a value): the directory library's text,
 * valid until its next call. No escape. */
CL_API const char *cl_FormatSpecialEntry(const char *entry);
/* A postal address value with each byte 0x18 shown as '%'. Static text. No escape. */
CL_API char  *cl_FormatPostalAddress(const char *value);
/* Every field of packed text as 'name=value' entries, which cl_NativeToTF reads back. Static
 * text. Escapes 100/4670 (over 4096 characters), 100/1701. */
CL_API char  *cl_FormatNative(const char *tf);
/* cl_FormatNative with ascii-encoded values, which cl_AsciiEncodedToTF reads back. Static
 * text; the same escapes. */
CL_API char  *cl_FormatAsciiEncoded(const char *tf);
/* Fields first to last of a table as 'name=value' entries, values converted from UTF-8 to
 * charset (null: UTF8); needSeparator puts '/' first. Static text, at most 8193 characters. No
 * escape. */
CL_API char  *cl_FrmtGroup345PP(char **table, ccs_Descriptor *charset, int first, int last, int needSeparator);
/* Display text of a name: group 1 as typed, then 'name=value' entries:
 * 'John Smith /Sales,London/Acme/commonName=JS'. mailNodeOnly drops the personal name;
 * withExtended adds fields 64 to 129 and 160 (with a charset only), withIA field 130.
 * Static text, at most 4079 characters. Escapes 100/1701. */
CL_API char  *cl_RealFormatFullName(const char *tf, ccs_Descriptor *charset, int mailNodeOnly, int withExtended, int withIA);
/* The full name with the extended fields, in charset. As cl_RealFormatFullName. */
CL_API char  *cl_FormatFullName(const char *tf, ccs_Descriptor *charset);
/* cl_FormatFullName followed by the IA field (130). */
CL_API char  *cl_FormatFullNameIa(const char *tf, ccs_Descriptor *charset);
/* cl_FormatFullNameIa in UTF-8. */
CL_API char  *cl_formatORNtoUtf8withIA(const char *tf);
/* The mail-node form of a name, 'Sales,London', with the extended fields when withExtended and
 * charset is not null. As cl_RealFormatFullName. */
CL_API char  *cl_FormatMailNode(const char *tf, ccs_Descriptor *charset, int withExtended);
/* The personal name with its fields 32, 64 to 67 and 96 (and 130 with withIA):
 * 'John Smith /commonName=JS'. Static text, at most 4079 characters. Escapes 100/1701. */
CL_API char  *cl_RealFormatPersonalName(const char *tf, ccs_Descriptor *charset, int withIA);
/* cl_RealFormatPersonalName without the IA field. */
CL_API char  *cl_FormatPersonalName(const char *tf, ccs_Descriptor *charset);
/* cl_RealFormatPersonalName with the IA field. */
CL_API char  *cl_FormatPersonalNameIa(const char *tf, ccs_Descriptor *charset);
/* The group 1 personal name alone, 'John Smith '. Static text, at most 4079 characters.
 * Escapes 100/1701. */
CL_API char  *cl_FormatG1PersonalName(const char *tf);

/* Command-line conversion. */

/* Converts a command-line argument 'name/node[/attribute=value...]' in charset (null: UTF8),
 * rewriting text: packed text into out (returned) or, with arrayResult, a new field array
 * (out unused). mailNodeForm: the positional part is a mail node. tagMapping picks the
 * directory library's tag table (0); allowMarker admits '*'. Sizes, escapes: the wrappers. */
CL_API void  *cl_MainConvCltoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset, int arrayResult, int mailNodeForm);
/* Converts into packed text, returned in out: 2 * strlen(text) + 256 bytes for text in UTF8
 * or ISO8859-1, 3 * strlen(text) + 256 in other sets. Escapes 100: the parsers' reasons,
 * 30002, 30003, 4634 to 4636, 4650 to 4653, 4671, 4800 + a field (a value breaking its rule). */
CL_API char  *cl_ConvCltoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset);
/* cl_ConvCltoORN with a mail node as the positional part ('Sales,London'); the same out size;
 * escapes also 100/4673. */
CL_API char  *cl_ConvClMntoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset);
/* Converts into a new field array (release it with cl_FreeArray); out is not written and may
 * be null. Escapes as cl_ConvCltoORN. */
CL_API char **cl_ConvCltoArray(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset);
/* Converts, then writes the text of cl_ArrayToDA into out: 3 * strlen(text) + 4096 bytes.
 * Escapes as cl_ConvCltoORN. */
CL_API void   cl_ConvCltoDa(char *text, char *out, int tagMapping, int allowMarker, int numeric, ccs_Descriptor *charset);
/* cl_ConvCltoDa with a mail node as the positional part. */
CL_API void   cl_ConvClMntoDa(char *text, char *out, int tagMapping, int allowMarker, int numeric, ccs_Descriptor *charset);
/* A field array as directory-attribute text, named ('surname=Smith/...') or numeric; the
 * caller releases it with os_free (os.h). No escape. */
CL_API char  *cl_ArrayToDA(char **array, int numeric);
/* Reads the text of cl_FormatAsciiEncoded into packed text; out: strlen(text) + 162 bytes.
 * Escapes 100/4628 to 4633, 100/4636. */
CL_API void   cl_AsciiEncodedToTF(const char *text, char *out);
/* Reads the text of cl_FormatNative into packed text; out: strlen(text) + 162 bytes. Escapes
 * 100/4628 to 4633, 100/4636. */
CL_API void   cl_NativeToTF(const char *text, char *out);
/* Packs a typed mail node ('Sales,London[/value8...]') behind four empty personal-name fields;
 * out: strlen(mailNode) + 8 bytes. Escapes 100/8013, 100/4673, out untouched. */
CL_API void   cl_PositionalMnToORN(char *out, const char *mailNode);
/* cl_PositionalMnToORN behind the place holders S, F, I, G; out: strlen(mailNode) + 12 bytes. */
CL_API void   cl_MailNodeToPartORName(char *out, const char *mailNode);
/* Trims white space at both ends of each 0x1D-separated field, in place. No escape. */
CL_API void   cl_RemoveLead_TrailSpaces(char *fields);
/* Packs 'personal name[/unit,unit...]', a mail node always as four units; out: strlen(text) +
 * 72 bytes. 1, or 0 with out empty when the personal name is refused. No escape. */
CL_API int    cl_ConvNameToORN(const char *text, char *out);
/* cl_ConvNameToORN with the surname optional, so '/Sales,London' passes. */
CL_API int    cl_ConvMNodeToORN(const char *text, char *out);

/* Mail node files and routes. */

/* Reads the primary mail node of ~/sys/config into buf (136 bytes) as packed text with empty
 * personal-name fields; returns buf + 4, the units alone. Escapes 100/4623, 100/4624 (the
 * file is too short), 1/errno. */
CL_API char  *cl_ReadPMN(char *buf);
/* Reads record (0 to 2097151) of ~/sys/defmnode into buf (1024 bytes), empty when the record
 * is; creates the file, fills an empty record 1 from ~/sys/config. Escapes 102/1420, 1/errno. */
CL_API void   cl_ReadDefMNode(int record, char *buf);
/* Stores text (at most 1023 characters of it) as record of ~/sys/defmnode, creating the file.
 * Escapes 100/4626 (record not in 0 to 2097151), 1/errno. */
CL_API void   cl_WriteDefMNode(int record, const char *text);
/* In place, drops a mail node text's trailing empty units and slashes: 'A,B,,/C//' becomes
 * 'A,B/C'. Cuts at 4095 characters. No escape. */
CL_API void   cl_SetNodeForDisplay(char *text);
/* In place, of a field (0 to 63) and its counterpart (+ 64) a '*' wildcard gives way; a '*'
 * surname removes the rest of the personal name. Escapes 100/1701. */
CL_API void   cl_SimplifyRoute(char *orn);
/* In place, removes fields 64 to 115 and 128 of packed text. Escapes 100/1701. */
CL_API void   cl_RemoveTxTFields(char *orn);

/* Configuration lock. */

/* Takes the configuration lock without waiting; returns 1. Escapes 100/2601 when another
 * program holds it. */
CL_API int    cl_GetConfigLock(void);
/* Takes the configuration lock, waiting as long as it takes; returns 1. Escapes 100/2601 (the
 * wait would deadlock). */
CL_API int    cl_BlockedGetConfigLock(void);
/* Waits at most seconds (0 or less: no limit) for the configuration lock, on SIGALRM,
 * restoring the caller's alarm; non-zero when held, 0 after a time-out. Escapes 100/2601. */
CL_API int    cl_WaitForConfigLock(int seconds);
/* Takes the configuration lock, waiting up to 60 seconds. Escapes 100/8001 when another
 * program kept it (exit status 3). */
CL_API void   cl_GetCfgLock(void);
/* Non-zero when this process holds the configuration lock. No escape. */
CL_API int    cl_TestConfigLock(void);
/* Releases the configuration lock. Escapes 100/2602 when this process does not hold it. */
CL_API void   cl_FreeConfigLock(void);
/* The SIGALRM handler of cl_WaitForConfigLock: raises 100/4637 and never returns. Not for
 * calling. */
CL_API void   cl_AlarmTrap(int sig);

/* Program support. */

/* Prints 'prog : E100-8004 message' for the code on stderr, and detail (null or empty: none)
 * indented on the next line. No escape. */
CL_API void   cl_DisplayError(int group, int reason, const char *prog, const char *detail);
/* Prints the catalogue's usage text of the code, naming prog, on stderr. No escape. */
CL_API void   cl_DisplayUsage(int group, int reason, const char *prog);
/* Shows the pending escape on stderr, clears it and returns its exit status (2 usage, 3
 * locked, 100, 103 not valid, ...). Call it once, in a handler. No escape. */
CL_API int    cl_SortAllErrors(const char *prog);
/* Logs the null-terminated argument list, joined by spaces and cut at 8091 characters, to the
 * event log (~/log/events). No escape. */
CL_API void   cl_LogCommandLine(char **argv);
/* cl_LogCommandLine with each argument converted to charsetName (charsetId its identifier),
 * logged as T.61 text. No escape. */
CL_API void   cl_LogO61CommandLine(char **argv, const char *charsetName, int charsetId);
/* Appends text and a newline to fileName ('~/' allowed), creating the file. Escapes 1/errno. */
CL_API void   cl_UpdateCommandFile(const char *text, const char *fileName);
/* A name the program file serves under, and its procedure; "*" matches any name. A table of
 * them ends with a null proc. */
typedef struct cl_ProcEntry { const char *name; int (*proc)(int argc, char **argv); } cl_ProcEntry;
/* Runs the procedure named by argv[0]'s base name and returns its result, or lists the names
 * on stderr and returns -1. No escape of its own. */
CL_API int    cl_CallProc(const cl_ProcEntry *table, int argc, char **argv);
/* 1 when ~/sys/install holds no marker file '*.inst' (or does not exist), else 0. Escapes
 * 1/errno. */
CL_API int    cl_IsEveryThingInstalled(void);

/* Start counter. */

/* The server's start count (~/sys/sysdata), kept for the process once it is not 0. Escapes
 * 3/6015 (file too short), 1/errno. */
CL_API uint32_t cl_GetSystemStartCount(void);
/* When the last counted start was, in seconds since 1970 UTC, kept like the count. Escapes
 * 3/6015, 1/errno. */
CL_API int32_t  cl_GetSystemStartDate(void);
/* Counts a server start and stamps the time; the kept values stay. Escapes 3/6015, 1/errno. */
CL_API void     cl_IncSystemStartCount(void);

#ifdef __cplusplus
}
#endif
#endif /* CL_H */
