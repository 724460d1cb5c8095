#include "sources.h"

// The joined page as it stands in the build folder. Compilers take minutes for a megabyte of initialisers, the assembler none.
asm(".section .rodata\n"
    ".global zel_page_begin\n"
    ".hidden zel_page_begin\n"
    "zel_page_begin:\n"
    ".incbin \"" ZEL_PAGE "\"\n"
    ".global zel_page_end\n"
    ".hidden zel_page_end\n"
    "zel_page_end:\n"
    ".byte 0\n"
    ".previous\n");
extern "C" const char zel_page_begin[], zel_page_end[];

namespace zel_command
{

PageSources page_sources()
{
    constexpr std::string_view kData = "@DATA@";
    const std::string_view page(zel_page_begin, size_t(zel_page_end - zel_page_begin));
    const size_t at = page.find(kData);
    return {page.substr(0, at), page.substr(at + kData.size())};
}

} // namespace zel_command
