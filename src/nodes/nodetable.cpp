#include "nodes/nodetable.h"

#include "nodes/nullnode.h"
#include "nodes/writenode.h"

#include <map>

namespace {

template <class T> BaseNode* make(NodeMaster* master)
{
    return new T(master);
}

const std::map<std::string, NodeMaker>& table()
{
    static const std::map<std::string, NodeMaker> t = {
        {"null", &make<NullNode>},
        {"write", &make<WriteNode>},
    };
    return t;
}

} // namespace

NodeMaker findNodeMaker(const std::string& key)
{
    auto it = table().find(key);
    return it == table().end() ? nullptr : it->second;
}
