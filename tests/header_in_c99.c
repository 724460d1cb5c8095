#include "zel.h"

/* The header is complete in itself: this file holds nothing else. */
int header_compiles(void)
{
    return ZEL_MODE_KINDS;
}
