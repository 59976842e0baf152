// ObjectLinks: the ids of the sources, colliders and forces a classic particle system is
// connected to. Ids are resolved through Simulation at each use, so a deleted object is
// simply skipped. Every classic system carries one.
#pragma once

#include <cstdint>
#include <vector>

class SceneObject;

class ObjectLinks {
public:
    std::vector<int32_t> sourceIds;
    std::vector<int32_t> colliderIds;
    std::vector<int32_t> forceIds;

    // Files the object's id; false for a null object (with a message) or an id already
    // filed. `replace` first clears the list.
    bool connectSource(const SceneObject* source, bool replace = false);
    bool connectCollider(const SceneObject* collider, bool replace = false);
    bool connectForce(const SceneObject* force, bool replace = false);
    // By id: the object's type decides the list; false for any other type.
    bool connectById(int objectId, bool replace = false);
    // By an explicit type code: 5 source, 7 force, 8 collider.
    bool connectByType(int typeCode, int objectId, bool replace = false);
};
