#include "graph/plugcache.h"

#include "geo/body.h"
#include "graph/geonode.h"
#include "graph/plug.h"

#include <cstdio>

void PlugCache::addCache(const std::shared_ptr<Body>& body, Plug* plug, float time)
{
    if (!body || !plug) return;
    auto copy = std::make_shared<Body>(*body); // copied outside the lock
    copy->isCached = true;
    std::lock_guard<std::mutex> lock(mutex);
    Entry& e = entries[plug]; // one entry per plug: a new time displaces the old one
    e.body = std::move(copy);
    e.node = dynamic_cast<GeoNode*>(plug->owner);
    e.plug = plug;
    e.time = time;
}

void PlugCache::removeCache(Plug* plug)
{
    std::shared_ptr<Body> old; // released outside the lock
    std::lock_guard<std::mutex> lock(mutex);
    auto it = entries.find(plug);
    if (it == entries.end()) return;
    old = std::move(it->second.body);
    entries.erase(it);
}

bool PlugCache::get(Plug* plug, Entry& out)
{
    std::lock_guard<std::mutex> lock(mutex);
    auto it = entries.find(plug);
    if (it == entries.end()) return false;
    out = it->second;
    return true;
}

bool PlugCache::getAt(Plug* plug, float time, Entry& out)
{
    std::lock_guard<std::mutex> lock(mutex);
    auto it = entries.find(plug);
    if (it == entries.end() || it->second.time != time) return false;
    out = it->second;
    return true;
}

size_t PlugCache::getStorageSpace()
{
    std::lock_guard<std::mutex> lock(mutex);
    size_t total = 0;
    for (const auto& kv : entries)
        if (kv.second.body) total += kv.second.body->memoryBytes();
    return total;
}

size_t PlugCache::size()
{
    std::lock_guard<std::mutex> lock(mutex);
    return entries.size();
}

void PlugCache::clear()
{
    std::map<Plug*, Entry> old;
    std::lock_guard<std::mutex> lock(mutex);
    old.swap(entries);
}

void PlugCache::print()
{
    size_t total = 0;
    {
        std::lock_guard<std::mutex> lock(mutex);
        for (const auto& kv : entries) {
            const Entry& e = kv.second;
            std::printf(" -> cache - node: %s  - \t plug: %p %f\n", e.node ? e.node->name().c_str() : "",
                        static_cast<void*>(e.plug), double(e.time));
            if (e.body) total += e.body->memoryBytes();
        }
    }
    std::printf(" -> cache size total: %zu MiB\n", total / (1024 * 1024));
}
