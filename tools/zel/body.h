// A body that was opened from a file.
#ifndef BODY_H
#define BODY_H

#include <zel.h>

#include <string>

namespace zel_command
{

// An open file. Throws std::runtime_error, naming the file, when it cannot be opened or read.
class Body
{
public:
    explicit Body(const std::string& path);
    ~Body() { ZEL_UnLink(db_); }
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;
    operator ZELDATA*() const { return db_; }

private:
    ZELDATA* db_;
};

} // namespace zel_command

#endif
