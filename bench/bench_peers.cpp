// The formats that people would use instead: one body of 100 000 nodes x 100 modes is written from memory (filling a database
// or a library's buffers included), opened, read one mode in ten, and read at one node over all modes, and at 50 nodes over all
// modes; through zel (portable and native), HDF5 (contiguous, and chunked by mode), Exodus II, and plain pwrite and pread.
// All formats take turns in every pass, the fastest pass counts, and everything is in the page cache. A solver opens one body: that is
// measured in processes of their own as well.
//   build/.../bench/peers [nodes [modes [passes]]]
#include "harness.h"
#include "zel.h"

#include <exodusII.h>
#include <fcntl.h>
#include <hdf5.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

namespace
{
constexpr int kComponents = 6, kSomeNodes = 50;

struct Body
{
    int nodes, modes;
    std::vector<int> ids;
    std::vector<double> coordinates, masses, eigenvalues, shapes; // shapes: [modes][nodes][6]
    const double* shape(int mode) const { return shapes.data() + int64_t(mode) * vector_length(); }
    int64_t vector_length() const { return kComponents * int64_t(nodes); }
};

Body body_of(int nodes, int modes)
{
    Body body = {nodes, modes, std::vector<int>(size_t(nodes)), {}, {}, {}, {}};
    std::iota(body.ids.begin(), body.ids.end(), 1);
    for (int id : body.ids)
        body.coordinates.insert(body.coordinates.end(), {id % 100 + 0.5, id / 100 % 100 + 0.25, id / 10000 + 0.125});
    body.masses.assign(size_t(nodes), 1.0 / nodes);
    body.shapes.resize(size_t(body.vector_length() * modes));
    for (size_t i = 0; i < body.shapes.size(); ++i)
        body.shapes[i] = double((i * 7919) % 100003) * 1e-5 - 0.5;
    for (int mode = 0; mode < modes; ++mode)
        body.eigenvalues.push_back(1e4 * (mode + 1));
    return body;
}

void check(bool fine, const char* what)
{
    if (fine)
        return;
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

// What every format does. Positions of nodes and modes count from 0; values are six a node.
class Format
{
public:
    virtual ~Format() = default;
    virtual void write(const Body& body, const std::string& path) = 0;
    virtual void open(const Body& body, const std::string& path) = 0; // and read ids, coordinates and masses
    virtual void read_mode(int mode, double* out) = 0;
    virtual void read_nodes(const std::vector<int>& nodes, double* out) = 0; // over all modes
    virtual void close() = 0;

protected:
    // What a format that hands out arrays fills when it is opened.
    struct Arrays
    {
        std::vector<int> ids;
        std::vector<double> coordinates, masses;
        explicit Arrays(int nodes = 0) : ids(size_t(nodes)), coordinates(3 * size_t(nodes)), masses(size_t(nodes)) {}
    };
    Arrays arrays_;
    int nodes_ = 0, modes_ = 0;
    void begin(const Body& body)
    {
        arrays_ = Arrays(body.nodes);
        nodes_ = body.nodes;
        modes_ = body.modes;
    }
};

// ---- The formats -------------------------------------------------------------------------------------------------------

class Zel : public Format
{
public:
    explicit Zel(const char* options) : options_(options) {}

    void write(const Body& body, const std::string& path) override
    {
        ZELDATA* db = ZEL_Create(body.nodes, body.modes);
        check(ZEL_SetNodes(db, body.nodes, body.ids.data(), body.coordinates.data()), "ZEL_SetNodes");
        check(ZEL_SetNodalMasses(db, body.nodes, body.ids.data(), body.masses.data()), "ZEL_SetNodalMasses");
        for (int mode = 0; mode < body.modes; ++mode)
        {
            check(ZEL_SetModeArray(db, mode + 1, ZEL_MODE_SHAPE, body.nodes, body.ids.data(), body.shape(mode),
                                   kComponents),
                  "ZEL_SetModeArray");
            ZEL_SetGeneralizedMass(db, mode + 1, mode + 1, 1.0);
            ZEL_SetGeneralizedStiffness(db, mode + 1, mode + 1, body.eigenvalues[size_t(mode)]);
        }
        check(ZEL_WriteWithOptions(db, path.c_str(), options_), "ZEL_WriteWithOptions");
        ZEL_UnLink(db);
    }
    void open(const Body&, const std::string& path) override
    {
        db_ = ZEL_CreateFromZEL(path.c_str());
        check(db_ != nullptr, "ZEL_CreateFromZEL");
    }
    void read_mode(int mode, double* out) override
    {
        check(ZEL_Read_Mode_Double(db_, mode + 1, ZEL_MODE_SHAPE, out), "ZEL_Read_Mode_Double");
    }
    void read_nodes(const std::vector<int>& nodes, double* out) override
    {
        std::vector<int> ids;
        for (int node : nodes)
            ids.push_back(node + 1);
        check(ZEL_ModesOfNodes(db_, ZEL_MODE_SHAPE, int(ids.size()), ids.data(), ZEL_ModeCount(db_), nullptr, out),
              "ZEL_ModesOfNodes");
    }
    void close() override { ZEL_UnLink(db_); }

private:
    const char* options_;
    ZELDATA* db_ = nullptr;
};

class Hdf5 : public Format
{
public:
    explicit Hdf5(bool chunked) : chunked_(chunked) {}

    void write(const Body& body, const std::string& path) override
    {
        const hid_t file = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
        const hsize_t nodes = hsize_t(body.nodes), modes = hsize_t(body.modes);
        put(file, "ids", H5T_NATIVE_INT, {nodes}, body.ids.data());
        put(file, "coordinates", H5T_NATIVE_DOUBLE, {nodes, 3}, body.coordinates.data());
        put(file, "masses", H5T_NATIVE_DOUBLE, {nodes}, body.masses.data());
        put(file, "eigenvalues", H5T_NATIVE_DOUBLE, {modes}, body.eigenvalues.data());
        const hsize_t extent[] = {modes, nodes, kComponents}, chunk[] = {1, nodes, kComponents};
        const hid_t space = H5Screate_simple(3, extent, nullptr), list = H5Pcreate(H5P_DATASET_CREATE);
        if (chunked_)
            H5Pset_chunk(list, 3, chunk);
        const hid_t set = H5Dcreate2(file, "modes", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, list, H5P_DEFAULT);
        const hid_t memory = H5Screate_simple(3, chunk, nullptr);
        for (hsize_t mode = 0; mode < modes; ++mode) // one after the other, as a solver finds them
        {
            const hsize_t start[] = {mode, 0, 0};
            H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, chunk, nullptr);
            check(H5Dwrite(set, H5T_NATIVE_DOUBLE, memory, space, H5P_DEFAULT, body.shape(int(mode))) >= 0, "H5Dwrite");
        }
        H5Sclose(memory);
        H5Dclose(set);
        H5Pclose(list);
        H5Sclose(space);
        check(H5Fclose(file) >= 0, "H5Fclose");
    }
    void open(const Body& body, const std::string& path) override
    {
        begin(body);
        file_ = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
        get("ids", H5T_NATIVE_INT, arrays_.ids.data());
        get("coordinates", H5T_NATIVE_DOUBLE, arrays_.coordinates.data());
        get("masses", H5T_NATIVE_DOUBLE, arrays_.masses.data());
        set_ = H5Dopen2(file_, "modes", H5P_DEFAULT);
        check(set_ >= 0, "H5Dopen2");
    }
    void read_mode(int mode, double* out) override
    {
        const hsize_t start[] = {hsize_t(mode), 0, 0}, count[] = {1, hsize_t(nodes_), kComponents};
        const hid_t space = H5Dget_space(set_), memory = H5Screate_simple(3, count, nullptr);
        H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr);
        check(H5Dread(set_, H5T_NATIVE_DOUBLE, memory, space, H5P_DEFAULT, out) >= 0, "H5Dread");
        H5Sclose(memory);
        H5Sclose(space);
    }
    void read_nodes(const std::vector<int>& nodes, double* out) override
    {
        const hsize_t whole[] = {hsize_t(modes_), hsize_t(nodes.size()), kComponents};
        const hid_t space = H5Dget_space(set_), memory = H5Screate_simple(3, whole, nullptr);
        H5Sselect_none(space);
        for (int node : nodes)
        {
            const hsize_t start[] = {0, hsize_t(node), 0}, count[] = {hsize_t(modes_), 1, kComponents};
            H5Sselect_hyperslab(space, H5S_SELECT_OR, start, nullptr, count, nullptr);
        }
        check(H5Dread(set_, H5T_NATIVE_DOUBLE, memory, space, H5P_DEFAULT, out) >= 0, "H5Dread");
        H5Sclose(memory);
        H5Sclose(space);
    }
    void close() override
    {
        H5Dclose(set_);
        H5Fclose(file_);
    }

private:
    static void put(hid_t file, const char* name, hid_t type, const std::vector<hsize_t>& extent, const void* values)
    {
        const hid_t space = H5Screate_simple(int(extent.size()), extent.data(), nullptr);
        const hid_t set = H5Dcreate2(file, name, type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
        check(H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values) >= 0, "H5Dwrite");
        H5Dclose(set);
        H5Sclose(space);
    }
    void get(const char* name, hid_t type, void* values) const
    {
        const hid_t set = H5Dopen2(file_, name, H5P_DEFAULT);
        check(H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, values) >= 0, "H5Dread");
        H5Dclose(set);
    }
    bool chunked_;
    hid_t file_ = 0, set_ = 0;
};

