// VDB volumes: readVdb takes the grids a volume node understands from an OpenVDB file
// into a Body's volumes (by name: distance, surface, density, fog, v, vel, velocity,
// temperature, heat, fuel), writeVdb stores every grid of a Body with its class set.
#pragma once

#include <string>

class Body;

namespace fileio {

// 0, or -1 for a file that doesn't open or that OpenVDB refuses ("vdb error.").
int readVdb(const std::string& path, Body& body);
// Writes through a temporary name; 0. OpenVDB errors leave as exceptions.
int writeVdb(const std::string& path, const Body& body);

} // namespace fileio
