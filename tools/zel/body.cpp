#include "body.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace zel_command
{

Body::Body(const std::string& path)
{
    if (access(path.c_str(), R_OK) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    db_ = ZEL_CreateFromZEL(path.c_str());
    if (!db_)
        throw std::runtime_error(path + ": not a readable ZEL file");
}

} // namespace zel_command
