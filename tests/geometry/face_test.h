// Bodies of faces for the tests of geometry.
#ifndef FACE_TEST_H
#define FACE_TEST_H

#include "fixtures.h"

using Face = std::vector<int>; // node indexes
using Faces = std::vector<Face>;

class FaceTest : public FileTest
{
protected:
    ZELDATA* db = ZEL_Create(0, 0);
    int stride = 1, first = 1;

    int id_of(int node) const { return stride * node + first; }
    void anew()
    {
        ZEL_UnLink(db);
        db = ZEL_Create(0, 0);
    }
    void add_node(double x, double y, double z)
    {
        ASSERT_TRUE(ZEL_SetNodeCoordinates(db, id_of(db->node_count), x, y, z));
    }
    void add_face(Face nodes, unsigned flags = 0)
    {
        for (int& node : nodes)
            node = id_of(node);
        const int at = db->face_list_length;
        ASSERT_TRUE(ZEL_SetFaceList(db, int(nodes.size()), nodes.data()));
        db->face_list[at] = int(unsigned(db->face_list[at]) | flags << 30);
    }
    // The six quadrilaterals, outward, of a hexahedron with corners 0-3 below and 4-7 above, each counter-clockwise.
    void add_hexahedron(const int (&n)[8])
    {
        for (const Face& side :
             Faces{{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}})
            add_face({n[side[0]], n[side[1]], n[side[2]], n[side[3]]});
    }
    // The skin of the hexahedra of an nx x ny x nz grid of unit cells for which is_solid(x, y, z).
    void add_block(
        int nx, int ny, int nz, const std::function<bool(int, int, int)>& is_solid = [](int, int, int) { return true; })
    {
        const auto node = [=](int x, int y, int z) { return (z * (ny + 1) + y) * (nx + 1) + x; };
        for (int i = 0; i < (nx + 1) * (ny + 1) * (nz + 1); ++i)
            add_node(i % (nx + 1), i / (nx + 1) % (ny + 1), i / (nx + 1) / (ny + 1));
        for (int i = 0; i < nx * ny * nz; ++i)
        {
            const int x = i % nx, y = i / nx % ny, z = i / nx / ny;
            if (is_solid(x, y, z))
                add_hexahedron({node(x, y, z), node(x + 1, y, z), node(x + 1, y + 1, z), node(x, y + 1, z),
                                node(x, y, z + 1), node(x + 1, y, z + 1), node(x + 1, y + 1, z + 1),
                                node(x, y + 1, z + 1)});
        }
        ZEL_StripCommonFaces(db);
    }

    Face words() const { return {db->face_list, db->face_list + db->face_list_length}; }
    Faces faces() const
    {
        Faces all;
        for (const int* at = db->face_list; at < db->face_list + db->face_list_length; at += 1 + all.back().size())
            all.emplace_back(at + 1, at + 1 + (*at & ZEL_FACE_VERTICES));
        EXPECT_EQ(int(all.size()), db->face_count);
        return all;
    }
    std::set<int> face_nodes() const
    {
        std::set<int> nodes;
        for (const Face& face : faces())
            nodes.insert(face.begin(), face.end());
        return nodes;
    }
    // Whether every directed edge is used as often as its opposite, and no face visits a node twice.
    bool is_closed() const
    {
        std::map<std::pair<int, int>, int> balance;
        for (const Face& face : faces())
        {
            if (std::set<int>(face.begin(), face.end()).size() != face.size())
                return false;
            for (size_t i = 0; i < face.size(); ++i)
            {
                const int a = face[i], b = face[(i + 1) % face.size()];
                balance[std::minmax(a, b)] += a < b ? 1 : -1;
            }
        }
        return std::all_of(balance.begin(), balance.end(), [](const auto& edge) { return edge.second == 0; });
    }
};

#endif