// A variable for each component and a time step for each mode.
class Exodus : public Format
{
public:
    void write(const Body& body, const std::string& path) override
    {
        int computed = 8, stored = 8;
        const int file = ex_create(path.c_str(), EX_CLOBBER | EX_LARGE_MODEL, &computed, &stored);
        check(file >= 0 && ex_put_init(file, "body", 3, body.nodes, 0, 0, 0, 0) >= 0, "ex_put_init");
        const size_t nodes = size_t(body.nodes);
        std::vector<double> planes(std::max(3, kComponents) * nodes);
        split(body.coordinates.data(), nodes, 3, planes.data());
        ex_put_coord(file, planes.data(), &planes[nodes], &planes[2 * nodes]);
        ex_put_id_map(file, EX_NODE_MAP, body.ids.data());
        ex_put_variable_param(file, EX_NODAL, kComponents + 1);
        for (int mode = 0; mode < body.modes; ++mode)
        {
            ex_put_time(file, mode + 1, &body.eigenvalues[size_t(mode)]);
            split(body.shape(mode), nodes, kComponents, planes.data());
            for (int c = 0; c < kComponents; ++c)
                check(ex_put_nodal_var(file, mode + 1, c + 1, body.nodes, &planes[size_t(c) * nodes]) >= 0,
                      "ex_put_nodal_var");
        }
        ex_put_nodal_var(file, 1, kComponents + 1, body.nodes, body.masses.data());
        check(ex_close(file) >= 0, "ex_close");
    }
    void open(const Body& body, const std::string& path) override
    {
        begin(body);
        int computed = 8, stored = 0;
        float version;
        file_ = ex_open(path.c_str(), EX_READ, &computed, &stored, &version);
        const size_t nodes = size_t(body.nodes);
        double* const xyz = arrays_.coordinates.data();
        check(file_ >= 0 && ex_get_coord(file_, xyz, xyz + nodes, xyz + 2 * nodes) >= 0, "ex_get_coord");
        ex_get_id_map(file_, EX_NODE_MAP, arrays_.ids.data());
        ex_get_nodal_var(file_, 1, kComponents + 1, nodes_, arrays_.masses.data());
    }
    void read_mode(int mode, double* out) override
    {
        std::vector<double> plane(static_cast<size_t>(nodes_));
        for (int c = 0; c < kComponents; ++c)
        {
            check(ex_get_nodal_var(file_, mode + 1, c + 1, nodes_, plane.data()) >= 0, "ex_get_nodal_var");
            for (int64_t node = 0; node < nodes_; ++node)
                out[kComponents * node + c] = plane[size_t(node)];
        }
    }
    void read_nodes(const std::vector<int>& nodes, double* out) override
    {
        std::vector<double> line(static_cast<size_t>(modes_));
        for (size_t i = 0; i < nodes.size(); ++i)
            for (int c = 0; c < kComponents; ++c)
            {
                check(ex_get_nodal_var_time(file_, c + 1, nodes[i] + 1, 1, modes_, line.data()) >= 0,
                      "ex_get_nodal_var_time");
                for (size_t mode = 0; mode < line.size(); ++mode)
                    out[(mode * nodes.size() + i) * kComponents + size_t(c)] = line[mode];
            }
    }
    void close() override { ex_close(file_); }

private:
    static void split(const double* values, size_t nodes, size_t components, double* planes)
    {
        for (size_t c = 0; c < components; ++c)
            for (size_t node = 0; node < nodes; ++node)
                planes[c * nodes + node] = values[components * node + c];
    }
    int file_ = -1;
};

