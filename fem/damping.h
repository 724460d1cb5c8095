// Damping that a user asks for, mode by mode, and its way into a database.
#ifndef FEM_DAMPING_H
#define FEM_DAMPING_H

#include <array>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "fem/frequency_range.h"

typedef struct ZELDATA ZELDATA; // of zel.h

namespace zel_fem
{

/** A damping ratio, and the modes that have it. */
struct DampingPart
{
    double ratio;                        ///< of the critical damping, 0 to 1
    std::optional<int> mode = {};        ///< counted from 1, as files number their modes; none: those of a range
    std::optional<FrequencyRange> range; ///< none, and no mode: all flexible modes
};

/** Viscous damping of the flexible modes of a body. Rigid-body modes have none. */
struct Damping
{
    std::vector<DampingPart> parts; ///< no mode may have two; a mode that none names stays undamped
    /**
     * alpha in 1/s and beta in s, whatever the unit of time: C = alpha M + beta K (Rayleigh, The Theory of Sound, section 81),
     * hence a ratio alpha / (2 omega) + beta omega / 2 of each mode. Not beside parts.
     */
    std::optional<std::array<double, 2>> rayleigh = {};
};

/** "0.02", "7:0.01,8:0.02" or "0.01:0-500Hz,0.05:500Hz-". Throws std::runtime_error for all else, and for ranges that overlap. */
Damping parse_damping(const std::string& text);

/** "alpha,beta". Throws std::runtime_error for all else. */
Damping parse_rayleigh(const std::string& text);

/** What damping has come to. */
struct DampedModes
{
    int damped;   ///< modes
    int undamped; ///< flexible modes that no part names, or that one gives a ratio of zero
    int rigid;    ///< rigid-body modes, never damped
};

/** "20 of 20 flexible modes are damped, none of 6 rigid-body modes". */
std::string text_of(const DampedModes& modes);

/**
 * Replaces the damping of a database so that the file has it which a write with these options makes. Modes become orthogonal
 * here, as they would in the write, so that numbers and frequencies are those of the file.
 * Throws std::runtime_error, with the modes perhaps orthogonal but the damping as it was: for a number that is no mode or a
 * rigid-body mode, or that lowpass or highpass would change; for a mode with two ratios; where modes that no_ortho keeps are coupled;
 * where a mode besides the rigid ones has no positive frequency; for a body that shall have no modes.
 */
DampedModes set_damping(ZELDATA* db, const Damping& damping, const std::string& write_options);

} // namespace zel_fem

#endif
