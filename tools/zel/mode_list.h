// The modes that a user names.
#ifndef MODE_LIST_H
#define MODE_LIST_H

#include "checks/checks.h"

#include <string>
#include <vector>

namespace zel_command
{

// The modes that a text such as "7-12,15" names, in the order of the body; all of them for an empty text. None where the body
// has numbers of modes alone, without vectors.
std::vector<zel_checks::Mode> chosen_modes(ZELDATA* db, const std::string& text);

} // namespace zel_command

#endif
