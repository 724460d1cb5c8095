// How the checks of a comparison report.
#include "compare.h"

#include <cstdarg>
#include <cstdio>

namespace zel
{

static constexpr int kLongestLine = 400;

static void take(const Comparison& c, int verdict, const Finding& finding, double limit, const char* line)
{
    const Place& at = finding.place;
    const double difference = std::isnan(finding.difference) ? finding.worst : finding.difference; // of counts the same
    c.findings->take({finding.check, finding.worst, finding.block, at.mode, at.node, at.component, limit, verdict,
                      difference, finding.scale},
                     line);
}

void tell(const Comparison& c, int verdict, const Finding& finding, const char* format, ...)
{
    char line[kLongestLine];
    va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof line, format, values);
    va_end(values);
    take(c, verdict, finding, 0.0, line);
}

void print(const Comparison& c, int verdict, const char* format, ...)
{
    char line[kLongestLine];
    va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof line, format, values);
    va_end(values);
    c.findings->print(verdict, line);
}

void tell_and_stop(const Comparison& c, const Finding& finding, const char* format, ...)
{
    char line[kLongestLine];
    va_list values;
    va_start(values, format);
    std::vsnprintf(line, sizeof line, format, values);
    va_end(values);
    take(c, ZEL_COMPARISON_FAIL, finding, 0.0, line);
    c.findings->stop();
}

// The line of a check, "->Fail ..." or "  Pass ...".
static bool check_line(const Comparison& c, double delta, char (&line)[kLongestLine], const char* format,
                       va_list values)
{
    const bool failed = is_beyond(c, delta);
    char text[kLongestLine / 2];
    std::vsnprintf(text, sizeof text, format, values);
    std::snprintf(line, sizeof line, "%s %s  Delta: %e\n", failed ? "->Fail" : "  Pass", text, delta);
    return failed;
}

int check(const Comparison& c, const Finding& finding, const char* format, ...)
{
    char line[kLongestLine];
    va_list values;
    va_start(values, format);
    const bool failed = check_line(c, finding.worst, line, format, values);
    va_end(values);
    take(c, failed ? ZEL_COMPARISON_FAIL : ZEL_COMPARISON_PASS, finding, c.tolerance, line);
    return failed ? -1 : 0;
}

int print_check(const Comparison& c, double delta, const char* format, ...)
{
    char line[kLongestLine];
    va_list values;
    va_start(values, format);
    const bool failed = check_line(c, delta, line, format, values);
    va_end(values);
    c.findings->print(failed ? ZEL_COMPARISON_FAIL : ZEL_COMPARISON_PASS, line);
    return failed ? -1 : 0;
}

void check_silently(const Comparison& c, const Finding& finding)
{
    take(c, is_beyond(c, finding.worst) ? ZEL_COMPARISON_FAIL : ZEL_COMPARISON_PASS, finding, c.tolerance, nullptr);
}

bool both_have(const Comparison& c, const Finding& finding, const char* prefix)
{
    const int block = finding.block;
    if (c.in_base[block] && c.in_fresh[block])
        return true;
    tell(c, ZEL_COMPARISON_NOTE, finding, "->Note %sblock_%d__%s not checked\n", prefix, block, block_row(block).name);
    return false;
}

void expect_equal(const Comparison& c, const Finding& finding, int fresh, int base, const char* warning,
                  const char* pass)
{
    Finding counted = finding;
    counted.worst = std::fabs(double(fresh) - base);
    if (fresh == base)
        tell(c, ZEL_COMPARISON_PASS, counted, "  Pass %s\n", pass);
    else
        tell(c, ZEL_COMPARISON_WARNING, counted, "->Warning %s\n", warning);
}

int no_room(Comparison& c, int line)
{
    no_memory(module_word::comparison, line);
    c.incomplete = true;
    return -1;
}

} // namespace zel
