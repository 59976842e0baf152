// Cache import for the classic systems: BIN now; PRT and Alembic report that they are not
// available yet, at once, without the dispatcher's retries.
#include "particles/particleimport.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "io/binformat.h"
#include "io/fileio.h"
#include "particles/dumbparticlesystem.h"
#include "particles/granularparticlesystem.h"
#include "particles/rampcolour.h"

#include <QMutexLocker>

#include <algorithm>

#include <cstdio>
#include <exception>
#include <fstream>

namespace {

// Decodes `path` and hands every particle to the system under vboMutex. `prepare` empties
// the system; `place` adds one particle and answers its index for the id and colour.
template <class System, class Prepare, class Colour>
int importBin(System& system, const std::string& path, Prepare prepare, Colour colour)
{
    std::vector<fileio::BinParticle> particles;
    fileio::BinHeader header;
    if (fileio::readBinParticles(path, particles, &header) != 0) return -1;

    QMutexLocker lock(&vboMutex);
    prepare();
    IntArray& ids = *system.body->points->template attribAs<IntArray>("id");
    VecArray& cd = system.body->points->Cd;
    for (const fileio::BinParticle& p : particles) {
        const Vec4f v(p.vel[0], p.vel[1], p.vel[2], 0.f);
        const int i = system.addParticle(Vec4f(p.pos[0], p.pos[1], p.pos[2], 0.f), v);
        ids[size_t(i)] = int32_t(p.id);
        cd[size_t(i)] = colour(p, v);
    }
    std::printf("reading done.\n");
    return 0;
}

// The reader by extension; PRT and Alembic report at once that they are not available yet.
template <class Import>
int dispatchImport(const std::string& path, Import importBinFile)
{
    const std::string ext = fileio::extensionOf(path);
    if (ext == "prt" || ext == "abc") {
        std::printf("ERROR: reading .%s particle caches is not supported yet: %s\n", ext.c_str(), path.c_str());
        return -1;
    }
    return importBinFile();
}

} // namespace

int readInitialState(DumbParticleSystem& system, const std::string& path)
{
    if (simState && !simState->paused) return -1; // no load while a run is under way
    std::printf("Dumb: importing %s\n", path.c_str());
    int result = -1;
    try {
        result = dispatchImport(path, [&] {
            return importBin(system, path, [&] { system.reset(false); },
                             [&](const fileio::BinParticle&, const Vec4f& v) {
                                 return rampColour(v.length3(), system.whiteWaterSpeed);
                             });
        });
    } catch (const std::exception& e) {
        std::printf("ERROR: %s\n", e.what());
        result = -1;
    }
    if (result != 0) {
        QMutexLocker lock(&vboMutex);
        system.reset(false);
    }
    return result;
}

int readInitialState(GranularParticleSystem& system, const std::string& path)
{
    if (!std::ifstream(path, std::ios::binary)) {
        std::printf("cannot open %s\n", path.c_str());
        return -1;
    }
    try {
        std::printf("reading from %s\n", path.c_str());
        const float limit = 20.f / (system.colorScale != 0.f ? system.colorScale : 1.f);
        const int result = dispatchImport(path, [&] {
            return importBin(system, path, [&] { system.reset(); },
                             [&](const fileio::BinParticle& p, const Vec4f&) {
                                 return rampColour(float(int(p.density)), limit);
                             });
        });
        if (result == 0) {
            // New particles must not reuse an id that came from the file.
            const IntArray& ids = *system.ch.id;
            for (int32_t id : ids) system.nextParticleId = std::max(system.nextParticleId, id);
            system.lastParticleCount = int32_t(system.particleCount());
            system.lastSolvedTime = simState ? simState->frameF : 0.f;
        }
        return result;
    } catch (const std::exception& e) {
        std::printf("ERROR: %s\n", e.what());
    } catch (...) {
        std::printf("ERROR: unknown\n");
    }
    QMutexLocker lock(&vboMutex);
    system.reset();
    return -1;
}
