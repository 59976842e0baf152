// Reading a parameter set from one element of a graph file.
#pragma once

namespace tinyxml2 {
class XMLElement;
}
class ParameterSet;

// Each row takes the attribute named by its key ("attribSetValueX/Y/Z" stand for the
// keys x, y, z of older files); a missing one keeps the row's default.
void readParams(ParameterSet& set, const tinyxml2::XMLElement* element);
