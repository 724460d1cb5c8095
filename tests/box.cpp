#include "box.h"

#include "fixtures.h"

ZELDATA* box()
{
    ZELDATA* db = ZEL_Create(9, 7); // with room for one more
    ZEL_SetUnits(db, "kg", "m", "s", "N");
    const double mass = 24.0, ix = 24.0 * 0.5, iy = 24.0 * 1.25; // sum of m (y^2 + z^2), of m (x^2 + z^2)
    for (int node = 0; node < 8; ++node)
    {
        const std::array<double, 3> p = {node < 4 ? 0.0 : 2.0, node % 4 < 2 ? 0.0 : 1.0, node % 2 == 0 ? 0.0 : 1.0};
        const double x = p[0] - 1.0, y = p[1] - 0.5, z = p[2] - 0.5;
        const double t = 1.0 / std::sqrt(mass), a = 1.0 / std::sqrt(ix), b = 1.0 / std::sqrt(iy);
        ZEL_SetNodeCoordinates(db, node + 1, p[0], p[1], p[2]);
        ZEL_SetNodalMass(db, node + 1, 3.0);
        ZEL_SetMode(db, 1, node + 1, 0, t, 0, 0, 0, 0, 0);
        ZEL_SetMode(db, 2, node + 1, 0, 0, t, 0, 0, 0, 0);
        ZEL_SetMode(db, 3, node + 1, 0, 0, 0, t, 0, 0, 0);
        ZEL_SetMode(db, 4, node + 1, 0, 0, -a * z, a * y, a, 0, 0);
        ZEL_SetMode(db, 5, node + 1, 0, b * z, 0, -b * x, 0, b, 0);
        ZEL_SetMode(db, 6, node + 1, 0, -b * y, b * x, 0, 0, 0, b);
        ZEL_SetMode(db, 7, node + 1, 0, t * x, 0, 0, 0, 0, 0);
    }
    for (int mode = 1; mode <= 7; ++mode)
    {
        const double radians = mode == 7 ? 2.0 * M_PI * 50.0 : 1e-3 * mode;
        ZEL_SetGeneralizedMass(db, mode, mode, 1.0);
        ZEL_SetGeneralizedStiffness(db, mode, mode, radians * radians);
    }
    ZEL_SetFace(db, 4, 1, 2, 4, 3);
    ZEL_SetFace(db, 4, 5, 6, 8, 7);
    ZEL_SetInterfaceNode(db, 1);
    return db;
}

void write_and_free(ZELDATA* db, const std::string& path, const char* options)
{
    errors_of([&] { output_of([&] { ASSERT_TRUE(ZEL_WriteWithOptions(db, path.c_str(), options)); }); });
    ZEL_UnLink(db);
}
