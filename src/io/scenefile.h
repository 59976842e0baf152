// The scene file (.qrv): one XML document holding the classic world (global settings,
// particle systems, geometry objects, sources, colliders, forces) as the texts of their
// parameter rows, and the links between them by name. The graph's own root sits in the
// same document; until the graph is loaded by its owner, its text is kept as it was read
// so that a save does not lose it.
#pragma once

#include <string>

class Simulation;

namespace scenefile {

// 0 on success, tinyxml2's error code when the file can't be opened or parsed, and 5 when
// the document has no "Qorva" root or no "nodes" under it. The scene is cleared first.
int load(Simulation& simulation, const std::string& path);
// Writes through a temporary file, so a failed save never destroys the previous file.
bool save(Simulation& simulation, const std::string& path);

// Sets the scene's path, folder and name from a file path.
void setScenePath(Simulation& simulation, const std::string& path);

} // namespace scenefile
