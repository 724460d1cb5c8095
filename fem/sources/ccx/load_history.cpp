#include "fem/sources/ccx/load_history.h"

#include <algorithm>

namespace zel_fem::ccx
{

void LoadHistory::begin_step(const Card& step, const Place& place)
{
    end_step();
    ++step_;
    place_ = place;
    is_static_ = false;
    begun_.clear();
    title_ = step.has("NAME") ? step.parameters.at("NAME") : step.lines.empty() ? "" : step.lines[0].text;
    if (!step.has("PERTURBATION"))
        return;
    active_.clear();
    prescribed_.clear();
    left_out_.clear();
}

static bool is_of(LoadKey::Kind kind, const std::string& keyword)
{
    return (kind == LoadKey::nodal) == (keyword == "CLOAD");
}

bool LoadHistory::begin_card(const Card& card, const Place& place)
{
    const auto op = card.parameters.find("OP");
    const bool fresh =
        begun_.insert(card.keyword).second && op != card.parameters.end() && capitals(op->second) == "NEW";
    if (fresh && card.keyword == "BOUNDARY")
        prescribed_.clear();
    else if (fresh)
        std::erase_if(active_, [&card](const auto& load) { return is_of(load.first.kind, card.keyword); });
    if (fresh)
        left_out_.erase(card.keyword);
    for (const auto& [name, value] : card.parameters)
        if (name != "OP" && card.keyword != "BOUNDARY")
        {
            leave_out(card.keyword, place, card.shown + " with " + name);
            return false;
        }
    return true;
}

void LoadHistory::add(LoadKey key, double value, std::vector<int> elements, const Place& place)
{
    const auto turns_otherwise = [&](const auto& other) {
        return other.first.kind == LoadKey::centrifugal && other.first.axis != key.axis &&
               std::find_first_of(elements.begin(), elements.end(), other.second.elements.begin(),
                                  other.second.elements.end()) != elements.end();
    };
    if (key.kind == LoadKey::centrifugal && std::any_of(active_.begin(), active_.end(), turns_otherwise))
        return leave_out("DLOAD", place, "a second axis of rotation, which the solver passes over as well,");
    ActiveLoad& load = active_[std::move(key)];
    load.value = value + (load.step == step_ ? load.value : 0.0);
    load.step = step_;
    load.elements = std::move(elements);
}

void LoadHistory::leave_out(const std::string& keyword, const Place& place, const std::string& what)
{
    left_out_[keyword].insert(InputError(place, what + " is left out of the load cases").what());
}

void LoadHistory::end_step()
{
    if (!is_static_)
        return;
    const bool moves = std::any_of(prescribed_.begin(), prescribed_.end(), [](auto& at) { return at.second != 0.0; });
    if (moves && !active_.empty())
        leave_out("BOUNDARY", place_, "what the step moves by *BOUNDARY");
    StepLoads step{place_, "Step " + std::to_string(step_) + (title_.empty() ? "" : ": " + title_), {}};
    for (const auto& [keyword, notes] : left_out_)
        for (const std::string& note : notes)
            if (told_.insert(note).second)
                notes_.push_back(note);
    if (!left_out_.empty())
        step.label += " (in part)";
    left_out_.erase("BOUNDARY");
    for (const auto& load : active_)
        if (load.second.value != 0.0)
            step.loads.insert(load);
    if (!step.loads.empty())
        steps_.push_back(std::move(step));
}

std::vector<StepLoads> LoadHistory::finish(std::vector<std::string>& notes)
{
    end_step();
    is_static_ = false;
    notes.insert(notes.end(), notes_.begin(), notes_.end());
    return std::move(steps_);
}

} // namespace zel_fem::ccx
