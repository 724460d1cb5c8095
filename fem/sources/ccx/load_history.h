// The loads of a deck from step to step, as the solver counts them.
#ifndef FEM_LOAD_HISTORY_H
#define FEM_LOAD_HISTORY_H

#include <array>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fem/sources/cards.h"

namespace zel_fem::ccx
{

// What a load acts on and how. One of the same key in a later step replaces it; within a step they add up.
struct LoadKey
{
    enum Kind
    {
        nodal,    // target: id of the node, part: component from 1
        pressure, // target: index of the element, part: number of the face
        gravity,
        centrifugal
    };
    Kind kind;
    int target = 0, part = 0;
    std::string set;              // of elements, or the number of one, as it stands in the deck
    std::array<double, 6> axis{}; // a point, for centrifugal loads, and a direction of unit length

    auto operator<=>(const LoadKey&) const = default;
};

struct ActiveLoad
{
    double value = 0.0; // of gravity the acceleration, of centrifugal loads the square of the angular velocity
    int step = 0;
    std::vector<int> elements; // indexes
};

// What acts at the end of a static step.
struct StepLoads
{
    Place place;
    std::string label;
    std::map<LoadKey, ActiveLoad> loads;
};

// Loads stay from step to step until OP=NEW, which counts on the first *CLOAD and the first *DLOAD of a step.
// Perturbation steps begin without any.
class LoadHistory
{
public:
    void begin_step(const Card& step, const Place& place);
    void be_static() { is_static_ = true; }
    // A *CLOAD, *DLOAD or *BOUNDARY begins. False, with a word of it, where it has parameters that cannot be taken.
    bool begin_card(const Card& card, const Place& place);
    void add(LoadKey key, double value, std::vector<int> elements, const Place& place);
    void prescribe(int node_id, int component, double value) { prescribed_[{node_id, component}] = value; }
    // That something acts which cannot be taken; `keyword` is that of the card.
    void leave_out(const std::string& keyword, const Place& place, const std::string& what);
    // Ends the last step. `notes` tell what acts in static steps and could not be taken.
    std::vector<StepLoads> finish(std::vector<std::string>& notes);

private:
    void end_step();

    int step_ = 0;
    bool is_static_ = false;
    Place place_;
    std::string title_;
    std::map<LoadKey, ActiveLoad> active_;
    std::map<std::pair<int, int>, double> prescribed_;      // by node id and component
    std::map<std::string, std::set<std::string>> left_out_; // by keyword
    std::set<std::string> begun_;                           // keywords of the step
    std::set<std::string> told_;
    std::vector<std::string> notes_;
    std::vector<StepLoads> steps_;
};

} // namespace zel_fem::ccx

#endif
