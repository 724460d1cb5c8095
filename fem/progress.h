// How far work has come: told phase by phase to whoever wants to know, who may end it.
#ifndef FEM_PROGRESS_H
#define FEM_PROGRESS_H

#include <stdexcept>
#include <string>

namespace zel_fem
{

/** Thrown out of the work when a Progress has asked to stop. */
class Stopped : public std::runtime_error
{
public:
    Stopped() : std::runtime_error("stopped") {}
};

/**
 * Told of the phases of the work, in its own thread. This one keeps silent; override what shall be shown or asked.
 * Phases follow each other: one ends where the next begins. How far a phase has come is not always known, so that a phase
 * may pass without a share. Both are cheap to call; a sink that draws or calls back does so as rarely as it likes.
 */
class Progress
{
public:
    virtual ~Progress() = default;

    /** For the work: tells a phase, and throws Stopped when the sink says so. */
    void begin(const std::string& phase)
    {
        if (!begins(phase))
            throw Stopped();
    }
    /** For the work: tells the share of the phase that is done, 0 to 1, and throws Stopped when the sink says so. */
    void advance(double share)
    {
        if (!advances(share))
            throw Stopped();
    }

protected:
    /** A phase begins, "factor the stiffness matrix". False: stop. */
    virtual bool begins([[maybe_unused]] const std::string& phase) { return true; }
    /** The share of it that is done, 0 to 1; below 0: it goes on, nobody knows how far. False: stop. */
    virtual bool advances([[maybe_unused]] double share) { return true; }
};

} // namespace zel_fem

#endif
