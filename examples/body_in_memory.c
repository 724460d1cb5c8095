/* Creates a body in memory, gives it units and shows what it holds. */
#include <zel.h>

int main(void)
{
    char mass[16], length[16], time[16], force[16];
    ZELDATA* body = ZEL_Create(8, 4); /* room for 8 nodes a mode and 4 modes */
    if (!body || !ZEL_SetUnits(body, "tonne", "mm", "s", "N"))
        return 1;
    ZEL_Units(body, mass, length, time, force);
    printf("units: %s, %s, %s, %s (consistency factor %g)\n", mass, length, time, force, ZEL_UCF(body));
    printf("nodes: %d, modes: %d\n", ZEL_NodeCount(body), ZEL_ModeCount(body));
    ZEL_Terminate();
    return 0;
}