// The same arrays one behind the other: what a file can cost at least.
class Plain : public Format
{
public:
    void write(const Body& body, const std::string& path) override
    {
        const int file = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
        int64_t at = 0;
        const auto put = [&](const void* values, int64_t bytes) {
            for (int64_t done = 0, part; done < bytes; done += part, at += part)
            {
                part = pwrite(file, static_cast<const char*>(values) + done, size_t(bytes - done), at);
                check(part > 0, "pwrite");
            }
        };
        put(body.ids.data(), 4 * int64_t(body.nodes));
        put(body.coordinates.data(), 24 * int64_t(body.nodes));
        put(body.masses.data(), 8 * int64_t(body.nodes));
        put(body.eigenvalues.data(), 8 * int64_t(body.modes));
        for (int mode = 0; mode < body.modes; ++mode)
            put(body.shape(mode), 8 * body.vector_length());
        ::close(file);
    }
    void open(const Body& body, const std::string& path) override
    {
        begin(body);
        file_ = ::open(path.c_str(), O_RDONLY);
        get(arrays_.ids.data(), 4 * int64_t(nodes_), 0);
        get(arrays_.coordinates.data(), 24 * int64_t(nodes_), 4 * int64_t(nodes_));
        get(arrays_.masses.data(), 8 * int64_t(nodes_), 28 * int64_t(nodes_));
    }
    void read_mode(int mode, double* out) override { get(out, 48 * int64_t(nodes_), start_of(mode)); }
    void read_nodes(const std::vector<int>& nodes, double* out) override
    {
        for (int mode = 0; mode < modes_; ++mode)
            for (int node : nodes)
            {
                get(out, 48, start_of(mode) + 48 * int64_t(node));
                out += kComponents;
            }
    }
    void close() override { ::close(file_); }

private:
    int64_t start_of(int mode) const
    {
        return 36 * int64_t(nodes_) + 8 * int64_t(modes_) + 48 * int64_t(nodes_) * mode;
    }
    void get(void* values, int64_t bytes, int64_t at) const
    {
        for (int64_t done = 0, part; done < bytes; done += part)
        {
            part = pread(file_, static_cast<char*>(values) + done, size_t(bytes - done), at + done);
            check(part > 0, "pread");
        }
    }
    int file_ = -1;
};

