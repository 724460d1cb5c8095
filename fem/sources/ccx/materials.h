// Elasticity as decks have it: *ELASTIC and the *ORIENTATION of a section.
#ifndef FEM_MATERIALS_H
#define FEM_MATERIALS_H

#include <map>
#include <string>
#include <vector>

#include "fem/model.h"
#include "fem/sources/cards.h"

namespace zel_fem::ccx
{

// Cards are kept as they stand and looked at when a section asks for them: whatever is wrong with one keeps its elements from having
// stress, and the deck is read all the same.
class Materials
{
public:
    void elastic(const std::string& material, const Card& card) { elastic_[material].push_back(card); }
    void nonlinear(const std::string& material, const Card& card) { nonlinear_[material] = card.shown; }
    void orientation(const Card& card);

    // What elements of a section have.
    struct Use
    {
        std::string material, orientation; // in capitals; the second may be empty
        bool shell;
        auto operator<=>(const Use&) const = default;
    };
    // Its index in the list.
    int use(const Use& use);
    // Stress of no material is known, for this reason.
    void refuse(const std::string& why);

    const std::vector<Elasticity>& list() const { return list_; }

private:
    Elasticity made(const Use& use) const;
    Eigen::Matrix<double, 6, 6> stiffness(const Use& use) const;
    Eigen::Matrix3d axes(const std::string& orientation) const;

    std::map<std::string, std::vector<Card>> elastic_;
    std::map<std::string, std::string> nonlinear_; // the card
    std::map<std::string, Card> orientations_;
    std::map<Use, int> index_;
    std::vector<Elasticity> list_;
};

// Whether a card makes a material more than linear elastic.
bool is_nonlinear(const std::string& keyword);

} // namespace zel_fem::ccx

#endif
