#include "database.h"

namespace zel_python
{

constexpr std::chrono::milliseconds kBetweenLooks(100);

void Database::close()
{
    if (!db_)
        return;
    const Turn turn(*this);
    ZEL_UnLink(db_);
    db_ = nullptr;
}

// ---- Turns ---------------------------------------------------------------------------------------------------------

Turn::Turn(Database& database) : database_(database)
{
    if (!database.mutex_.try_lock())
    {
        const nb::gil_scoped_release released;
        database.mutex_.lock();
    }
    if (database.db_ && !database.busy_)
    {
        database.busy_ = true;
        return;
    }
    const char* why = database.db_ ? "the body is in the middle of another call" : "the body is closed";
    database.mutex_.unlock();
    throw nb::value_error(why);
}

Turn::~Turn()
{
    database_.busy_ = false;
    database_.mutex_.unlock();
}

// ---- Messages ------------------------------------------------------------------------------------------------------

static void collect(void* context, int severity, const char* text)
{
    static_cast<std::vector<std::pair<int, std::string>>*>(context)->emplace_back(severity, text);
}

static thread_local bool telling = false; // Python code runs in the middle of a call of this thread

Messages::Messages()
{
    if (telling)
        throw nb::value_error("a function that is told of progress, or a signal handler, cannot use bodies meanwhile");
    before_ = ZEL_MessageHandler(&context_before_);
    ZEL_SetMessageHandler(collect, &messages_);
}

Messages::~Messages()
{
    stop_listening();
}

void Messages::stop_listening()
{
    if (listening_)
        ZEL_SetMessageHandler(before_, context_before_);
    listening_ = false;
}

static nb::object errors_module(const char* name)
{
    return nb::module_::import_("zel.errors").attr(name);
}

// Texts that files of others hold need not be UTF-8.
static nb::object text_of(const std::string& text)
{
    return nb::steal(PyUnicode_DecodeUTF8(text.data(), Py_ssize_t(text.size()), "replace"));
}

void Messages::deliver(bool errors_raise) const
{
    if (messages_.empty())
        return;
    nb::list list;
    for (const auto& [severity, text] : messages_)
        list.append(nb::make_tuple(severity, text_of(text)));
    errors_module("deliver")(list, errors_raise);
}

void raise_error(const std::string& text)
{
    const nb::object type = errors_module("ZelError");
    PyErr_SetObject(type.ptr(), text_of(text).ptr());
    throw nb::python_error();
}

// ---- Progress ------------------------------------------------------------------------------------------------------

Progress::Progress(nb::handle function) : function_(function)
{
    before_ = ZEL_ProgressHandler(&context_before_);
    ZEL_SetProgressHandler(tell, this);
}

Progress::~Progress()
{
    ZEL_SetProgressHandler(before_, context_before_);
}

void Progress::rethrow() const
{
    if (error_)
        std::rethrow_exception(error_);
}

bool Progress::go_on(double done, double total)
{
    const auto now = std::chrono::steady_clock::now();
    if (error_ || now - told_ < kBetweenLooks)
        return !error_;
    told_ = now;
    const nb::gil_scoped_acquire held;
    telling = true;
    try
    {
        if (PyErr_CheckSignals() != 0)
            throw nb::python_error();
        if (function_.is_valid() && !function_.is_none())
            function_(done, total);
    }
    catch (...)
    {
        error_ = std::current_exception();
    }
    telling = false;
    return !error_;
}

// Nonzero ends the library's operation.
int Progress::tell(void* context, double done, double total)
{
    return static_cast<Progress*>(context)->go_on(done, total) ? 0 : 1;
}

} // namespace zel_python
