// How `zel compare` tells what it finds.
#ifndef COMPARE_REPORT_H
#define COMPARE_REPORT_H

#include "checks/modal_comparison.h"

namespace zel_command
{

// On standard output, a line a pair of modes.
void print_modal_comparison(const zel_checks::ModalComparison& comparison, const zel_checks::ModalOptions& options);

// The same as JSON.
void print_modal_comparison_as_json(const zel_checks::ModalComparison& comparison,
                                    const zel_checks::ModalOptions& options);

} // namespace zel_command

#endif
