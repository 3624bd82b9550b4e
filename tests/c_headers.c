/* Every public and platform header compiles as strict C99 (plus POSIX,
 * which the jump buffers of er.h need). */
#define _POSIX_C_SOURCE 200809L
#include "cl.h"
#include "cl_escape.h"
#include "ccs.h"
#include "cust.h"
#include "cvc.h"
#include "da.h"
#include "dr.h"
#include "enc.h"
#include "er.h"
#include "ext.h"
#include "fstr.h"
#include "gen.h"
#include "go.h"
#include "mdc.h"
#include "mes.h"
#include "nm.h"
#include "os.h"
#include "str.h"
#include "t61.h"

int cl_c_headers_compile(void);
int cl_c_headers_compile(void) {
    cl_ProcEntry table[1] = {{0, 0}};
    er_Status status;
    nm_ParsedORN parsed;
    ccs_Descriptor cs;
    fstr_String s = {0, 0, 0};
    (void)status;
    (void)parsed;
    (void)cs;
    (void)s;
    cl_Block block;
    volatile int escaped = 0;
    CL_TRY(block) {
        cl_FreeArray(0);
    } CL_CATCH(block) {
        escaped = 1;
    } CL_END_TRY(block);
    return table[0].proc == 0 && !escaped;
}
