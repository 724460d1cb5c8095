// Where the library's own talk goes while the command works.
#ifndef MESSAGES_H
#define MESSAGES_H

namespace zel_command
{

// Sends what the library prints on standard output to standard error, or nowhere, for the length of a scope: standard
// output is for the results of the command. One at a time.
class MessagesAside
{
public:
    explicit MessagesAside(bool shown = true);
    ~MessagesAside();
    MessagesAside(const MessagesAside&) = delete;
    MessagesAside& operator=(const MessagesAside&) = delete;

private:
    int output_;
};

} // namespace zel_command

#endif
