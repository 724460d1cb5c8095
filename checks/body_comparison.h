/**
 * @file
 * The block-by-block comparison of two bodies as records: what ZEL_CompareBodies finds, judged by tolerances of one's own.
 */
#ifndef CHECKS_BODY_COMPARISON_H
#define CHECKS_BODY_COMPARISON_H

#include "checks/checks.h"

#include <map>

namespace zel_checks
{

/** What the difference of a check is measured by. */
enum class ToleranceKind
{
    relative, ///< the largest magnitude in the base
    absolute, ///< nothing: in SI units as it is; of counts their distance
    both      ///< as ZEL_CompareBodies measures it: 1 or, where it is more, the largest magnitude in the base
};

/** How a check is judged: it fails when its difference is above the floor and its measure above the value. */
struct Tolerance
{
    ToleranceKind kind = ToleranceKind::both;
    double value = 0.0; ///< largest measure that passes
    double floor = 0.0; ///< absolute difference, in SI units, up to which it passes in any case
};

/** By the names of checks. */
using Tolerances = std::map<std::string, Tolerance>;

/**
 * Tolerances from a text of one line a check: `NAME: relative|absolute|both VALUE [floor VALUE]`; # begins a comment. Throws
 * std::runtime_error, with the line, for a text that is none.
 */
Tolerances tolerances_from(const std::string& text);

/** What became of a check. */
enum class Verdict
{
    pass = ZEL_COMPARISON_PASS,
    note = ZEL_COMPARISON_NOTE,
    warning = ZEL_COMPARISON_WARNING,
    fail = ZEL_COMPARISON_FAIL
};

/** One check of a comparison. */
struct ComparedRow
{
    std::string check;
    int block;                   ///< ZEL_BLOCK_..., 0 for a check that was asked for and not made
    std::optional<double> worst; ///< the measured difference, which may be infinite; none: nothing was compared
    std::optional<int> mode, node, component; ///< where it is
    double limit;                             ///< what it may be
    Verdict verdict;
    ToleranceKind kind; ///< by which it is measured
};

/** What a comparison block by block finds. */
struct BodyComparison
{
    std::vector<ComparedRow> rows; ///< in the order of the blocks
    int compared;                  ///< how many of them compared values of the bodies
    bool equal;                    ///< some did, and none fails
};

/**
 * Compares as ZEL_CompareBodies does, after which both bodies are in SI units. Checks with a tolerance of their own are judged by that;
 * one that was not made fails. Throws std::runtime_error where they cannot be compared, or a progress handler ends it.
 */
BodyComparison compare_bodies(ZELDATA* base, ZELDATA* fresh, double tolerance, const Tolerances& tolerances = {});

/** Tolerances, as a text for tolerances_from(), by which this comparison passes: what differs now, rounded up to two digits. */
std::string baseline_of(const BodyComparison& comparison, double tolerance);

/**
 * Whether the new body has to be written anew in units of the base before their blocks are compared: modes of generalized mass 1 have
 * another amplitude in other units.
 */
bool needs_units_of_base(ZELDATA* base, ZELDATA* fresh);

/** Writes that copy, whose modes are normalised in units of the base. The new body is in these units afterwards. */
void write_in_units_of_base(ZELDATA* base, ZELDATA* fresh, const std::string& path);

} // namespace zel_checks

#endif
