/* A small C program built against the installed library: it unpacks a
 * name, and catches the escape of a surname that is too long, with the
 * protected block of cl_escape.h. */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <string.h>

#include <cl.h>
#include <cl_escape.h>

int main(void) {
    char packed[64] = "Smith\x1DJohn";
    char typed[64] = "John Abcdefghijklmnopqrstuvwxyzabcdefghijklmno";
    char result[256];
    char **array = NULL;
    volatile int reason = 0;
    cl_Block block;
    CL_TRY(block) {
        cl_UnPackToLargeArray(packed, &array);
        cl_ParseName(typed, result); /* 41 letters: escapes with 100/8006 */
    } CL_CATCH(block) {
        reason = er_GetReason();
        er_Clear();
    } CL_END_TRY(block);
    int ok = array && array[0] && strcmp(array[0], "Smith") == 0 && strcmp(array[1], "John") == 0;
    cl_FreeArray(array);
    ok = ok && reason == 8006 && !er_GetLive();
    printf("consumer: %s\n", ok ? "ok" : "wrong result");
    return ok ? 0 : 1;
}
