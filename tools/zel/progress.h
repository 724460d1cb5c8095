#include "tools/zel/console.h"
