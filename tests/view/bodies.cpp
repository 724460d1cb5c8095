// Writes the bodies that the tests of pages look at: slabs of 2 x 1 x 0.2 m whose values follow from the place of a node.
#include "zel.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>

namespace
{
struct Slab
{
    int nx, ny, modes; // squares along x and y; flexible modes
    bool units = true, faces = true, stress = false;
    double raised = 1.0;    // of the frequencies
    bool exchanged = false; // modes 7 and 8 in the other order, the latter with the other sign
    double turned = 0.0;    // a rotation of interface nodes
};

using Vector = std::array<double, 6>;

class Writer
{
public:
    explicit Writer(const Slab& slab)
        : slab_(slab), layer_((slab.nx + 1) * (slab.ny + 1)),
          db_(ZEL_Create(2 * layer_, slab.modes > 0 ? 6 + slab.modes : 0))
    {
        if (slab.units)
            ZEL_SetUnits(db_, "kg", "m", "s", "N");
        for (int node = 0; node < 2 * layer_; ++node)
        {
            const auto [x, y, z] = place_of(node);
            ZEL_SetNodeCoordinates(db_, kFirstId + node, x, y, z);
            ZEL_SetNodalMass(db_, kFirstId + node, 1.0);
        }
        ZEL_SetInterfaceNode(db_, id_of(0, 0, 0));
        ZEL_SetInterfaceNode(db_, id_of(slab.nx, slab.ny, 1));
        if (slab.faces)
            add_faces();
        for (int mode = 1; slab.modes > 0 && mode <= 6 + slab.modes; ++mode)
            add_mode(mode);
    }
    int write(const std::string& path) { return ZEL_WriteWithOptions(db_, path.c_str(), "no_ortho"); }

private:
    static constexpr int kFirstId = 1001;
    int id_of(int i, int j, int layer) const { return kFirstId + layer * layer_ + j * (slab_.nx + 1) + i; }
    std::array<double, 3> place_of(int node) const
    {
        const int row = slab_.nx + 1, i = node % row, j = node % layer_ / row;
        return {2.0 * i / slab_.nx, 1.0 * j / slab_.ny, 0.2 * (node / layer_)};
    }
    void add_faces()
    {
        const int nx = slab_.nx, ny = slab_.ny;
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i)
            {
                ZEL_SetFace(db_, 4, id_of(i, j, 0), id_of(i, j + 1, 0), id_of(i + 1, j + 1, 0), id_of(i + 1, j, 0));
                ZEL_SetFace(db_, 4, id_of(i, j, 1), id_of(i + 1, j, 1), id_of(i + 1, j + 1, 1), id_of(i, j + 1, 1));
            }
        for (int i = 0; i < nx; ++i)
            for (const int j : {0, ny})
                ZEL_SetFace(db_, 4, id_of(i, j, 0), id_of(i + 1, j, 0), id_of(i + 1, j, 1), id_of(i, j, 1));
        for (int j = 0; j < ny; ++j)
            for (const int i : {0, nx})
                ZEL_SetFace(db_, 4, id_of(i, j, 0), id_of(i, j + 1, 0), id_of(i, j + 1, 1), id_of(i, j, 1));
    }
    Vector shape_of(int mode, double x, double y, double z) const
    {
        const double t = 1.0 / std::sqrt(2.0 * layer_), a = x - 1.0, b = y - 0.5, c = z - 0.1;
        const Vector rigid[] = {{t}, {0, t}, {0, 0, t}, {0, -c, b}, {c, 0, -a}, {-b, a}};
        if (mode <= 6)
            return rigid[mode - 1];
        return mode == 7 ? Vector{0, 0, 0.01 * x} : Vector{0.002 * y, 0, 0.01 * std::sin(M_PI * (mode - 7) * x)};
    }
    void add_mode(int mode)
    {
        const bool exchanged = slab_.exchanged && (mode == 7 || mode == 8);
        const int shape_number = exchanged ? 15 - mode : mode;
        const double sign = exchanged && mode == 7 ? -1.0 : 1.0;
        for (int node = 0; node < 2 * layer_; ++node)
        {
            const auto [x, y, z] = place_of(node);
            Vector shape = shape_of(shape_number, x, y, z);
            for (double& value : shape)
                value *= sign;
            shape[4] = shape_number == 8 && node == 0 ? slab_.turned : 0.0;
            ZEL_SetModeVec(db_, mode, kFirstId + node, ZEL_MODE_SHAPE, shape.data());
            const Vector stress = {sign * 1e6 * x, 0, 0, 0, shape_number == 8 ? sign * 3e6 : 0.0, 0};
            if (slab_.stress && z > 0.0)
                ZEL_SetModeVec(db_, mode, kFirstId + node, ZEL_MODAL_STRESS, stress.data());
        }
        const double hertz =
            mode < 7 ? 1e-4 * mode : slab_.raised * (shape_number == 7 ? 50.0 : 120.5 + 100.0 * (shape_number - 8));
        ZEL_SetGeneralizedMass(db_, mode, mode, 1.0);
        ZEL_SetGeneralizedStiffness(db_, mode, mode, std::pow(2.0 * M_PI * hertz, 2));
    }

    Slab slab_;
    int layer_;
    ZELDATA* db_;
};
} // namespace

int main(int argc, char** argv)
{
    const std::string folder = argc > 1 ? argv[1] : ".";
    const std::pair<const char*, Slab> bodies[] = {
        {"slab", {.nx = 20, .ny = 10, .modes = 3, .stress = true, .turned = 0.25}},
        {"other", {.nx = 20, .ny = 10, .modes = 3, .stress = true, .raised = 1.01, .exchanged = true}},
        {"points", {.nx = 20, .ny = 10, .modes = 2, .units = false, .faces = false}},
        {"bare", {.nx = 4, .ny = 2, .modes = 0}},
        {"large", {.nx = 157, .ny = 157, .modes = 14}}};
    bool fine = true;
    for (const auto& [name, slab] : bodies)
        fine = Writer(slab).write(folder + "/" + name + ".zel") && fine;
    return fine ? EXIT_SUCCESS : EXIT_FAILURE;
}
