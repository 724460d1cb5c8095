// The door of pages/: a body, or two beside each other, as one HTML page that needs nothing else, and as a picture.
#ifndef PAGES_PAGES_H
#define PAGES_PAGES_H

#include "fem/fem.h"
#include "tools/zel/console.h"

#include <zel.h>

#include <string>
#include <vector>

namespace zel_command
{

struct PageOptions
{
    std::string modes;         // as in 7-26; empty: all
    double limit = 32e6;       // bytes of the page
    bool stress_parts = false; // components of stress and strain, beside the von Mises value
    int first_mode = 0;        // that the page begins with; 0: the first one that deforms the body
    bool picture = false;      // the view alone, standing still, without the controls around it
};

// A body by the name that the page gives it.
struct NamedBody
{
    ZELDATA* db;
    std::string name;
};

// Writes the page of one or two bodies whole or, throwing std::runtime_error, not at all. Their faces may be coarser afterwards.
// Gives what was left out, a sentence each.
std::vector<std::string> write_page(const std::string& path, const std::vector<NamedBody>& bodies,
                                    const PageOptions& options, ProgressBar& bar);

// A folder that goes at the end of its scope, or when the user interrupts, unless it is kept.
class TemporaryFolder
{
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    void keep() { stays_ = true; }

private:
    static std::string made();
    std::string path_;
    zel_fem::RemovedOnInterrupt registered_;
    bool stays_ = false;
};

// A picture of a page by a browser that works without a window. Throws std::runtime_error where there is none.
void write_picture(const std::string& path, const std::string& page, int width, int height, const ZELDATA* db);

// Shows a page in the user's browser. False: there is none that could be asked.
bool open_in_browser(const std::string& page);

} // namespace zel_command

#endif
