#include <zel.h>

#include <string>

int main()
{
    return std::string(zelmsg_VersionId()).rfind("zelmsg ", 0) == 0 && ZEL_UnitsLabel(0.0254, ZEL_LengthUnits) ? 0 : 1;
}
