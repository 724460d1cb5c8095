// What the files of an MBDyn export are made of, and who writes them.
#ifndef EXPORTS_MBDYN_H
#define EXPORTS_MBDYN_H

#include "exports.h"
#include "mbdyn_masses.h"

#include "dense/products.h"

#include <optional>
#include <string>
#include <vector>

namespace zel_command
{

struct ModalData
{
    std::vector<int> node_ids, mode_numbers; // with shapes; flexible
    int rigid_modes = 0;                     // that were left out
    Eigen::MatrixXd mass, stiffness;
    std::optional<Eigen::MatrixXd> damping;
    std::vector<double> eigenvalues; // ascending, of the flexible modes by themselves
    NodeMasses nodes;
    std::string units, title;
};

// The shortest text that reads as the same number. Throws for what is not finite.
std::string text_of(double value);

// The modal data, fetched one mode at a time.
void write_fem(Output& out, ZELDATA* db, const ModalData& data, Steps& steps);

// An input that declares the joint and its node; `fem` is the name of the modal data, in the same folder.
std::string input_of(ZELDATA* db, const ModalData& data, const std::string& fem);

// Throws when there is a file that no export wrote, or that was changed since.
void keep_what_was_edited(const std::string& path);

} // namespace zel_command

#endif
