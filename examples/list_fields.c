/* list_fields: converts a command-line argument, a name followed by
 * attribute=value pairs, and lists the fields it fills: field number and
 * value, one a line.
 *
 *   list_fields 'Zoe Muller/Sales,London/organization=Acme/utf8Surname=Müller'
 *     0 Muller
 *     1 Zoe
 *     4 Sales
 *     5 London
 *     8 Acme
 *    64 Müller
 *
 * A refused argument gets its catalogued message and cl_SortAllErrors' exit
 * status. */
#include <stdio.h>
#include <string.h>

#include <cl.h>
#include <cl_escape.h>

#define TEXT_SIZE 4096 /* a typed argument: at most 4095 bytes */
#define FIELDS 161     /* a field array: fields 0 to 160 */

static const char *base_name(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

int main(int argc, char **argv) {
    const char *prog = base_name(argv[0]);
    char text[TEXT_SIZE];
    ccs_Descriptor utf8;
    volatile int status = 0;
    cl_Block block;

    if (argc != 2) {
        fprintf(stderr, "usage: %s NAME[/attribute=value...]\n", prog);
        return 2;
    }
    if (!ccs_GetCSDescriptor("UTF8", &utf8)) {
        fprintf(stderr, "%s: no UTF8 character set\n", prog);
        return 1;
    }
    CL_TRY(block) {
        char **fields;
        int i;
        if (strlen(argv[1]) >= sizeof text) er_TracedEscape(100, 9801, __FILE__, __LINE__);
        strcpy(text, argv[1]);
        /* A new field array, ours to release; the output buffer is not used.
         * Nothing between here and cl_FreeArray can escape. */
        fields = cl_ConvCltoArray(text, NULL, 0, 0, &utf8);
        for (i = 0; i < FIELDS; ++i)
            if (fields[i]) printf("%3d %s\n", i, fields[i]);
        cl_FreeArray(fields);
    } CL_CATCH(block) {
        status = cl_SortAllErrors(prog);
    } CL_END_TRY(block);
    return status;
}
