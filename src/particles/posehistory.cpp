// PoseHistory: shifting the current pose to the previous one and refreshing the
// derived matrices.
#include "particles/posehistory.h"

#include "particles/xform.h"

void PoseHistory::update(const Mat4f& m, float time)
{
    if (!started || time < time_) {
        fromRest_ = true;  // first update, or the clock went back (a reset, a scrub)
    } else if (time != time_) {
        previous = current;
        fromRest_ = false;
    }
    // Until the clock first moves there is no earlier pose: the object starts at rest.
    if (fromRest_) previous = m;
    current = m;
    time_ = time;
    started = true;
    invertible = xform::invert(current, currentInverse) && xform::invert(previous, previousInverse);
    rotationOnly = xform::scaleFree(current, false);
    scaleFree = xform::scaleFree(current, true);
}
