// Cache import for the classic systems: BIN now; PRT and Alembic report that they are not
// available yet, at once, without the dispatcher's retries.
#include "particles/particleimport.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "io/binformat.h"
#include "io/fileio.h"
#include "particles/granularparticlesystem.h"

#include <QMutexLocker>

#include <cstdio>
#include <exception>
#include <fstream>

void importRampColour(float value, float limit, float rgb[3])
{
    if (limit > 0.f && value <= limit) {
        const float t = value / limit;
        rgb[0] = 2.f * 0.5f * t;
        rgb[1] = 2.f * 0.8f * t;
        rgb[2] = 2.f * 1.f;
    } else {
        rgb[0] = 2.f * 0.9f;
        rgb[1] = 2.f * 0.95f;
        rgb[2] = 2.f * 1.f;
    }
}

namespace {

int importBin(GranularParticleSystem& system, const std::string& path)
{
    std::printf("reading from %s\n", path.c_str());
    std::vector<fileio::BinParticle> particles;
    fileio::BinHeader header;
    if (fileio::readBinParticles(path, particles, &header) != 0) return -1;

    QMutexLocker lock(&vboMutex);
    system.reset();
    const float limit = 20.f / (system.colorScale != 0.f ? system.colorScale : 1.f);
    for (const fileio::BinParticle& p : particles) {
        const int i = system.addParticle(Vec4f(p.pos[0], p.pos[1], p.pos[2], 0.f),
                                         Vec4f(p.vel[0], p.vel[1], p.vel[2], 0.f));
        (*system.ch.id)[size_t(i)] = int32_t(p.id);
        float rgb[3];
        importRampColour(float(int(p.density)), limit, rgb);
        (*system.ch.Cd)[size_t(i)] = Vec4f(rgb[0], rgb[1], rgb[2], 0.f);
    }
    // New particles must not reuse an id that came from the file.
    for (const fileio::BinParticle& p : particles)
        if (p.id > system.nextParticleId && p.id < INT32_MAX) system.nextParticleId = int32_t(p.id);
    system.lastParticleCount = int32_t(system.particleCount());
    system.lastSolvedTime = simState ? simState->frameF : 0.f;
    std::printf("reading done.\n");
    return 0;
}

} // namespace

int readInitialState(GranularParticleSystem& system, const std::string& path)
{
    if (!std::ifstream(path, std::ios::binary)) {
        std::printf("cannot open %s\n", path.c_str());
        return -1;
    }
    const std::string ext = fileio::extensionOf(path);
    try {
        if (ext == "bin") return importBin(system, path);
        if (ext == "prt" || ext == "abc") {
            std::printf("reading .%s particle caches is not supported yet: %s\n", ext.c_str(), path.c_str());
            return -1;
        }
        std::printf("unknown particle cache format: %s\n", path.c_str());
        return -1;
    } catch (const std::exception& e) {
        std::printf("ERROR: %s\n", e.what());
    } catch (...) {
        std::printf("ERROR: unknown\n");
    }
    QMutexLocker lock(&vboMutex);
    system.reset();
    return -1;
}
