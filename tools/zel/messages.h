// Where the library's own talk goes while the command works.
#ifndef MESSAGES_H
#define MESSAGES_H

namespace zel_command
{

// Sends what the library prints on standard output to standard error, or nowhere, for the length of a scope: standard
// output is for the results of the command. One at a time for each descriptor.
class MessagesAside
{
public:
    explicit MessagesAside(bool shown = true);
    // Hides what is printed on another descriptor: STDERR_FILENO for warnings.
    static MessagesAside hidden(int descriptor) { return MessagesAside(false, descriptor); }
    ~MessagesAside();
    MessagesAside(const MessagesAside&) = delete;
    MessagesAside& operator=(const MessagesAside&) = delete;

private:
    MessagesAside(bool shown, int descriptor);
    int descriptor_, output_;
};

} // namespace zel_command

#endif
