#include <zel.h>

int main(void)
{
    ZELDATA* body = ZEL_Create(1, 1);
    const int set = ZEL_SetNodeCoordinates(body, 7, 1.0, 2.0, 3.0);
    const int found = ZEL_NodeIndex(body, 7);
    ZEL_Terminate();
    return set == 1 && found == 0 ? 0 : 1;
}
