// Collide: friction here is a fraction of the tangential velocity taken per cook, not
// scaled by time, and the static friction value stands on its own. The file collider's
// velocity comes from the change of its matrix since the last build.
#include "nodes/collidenode.h"

#include "graph/nodemaster.h"
#include "io/fileio.h"
#include "nodes/dynamicgrids.h"
#include "nodes/levelsetops.h"
#include "particles/xform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

CollideNode::CollideNode(NodeMaster* master) : GeoNode(master)
{
    setType("Collide");
    addParam(&translateX, "translateX", "Translate X", kParamFloat, "0");
    addParam(&translateY, "translateY", "Translate Y", kParamFloat, "0");
    addParam(&translateZ, "translateZ", "Translate Z", kParamFloat, "0");
    addParam(&rotateX, "rotateX", "Rotate X", kParamFloat, "0");
    addParam(&rotateY, "rotateY", "Rotate Y", kParamFloat, "0");
    addParam(&rotateZ, "rotateZ", "Rotate Z", kParamFloat, "0");
    addParam(&scaleX, "scaleX", "Scale X", kParamFloat, "1");
    addParam(&scaleY, "scaleY", "Scale Y", kParamFloat, "1");
    addParam(&scaleZ, "scaleZ", "Scale Z", kParamFloat, "1");
    addParam(&unifScale, "unifScale", "Uniform Scale", kParamFloat, "1");
    addParam(&xformInvert, "xformInvert", "Inverse Transform", kParamBool, "false");
    addParam(&calcVelFromAnims, "calcVelFromAnims", "Calculate Velocity from Anims", kParamBool, "false",
             "Calculate matching velocities for animated transform values.");
    addParam(&collide, "collide", "Enable Collision", kParamBool, "true", "Turn collisions on or off.");
    addParam(&collDist, "collDist", "Collision Distance", kParamFloat, "0",
             "Distance to collider where collision is happening.");
    addParam(&friction, "friction", "Friction", kParamFloat, "10");
    addParam(&staticFrictionMulti, "staticFrictionMulti", "Static Friction Multi", kParamFloat, "0",
             "Multiplier of regular friction strength.");
    addParam(&stickStrength, "stickStrength", "Stick Strength", kParamFloat, "0",
             "Blends in the collider's velocity into the particles' velocity. Use Stick Distance to control "
             "how far "
             "this effect reaches.");
    addParam(&stickDist, "stickDist", "Stick Distance", kParamFloat, "0",
             "Set the size of the influence layer around the collider in worldspace units.");
    addParam(&stickFalloff, "stickFalloff", "Stick Falloff", kParamFloat, "0");
    addParam(&attraction, "attraction", "Attraction", kParamFloat, "0",
             "Strength of attraction force towards the surface.");
    addParam(&attractionDist, "attractionDist", "Attraction Distance", kParamFloat, "0",
             "Distance to collider in which particles get attracted.");
    addParam(&velocityScale, "velocityScale", "Velocity Scale", kParamFloat, "1",
             "Scale all velocities coming from mesh transformations or deformations.");
    addParam(&filePath, "filePath", "File Path", kParamPath, "",
             "Enter the filepath of the geometry to read.");
    addParam(&readScale, "readScale", "Alembic Scale", kParamFloat, "1");
    addParam(&frame, "frame", "Alembic Frame", kParamFloat, "1");
    addParam(&fps, "fps", "Alembic FPS", kParamFloat, "24");
    addParam(&voxelSize, "voxelSize", "Voxel Size", kParamFloat, "0.05", "Voxelsize in worldspace units.");
    addParam(&invert, "invert", "Invert", kParamBool, "false");
    addParam(&sdfInnerBand, "sdfInnerBand", "SDF Inner Band", kParamFloat, "3",
             "How far the voxel definition reaches into the object. In voxel units.");
    addParam(&sdfOuterBand, "sdfOuterBand", "SDF Outer Band", kParamFloat, "0",
             "How far the voxel definition reaches out from the surface. In voxel units.");
    addParam(&sdfPushOut, "sdfPushOut", "SDF Push Out", kParamFloat, "0",
             "Push in or out the collider's boundary. Positive numbers push out. Make sure the SDF Band "
             "(above) is "
             "large enough.");
    addParam(&volVelocityScale, "volVelocityScale", "Velocity Scale", kParamFloat, "1",
             "Scale all velocities coming from mesh transformations or deformations.");
    addParam(&sdfUpdateSubframes, "sdfUpdateSubframes", "Update SDF on Subframes", kParamBool, "false");
    addInput("Dynamic-Particles", true);
    addInput("Collider", true);
    addOutput("Output");
}

void CollideNode::reset()
{
    GeoNode::reset();
    sdfBody.reset();
    haveLastMatrix = false;
}

