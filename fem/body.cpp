// Fills a database through the library's setters, node by node in ascending order so that every mode is written as one run,
// and lets the library write it.
#include "fem/body.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <set>
#include <unistd.h>

#include "fem/interrupt.h"
#include "fem/stress.h"
#include "zel.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::Vector3d;

constexpr int kSpokes = 12; // faces from a reference node to nodes that follow it
constexpr int kRigidModes = 6;
constexpr Index kModesAtOnce = 8;

std::vector<char> used_nodes(const Mesh& mesh)
{
    std::vector<char> used(mesh.nodes.size());
    for (const Element& element : mesh.elements)
        for (int i = 0; i < node_count(element.type->shape); ++i)
            used[size_t(element.nodes[size_t(i)])] = 1;
    return used;
}

static void require(int done, const char* what)
{
    if (!done)
        throw std::runtime_error(std::string("the library cannot store ") + what);
}

struct Unlink
{
    void operator()(ZELDATA* db) const { ZEL_UnLink(db); }
};
using Database = std::unique_ptr<ZELDATA, Unlink>;

// For the length of a scope, keeps from the message handler of the thread what the reduction brings about itself: reference nodes
// have no mass and may lie at the origin, and rigid modes have no stress. Nothing is kept where there is no handler.
class ExpectedMessagesAside
{
public:
    explicit ExpectedMessagesAside(const Body& body) : body_(body), handler_(ZEL_MessageHandler(&context_))
    {
        if (handler_)
            ZEL_SetMessageHandler(take, this);
    }
    ~ExpectedMessagesAside()
    {
        if (handler_)
            ZEL_SetMessageHandler(handler_, context_);
    }
    ExpectedMessagesAside(const ExpectedMessagesAside&) = delete;
    ExpectedMessagesAside& operator=(const ExpectedMessagesAside&) = delete;

private:
    static void take(void* self, int severity, const char* text)
    {
        auto& aside = *static_cast<ExpectedMessagesAside*>(self);
        const bool goes_on = std::strspn(text, " 0123456789.,\n") == std::strlen(text); // a list behind a message
        aside.dropped_ = severity == ZEL_MESSAGE_WARNING && ((aside.dropped_ && goes_on) || aside.is_expected(text));
        if (!aside.dropped_)
            aside.handler_(aside.context_, severity, text);
    }
    bool is_expected(const char* text) const
    {
        int number = 0;
        if (std::sscanf(text, "Found %d massless", &number) == 1)
            return number <= int(body_.interfaces.size());
        if (std::sscanf(text, "Found %d node(s) with coordinates (0,0,0)", &number) == 1)
            return number - std::count_if(body_.interfaces.begin(), body_.interfaces.end(),
                                          [](const Interface& i) { return i.at.isZero(0.0); }) <
                   2;
        return (std::sscanf(text, "The modal stresses for mode %d have only zero", &number) == 1 ||
                std::sscanf(text, "The modal strains for mode %d have only zero", &number) == 1) &&
               body_.interfaces.empty() && number <= kRigidModes && body_.stiffness(number - 1, number - 1) == 0.0;
    }

    const Body& body_;
    void* context_ = nullptr;
    ZELMESSAGEHANDLER handler_;
    bool dropped_ = false; // the last message
};

// For the length of a scope, passes on how far the library is. What the listener throws waits until the library has ended.
class ProgressOfTheLibrary
{
public:
    explicit ProgressOfTheLibrary(Progress& progress) : progress_(progress), handler_(ZEL_ProgressHandler(&context_))
    {
        ZEL_SetProgressHandler(take, this);
    }
    ~ProgressOfTheLibrary() { ZEL_SetProgressHandler(handler_, context_); }
    ProgressOfTheLibrary(const ProgressOfTheLibrary&) = delete;
    ProgressOfTheLibrary& operator=(const ProgressOfTheLibrary&) = delete;
    void rethrow() const
    {
        if (thrown_)
            std::rethrow_exception(thrown_);
    }

private:
    static int take(void* self, double done, double total)
    {
        auto& of = *static_cast<ProgressOfTheLibrary*>(self);
        try
        {
            of.progress_.advance(total > 0.0 ? done / total : -1.0);
        }
        catch (...)
        {
            of.thrown_ = std::current_exception();
        }
        return of.thrown_ ? 1 : 0;
    }

