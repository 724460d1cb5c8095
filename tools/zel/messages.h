// For the import, until its messages have a way of their own.
#include "tools/zel/console.h"

namespace zel_command
{

struct MessagesAside : MessageScope
{
    explicit MessagesAside(bool shown) : MessageScope(shown ? Messages::all : Messages::problems) {}
};

} // namespace zel_command