bool CollideNode::updateFileCollider(bool& moving, Mat4f& motion)
{
    moving = false;
    if (filePath.empty()) return false;
    if (!loaded || filePath != loadedPath) {
        auto body = std::make_shared<Body>();
        loadedPath = filePath;
        sdfBody.reset();
        haveLastMatrix = false;
        if (fileio::read(filePath, body, frame, fps, false, readScale) != 0 || !body) {
            std::printf("%s: can't read the collider file %s.\n", name().c_str(), filePath.c_str());
            loaded.reset();
            return false;
        }
        loaded = body;
    }
    const float time = context.time;
    const bool subframe = time - std::floor(time) > 0.0001f;
    if (sdfBody && subframe && !sdfUpdateSubframes) return true;

    Mat4f m = xform::compose(Vec4f(translateX, translateY, translateZ), Vec4f(rotateX, rotateY, rotateZ),
                             Vec4f(scaleX * unifScale, scaleY * unifScale, scaleZ * unifScale));
    if (xformInvert) {
        Mat4f inv;
        if (!xform::invert(m, inv)) {
            std::printf("%s: the transform can't be inverted.\n", name().c_str());
            return sdfBody != nullptr;
        }
        m = inv;
    }
    // A collider that hasn't moved and whose volume settings stand keeps its volume.
    const std::array<float, 6> settings = {voxelSize, sdfOuterBand, sdfInnerBand, sdfPushOut,
                                           invert ? 1.f : 0.f, volVelocityScale};
    if (sdfBody && haveLastMatrix && m == lastMatrix && settings == lastSettings) {
        lastTime = time;
        return true;
    }
    Body moved(*loaded);
    PointData& pd = *moved.points;
    const bool velFromMatrix = calcVelFromAnims && haveLastMatrix && time != lastTime;
    if (velFromMatrix && !pd.hasV) pd.addAttrib("v", ATTRIB_VELOCITY);
    // seconds between the two matrices: the cook times are frames
    const float sceneFps = nodeMaster ? nodeMaster->fps() : 24.f;
    const float perTime = velFromMatrix ? (time - lastTime) / sceneFps : 1.f;
    for (size_t i = 0; i < pd.size(); ++i) {
        const Vec4f p0 = pd.P[i];
        pd.P[i] = xform::point(p0, m);
        if (velFromMatrix) {
            Vec4f v = (pd.P[i] - xform::point(p0, lastMatrix)) * (1.f / perTime);
            v.w = pd.v[i].w;
            pd.v[i] = v;
        } else if (pd.hasV && i < pd.v.size()) {
            pd.v[i] = xform::direction(pd.v[i], m);
        }
    }
    if (haveLastMatrix && !(m == lastMatrix)) {
        Mat4f inv;
        if (xform::invert(m, inv)) {
            motion = xform::multiply(inv, lastMatrix);
            moving = true;
        }
    }
    if (pd.hasV && volVelocityScale != 1.f)
        for (Vec4f& v : pd.v) {
            v.x *= volVelocityScale;
            v.y *= volVelocityScale;
            v.z *= volVelocityScale;
        }
    MeshToVolumeSettings s;
    s.voxelSize = voxelSize;
    s.exteriorBand = sdfOuterBand;
    s.interiorBand = sdfInnerBand;
    s.pushOut = sdfPushOut;
    s.invert = invert;
    s.attribs = pd.hasV ? "v" : "";
    auto out = std::make_shared<Body>();
    if (meshToVolume(*out, moved, s) != 0) {
        std::printf("%s: the collider has no triangles or quads to turn into a volume.\n", name().c_str());
        return false;
    }
    sdfBody = out;
    lastSettings = settings;
    lastMatrix = m;
    lastTime = time;
    haveLastMatrix = true;
    return true;
}

void CollideNode::collideWith(Body& body, const Body& collider, bool moving, const Mat4f& motion)
{
    const VolumeData& vols = *collider.volumes;
    const GridBasePtr distance = vols.volume("distance");
    GridBasePtr velocity;
    for (const char* key : {"velocity", "vel", "v"})
        if (!velocity) velocity = vols.volume(key);
    CollideSettings s;
    s.collDist = collDist;
    s.stickDist = stickDist;
    s.stickStrength = stickStrength;
    s.friction = friction;
    s.staticFrictionMulti = staticFrictionMulti;
    s.velocityScale = velocityScale;
    s.influence = std::max({collDist, attractionDist, stickDist});
    s.dt = graphDt();
    s.collide = collide;
    s.motion = motion;
    s.moving = moving;
    if (!body.points->hasV) body.points->addAttrib("v", ATTRIB_VELOCITY);
    const int skipped = distance ? collidePoints(*body.points, distance, velocity, s) : -1;
    if (skipped < 0) {
        std::printf("%s: volume doesn't have sdf.\n", name().c_str());
    } else if (skipped > 0) {
        std::printf("%s: %d points with non-finite positions skipped.\n", name().c_str(), skipped);
    }
}

void CollideNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    std::vector<BodyPtr> in = fetchInputs({0, 1});
    BodyPtr body = in[0];
    if (body && enabled) {
        bool moving = false;
        Mat4f motion;
        BodyPtr collider = in[1];
        if (!collider && updateFileCollider(moving, motion)) collider = sdfBody;
        if (collider) collideWith(*body, *collider, moving, motion);
    }
    finishProcess(result, c, std::move(body), false);
}