    Progress& progress_;
    std::exception_ptr thrown_;
    void* context_ = nullptr;
    ZELPROGRESSHANDLER handler_;
};

// Some of the tied nodes, spread evenly: each next one is the farthest from those that were taken before.
static std::vector<int> spread_nodes(const Mesh& mesh, const Interface& interface)
{
    std::vector<int> taken;
    std::vector<double> distance;
    for (int node : interface.tied)
        distance.push_back((mesh.nodes[size_t(node)].at - interface.at).norm());
    while (taken.size() < size_t(kSpokes))
    {
        const auto farthest = std::max_element(distance.begin(), distance.end());
        if (farthest == distance.end() || *farthest <= 0.0)
            break;
        taken.push_back(interface.tied[size_t(farthest - distance.begin())]);
        for (size_t i = 0; i < distance.size(); ++i)
        {
            const Vector3d between = mesh.nodes[size_t(interface.tied[i])].at - mesh.nodes[size_t(taken.back())].at;
            distance[i] = std::min(distance[i], between.norm());
        }
    }
    return taken;
}

// A node as the file has it: one of the mesh or the reference node of an interface.
struct BodyNode
{
    int id;
    Vector3d at;
    int node;      // of the mesh, -1 for a reference node
    int interface; // -1 for a node of the mesh
};

static std::vector<BodyNode> body_nodes(const Body& body)
{
    const Mesh& mesh = body.mesh;
    std::vector<BodyNode> nodes;
    std::set<int> references;
    for (size_t j = 0; j < body.interfaces.size(); ++j)
    {
        references.insert(body.interfaces[j].reference_id);
        nodes.push_back({body.interfaces[j].reference_id, body.interfaces[j].at, -1, int(j)});
    }
    const std::vector<char> used = used_nodes(mesh);
    for (size_t i = 0; i < mesh.nodes.size(); ++i)
        if (used[i] && !references.count(mesh.nodes[i].id))
            nodes.push_back({mesh.nodes[i].id, mesh.nodes[i].at, int(i), -1});
    std::sort(nodes.begin(), nodes.end(), [](const BodyNode& a, const BodyNode& b) { return a.id < b.id; });
    return nodes;
}

static void set_nodes(ZELDATA* db, const Body& body, const std::vector<BodyNode>& nodes)
{
    for (const BodyNode& n : nodes)
        require(ZEL_SetNodeCoordinates(db, n.id, n.at[0], n.at[1], n.at[2]), "a node");
    for (const BodyNode& n : nodes)
    {
        const int node = n.node >= 0 ? n.node : body.interfaces[size_t(n.interface)].reference;
        require(ZEL_SetNodalMass(db, n.id, node >= 0 ? body.nodes.masses[size_t(node)] : 0.0), "a nodal mass");
        if (node >= 0 && !body.nodes.second[size_t(node)].isZero(0.0))
        {
            const Eigen::Matrix3d& s = body.nodes.second[size_t(node)];
            require(ZEL_SetNodalInertia(db, n.id, s(1, 1) + s(2, 2), s(0, 0) + s(2, 2), s(0, 0) + s(1, 1), -s(0, 1),
                                        -s(0, 2), -s(1, 2)),
                    "a nodal inertia");
        }
    }
    for (const Interface& interface : body.interfaces)
        require(ZEL_SetInterfaceNode(db, interface.reference_id), "an interface node");
}

static void set_faces(ZELDATA* db, const Body& body)
{
    const Mesh& mesh = body.mesh;
    std::vector<int> ids;
    for (const Face& face : skin(mesh))
    {
        ids.clear();
        for (int node : face)
            ids.push_back(mesh.nodes[size_t(node)].id);
        require(ZEL_SetFaceList(db, int(ids.size()), ids.data()), "a face");
    }
    for (const Interface& interface : body.interfaces)
        for (int node : spread_nodes(mesh, interface))
        {
            const int spoke[2] = {interface.reference_id, mesh.nodes[size_t(node)].id};
            require(ZEL_SetFaceList(db, 2, spoke), "a face");
        }
}

