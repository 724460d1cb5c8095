// The largest magnitudes of a mode and the nodes that have them: translation, rotation, von Mises stress and strain. A
// scan may take the nodes in pieces, as they come from a file.
#ifndef ZEL_DATABASE_STATISTICS_H
#define ZEL_DATABASE_STATISTICS_H

#include "zel.h"

#include <cmath>
#include <cstdint>

namespace zel
{

// In the order of the pairs of a ZELSTATISTICS record.
enum Statistic
{
    kLargestTranslation,
    kLargestRotation,
    kLargestStress,
    kLargestStrain,
    kStatisticCount
};

// Where a statistic comes from: the mode kind and the first of its components.
constexpr int statistic_kind(Statistic statistic)
{
    return statistic == kLargestStress   ? ZEL_MODAL_STRESS
           : statistic == kLargestStrain ? ZEL_MODAL_STRAIN
                                         : ZEL_MODE_SHAPE;
}

inline double length_square(const double v[3])
{
    return v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
}

// Half the squared differences of the normal components, which both von Mises measures start from.
inline double normal_difference_square(const double v[6])
{
    const double xy = v[0] - v[1], yz = v[1] - v[2], zx = v[2] - v[0];
    return 0.5 * (xy * xy + yz * yz + zx * zx);
}

// Components x, y, z, xy, xz, yz.
inline double von_mises_stress_square(const double stress[6])
{
    return normal_difference_square(stress) + 3.0 * length_square(stress + 3);
}

// The same with engineering shears (twice the tensor's), and 2/3 in front: a uniaxial strain e of an incompressible
// material, (e, -e/2, -e/2), counts as e.
inline double von_mises_strain_square(const double strain[6])
{
    return 4.0 / 9.0 * (normal_difference_square(strain) + 0.75 * length_square(strain + 3));
}

inline double magnitude_square(Statistic statistic, const double v[6])
{
    switch (statistic)
    {
    case kLargestTranslation: return length_square(v);
    case kLargestRotation: return length_square(v + 3);
    case kLargestStress: return von_mises_stress_square(v);
    default: return von_mises_strain_square(v);
    }
}

// Running maximum; of equal magnitudes the first node is kept, and a mode of zeros has node 0.
class StatisticScan
{
public:
    explicit StatisticScan(Statistic statistic) : statistic_(statistic) {}

    // values: 6 a node
    void take(ZELNODE* const* nodes, const double* values, int64_t node_count)
    {
        for (int64_t i = 0; i < node_count; ++i)
        {
            const double square = magnitude_square(statistic_, values + 6 * i);
            if (square > square_)
            {
                square_ = square;
                node_id_ = nodes[i]->id;
            }
        }
    }

    ZELSTATPAIR result() const { return {node_id_, std::sqrt(square_)}; }

private:
    Statistic statistic_;
    double square_ = 0.0;
    int node_id_ = 0;
};

} // namespace zel

#endif
