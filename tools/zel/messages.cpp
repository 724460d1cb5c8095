#include "messages.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace zel_command
{

MessagesAside::MessagesAside(bool shown) : MessagesAside(shown, STDOUT_FILENO) {}

MessagesAside::MessagesAside(bool shown, int descriptor) : descriptor_(descriptor)
{
    std::fflush(stdout);
    output_ = dup(descriptor_);
    const int to = shown ? dup(STDERR_FILENO) : open("/dev/null", O_WRONLY);
    if (output_ >= 0 && to >= 0)
        dup2(to, descriptor_);
    if (to >= 0)
        close(to);
}

MessagesAside::~MessagesAside()
{
    std::fflush(stdout);
    if (output_ < 0)
        return;
    dup2(output_, descriptor_);
    close(output_);
}

} // namespace zel_command
