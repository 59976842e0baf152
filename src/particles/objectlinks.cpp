// Connecting sources, colliders and forces to a classic system by id.
#include "particles/objectlinks.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simulation.h"

#include <algorithm>
#include <cstdio>

namespace {

bool fileId(std::vector<int32_t>& list, const SceneObject* object, bool replace, const char* what)
{
    if (!object) {
        std::printf("there's a problem. connect %s\n", what);
        return false;
    }
    if (replace) list.clear();
    if (std::find(list.begin(), list.end(), object->id) != list.end()) return false;
    list.push_back(object->id);
    return true;
}

} // namespace

bool ObjectLinks::connectSource(const SceneObject* source, bool replace)
{
    return fileId(sourceIds, source, replace, "source");
}

bool ObjectLinks::connectCollider(const SceneObject* collider, bool replace)
{
    return fileId(colliderIds, collider, replace, "collider");
}

bool ObjectLinks::connectForce(const SceneObject* force, bool replace)
{
    return fileId(forceIds, force, replace, "force");
}

bool ObjectLinks::connectById(int objectId, bool replace)
{
    const SceneObject* object = simulation ? simulation->objectById(objectId) : nullptr;
    return object ? connectByType(object->typeCode, objectId, replace) : false;
}

bool ObjectLinks::connectByType(int typeCode, int objectId, bool replace)
{
    const SceneObject* object = simulation ? simulation->objectById(objectId) : nullptr;
    switch (typeCode) {
    case kTypeSource: return connectSource(object, replace);
    case kTypeCollider: return connectCollider(object, replace);
    case kTypeForce: return connectForce(object, replace);
    default: return false;
    }
}
