// Vbo: what the viewport draws of a node. The cook hands it a Body under its lock and
// flags an upload; the window's drawing code turns that into buffers on the GUI thread.
// Headless it only keeps the flags.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

class Body;

class Vbo {
public:
    std::mutex mutex;
    bool uploadRequested = false; // displayBody changed since the last upload
    bool holdsData = false;
    float size = 1.f;
    int32_t id = -1;
    std::shared_ptr<const Body> uploaded; // what the last upload took

    void upload(const std::shared_ptr<const Body>& body);
    void clear();
};
