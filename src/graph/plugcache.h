// PlugCache: the results of regular nodes that the next cook can reuse, one Body per
// output plug with the time it was cooked for. Bodies are copied on the way in, so no
// caller ever holds the cached Body itself except a root caller that asks for it.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

class Body;
class GeoNode;
class Plug;

class PlugCache {
public:
    struct Entry {
        std::shared_ptr<Body> body;
        GeoNode* node = nullptr;
        Plug* plug = nullptr;
        float time = 0.f;
    };

    // Replaces the plug's entry by a copy of body (isCached set); null body or plug: nothing.
    void addCache(const std::shared_ptr<Body>& body, Plug* plug, float time);
    void removeCache(Plug* plug);
    // The entry of the plug at any time, or at exactly this time; false when none.
    bool get(Plug* plug, Entry& out);
    bool getAt(Plug* plug, float time, Entry& out);
    size_t getStorageSpace();
    size_t size();
    void clear();
    // The entries as " -> cache - node: ..." lines and the total in MiB.
    void print();

    // Whether results stay in memory from one cook to the next ("Enable Memory Cache").
    // Off, the cache still shares results within a cook and is emptied when it ends, so
    // every cook computes the graph afresh and holds no geometry afterwards.
    bool keepBetweenCooks = true;

private:
    std::mutex mutex;
    std::map<Plug*, Entry> entries;
};
