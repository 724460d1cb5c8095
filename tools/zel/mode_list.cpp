#include "mode_list.h"

#include <cstdio>
#include <set>
#include <sstream>

namespace zel_command
{

using zel_checks::Mode;

std::vector<Mode> chosen_modes(ZELDATA* db, const std::string& text)
{
    std::vector<Mode> all = zel_checks::modes_of(db);
    if (!ZEL_ModeExist(db, ZEL_MODE_SHAPE) && !ZEL_ModeExist(db, ZEL_MODAL_STRESS) &&
        !ZEL_ModeExist(db, ZEL_MODAL_STRAIN))
        all.clear(); // numbers alone
    if (text.empty())
        return all;
    std::set<int> numbers;
    std::istringstream parts(text);
    parts.exceptions(std::ios::badbit); // instead of going on without what memory did not suffice for
    for (std::string part; std::getline(parts, part, ',');)
    {
        int first = 0, last = 0, used = 0;
        const int given = std::sscanf(part.c_str(), " %9d %n- %9d %n", &first, &used, &last, &used);
        last = given == 1 ? first : last;
        if (given < 1 || size_t(used) != part.size() || first > last || last - first >= 1000000)
            throw std::runtime_error("--modes takes mode numbers, as in 7-12,15, and not " + text);
        for (int number = first; number <= last; ++number)
            if (ZEL_ModeIndex(db, number) < 0)
                throw std::runtime_error("the body has no mode " + std::to_string(number));
            else
                numbers.insert(number);
    }
    std::erase_if(all, [&](const Mode& mode) { return !numbers.contains(mode.number); });
    return all;
}

} // namespace zel_command
