// The words of --options. The library looks for its keywords anywhere in the text and passes over all others; a user who
// mistypes one is told.
#ifndef WRITE_OPTIONS_H
#define WRITE_OPTIONS_H

#include <string>

namespace zel_command
{

// What is wrong with the text, with the nearest keyword; empty: nothing.
std::string problem_of_write_options(const std::string& text);

// Every keyword with its effect, one a line.
std::string help_on_write_options();

} // namespace zel_command

#endif
