// Coarsening of the face mesh: the request and its messages, and the sequence of steps. Nodes move together within the
// cells of a grid, faces follow them, faces in a plane are merged, straight edges lose their inner vertices, and polygons
// that are not convex are cut into triangles.
// Time F log F and memory F for F face vertices.
#include "coarsening.h"
#include "database/database.h"

#include <cctype>
#include <charconv>
#include <numbers>

namespace zel
{

static constexpr char kPreserve[] = "preserve_str";

namespace
{
struct Request
{
    double resolution; // [%]
    double angle;      // [degrees]
    const char* kept;  // text of node ids, null: no nodes to keep were asked for
};
} // namespace

// ---- Request ------------------------------------------------------------------------------------------------------

static bool is_separator(char c)
{
    return c == ',' || std::isspace(static_cast<unsigned char>(c));
}

// The next word of a text, without separators; empty at the end.
struct Word
{
    const char *begin, *end;
};
static Word next_word(const char* text, const char* end)
{
    while (text < end && is_separator(*text))
        ++text;
    const char* stop = text;
    while (stop < end && !is_separator(*stop))
        ++stop;
    return {text, stop};
}

// A decimal number, whatever the locale; false for another word. One beyond the range of a double is infinite.
static bool parse(const Word& word, double& value)
{
    const auto [stop, error] = std::from_chars(word.begin, word.end, value);
    if (error == std::errc::result_out_of_range)
        value = HUGE_VAL;
    return stop == word.end && error != std::errc::invalid_argument;
}

static int parse_request(const char* text, Request& request)
{
    const char* const preserve = text ? std::strstr(text, kPreserve) : nullptr;
    const char* const end = preserve ? preserve : text ? text + std::strlen(text) : nullptr;
    const Word first = next_word(text, end);
    if (!parse(first, request.resolution))
        return fail("Problem encountered while trimming geometry\n");
    if (!parse(next_word(first.end, end), request.angle))
        request.angle = 0.0;
    request.kept = preserve ? preserve + std::strlen(kPreserve) : nullptr;
    return 1;
}

static int check_request(const Request& request)
{
    constexpr double kMostResolution = 50.0, kMostAngle = 45.0;
    if (!(request.resolution >= 0.0 && request.resolution <= kMostResolution))
        return fail("Coarsening resolution outside the 0-50 percent range not supported.  You selected %lf\n",
                    request.resolution);
    if (!(request.angle >= 0.0 && request.angle <= kMostAngle))
        return fail("Face angles outside the 0-45 degree range not supported.  You selected %lf\n", request.angle);
    return 1;
}

// ---- Nodes to keep ------------------------------------------------------------------------------------------------

// Marks the nodes that were asked for and lists them.
static void mark_asked(const ZELDATA* db, const char* ids, char* keep)
{
    bool any = false;
    const auto mark = [&](int node) {
        if (node < 0 || keep[node])
            return;
        if (!any)
            ZEL_Info("Preserving nodes:");
        any = true;
        keep[node] = 1;
        ZEL_Info("   %d", db->nodes[node].id);
    };
    const char* const end = ids + std::strlen(ids);
    Word word = next_word(ids, end);
    if (word.begin == end)
        for (int kind : {ZEL_MODAL_STRESS, ZEL_MODAL_STRAIN})
            for (int i = 0; i < db->mode_node_count[kind]; ++i)
                mark(int(db->mode_nodes[kind][i] - db->nodes));
    for (; word.begin < end; word = next_word(word.end, end))
    {
        int node_id = 0;
        const auto [stop, error] = std::from_chars(word.begin, word.end, node_id);
        if (error == std::errc() && stop == word.end)
            mark(find_node(db, node_id));
    }
}

// ---- Surface ------------------------------------------------------------------------------------------------------

// Marks the nodes on faces with 1 and counts them; -1 when a face runs beyond the list or has a node that there is not.
static int32_t mark_face_nodes(const FaceWords& list, int32_t* is_used)
{
    int32_t faces = 0, nodes = 0;
    for (int64_t at = 0; at < list.length; ++faces)
    {
        const int64_t end = at + 1 + vertex_count(list.words[at]);
        if (end > list.length || end == at + 1)
            return -1;
        for (++at; at < end; ++at)
        {
            const int32_t node = list.words[at];
            if (node < 0 || node >= list.node_count)
                return -1;
            nodes += !std::exchange(is_used[node], 1);
        }
    }
    return faces == list.face_count ? nodes : -1;
}

namespace
{
// The nodes on faces, numbered from 0.
struct FaceNodes
{
    Scratch<Vector> points;
    Scratch<char> keep;
    Scratch<int32_t> index; // in the node table
    explicit FaceNodes(int32_t count) : points(count), keep(count), index(count) {}
    bool allocated() const { return points.data && keep.data && index.data; }
};
} // namespace

// Replaces every node index in a list of faces by what number(index) gives.
template <typename Number> static void renumber(int32_t* words, int32_t length, Number number)
{
    for (int64_t at = 0; at < length;)
        for (const int64_t end = at + vertex_count(words[at]); at++ < end;)
            words[at] = number(words[at]);
}

// number [node_count of the database]: 1 for the nodes on faces, then their numbers on the surface plus 1.
static void fill_nodes(const ZELDATA* db, int32_t* number, const char* keep, FaceNodes& nodes)
{
    int32_t count = 0;
    for (int32_t node = 0; node < db->node_count; ++node)
    {
        if (!number[node])
            continue;
        nodes.points[count] = {db->nodes[node].x, db->nodes[node].y, db->nodes[node].z};
        nodes.keep[count] = keep[node];
        nodes.index[count] = node;
        number[node] = ++count;
    }
}

// Makes the surface of the faces.
static int coarsen(Surface& surface, const FaceWords& faces, const Request& request)
{
    constexpr double kLeastAngle = 0.01, kDegree = std::numbers::pi / 180.0;
    Scratch<int32_t> target(surface.node_count);
    Scratch<char> twins(faces.length);
    if (!target.data || !twins.data)
        return no_memory(module_word::coarsening);
    constexpr int kSteps = 6;
    Progress progress(kSteps);
    if (!find_opposite_faces(faces, twins.data) || !progress.step() ||
        !cluster_nodes(surface, faces, twins.data, request.resolution, target.data) || !progress.step() ||
        !map_faces(surface, faces, twins.data, target.data) || !progress.step())
        return 0;
    Scratch<int32_t> merged(surface.face_count);
    if (!merged.data)
        return no_memory(module_word::coarsening);
    return merge_planar_faces(surface, std::max(request.angle, kLeastAngle) * kDegree, merged) && progress.step() &&
           (request.kept || drop_straight_vertices(surface)) && progress.step() &&
           clip_merged_faces(surface, merged.data);
}

// Replaces the faces by coarser ones. keep: 1 for the nodes that must stay.
static int coarsen_faces(ZELDATA* db, const Request& request, const char* keep)
{
    Scratch<int32_t> number(db->node_count);
    if (!number.data)
        return no_memory(module_word::coarsening);
    const int32_t count = mark_face_nodes(faces_of(db), number.data);
    if (count < 0)
        return no_memory(module_word::coarsening);
    FaceNodes nodes(count);
    if (!nodes.allocated())
        return no_memory(module_word::coarsening);
    fill_nodes(db, number.data, keep, nodes);

    // For the time of the work, the face list itself bears the numbers of the surface: a copy would double the memory.
    Surface surface(count, nodes.points.data, nodes.keep.data);
    renumber(db->face_list, db->face_list_length, [&](int32_t node) { return number[node] - 1; });
    const auto index_of = [&](int32_t node) { return nodes.index[node]; };
    if (!coarsen(surface, {db->face_list, db->face_list_length, db->face_count, count}, request))
    {
        renumber(db->face_list, db->face_list_length, index_of);
        return 0;
    }
    renumber(surface.words, surface.length, index_of);
    install_faces(db, std::exchange(surface.words, nullptr), surface.face_count, surface.length, surface.length);
    return 1;
}

static int trim(ZELDATA* db, const Request& request)
{
    Scratch<char> keep(db->node_count);
    if (!keep.data)
        return no_memory(module_word::coarsening);
    if (request.kept)
        mark_asked(db, request.kept, keep.data);
    for (int32_t i = 0; i < db->interface_count; ++i)
        keep[db->interface_nodes[i]] = 1;
    return db->face_count == 0 || coarsen_faces(db, request, keep.data);
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_TrimGeometry(ZELDATA* db, const char* text)
{
    if (!db)
        return no_database();
    Request request;
    if (!parse_request(text, request) || !check_request(request))
        return 0;
    const char* const lines = request.kept ? "" : " and co-linear vertex removal";
    ZEL_Info("Coarsening to resolution %d%% with face-angle %5.2lf deg%s", int(request.resolution), request.angle,
             lines);
    const int faces = db->face_count;
    const LongOperation operation;
    if (!trim(db, request))
        return is_ended() ? 0 : fail("Problem encountered while trimming geometry\n");
    ZEL_Info("\nFace reduction from %d to %d", faces, db->face_count);
    return 1;
}

const char* zelcoarse_VersionId(void)
{
    return "zelcoarse " ZEL_VERSION;
}
