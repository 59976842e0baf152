// Primitive kinds and per-primitive attributes; the attribute work itself is
// shared with the per-volume attributes in ItemAttribs.
#include "geo/primdata.h"

int PrimData::addPrim(uint32_t kind)
{
    kinds.push_back(kind);
    pushDefaults();
    return static_cast<int>(kinds.size());
}

int PrimData::addAttrib(const std::string& name, int type, bool resizeNow)
{
    return addItemAttrib(name, type, kinds.size(), resizeNow);
}

int PrimData::removeAttrib(const std::string& name)
{
    return removeItemAttrib(name);
}

void PrimData::clear()
{
    kinds.clear();
    clearAttribs();
}
