#include "report.h"

#include "console.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

namespace zel_command
{

using zel_checks::Report, zel_checks::Row, zel_checks::RowKind;

void print_report(const Report& report)
{
    for (const Row& row : report.rows())
        switch (row.kind)
        {
        case RowKind::title: std::printf("%s\n", row.text.c_str()); break;
        case RowKind::note: std::printf("  Note: %s\n", row.text.c_str()); break;
        case RowKind::figure: std::printf("  %-26s %s\n", row.name.c_str(), row.text.c_str()); break;
        case RowKind::check:
            std::printf("  %-26s %-56s %s\n", row.name.c_str(), row.text.c_str(), verdict(*row.holds).c_str());
            break;
        }
}

void print_checks(const Report& report)
{
    size_t width = 0;
    for (const Row& row : report.rows())
        width = std::max(width, row.name.size());
    for (const Row& row : report.rows())
        if (row.kind == RowKind::check)
            std::printf("%s%s %-*s %s\n", verdict(*row.holds).c_str(), *row.holds ? "   " : " ", int(width),
                        row.name.c_str(), row.text.c_str());
}

void print_checks_as_json(const Report& report)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Row& row : report.rows())
        if (row.kind == RowKind::check)
            list.push_back({{"check", row.name}, {"okay", *row.holds}, {"figures", row.text}});
    std::printf("%s\n", list.dump(2).c_str());
}

} // namespace zel_command
