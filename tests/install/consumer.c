/* A small C program built against the installed library: it catches an
 * escape of the library with the error library's pattern and converts and
 * shows a name when the library can. */
#define _POSIX_C_SOURCE 200809L
#include <setjmp.h>
#include <stdio.h>
#include <string.h>

#include <cl.h>
#include <er.h>

int main(void) {
    char packed[64] = "Smith\x1DJohn";
    char **array = NULL;
    sigjmp_buf env;
    sigjmp_buf *previous = er_SetCurrEnv(&env);
    if (sigsetjmp(env, 0) == 0) {
        cl_UnPackToLargeArray(packed, &array);
        er_SetCurrEnv(previous);
    } else {
        er_SetCurrEnv(previous);
        fprintf(stderr, "escape %d/%d\n", er_GetGroup(), er_GetReason());
        return 1;
    }
    int ok = array && array[0] && strcmp(array[0], "Smith") == 0 && strcmp(array[1], "John") == 0;
    cl_FreeArray(array);
    printf("consumer: %s\n", ok ? "ok" : "wrong fields");
    return ok ? 0 : 1;
}
