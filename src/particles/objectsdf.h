// Keeps the signed distance grids of a geometry object's mesh parts up to date: the
// "prepare SDF" step that colliders run every substep and volume sources before they
// emit. A part is rebuilt only when its build settings or its geometry changed.
#pragma once

#include "particles/meshsdf.h"

// Rebuilds every stale part of `object`: one whose grids were made with other settings
// or from another geometry stamp; `force` makes all parts stale, `refreshAnimated` the
// deforming ones. A failed build leaves the part invalid until settings or geometry
// change again, so a broken mesh costs one attempt. Answers the parts with a valid grid.
int prepareObjectSdf(Object& object, const SdfBuildSettings& settings, bool force, bool refreshAnimated);
