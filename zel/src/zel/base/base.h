// The door of this folder: memory, messages, progress, temporary files and output, BLAS and LAPACK. Nothing here knows a body.
#ifndef ZEL_BASE_BASE_H
#define ZEL_BASE_BASE_H

#include "blas.h"
#include "files.h"
#include "memory.h"
#include "messages.h"
#include "output.h"
#include "progress.h"
#include "wide.h"

#endif
