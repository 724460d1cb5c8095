/* Opens a file and prints the frequency of every mode. */
#include <zel.h>

int main(int argc, char** argv)
{
    ZELDATA* body = argc > 1 ? ZEL_CreateFromZEL(argv[1]) : NULL;
    double hertz;
    if (!body)
        return 2;
    for (int i = 0; i < ZEL_ModeCount(body); ++i)
        if (ZEL_Eigenvalue(body, ZEL_ModeNumber(body, i), NULL, &hertz, NULL, NULL, NULL))
            printf("mode %d: %g Hz\n", ZEL_ModeNumber(body, i), hertz);
    ZEL_Terminate();
    return 0;
}
