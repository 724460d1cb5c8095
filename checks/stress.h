/**
 * @file
 * Stress of a body as its modes combine to it: under a load at rest, or for amplitudes that a solver has found.
 */
#ifndef CHECKS_STRESS_H
#define CHECKS_STRESS_H

#include "checks/checks.h"

#include <zel.h>

#include <cstddef>
#include <string>
#include <vector>

namespace zel_checks
{

/** What a modal load case does to a body at rest. */
struct StaticAnswer
{
    std::vector<int> held;          ///< ids of the interface nodes that do not move; empty: the body is free
    int rigid;                      ///< motions of no stiffness, which a free body has and which stay zero
    int flexible;                   ///< motions that answer: flexible modes, or all that the interfaces leave free
    std::vector<double> amplitudes; ///< of the modes in the order of the body
};

/**
 * The answer to a load case by its label. A free body answers with its flexible modes: the load is in balance with the inertia of the
 * rigid motion that it brings about (inertia relief). With interface nodes held, K q = f where these neither move nor turn. It is
 * as good as the modes are; exact with the constraint modes of the held nodes and an attachment mode of the load. Throws
 * std::runtime_error for a load or an interface that does not exist, for labels that several cases have, for interfaces that do not
 * hold the body, for a body without stiffness and for units that do not belong together.
 */
StaticAnswer static_answer(ZELDATA* db, const std::string& load, const std::vector<int>& held);

/** Ids of the nodes with modal stress, in the order of tensors. Throws std::runtime_error where there are none. */
std::vector<int> nodes_with_stress(const ZELDATA* db);

/**
 * The stresses of some states: for each, six components (x, y, z, xy, xz, yz) a node of nodes_with_stress(). `amplitudes` has those of all
 * modes in the order of the body, state by state. Modes are read one at a time, once for all states, so that memory is that of the
 * result; a pre-stress is not in it. Throws std::runtime_error for amplitudes that are not finite or of another number, and for
 * modes that cannot be read; Stopped.
 */
std::vector<double> combined_stress(ZELDATA* db, const std::vector<double>& amplitudes, const Progress& progress = {});

/** How many states fit into memory that nobody misses, at least one. */
size_t states_at_once(const ZELDATA* db);

/** Of six components (x, y, z, xy, xz, yz). */
double von_mises(const double* stress);

} // namespace zel_checks

#endif
