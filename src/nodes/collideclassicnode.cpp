// Collide-Classic: the classic collide pass on a Body of the graph. The channels the pass
// reads and writes are created first where missing; the points' previous positions are
// taken as P - v * dt, where the chain's origin moved them from. Points whose position or
// velocity isn't a finite number sit out the pass.
#include "nodes/collideclassicnode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "particles/collidepass.h"
#include "particles/collisionobject.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// Contact radius without a `width` channel: the granular default.
constexpr float kDefaultRadius = 0.05f;
// Mass of a point of that radius at density 1 (the granular default).
constexpr float kDefaultMass = 0.001f;
constexpr float kStandardGravity = -9.81f;

bool finite(const Vec4f& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

} // namespace

CollideClassicNode::CollideClassicNode(NodeMaster* master) : GeoNode(master)
{
    setType("Collide-Classic");
    addParam(&colliderName, "colliderName", "Collider Name", kParamString, "none",
             "Enter the name of the regular, non-nodebased collider (classic).");
    addInput("Dynamic-Particles", true);
    addOutput("Dynamic-Particles");
}

void CollideClassicNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    fetchInput(body, 0);
    if (body && enabled) collide(*body, context.graphDt);
    finishProcess(result, c, std::move(body), false);
}

void CollideClassicNode::collide(Body& body, float dt)
{
    if (!simulation) return;
    int type = -1;
    SceneObject* found = simulation->findByName(colliderName, &type);
    CollisionObject* collider =
        found && type == kTypeCollider ? static_cast<CollisionObject*>(found) : nullptr;
    if (!collider) {
        std::printf("collide-classic: no collider named \"%s\".\n", colliderName.c_str());
        return;
    }
    if (!collider->enabled) return;
    PointData& pts = *body.points;
    const size_t n = pts.size();
    if (n == 0) return;

    const bool hadStick = pts.attribType("stick") != ATTRIB_NONE;
    pts.addAttrib("posPrev", ATTRIB_POSITION);
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("force", ATTRIB_VECTOR);
    pts.addAttrib("deleted", ATTRIB_BOOL);
    pts.addAttrib("neighbs", ATTRIB_INT_LIST);
    pts.addAttrib("numContacts", ATTRIB_INT);
    pts.addAttrib("constrIndices", ATTRIB_INT_LIST);
    pts.addAttrib("constrDists", ATTRIB_FLOAT_LIST);
    pts.addAttrib("stick", ATTRIB_FLOAT);
    pts.addAttrib("sleeping", ATTRIB_BOOL);
    pts.addAttrib("restingTime", ATTRIB_FLOAT);

    auto vec = [&](const char* name, int type) {
        auto* a = pts.attribType(name) == type ? pts.attribAs<VecArray>(name) : nullptr;
        return a && a->size() == n ? a : nullptr;
    };
    auto flt = [&](const char* name) {
        auto* a = pts.attribType(name) == ATTRIB_FLOAT ? pts.attribAs<FloatArray>(name) : nullptr;
        return a && a->size() == n ? a : nullptr;
    };
    auto bits = [&](const char* name) {
        auto* a = pts.attribType(name) == ATTRIB_BOOL ? pts.attribAs<BitArray>(name) : nullptr;
        return a && a->size() == n ? a : nullptr;
    };
    VecArray* posPrev = vec("posPrev", ATTRIB_POSITION);
    VecArray* force = vec("force", ATTRIB_VECTOR);
    FloatArray* stick = flt("stick");
    BitArray* deleted = bits("deleted");
    if (!pts.hasV || pts.v.size() != n || !deleted) {
        std::printf("collide-classic: a channel has the wrong type, pass skipped.\n");
        return;
    }
    // A new stick weight map lets every point feel the collider fully.
    if (stick && !hadStick) std::fill(stick->begin(), stick->end(), 1.f);

    // Points that can't take part are marked deleted for the pass and restored after it.
    std::vector<size_t> skipped;
    for (size_t i = 0; i < n; ++i)
        if (!deleted->get(i) && (!finite(pts.P[i]) || !finite(pts.v[i]))) {
            skipped.push_back(i);
            deleted->set(i, true);
        }
    if (!skipped.empty()) std::printf("NaN issue occured in collide-classic node.\n");
    if (posPrev)
        for (size_t i = 0; i < n; ++i) (*posPrev)[i] = pts.P[i] - pts.v[i] * dt;

    float radius = kDefaultRadius;
    if (FloatArray* width = flt("width"); width && n > 0) {
        const float widest = *std::max_element(width->begin(), width->end());
        if (widest > 0.f && std::isfinite(widest)) radius = 0.5f * widest;
    }
    CollideView view;
    view.count = n;
    view.P = pts.P.data();
    view.v = pts.v.data();
    view.force = force ? force->data() : nullptr;
    view.posPrev = posPrev ? posPrev->data() : nullptr;
    view.sleeping = bits("sleeping");
    view.deleted = deleted;
    FloatArray* resting = flt("restingTime");
    view.restingTime = resting ? resting->data() : nullptr;
    view.stick = stick ? stick->data() : nullptr;
    view.points = &pts;
    view.radius = radius;
    view.mass = kDefaultMass;
    view.gravityY = kStandardGravity;
    view.dt = dt;
    view.numThreads = simState ? std::max(1, simState->numThreads) : 1;
    int stickSlot = 0;
    collideWithCollider(*collider, view, CollideRules::granular(), stickSlot);

    for (const size_t i : skipped) deleted->set(i, false);
    bool nan = false;
    for (size_t i = 0; i < n && !nan; ++i) nan = std::isnan(pts.P[i].x) || std::isnan(pts.P[i].y);
    if (nan && skipped.empty()) std::printf("NaN issue occured in collide-classic node.\n");
}
