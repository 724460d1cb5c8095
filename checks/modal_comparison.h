/**
 * @file
 * Whether the modes of two bodies are the same: in any order, with either sign, turned within modes of equal frequency, or as
 * another basis of the same motions.
 *
 * Nodes are paired by id or by place. Shapes are compared at the nodes of both, weighed by nodal masses where one of the bodies
 * has any, and as subspaces, so that no number in the two files needs to agree. The new body is compared in units of the base.
 */
#ifndef CHECKS_MODAL_COMPARISON_H
#define CHECKS_MODAL_COMPARISON_H

#include "checks/checks.h"

namespace zel_checks
{

/** What is asked of a comparison. */
struct ModalOptions
{
    bool by_position = false;        ///< nodes are paired by their places, otherwise by their ids
    std::optional<double> tolerance; ///< distance of paired places, in the base's unit; none: 1e-4 of the body's size
    double cluster = 1e-3;           ///< relative distance below which neighbouring frequencies count as equal
    double assurance = 0.99;         ///< least squared cosine that passes
    double frequency = 1e-3;         ///< largest relative difference of frequencies that passes
    double invariants = 1e-2;        ///< largest difference of the matrices in parts of their natural size that passes
};

/** The node at which two modes, or spans, differ most after the best scaling and turning of the new ones. */
struct WorstNode
{
    int mode;                    ///< of the base
    int base_node, fresh_node;   ///< ids of the node
    bool turns;                  ///< the vectors are rotations, otherwise translations
    std::array<double, 3> base;  ///< vector of the base's mode
    std::array<double, 3> fresh; ///< what the new modes have in its place
    double share; ///< size of the difference in parts of the mode's largest vector; of rotations at least its
                  ///< largest translation over the size of the body
};

/** Modes of both bodies that belong together: a pair, modes of nearly equal frequencies, or the rigid-body modes. */
struct ModeGroup
{
    std::vector<int> base, fresh; ///< mode numbers by frequency, equally many
    bool rigid;                   ///< they do not deform the body; their frequencies are rounding, and not compared
    std::optional<double> base_hertz, fresh_hertz; ///< of the two that differ most; none: the modes have none
    double frequency_difference;                   ///< of these, in parts of the base's; 0 where they are not compared
    std::vector<double> angles;                    ///< principal angles between the spans in radians, the largest first
    double assurance; ///< squared cosine of the largest: of a pair the modal assurance criterion
    double unweighed; ///< the same of what masses do not weigh: rotations, translations of nodes without mass
    std::optional<WorstNode> worst; ///< none: nothing differs
    bool holds;                     ///< all of it is within the limits
};

/**
 * A matrix that belongs to the body, or to its modes, after the change of basis from the new modes to those of the base; of the base's
 * modes those count that the new ones span within the limit of the assurance criterion.
 */
struct MatrixMatch
{
    std::string name; ///< "invariant 1" to "invariant 9", "generalized stiffness", "generalized damping"
    std::optional<double> difference; ///< largest, in parts of what the mass of the body allows; none: not compared
    std::string reason;               ///< why it is not compared
    bool holds;                       ///< within the limit, or not compared
};

/** All that a comparison finds. */
struct ModalComparison
{
    int common_nodes, base_only, fresh_only; ///< nodes with mode shapes, in pairs and without a partner
    double farthest;                         ///< largest distance within a pair of nodes, in the base's unit of length
    int farthest_node;                       ///< id of the base's node of that pair
    bool weighed;                            ///< nodal masses weigh the shapes
    bool with_rotations;                     ///< rotations count as well, as some mode moves no node
    int base_modes, fresh_modes;             ///< how many there are
    std::vector<ModeGroup> groups;           ///< by frequency
    std::vector<int> base_unmatched, fresh_unmatched; ///< mode numbers
    std::optional<double> base_in_fresh; ///< largest principal angle in radians: NEW spans BASE to it; none: not judged
    std::optional<double> fresh_in_base; ///< the other way round
    std::vector<MatrixMatch> matrices;   ///< invariants, stiffness and damping
    std::vector<std::string> notes;      ///< what a reader should know, a sentence each
    bool compared;                       ///< whether any modes were
    bool equal; ///< some were compared, none is without a partner, and all is within the limits
};

/**
 * Compares the modes of two bodies. Those of a body with coupled generalized matrices are its free vibrations, numbered from 1.
 * Memory does not grow with nodes x modes: shapes are read twice, a block of nodes at a time. The new body is in units of the
 * base for the length of the call. Throws std::runtime_error above 3000 modes, for shapes that cannot be read, and for units that
 * cannot be changed.
 */
ModalComparison compare_modes(ZELDATA* base, ZELDATA* fresh, const ModalOptions& options = {},
                              const Progress& progress = {});

/** Two modes that belong together, by their places in the given lists. */
struct ModePair
{
    size_t a, b;
    double cosine; ///< of the angle between them; not a number: rigid-body modes, of which only the span means anything
};

/** Modes of two bodies against each other. */
struct ModeMap
{
    int common_nodes;            ///< that both bodies have mode shapes for, by their ids
    std::vector<double> cosines; ///< a row for each mode of the first body; the square is the modal assurance criterion
    std::vector<ModePair> pairs; ///< by the modes of the first
};

/**
 * Some modes of two bodies, which may be one, as compare_modes() matches them. Cosines are zero for shapes that are zero, or no
 * numbers, at the common nodes.
 */
ModeMap map_modes(ZELDATA* a, const std::vector<Mode>& modes_a, ZELDATA* b, const std::vector<Mode>& modes_b);

} // namespace zel_checks

#endif