static void set_modes(ZELDATA* db, const Body& body, const std::vector<BodyNode>& nodes)
{
    for (Index mode = 0; mode < body.motion.cols(); ++mode)
        for (const BodyNode& n : nodes)
        {
            double values[6] = {};
            Eigen::Map<Eigen::Matrix<double, 6, 1>> v(values);
            if (n.interface >= 0)
                v = body.reference_motion.col(mode).segment<6>(6 * n.interface);
            else
            {
                v.head<3>() = body.motion.col(mode).segment<3>(3 * n.node);
                if (body.rotation.size() > 0)
                    v.tail<3>() = body.rotation.col(mode).segment<3>(3 * n.node);
            }
            require(ZEL_SetModeVec(db, int(mode) + 1, n.id, ZEL_MODE_SHAPE, values), "a mode shape");
        }
    for (Index mode = 0; mode < body.stress.cols(); ++mode)
        for (const BodyNode& n : nodes)
            if (n.node >= 0)
                require(ZEL_SetModeVec(db, int(mode) + 1, n.id, ZEL_MODAL_STRESS,
                                       body.stress.col(mode).data() + 6 * n.node),
                        "a modal stress");
}

static void set_tensors(ZELDATA* db, const std::vector<BodyNode>& nodes, const std::vector<char>& known, Index mode,
                        int kind, const Eigen::Ref<const Eigen::VectorXd>& values)
{
    for (const BodyNode& n : nodes)
        if (n.node >= 0 && known[size_t(n.node)])
            require(ZEL_SetModeVec(db, int(mode) + 1, n.id, kind, values.data() + 6 * n.node),
                    kind == ZEL_MODAL_STRESS ? "a modal stress" : "a modal strain");
}

static void set_computed_stress(ZELDATA* db, const Body& body, const std::vector<BodyNode>& nodes)
{
    const ModalStress modal(body);
    for (Index first = 0; first < body.motion.cols(); first += kModesAtOnce)
    {
        const Index count = std::min(kModesAtOnce, body.motion.cols() - first);
        const StressField field = modal.of(first, count);
        for (Index k = 0; k < count; ++k)
        {
            if (body.recovery->stress)
                set_tensors(db, nodes, modal.known(), first + k, ZEL_MODAL_STRESS, field.stress.col(k));
            if (body.recovery->strain)
                set_tensors(db, nodes, modal.known(), first + k, ZEL_MODAL_STRAIN, field.strain.col(k));
        }
    }
}

// Exact zeros off the diagonals are left out: the database takes a missing entry for zero.
static void set_matrices(ZELDATA* db, const Body& body)
{
    for (Index row = 0; row < body.mass.rows(); ++row)
        for (Index column = 0; column < body.mass.cols(); ++column)
        {
            const int r = int(row) + 1, c = int(column) + 1;
            if (row == column || body.stiffness(row, column) != 0.0)
                require(ZEL_SetGeneralizedStiffness(db, r, c, body.stiffness(row, column)), "a stiffness");
            if (row == column || body.mass(row, column) != 0.0)
                require(ZEL_SetGeneralizedMass(db, r, c, body.mass(row, column)), "a generalized mass");
            if (body.damping.size() > 0 && body.damping(row, column) != 0.0)
                require(ZEL_SetGeneralizedDamping(db, r, c, body.damping(row, column)), "a generalized damping");
        }
}

