// How `zel compare` tells what it finds.
#ifndef COMPARE_REPORT_H
#define COMPARE_REPORT_H

#include "checks/body_comparison.h"
#include "checks/modal_comparison.h"

#include <nlohmann/json_fwd.hpp>

namespace zel_command
{

// Which checks are printed.
enum class ShownChecks
{
    failures,
    problems, // notes and warnings as well, and the verdict
    all
};

// On standard output, a line a check.
void print_comparison(const zel_checks::BodyComparison& comparison, ShownChecks shown);

// The same as JSON.
void print_comparison_as_json(const zel_checks::BodyComparison& comparison);

// What is no number is null, what is infinite a text: JSON has neither.
nlohmann::ordered_json json_number(const std::optional<double>& value);

// On standard output, a line a pair of modes.
void print_modal_comparison(const zel_checks::ModalComparison& comparison, const zel_checks::ModalOptions& options);

// The same as JSON.
void print_modal_comparison_as_json(const zel_checks::ModalComparison& comparison,
                                    const zel_checks::ModalOptions& options);

} // namespace zel_command

#endif
