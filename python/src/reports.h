// Reports on their way to Python, and work of C++ whose errors are exceptions.
#ifndef PYTHON_REPORTS_H
#define PYTHON_REPORTS_H

#include "database.h"

#include "checks/checks.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace zel_python
{

// Kind, name, text, verdict, figures by their names.
using ReportRow =
    std::tuple<int, std::string, std::string, std::optional<bool>, std::vector<std::tuple<std::string, double>>>;

std::vector<ReportRow> rows_of(const zel_checks::Report& report);

// A result, or why there is none. Work that was told to end has neither: its reason is the exception of a Progress.
template <typename Result> struct Outcome
{
    std::optional<Result> result;
    std::string failure;
};

template <typename Work> auto outcome_of(Work&& work)
{
    Outcome<decltype(work())> outcome;
    try
    {
        outcome.result = work();
    }
    catch (const std::runtime_error& error)
    {
        outcome.failure = error.what();
    }
    return outcome;
}

template <typename Result> const Result& result_of(const Outcome<Result>& outcome)
{
    if (!outcome.result)
        raise_error(outcome.failure);
    return *outcome.result;
}

} // namespace zel_python

#endif
