#include "ui/viewportscene.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/geonode.h"
#include "graph/nodemaster.h"
#include "graph/vbo.h"
#include "io/object.h"
#include "particles/collisionobject.h"
#include "particles/dumbparticlesystem.h"
#include "particles/granularparticlesystem.h"
#include "particles/sphparticlesystem.h"
#include "particles/xform.h"

#include <QMutex>
#include <algorithm>
#include <cmath>

namespace {

const QVector3D kSand(0.86f, 0.72f, 0.47f);
const QVector3D kWater(0.25f, 0.5f, 0.95f);
const QVector3D kDumb(0.82f, 0.82f, 0.82f);
const QVector3D kCollider(0.6f, 0.6f, 0.6f);

// Row-major row-vector matrix (p' = p * M) as a column-vector QMatrix4x4.
QMatrix4x4 fromRowVector(const float m[16])
{
    return QMatrix4x4(m).transposed();
}

QMatrix4x4 fromRowVector(const double m[16])
{
    float f[16];
    for (int i = 0; i < 16; ++i) f[i] = float(m[i]);
    return fromRowVector(f);
}

SelectionEntry entryOf(const SceneObject& object)
{
    SelectionEntry e;
    e.typeCode = object.typeCode;
    e.id = object.id;
    e.name = object.name;
    return e;
}

float pointScale()
{
    const GlobalSettings* g = simulation ? simulation->globalSettings : nullptr;
    return g ? std::max(g->pointSize, 0.01f) : 1.f;
}

} // namespace

ViewportBuffers& ViewportScene::slot(BufferList& list, size_t index)
{
    if (index >= list.size()) list.resize(index + 1);
    if (!list[index]) list[index] = std::make_unique<ViewportBuffers>();
    return *list[index];
}

void ViewportScene::trim(BufferList& list, size_t count)
{
    while (list.size() > count) {
        if (list.back()) retired.push_back(std::move(list.back()));
        list.pop_back();
    }
}

bool ViewportScene::refreshClassic(int lockWaitMs)
{
    if (!simulation) return false;
    if (!vboMutex.tryLock(std::max(lockWaitMs, 0))) return false;
    size_t n = 0;
    long long count = 0;
    float speed2 = 0.f, accel2 = 0.f;
    bool cuda = false;
    const float scale = pointScale();
    const auto addSystem = [&](const SceneObject& object, const Body* body, const QVector3D& color, float radius,
                               bool visible) {
        if (!visible || !body || !body->points) return;
        const PointData& pts = *body->points;
        ViewportBuffers& b = slot(systems, n++);
        b.clearData();
        b.entry = entryOf(object);
        b.pickable = true;
        b.source = body;
        b.setPoints(pts, color, radius * scale);
        count += (long long)pts.size();
        if (pts.hasV)
            for (const Vec4f& v : pts.v) speed2 = std::max(speed2, v.dot3(v));
        if (pts.attribType("force") == ATTRIB_VECTOR)
            if (const VecArray* f = pts.attribAs<VecArray>("force"))
                for (const Vec4f& a : *f) accel2 = std::max(accel2, a.dot3(a));
    };
    for (const GranularParticleSystem* s : simulation->granularSystems) {
        addSystem(*s, s->body.get(), kSand, s->particleRadius, s->visible);
        cuda = cuda || s->useCuda;
    }
    for (const SimpleSPHParticleSystem* s : simulation->sphSystems) {
        addSystem(*s, s->body.get(), kWater, 0.5f * s->particleSpacing * s->radiusMulti, s->visible);
        cuda = cuda || s->useCuda;
    }
    for (const DumbParticleSystem* s : simulation->dumbSystems) addSystem(*s, s->body.get(), kDumb, s->radius, s->visible);
    trim(systems, n);

    size_t c = 0;
    for (const CollisionObject* collider : simulation->colliders) {
        const Object* object = collider->geometry();
        if (!object || !collider->visible || !collider->drawMesh) continue;
        const QMatrix4x4 placed = fromRowVector(
            xform::compose(Vec4f(collider->translateX, collider->translateY, collider->translateZ),
                           Vec4f(collider->rotateX, collider->rotateY, collider->rotateZ),
                           Vec4f(collider->scaleX, collider->scaleY, collider->scaleZ))
                .m);
        double pose[16];
        object->buildPose(pose);
        const QMatrix4x4 objectPose = fromRowVector(pose);
        for (const auto& mesh : object->meshes) {
            if (!mesh || mesh->triangles.empty()) continue;
            ViewportBuffers& b = slot(colliders, c++);
            b.entry = entryOf(*collider);
            b.pickable = true;
            b.model = placed * objectPose * fromRowVector(mesh->xform[0]);
            b.rotation = b.model;
            b.rotation.setColumn(3, QVector4D(0.f, 0.f, 0.f, 1.f));
            if (b.source != mesh.get() || b.version != object->geometryStamp || mesh->isDeforming) {
                b.clearData();
                b.source = mesh.get();
                b.version = object->geometryStamp;
                b.setMesh(*mesh, kCollider);
            }
        }
    }
    trim(colliders, c);
    vboMutex.unlock();

    particleCount = count;
    maxSpeed = std::sqrt(speed2);
    maxAccel = std::sqrt(accel2);
    cudaPath = cuda && simState && simState->cudaAvailable;
    return true;
}

