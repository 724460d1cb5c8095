/* Opens a file and prints the frequency of every mode. */
#include <zel.h>

int main(int argc, char** argv)
{
    double hertz;
    ZELDATA* body = argc > 1 ? ZEL_CreateFromZEL(argv[1]) : NULL;
    for (int i = 0; i < ZEL_ModeCount(body); ++i)
        if (ZEL_Eigenvalue(body, ZEL_ModeNumber(body, i), NULL, &hertz, NULL, NULL, NULL))
            printf("mode %d: %g Hz\n", ZEL_ModeNumber(body, i), hertz);
    return body ? 0 : 2; /* the body ends with the process, or earlier by ZEL_UnLink(body) */
}
