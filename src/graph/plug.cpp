#include "graph/plug.h"

#include "graph/geonode.h"

#include <algorithm>
#include <cstdio>
#include <set>

const std::vector<std::string> Plug::directionNames = {"Input", "Output"};
const std::vector<std::string> Plug::typeNames = {"BODY", "Source", "Force", "Collider", "Sink"};

Plug::Plug(BaseNode* owner_, int32_t direction_, int32_t dataType_, const std::string& name_)
    : name(name_.empty() ? directionNames[direction_ == OUTPUT ? 1 : 0] : name_), direction(direction_),
      dataType(dataType_), owner(owner_)
{}

Plug* Plug::sourcePlug() const
{
    if (direction == OUTPUT) return const_cast<Plug*>(this);
    return connections.empty() ? nullptr : connections.front();
}

GeoNode* Plug::sourceNode() const
{
    const Plug* p = sourcePlug();
    return p ? dynamic_cast<GeoNode*>(p->owner) : nullptr;
}

bool Plug::sourceTimeDependent() const
{
    const GeoNode* n = sourceNode();
    return n && n->timeDependent;
}

namespace {

// Whether `target` lies upstream of `from` (or is it): a wire from target's output into
// from's input would then close a loop.
bool reachesUpstream(const BaseNode* from, const BaseNode* target)
{
    std::set<const BaseNode*> seen;
    std::vector<const BaseNode*> todo{from};
    while (!todo.empty()) {
        const BaseNode* n = todo.back();
        todo.pop_back();
        if (n == target) return true;
        if (!n || !seen.insert(n).second) continue;
        for (const Plug* in : n->inputs)
            for (const Plug* c : in->connections) todo.push_back(c->owner);
    }
    return false;
}

} // namespace

int Plug::connect(Plug* a, Plug* b)
{
    if (!a || !b) return -1;
    const bool talk = a->verbose;
    if (a->direction == b->direction) {
        if (talk) std::printf("can't connect plugs of same type.\n");
        return -1;
    }
    if (a->dataType != b->dataType) {
        if (talk) std::printf("non matching plug data types.\n");
        return -1;
    }
    if (a->owner == b->owner) {
        if (talk) std::printf("can't connect plugs of same node.\n");
        return -1;
    }
    Plug* out = a->direction == OUTPUT ? a : b;
    Plug* in = a->direction == OUTPUT ? b : a;
    if (reachesUpstream(out->owner, in->owner)) {
        std::printf("can't connect %s to %s: the wire would close a loop.\n", out->name.c_str(),
                    in->name.c_str());
        return -1;
    }
    // an input has one source at most
    while (!in->connections.empty()) disconnect(in, in->connections.front());
    in->dirty = true;
    a->connections.push_back(b);
    b->connections.push_back(a);
    if (talk) std::printf("connection made.\n");
    return int(a->connections.size()) - 1;
}

void Plug::disconnect(Plug* a, Plug* b)
{
    if (!a || !b) return;
    auto drop = [](Plug* from, Plug* what) {
        auto it = std::find(from->connections.begin(), from->connections.end(), what);
        if (it != from->connections.end()) from->connections.erase(it);
    };
    drop(a, b);
    drop(b, a);
    if (a->isInput()) a->dirty = true;
    if (b->isInput()) b->dirty = true;
}

void Plug::disconnectAll()
{
    while (!connections.empty()) disconnect(this, connections.front());
}
