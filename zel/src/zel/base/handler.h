// A function of the host program with its context, as each thread keeps one for messages and one for progress.
#ifndef ZEL_BASE_HANDLER_H
#define ZEL_BASE_HANDLER_H

#include <utility>

namespace zel
{

template <typename Function> struct Handler
{
    Function function; // null: none
    void* context;

    // The function before.
    Function set(Function fresh, void* its_context)
    {
        context = its_context;
        return std::exchange(function, fresh);
    }
    Function get(void** its_context) const
    {
        if (its_context)
            *its_context = context;
        return function;
    }
};

} // namespace zel

#endif
