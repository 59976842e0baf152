// SceneObject: what every classic object shares: a name, an id in Simulation, its type
// code and its parameter set. The classic objects themselves are concrete classes that
// derive from it; nothing here is an interface but the parameter evaluation.
#pragma once

#include "params/parameterset.h"

#include <string>

// Type codes of classic objects, in the order of Simulation::typeNames.
enum ObjectType : int {
    kTypeDumbSystem = 0,
    kTypeGranularSystem = 1,
    kTypePcisphSystem = 2,
    kTypeSphSystem = 3,
    kTypeSmokeSystem = 4,
    kTypeSource = 5,
    kTypeSink = 6,
    kTypeForce = 7,
    kTypeCollider = 8,
    kTypeObject = 9,
    kTypeGlobalSettings = 10,
    kTypeManipulator = 11,
    kTypeAll = 12,
    kTypeGraphNode = 13,
};

class SceneObject {
public:
    explicit SceneObject(int type) : typeCode(type)
    {
        params.typeCode = type;
        params.owner = this;
        params.transformDriven = &transformDriven;
    }
    virtual ~SceneObject() = default;
    SceneObject(const SceneObject&) = delete;
    SceneObject& operator=(const SceneObject&) = delete;

    // Evaluates every row at `frame`; objects that derive values from rows extend this.
    virtual void evaluateParameters(float frame, int substep) { params.evaluateAll(frame, substep); }

    int typeCode;
    int id = -1;
    std::string name;
    bool enabled = true;
    // Set while something else (a parent, a manipulator) drives the transform rows.
    bool transformDriven = false;
    ParameterSet params;
};
