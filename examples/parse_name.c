/* parse_name: turns a name typed as an administrator types it into the
 * server's packed form and shows it back.
 *
 *   parse_name 'John Smith/Sales,London/organization=Acme'
 *   John Smith /Sales,London/Acme
 *
 * A name the library refuses is reported with its catalogued message, and
 * the exit status is the one cl_SortAllErrors gives (103: not a valid name). */
#include <stdio.h>
#include <string.h>

#include <cl.h>
#include <cl_escape.h>

/* The conversion rewrites its text in place, so it works on a copy; a typed
 * name holds at most 4095 bytes. Its packed form needs 2 * 4096 + 256 bytes
 * for UTF-8 text (cl.h). */
#define TEXT_SIZE 4096
#define PACKED_SIZE (2 * TEXT_SIZE + 256)

static const char *base_name(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

int main(int argc, char **argv) {
    const char *prog = base_name(argv[0]);
    char text[TEXT_SIZE];
    char packed[PACKED_SIZE];
    ccs_Descriptor utf8;
    volatile int status = 0;
    cl_Block block;

    if (argc != 2) {
        fprintf(stderr, "usage: %s NAME\n", prog);
        return 2;
    }
    if (!ccs_GetCSDescriptor("UTF8", &utf8)) {
        fprintf(stderr, "%s: no UTF8 character set\n", prog);
        return 1;
    }
    CL_TRY(block) {
        if (strlen(argv[1]) >= sizeof text) er_TracedEscape(100, 9801, __FILE__, __LINE__);
        strcpy(text, argv[1]);
        cl_ConvCltoORN(text, packed, 0, 0, &utf8);
        printf("%s\n", cl_FormatFullName(packed, &utf8));
    } CL_CATCH(block) {
        status = cl_SortAllErrors(prog); /* prints the message, gives the status */
    } CL_END_TRY(block);
    return status;
}
