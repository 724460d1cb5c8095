#include "database.h"

namespace zel_python
{

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

Messages::Messages()
{
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

void Messages::deliver() const
{
    if (messages_.empty())
        return;
    nb::list list;
    for (const auto& [severity, text] : messages_)
        list.append(nb::make_tuple(severity, text_of(text)));
    errors_module("deliver")(list);
}

void raise_error(const std::string& text)
{
    const nb::object type = errors_module("ZelError");
    PyErr_SetObject(type.ptr(), text_of(text).ptr());
    throw nb::python_error();
}

} // namespace zel_python
