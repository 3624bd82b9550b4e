/* cl: command-line support library of the mail and directory server.
 *
 * Every function here follows one convention: failures are escapes raised
 * through the error library (er.h) and caught by the caller's protected
 * block; the few that report failure as a result say so below.
 * Output buffers belong to the caller and are not size-checked; formatters
 * return static buffers that the next call of the same formatter overwrites.
 * The library is used from one thread at a time. */
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

/* Packed form (TF text), ORN array (161 slots), substitute characters. */
CL_API void   cl_UnPackToLargeArray(const char *tf, char ***array);
CL_API void   cl_ORNArray2Tf(char **array, char *out);
CL_API void   cl_FreeArray(char **array);
CL_API void   cl_ConvertToSpecialChar(char *s);
CL_API void   cl_ConvertSpecialChar(char *s);

/* Parsers: typed text is rewritten in place. */
CL_API void   cl_ParseORN(char *name, char *result, int surnameRequired);
CL_API void   cl_ParseName(char *name, char *result);
CL_API int    cl_ParseNameLoclAddr2(char *text, char *result, int allowMarker);
CL_API int    cl_ParseNameLoclAddr(char *text, char *result);
CL_API void   cl_ParseLoclAddr(char *text, char *result);
CL_API int    cl_ParseFullOrn2(char *text, char *result, int *errIndex, int allowMarker);
CL_API int    cl_ParseFullOrn(char *text, char *result, int *errIndex);
CL_API void   cl_ParseExternalAttribs2(char *tf, char *attrs, int *errIndex, int allowMarker);
CL_API void   cl_ParseExternalAttribs(char *tf, char *attrs, int *errIndex);
CL_API int    cl_ValidateORNFieldsNoEscape(const char *orn, unsigned int kind, int *reason);
CL_API int    cl_ValidateORNFields(const char *orn, unsigned int kind);

/* Formatters: results are static buffers of the library. */
CL_API void   cl_UnpackFullORN(const char *tf, char ***table, const nm_ParsedORN *parsed, int fieldCount, int ornLength);
CL_API void   cl_FreeORN(char **table);
CL_API char  *cl_FrmtGroup1PNPP(char **table);
CL_API char  *cl_FrmtGroup1PP(char **table, int mailNodeOnly);
CL_API char  *cl_FormatGroup1(const char *tf);
CL_API void   cl_FormatName(char *buf);
CL_API char  *cl_FrmtGroup2PP(char **table, int first, int last, int asciiEncode);
CL_API int    cl_ShouldAsciiEncode(int field);
CL_API const char *cl_FormatSpecialEntry(const char *entry);
CL_API char  *cl_FormatPostalAddress(const char *value);
CL_API char  *cl_FormatNative(const char *tf);
CL_API char  *cl_FormatAsciiEncoded(const char *tf);
CL_API char  *cl_FrmtGroup345PP(char **table, ccs_Descriptor *charset, int first, int last, int needSeparator);
CL_API char  *cl_RealFormatFullName(const char *tf, ccs_Descriptor *charset, int mailNodeOnly, int withExtended, int withIA);
CL_API char  *cl_FormatFullName(const char *tf, ccs_Descriptor *charset);
CL_API char  *cl_FormatFullNameIa(const char *tf, ccs_Descriptor *charset);
CL_API char  *cl_formatORNtoUtf8withIA(const char *tf);
CL_API char  *cl_FormatMailNode(const char *tf, ccs_Descriptor *charset, int withExtended);
CL_API char  *cl_RealFormatPersonalName(const char *tf, ccs_Descriptor *charset, int withIA);
CL_API char  *cl_FormatPersonalName(const char *tf, ccs_Descriptor *charset);
CL_API char  *cl_FormatPersonalNameIa(const char *tf, ccs_Descriptor *charset);
CL_API char  *cl_FormatG1PersonalName(const char *tf);

/* Command-line conversion. */
CL_API void  *cl_MainConvCltoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset, int arrayResult, int mailNodeForm);
CL_API char  *cl_ConvCltoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset);
CL_API char  *cl_ConvClMntoORN(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset);
CL_API char **cl_ConvCltoArray(char *text, char *out, int tagMapping, int allowMarker, ccs_Descriptor *charset);
CL_API void   cl_ConvCltoDa(char *text, char *out, int tagMapping, int allowMarker, int numeric, ccs_Descriptor *charset);
CL_API void   cl_ConvClMntoDa(char *text, char *out, int tagMapping, int allowMarker, int numeric, ccs_Descriptor *charset);
CL_API char  *cl_ArrayToDA(char **array, int numeric);
CL_API void   cl_AsciiEncodedToTF(const char *text, char *out);
CL_API void   cl_NativeToTF(const char *text, char *out);
CL_API void   cl_PositionalMnToORN(char *out, const char *mailNode);
CL_API void   cl_MailNodeToPartORName(char *out, const char *mailNode);
CL_API void   cl_RemoveLead_TrailSpaces(char *fields);
CL_API int    cl_ConvNameToORN(const char *text, char *out);
CL_API int    cl_ConvMNodeToORN(const char *text, char *out);

/* Mail node files and routes. */
CL_API char  *cl_ReadPMN(char *buf);
CL_API void   cl_ReadDefMNode(int record, char *buf);
CL_API void   cl_WriteDefMNode(int record, const char *text);
CL_API void   cl_SetNodeForDisplay(char *text);
CL_API void   cl_SimplifyRoute(char *orn);
CL_API void   cl_RemoveTxTFields(char *orn);

/* Configuration lock. */
CL_API int    cl_GetConfigLock(void);
CL_API int    cl_BlockedGetConfigLock(void);
CL_API int    cl_WaitForConfigLock(int seconds);
CL_API void   cl_GetCfgLock(void);
CL_API int    cl_TestConfigLock(void);
CL_API void   cl_FreeConfigLock(void);
CL_API void   cl_AlarmTrap(int sig);

/* Program support. */
CL_API void   cl_DisplayError(int group, int reason, const char *prog, const char *detail);
CL_API void   cl_DisplayUsage(int group, int reason, const char *prog);
CL_API int    cl_SortAllErrors(const char *prog);
CL_API void   cl_LogCommandLine(char **argv);
CL_API void   cl_LogO61CommandLine(char **argv, const char *charsetName, int charsetId);
CL_API void   cl_UpdateCommandFile(const char *text, const char *fileName);
typedef struct cl_ProcEntry { const char *name; int (*proc)(int argc, char **argv); } cl_ProcEntry;
CL_API int    cl_CallProc(const cl_ProcEntry *table, int argc, char **argv);
CL_API int    cl_IsEveryThingInstalled(void);

/* Start counter. */
CL_API uint32_t cl_GetSystemStartCount(void);
CL_API int32_t  cl_GetSystemStartDate(void);
CL_API void     cl_IncSystemStartCount(void);

#ifdef __cplusplus
}
#endif
#endif /* CL_H */