bool ViewportScene::refreshGraph(int lockWaitMs)
{
    if (!nodeMaster) return false;
    if (!graphMutex.tryLock(std::max(lockWaitMs, 0))) return false;
    const GlobalSettings* settings = simulation ? simulation->globalSettings : nullptr;
    const bool flat = settings && settings->flatShading;
    BufferList kept;
    kept.swap(nodes);
    const auto takeKept = [&kept](int id) -> std::unique_ptr<ViewportBuffers> {
        for (auto& b : kept)
            if (b && b->entry.id == id) return std::move(b);
        return nullptr;
    };
    for (GeoNode* node : nodeMaster->getGeoNodes()) {
        if (!node || !node->vbo) continue;
        Vbo& vbo = *node->vbo;
        bool needUpload = false;
        if (vbo.mutex.try_lock()) {
            needUpload = vbo.uploadRequested || (!node->visibility && vbo.holdsData);
            vbo.mutex.unlock();
        }
        if (needUpload) node->updateViewport();
        if (!node->visibility) continue;
        std::unique_ptr<ViewportBuffers> b = takeKept(node->id);
        if (!vbo.mutex.try_lock()) { // busy: the old buffers stay
            if (b) nodes.push_back(std::move(b));
            continue;
        }
        std::shared_ptr<const Body> body = vbo.uploaded;
        const float size = vbo.size;
        vbo.mutex.unlock();
        if (!body) {
            if (b) retired.push_back(std::move(b));
            continue;
        }
        if (!b) b = std::make_unique<ViewportBuffers>();
        b->entry.typeCode = kTypeGraphNode;
        b->entry.id = node->id;
        b->entry.name = node->name();
        b->pickable = true;
        if (b->source != body.get() || b->version != (flat ? 1u : 0u)) {
            b->clearData();
            b->source = body.get();
            b->version = flat ? 1u : 0u;
            b->setBody(*body, kDumb, 0.03f * std::max(size, 0.01f) * pointScale(), flat);
        }
        nodes.push_back(std::move(b));
    }
    graphMutex.unlock();
    for (auto& b : kept)
        if (b) retired.push_back(std::move(b));
    return true;
}

void ViewportScene::bounds(QVector3D& min, QVector3D& max) const
{
    min = QVector3D(1e30f, 1e30f, 1e30f);
    max = QVector3D(-1e30f, -1e30f, -1e30f);
    for (const ViewportBuffers* b : all()) {
        if (b->boundMin.x() > b->boundMax.x()) continue;
        for (int k = 0; k < 8; ++k) {
            const QVector3D corner((k & 1) ? b->boundMax.x() : b->boundMin.x(), (k & 2) ? b->boundMax.y() : b->boundMin.y(),
                                   (k & 4) ? b->boundMax.z() : b->boundMin.z());
            const QVector3D w = b->model.map(corner);
            min = QVector3D(std::min(min.x(), w.x()), std::min(min.y(), w.y()), std::min(min.z(), w.z()));
            max = QVector3D(std::max(max.x(), w.x()), std::max(max.y(), w.y()), std::max(max.z(), w.z()));
        }
    }
}

std::vector<ViewportBuffers*> ViewportScene::all() const
{
    std::vector<ViewportBuffers*> out;
    for (const BufferList* list : {&colliders, &nodes, &systems})
        for (const auto& b : *list)
            if (b) out.push_back(b.get());
    return out;
}

void ViewportScene::releaseRetired(QOpenGLFunctions* f)
{
    if (!f) return;
    for (auto& b : retired)
        if (b) b->deleteVbos(f);
    retired.clear();
}

void ViewportScene::clear()
{
    for (BufferList* list : {&systems, &colliders, &nodes}) trim(*list, 0);
}