// ---- The comparison ----------------------------------------------------------------------------------------------------

struct Peer
{
    const char* name;
    std::unique_ptr<Format> format;
    std::string path;
    std::string at(const char* operation) const { return std::string(operation) + ", " + name; }
};

constexpr const char *kWrite = "write", *kDisk = "write to the disk", *kOpen = "open", *kModes = "one mode in ten",
                     *kNode = "one node over all modes", *kNodes = "50 nodes over all modes";

// What others leave in the page cache, zel brings to the disk before the file has its name. To the disk all of them do as much.
void add_write(const Peer& peer, const Body& body, const char* operation)
{
    bench::add(peer.at(operation), 1, [&peer, &body, operation](benchmark::State& state) {
        std::filesystem::remove(peer.path);
        ::sync(); // what others have left to be written is not waited for by this one
        for (auto _ : state)
        {
            peer.format->write(body, peer.path);
            if (operation != kDisk)
                continue;
            const int file = ::open(peer.path.c_str(), O_RDONLY);
            check(file >= 0 && fsync(file) == 0 && ::close(file) == 0, "fsync");
        }
    });
}

void add_open(const Peer& peer, const Body& body)
{
    bench::add(peer.at(kOpen), 1, [&](benchmark::State& state) {
        for (auto _ : state)
            peer.format->open(body, peer.path);
        peer.format->close();
    });
}

