// What every page has, joined from tools/zel/view by the build.
#ifndef PAGES_SOURCES_H
#define PAGES_SOURCES_H

#include <string_view>

namespace zel_command
{

struct PageSources
{
    std::string_view before, after; // the data
};
PageSources page_sources();

} // namespace zel_command

#endif
