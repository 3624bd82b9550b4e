/* read_pmn: reads the server's primary mail node under the configuration
 * lock, as an administrative program reads what it may change.
 *
 *   QX_HOME=/tmp/home read_pmn
 *   Primary mail node: Sales,London
 *
 * The home ($QX_HOME, else $HOME/.qx) is one that qx-inithome has set up.
 * The lock is released on every path: after the read, and in the handler
 * when an escape ended the work while it was held. */
#include <stdio.h>
#include <string.h>

#include <cl.h>
#include <cl_escape.h>

#define PMN_SIZE 136 /* cl_ReadPMN: four separators, four units, NUL */

static const char *base_name(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

/* Releases the configuration lock if this process holds it. Run through
 * cl_GuardedCall, so that a failing release does not replace the escape
 * being handled. */
static void release_lock(void *unused) {
    (void)unused;
    if (cl_TestConfigLock()) cl_FreeConfigLock();
}

int main(int argc, char **argv) {
    const char *prog = base_name(argv[0]);
    char packed[PMN_SIZE];
    ccs_Descriptor utf8;
    volatile int status = 0;
    cl_Block block;

    if (argc != 1) {
        fprintf(stderr, "usage: %s\n", prog);
        return 2;
    }
    if (!ccs_GetCSDescriptor("UTF8", &utf8)) {
        fprintf(stderr, "%s: no UTF8 character set\n", prog);
        return 1;
    }
    CL_TRY(block) {
        cl_GetCfgLock(); /* waits up to 60 s for another program */
        cl_ReadPMN(packed);
        cl_FreeConfigLock();
        /* The buffer is a packed name with empty personal-name fields: its
         * mail-node form is the units joined by commas. */
        printf("Primary mail node: %s\n", cl_FormatMailNode(packed, &utf8, 0));
    } CL_CATCH(block) {
        cl_GuardedCall(release_lock, NULL);
        status = cl_SortAllErrors(prog);
    } CL_END_TRY(block);
    return status;
}
