// The list of live databases, and the files that they read.
#include "base/base.h"
#include "record.h"
#include "zel.h"

#include <cstring>
#include <mutex>

namespace zel
{

// The live databases in order of creation, chained through next, and what is told from them about others: the files that
// they read. One thread at a time looks at it or changes it.
static ZELDATA* first_database;
static std::mutex list_mutex;

// The link (head or next field) that points at db, or at null for the end of the list.
static ZELDATA** link_to(const ZELDATA* db)
{
    ZELDATA** link = &first_database;
    while (*link && *link != db)
        link = &(*link)->next;
    return link;
}

// Takes out what a link points at, null at the end of the list.
static ZELDATA* take(ZELDATA** link)
{
    ZELDATA* taken = *link;
    if (taken)
        *link = taken->next;
    return taken;
}

void add_live(ZELDATA* db)
{
    const std::lock_guard lock(list_mutex);
    *link_to(nullptr) = db;
}

ZELDATA* take_live(const ZELDATA* db)
{
    const std::lock_guard lock(list_mutex);
    return take(link_to(db));
}

ZELDATA* take_first_live()
{
    const std::lock_guard lock(list_mutex);
    return take(&first_database);
}

int adopt_file(ZELDATA* db, FILE* file, const char* name)
{
    const std::lock_guard lock(list_mutex);
    db->zel_file.file = file;
    return !name || (db->zel_file.name = copy_text(name)) ? 1 : 0;
}

bool held_open(const char* path)
{
    const std::lock_guard lock(list_mutex);
    for (ZELDATA* db = first_database; db; db = db->next) // mode streams have no name, or borrow this file
        if (db->zel_file.file && names_open_file(path, db->zel_file.file))
            return true;
    return false;
}

ZELDATA* database_of_file(const char* path)
{
    const std::lock_guard lock(list_mutex);
    for (ZELDATA* db = first_database; db; db = db->next)
        if (db->zel_file.name && std::strcmp(db->zel_file.name, path) == 0)
            return db;
    return nullptr;
}

} // namespace zel

using namespace zel;

int CheckZEL(const ZELDATA* db)
{
    const std::lock_guard lock(list_mutex);
    return db && *link_to(db) ? 1 : 0;
}