static void set_invariants(ZELDATA* db, const Body& body)
{
    constexpr int (*kSetters[])(ZELDATA*, const double*) = {ZEL_SetInvar2, ZEL_SetInvar3, ZEL_SetInvar4, ZEL_SetInvar5,
                                                            nullptr,       ZEL_SetInvar7, ZEL_SetInvar8, ZEL_SetInvar9};
    if (body.invariants[0].empty())
        return;
    require(ZEL_SetInvar1(db, body.invariants[0][0]), "an invariant");
    for (size_t i = 0; i < std::size(kSetters); ++i)
        if (kSetters[i])
            require(kSetters[i](db, body.invariants[i + 1].data()), "an invariant");
}

static void set_loads(ZELDATA* db, const Body& body)
{
    for (size_t i = 0; i < body.loads.size(); ++i)
    {
        for (Index mode = 0; mode < body.loads[i].values.size(); ++mode)
            require(ZEL_SetModalLoad(db, int(i), int(mode) + 1, body.loads[i].values[mode]), "a modal load");
        require(ZEL_SetModalLoadLabel(db, int(i), body.loads[i].label.c_str()), "the label of a load case");
    }
}

static void set_header(ZELDATA* db, const Body& body)
{
    std::string texts[6] = {body.title.empty() ? body.file : body.title, body.file, body.program, "", "", ""};
    require(ZEL_SetHeader(db, texts[0].data(), texts[1].data(), texts[2].data(), texts[3].data(), texts[4].data(),
                          texts[5].data()),
            "the header");
}

void keep_inputs(const std::string& output, const Model& model)
{
    std::error_code absent;
    for (const std::string& input : model.inputs)
        if (std::filesystem::equivalent(input, output, absent))
            throw std::runtime_error("the output is " + input + ", which is read");
}

void check_output(const std::string& output)
{
    namespace fs = std::filesystem;
    std::error_code problem;
    const fs::path whole = fs::absolute(output, problem), place = fs::weakly_canonical(whole, problem);
    const fs::path folder = (problem ? whole : place).parent_path();
    const bool special = fs::exists(place, problem) && !fs::is_regular_file(place, problem);
    int why = fs::is_directory(place, problem) ? EISDIR : 0;
    if (why == 0 && access((special ? place : folder).c_str(), W_OK) != 0)
        why = errno;
    else if (why == 0 && !special && !fs::is_directory(folder, problem))
        why = ENOTDIR;
    if (why != 0)
        throw std::runtime_error(output + " cannot be written: " + std::strerror(why));
}

ZELDATA* fill_database(const ReducedBody& reduced)
{
    const Body& body = *reduced.body;
    const std::vector<BodyNode> nodes = body_nodes(body);
    Database db(ZEL_Create(int(nodes.size()), int(body.motion.cols())));
    if (!db)
        throw std::bad_alloc();
    set_header(db.get(), body);
    require(ZEL_SetUnits(db.get(), body.units.mass.c_str(), body.units.length.c_str(), body.units.time.c_str(),
                         body.units.force.c_str()),
            "the units");
    set_nodes(db.get(), body, nodes);
    set_faces(db.get(), body);
    set_modes(db.get(), body, nodes);
    if (body.recovery)
        set_computed_stress(db.get(), body, nodes);
    set_matrices(db.get(), body);
    set_invariants(db.get(), body);
    set_loads(db.get(), body);
    require(ZEL_CalculateGlobalMassFromNodeMass(db.get()), "the global mass");
    return db.release();
}

std::optional<DampedModes> write_body(const ReducedBody& body, const std::string& output, const std::string& options,
                                      Progress& progress, const std::optional<Damping>& damping)
{
    progress.begin("write the file");
    if (damping && body.body->damping.size() > 0)
        throw std::runtime_error("the model has dashpots, which are its damping: other damping would take their place");
    const Database db(fill_database(body));
    const UnfinishedOutput unfinished(output);
    const ExpectedMessagesAside aside(*body.body);
    const ProgressOfTheLibrary of_the_library(progress);
    std::optional<DampedModes> damped;
    if (damping)
        damped = set_damping(db.get(), *damping, options);
    if (ZEL_WriteWithOptions(db.get(), output.c_str(), options.c_str()))
        return damped;
    of_the_library.rethrow();
    throw std::runtime_error(output + " cannot be written");
}

} // namespace zel_fem