void add_modes(const Peer& peer, const Body& body)
{
    bench::add(peer.at(kModes), 1, [&](benchmark::State& state) {
        std::vector<double> values(size_t(body.vector_length()));
        peer.format->open(body, peer.path);
        peer.format->read_mode(0, values.data()); // the first one pays for buffers
        for (auto _ : state)
            for (int mode = 5; mode < body.modes; mode += 10)
                peer.format->read_mode(mode, values.data());
        check(std::equal(values.begin(), values.end(), body.shape((body.modes - 6) / 10 * 10 + 5)), "reading back");
        peer.format->close();
    });
}

void add_nodes(const Peer& peer, const Body& body, const char* operation, const std::vector<int>& nodes)
{
    bench::add(peer.at(operation), 1, [&peer, &body, nodes](benchmark::State& state) {
        std::vector<double> values(nodes.size() * size_t(body.modes) * kComponents);
        peer.format->open(body, peer.path);
        for (auto _ : state)
            peer.format->read_nodes(nodes, values.data());
        for (size_t i = 0; i < values.size(); ++i)
            check(values[i] == body.shape(int(i / (kComponents *
                                                   nodes.size())))[kComponents * nodes[i / kComponents % nodes.size()] +
                                                                   int(i % kComponents)],
                  "reading back");
        peer.format->close();
    });
}

// What a process that does no more than that pays for opening: its first one is the one that counts in a solver. The seconds go to
// standard error.
int open_once(const Peer& peer, const Body& body)
{
    const auto begin = std::chrono::steady_clock::now();
    peer.format->open(body, peer.path);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    std::fprintf(stderr, "%.9f\n", taken.count());
    peer.format->close();
    return 0;
}

// The fastest of several processes, in seconds.
double first_opening(const char* program, const std::vector<Peer>& peers, size_t which, const Body& body)
{
    constexpr int kProcesses = 20;
    std::string command = "exec ";
    command += program;
    command += " --open " + std::to_string(which) + " " + peers[which].path + " " + std::to_string(body.nodes) + " " +
               std::to_string(body.modes) + " 2>&1 >/dev/null";
    double least = INFINITY, seconds = 0.0;
    for (int i = 0; i < kProcesses; ++i)
    {
        FILE* const child = popen(command.c_str(), "r");
        check(child && std::fscanf(child, "%lf", &seconds) == 1, "a process of its own");
        pclose(child);
        least = std::min(least, seconds);
    }
    return least;
}

void compare_first_openings(const char* program, const std::vector<Peer>& peers, const Body& body)
{
    const auto seconds = std::make_shared<std::vector<double>>();
    const auto of = [=, &peers, &body](size_t which) {
        for (size_t i = seconds->size(); i < peers.size(); ++i)
        {
            seconds->push_back(first_opening(program, peers, i, body));
            std::printf("first opening of a process, %-20s %8.2f ms\n", peers[i].name, 1e3 * seconds->back());
        }
        return (*seconds)[which];
    };
    for (size_t zel : {size_t(0), size_t(1)})
    {
        const std::string who = "first opening, " + std::string(peers[zel].name) + " over ";
        bench::at_most(who + "HDF5", 1.1, [=] { return of(zel) / std::min(of(2), of(3)); });
        bench::at_most(who + "Exodus II", 1.0, [=] { return of(zel) / of(4); });
    }
}

