// The node classes the factory can make, by type key. A new class is one line in
// nodetable.cpp; a key of the vocabulary without a line makes no node yet.
#pragma once

#include <string>

class BaseNode;
class NodeMaster;

using NodeMaker = BaseNode* (*)(NodeMaster*);

// The maker for a lower-case key, or null.
NodeMaker findNodeMaker(const std::string& key);
