// How the command prints a report: with a title and notes, as an import tells what it did, or as a list of verdicts.
#ifndef REPORT_H
#define REPORT_H

#include "checks/report.h"

namespace zel_command
{

// Titles, notes and figures, the checks with their verdicts behind, on standard output.
void print_report(const zel_checks::Report& report);

// The checks, their verdicts in front, on standard output.
void print_checks(const zel_checks::Report& report);

// The checks as a JSON list, on standard output.
void print_checks_as_json(const zel_checks::Report& report);

} // namespace zel_command

#endif
