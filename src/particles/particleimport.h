// Loading particles from a cache file into a classic system: initial states at the start
// of a run and caches read back when the frame is changed by hand. The reader is picked
// by the file's extension; the particles are handed to the system under vboMutex.
#pragma once

#include <string>

class GranularParticleSystem;
class DumbParticleSystem;

// Resets `system` and fills it from `path`. 0 on success; a negative result when the file
// can't be read, and then a file that can't be opened leaves the system untouched.
int readInitialState(GranularParticleSystem& system, const std::string& path);

// Resets `system` (keeping its id counter) and fills it from `path`; skipped while a run
// is under way. 0 on success, negative on failure (the system is then empty).
int readInitialState(DumbParticleSystem& system, const std::string& path);

