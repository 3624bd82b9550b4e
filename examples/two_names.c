/* two_names: one program file serving under two names, chosen by the name
 * it is invoked under (cl_CallProc). Install it once and link both names to
 * it:
 *
 *   ln -s two_names show-name; ln -s two_names show-node
 *   ./show-name 'John Smith/Sales,London'    Name: John Smith /Sales,London
 *   ./show-node 'Sales,London'               Mail node: Sales,London
 *
 * Under any other name cl_CallProc lists the two names on stderr, and the
 * program exits with status 2. */
#include <stdio.h>
#include <string.h>

#include <cl.h>
#include <cl_escape.h>

#define TEXT_SIZE 4096                  /* a typed argument: at most 4095 bytes */
#define PACKED_SIZE (2 * TEXT_SIZE + 256) /* its packed form, UTF-8 text (cl.h) */

static const char *base_name(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

/* Converts argv[1], a name or a mail node, and prints it after label; the
 * exit status of the run. */
static int show(int argc, char **argv, int mailNode, const char *label) {
    const char *prog = base_name(argv[0]);
    char text[TEXT_SIZE];
    char packed[PACKED_SIZE];
    ccs_Descriptor utf8;
    volatile int status = 0;
    cl_Block block;

    if (argc != 2) {
        fprintf(stderr, "usage: %s %s\n", prog, mailNode ? "MAILNODE" : "NAME");
        return 2;
    }
    if (!ccs_GetCSDescriptor("UTF8", &utf8)) {
        fprintf(stderr, "%s: no UTF8 character set\n", prog);
        return 1;
    }
    CL_TRY(block) {
        if (strlen(argv[1]) >= sizeof text) er_TracedEscape(100, 9801, __FILE__, __LINE__);
        strcpy(text, argv[1]);
        if (mailNode) {
            cl_ConvClMntoORN(text, packed, 0, 0, &utf8);
            printf("%s: %s\n", label, cl_FormatMailNode(packed, &utf8, 1));
        } else {
            cl_ConvCltoORN(text, packed, 0, 0, &utf8);
            printf("%s: %s\n", label, cl_FormatFullName(packed, &utf8));
        }
    } CL_CATCH(block) {
        status = cl_SortAllErrors(prog);
    } CL_END_TRY(block);
    return status;
}

static int show_name(int argc, char **argv) { return show(argc, argv, 0, "Name"); }
static int show_node(int argc, char **argv) { return show(argc, argv, 1, "Mail node"); }

int main(int argc, char **argv) {
    static const cl_ProcEntry programs[] = {
        {"show-name", show_name},
        {"show-node", show_node},
        {NULL, NULL}, /* the end of the table */
    };
    int status = cl_CallProc(programs, argc, argv);
    return status < 0 ? 2 : status; /* -1: no such name, the names are listed */
}
