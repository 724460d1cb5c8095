// The file is a sequence of blocks with a header line each: 2C nodes, 3C elements, 100CL results, which end with " -3" in text
// and after a known number of bytes in binary. Text has fixed columns and its numbers touch, so that fields are cut by
// position. Reference nodes and the component ALL are not in the file.
#include "fem/sources/ccx/frd.h"

#include <cstring>
#include <limits>
#include <unordered_map>

namespace zel_fem::ccx
{

constexpr int kMostComponents = 20; // of one result

// Nodes of an element by its type code, from 1.
constexpr int kNodesOfType[] = {0, 8, 6, 4, 20, 15, 10, 3, 6, 4, 8, 2, 3};

// How a block stores its numbers; the last character of its header line.
enum class Form
{
    short_text = 0, // node numbers of 5 characters
    long_text = 1,  // of 10
    floats = 2,
    doubles = 3
};

class FrdReader
{
public:
    explicit FrdReader(const std::string& path) : reader_(path) {}
    FrdFile read();

private:
    std::string_view columns(size_t from, size_t count) const { return trim(column_text(from, count)); }
    std::string_view column_text(size_t from, size_t count) const
    {
        return from < line_.size() ? line_.substr(from, count) : std::string_view();
    }
    int whole(size_t from, size_t count) const { return parse_int(columns(from, count), reader_.place()); }
    double real(size_t from, size_t count) const { return parse_real(columns(from, count), reader_.place()); }
    void need_line();
    Form form() const;
    void read_nodes();
    void skip_elements();
    void read_result();
    // Calls take(node id, values) for each of `count` records of `components` numbers.
    template <typename Take> void records(Form form, int count, int components, Take take);
    FrdSolution& solution();

