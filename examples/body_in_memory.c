/* Builds a steel bar with its longitudinal modes, writes it, opens the file again and prints the frequencies beside those of
   the continuous bar, which end at k c / (2 length). */
#include <zel.h>

#include <math.h>

enum
{
    kNodes = 41,
    kModes = 4
};

int main(int argc, char** argv)
{
    const double length = 1.0, area = 1e-4, young = 2.1e11, density = 7850.0, pi = 3.14159265358979;
    const double h = length / (kNodes - 1), wave_speed = sqrt(young / density);
    const char* name = argc > 1 ? argv[1] : "bar.zel";
    ZELDATA* bar = ZEL_Create(kNodes, kModes); /* room for values of so many nodes in so many modes */
    if (!bar || !ZEL_SetUnits(bar, "kg", "m", "s", "N"))
        return 1;
    for (int i = 0; i < kNodes; ++i)
    {
        const int end = i == 0 || i == kNodes - 1;
        ZEL_SetNodeCoordinates(bar, i + 1, i * h, 0.0, 0.0);
        ZEL_SetNodalMass(bar, i + 1, density * area * h * (end ? 0.5 : 1.0));
        if (i > 0)
            ZEL_SetFace(bar, 2, i, i + 1); /* two vertices: a line */
    }
    for (int k = 0; k < kModes; ++k) /* mode 1 is rigid, the others stand as k half waves in the bar */
    {
        double mass = 0.0, stiffness = 0.0;
        for (int i = 0; i < kNodes; ++i)
        {
            const double u = cos(k * pi * i / (kNodes - 1)), before = cos(k * pi * (i - 1) / (kNodes - 1));
            ZEL_SetMode(bar, k + 1, i + 1, ZEL_MODE_SHAPE, u, 0.0, 0.0, 0.0, 0.0, 0.0);
            mass += ZEL_NodalMass(bar, i) * u * u;
            stiffness += i > 0 ? young * area / h * (u - before) * (u - before) : 0.0;
        }
        ZEL_SetGeneralizedMass(bar, k + 1, k + 1, mass);
        ZEL_SetGeneralizedStiffness(bar, k + 1, k + 1, stiffness);
    }
    if (!ZEL_SetInterfaceNode(bar, 1) || !ZEL_SetInterfaceNode(bar, kNodes) || !ZEL_write_ZEL(bar, name))
        return 1;
    ZEL_UnLink(bar);

    ZELDATA* body = ZEL_CreateFromZEL(name);
    if (!body)
        return 1;
    for (int k = 0; k < ZEL_ModeCount(body); ++k)
    {
        double hertz;
        if (ZEL_Eigenvalue(body, ZEL_ModeNumber(body, k), NULL, &hertz, NULL, NULL, NULL))
            printf("mode %d: %.1f Hz, continuous bar %.1f Hz\n", k + 1, hertz, k * wave_speed / (2.0 * length));
    }
    ZEL_Terminate();
    return 0;
}
