// Parts of the extension module, each of which adds its functions.
#ifndef PYTHON_MODULE_H
#define PYTHON_MODULE_H

#include "database.h"

namespace zel_python
{

void add_reducing(nb::module_& module);
void add_reading(nb::class_<Database>& database);
void add_checking(nb::class_<Database>& database);
void add_comparing(nb::module_& module);
void add_making(nb::module_& module, nb::class_<Database>& database);

} // namespace zel_python

#endif