void compare(const std::vector<Peer>& peers, const char* operation)
{
    const auto over = [&](size_t zel, const std::vector<size_t>& others) {
        return [&peers, operation, zel, others](const bench::SecondsOf& of) {
            double least = of(peers[others[0]].at(operation));
            for (size_t other : others)
                least = std::min(least, of(peers[other].at(operation)));
            return of(peers[zel].at(operation)) / least;
        };
    };
    for (size_t zel : {size_t(0), size_t(1)})
    {
        const std::string who = std::string(operation) + ", " + peers[zel].name + " over ";
        bench::at_most(who + "HDF5", 1.1, over(zel, {2, 3}));
        bench::at_most(who + "Exodus II", 1.0, over(zel, {4}));
        bench::show(who + "plain", over(zel, {5}));
    }
}

std::vector<Peer> peers_at(const std::string& stem)
{
    std::vector<Peer> peers;
    const auto add = [&](const char* name, Format* format) {
        peers.push_back({name, std::unique_ptr<Format>(format), stem + "_" + std::to_string(peers.size())});
    };
    add("zel", new Zel("no_ortho"));
    add("zel native", new Zel("no_ortho no_xdr"));
    add("HDF5", new Hdf5(false));
    add("HDF5 chunked", new Hdf5(true));
    add("Exodus II", new Exodus);
    add("plain", new Plain);
    return peers;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc == 6 && std::string(argv[1]) == "--open") // PEER PATH NODES MODES
    {
        std::vector<Peer> peers = peers_at("");
        Peer& peer = peers.at(size_t(std::atoi(argv[2])));
        peer.path = argv[3];
        return open_once(peer, {std::atoi(argv[4]), std::atoi(argv[5]), {}, {}, {}, {}, {}});
    }
    bench::start(argc, argv);
    const int nodes = bench::argument(argc, argv, 1, 100000), modes = bench::argument(argc, argv, 2, 100),
              passes = bench::argument(argc, argv, 3, 3);
    const Body body = body_of(nodes, modes);
    const std::string stem =
        (std::filesystem::temp_directory_path() / ("zel_peers_" + std::to_string(getpid()))).string();
    const std::vector<Peer> peers = peers_at(stem);
    std::vector<int> some;
    for (int i = 0; i < kSomeNodes; ++i)
        some.push_back(int((int64_t(i) * 2 + 1) * nodes / (2 * kSomeNodes)));
    for (int pass = 0; pass < passes; ++pass)
        for (const char* operation : {kWrite, kDisk})
            for (const Peer& peer : peers)
                add_write(peer, body, operation);
    for (int pass = 0; pass < 3 * passes; ++pass)
        for (const Peer& peer : peers)
        {
            add_open(peer, body);
            add_modes(peer, body);
            add_nodes(peer, body, kNode, {nodes / 2});
            add_nodes(peer, body, kNodes, some);
        }
    for (const char* operation : {kWrite, kDisk, kOpen, kModes, kNode, kNodes})
        compare(peers, operation);
    compare_first_openings(argv[0], peers, body);
    const auto size_of = [&](size_t peer) { return double(std::filesystem::file_size(peers[peer].path)); };
    bench::at_most("file size, zel over HDF5", 1.1, [&] { return size_of(0) / size_of(2); });
    bench::at_most("file size, zel over Exodus II", 1.0, [&] { return size_of(0) / size_of(4); });
    const int result = bench::run();
    for (const Peer& peer : peers)
        std::filesystem::remove(peer.path);
    ZEL_Terminate();
    return result;
}