    LineReader reader_;
    std::string_view line_;
    FrdFile file_;
    std::unordered_map<int, int> index_;
    int step_ = 0, mode_ = 0; // of the result that comes next
    double value_ = 0.0;
};

void FrdReader::need_line()
{
    if (!reader_.next(line_))
        reader_.fail("the file is cut off");
}

Form FrdReader::form() const
{
    const char last = line_.empty() ? ' ' : line_.back();
    if (last < '0' || last > '3')
        reader_.fail("the header line names no known format");
    return Form(last - '0');
}

template <typename Take> void FrdReader::records(Form form, int count, int components, Take take)
{
    double values[kMostComponents] = {};
    if (form == Form::floats || form == Form::doubles)
    {
        const size_t width = form == Form::floats ? sizeof(float) : sizeof(double);
        char bytes[4 + kMostComponents * sizeof(double)];
        for (int i = 0; i < count; ++i)
        {
            if (!reader_.read_raw(bytes, 4 + size_t(components) * width))
                reader_.fail("the file is cut off within binary data");
            int32_t id = 0;
            std::memcpy(&id, bytes, 4);
            for (int c = 0; c < components; ++c)
                if (form == Form::doubles)
                    std::memcpy(&values[c], bytes + 4 + 8 * c, 8);
                else
                {
                    float value = 0.0F;
                    std::memcpy(&value, bytes + 4 + 4 * c, 4);
                    values[c] = double(value);
                }
            take(int(id), values);
        }
        return;
    }
    const size_t id_width = form == Form::short_text ? 5 : 10;
    for (int i = 0; i < count; ++i)
    {
        need_line();
        if (columns(0, 3) != "-1")
            reader_.fail("expected the values of a node");
        const int id = whole(3, id_width);
        for (int c = 0; c < components; ++c)
        {
            if (c > 0 && c % 6 == 0)
                need_line();
            values[c] = real(3 + id_width + 12 * size_t(c % 6), 12);
        }
        take(id, values);
    }
    need_line();
    if (columns(0, 3) != "-3")
        reader_.fail("expected the end of a block");
}

void FrdReader::read_nodes()
{
    const int count = whole(24, 12);
    if (count < 1 || !file_.node_ids.empty())
        reader_.fail("the file must have one block of nodes");
    std::vector<double> coordinates; // grows with what is read, not with what the header says
    records(form(), count, 3, [&](int id, const double* values) {
        if (!index_.try_emplace(id, int(file_.node_ids.size())).second)
            reader_.fail("node " + std::to_string(id) + " occurs twice");
        file_.node_ids.push_back(id);
        coordinates.insert(coordinates.end(), values, values + 3);
    });
    file_.coordinates = Eigen::Map<const Eigen::Matrix3Xd>(coordinates.data(), 3, Eigen::Index(coordinates.size() / 3));
}

void FrdReader::skip_elements()
{
    const int count = whole(24, 12);
    if (form() == Form::floats || form() == Form::doubles)
    {
        for (int i = 0; i < count; ++i)
        {
            int32_t words[4 + 20];
            char* bytes = reinterpret_cast<char*>(words);
            if (!reader_.read_raw(bytes, 16))
                reader_.fail("the file is cut off within binary data");
            if (words[1] < 1 || words[1] > 12)
                reader_.fail("an element of unknown type " + std::to_string(words[1]));
            if (!reader_.read_raw(bytes + 16, 4 * size_t(kNodesOfType[words[1]])))
                reader_.fail("the file is cut off within binary data");
        }
        return;
    }
    do
        need_line();
    while (columns(0, 3) != "-3");
}

// The solution that a result belongs to; further increments of a static step replace the earlier ones.
FrdSolution& FrdReader::solution()
{
    for (FrdSolution& s : file_.solutions)
        if (s.step == step_ && s.mode == mode_)
        {
            s.value = value_;
            return s;
        }
    return file_.solutions.emplace_back(FrdSolution{step_, mode_, value_, {}, {}});
}

// "  100CL", set name 5, value 12, number of nodes 12, text 20, kind 2, step 5, text 10, form 2 characters
void FrdReader::read_result()
{
    value_ = real(12, 12);
    const int count = whole(24, 12);
    const Form how = form();
    need_line(); // " -4  NAME    components, type"
    const std::string name(columns(5, 8));
    const int listed = whole(13, 5);
    if (listed < 1 || listed > kMostComponents)
        reader_.fail("a result of " + std::to_string(listed) + " components");
    int stored = 0;
    for (int i = 0; i < listed; ++i)
    {
        need_line();                             // " -5  NAME    menu, type, row, column, exists"
        stored += columns(33, 5) == "1" ? 0 : 1; // a component that exists is computed from the others, and not stored
    }
    const int components = name == "DISP" ? 3 : name == "STRESS" ? 6 : stored;
    if (components != stored)
        reader_.fail(name + " has " + std::to_string(stored) + " components");
    if (file_.node_ids.empty())
        reader_.fail("results before the nodes");
    Eigen::VectorXd values = Eigen::VectorXd::Constant(Eigen::Index(file_.node_ids.size()) * components,
                                                       std::numeric_limits<double>::quiet_NaN());
    constexpr int kStressOrder[6] = {0, 1, 2, 3, 5, 4}; // xx, yy, zz, xy, yz, zx in the file
    records(how, count, components, [&](int id, const double* v) {
        const auto found = index_.find(id);
        if (found == index_.end())
            reader_.fail("a result at node " + std::to_string(id) + ", which the file does not define");
        for (int c = 0; c < components; ++c)
        {
            if (!std::isfinite(v[c]))
                reader_.fail("a result at node " + std::to_string(id) + " is not finite");
            values[Eigen::Index(found->second) * components + (components == 6 ? kStressOrder[c] : c)] = v[c];
        }
    });
    if (name == "DISP")
        solution().displacement = std::move(values);
    else if (name == "STRESS")
        solution().stress = std::move(values);
}

FrdFile FrdReader::read()
{
    bool ended = false;
    while (!ended && reader_.next(line_))
    {
        const std::string_view head = columns(0, 6), parameter = columns(0, 10);
        if (parameter == "1PSTEP") // number of the result, increment, step
        {
            step_ = whole(48, 12);
            mode_ = 0;
        }
        else if (parameter == "1PMODE")
            mode_ = whole(24, 12);
        else if (head == "2C")
            read_nodes();
        else if (head == "3C")
            skip_elements();
        else if (columns(0, 7) == "100CL")
            read_result();
        else
            ended = head == "9999";
    }
    if (!ended)
        reader_.fail("the file is cut off: its last line is missing");
    return std::move(file_);
}

FrdFile read_frd(const std::string& path)
{
    return FrdReader(path).read();
}

} // namespace zel_fem::ccx
