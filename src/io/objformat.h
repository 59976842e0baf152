// OBJ geometry: readObj fills a Body (parsing through tinyobjloader), writeObj stores
// one as text, and loadObjMesh fills the triangle record of a classic geometry object.
// Faces keep the system's winding: a face's vertex list is the file's order reversed,
// both ways, so a write followed by a read gives the same lists back.
#pragma once

#include <string>

class Body;
class ObjectMesh;

namespace fileio {

// Appends the file's points (times `scale`), its triangles and quads (polygons, vertex
// lists reversed) and lines (in file order); N when the file has normals, vertex and
// point uv when it has texture coordinates. 0, or -1 (a file that doesn't open fails
// without a message; a file tinyobjloader refuses prints why). Faces of five or more
// vertices are left out with one warning per file.
int readObj(const std::string& path, Body& body, float scale = 1.f);

// Writes points, N, uv and every primitive as text through a temporary file. 0 or -1.
int writeObj(const std::string& path, const Body& body);

// The classic loader: one mesh of triangles (quads cut into (0,1,2) and (0,2,3), in
// file order), per-vertex normals from the file or, without any, from the faces.
// "Error opening the OBJ-file. loadObj()." when the file doesn't open; 0 or -1.
int loadObjMesh(const std::string& path, ObjectMesh& mesh, float scale = 1.f);

} // namespace fileio
