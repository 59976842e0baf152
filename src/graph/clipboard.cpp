// Copy and paste between graphs: the chosen nodes travel through a graph file in the
// temporary folder, so a copy survives the scene it came from and reaches other sessions.
#include "graph/basenode.h"
#include "graph/nodemaster.h"

#include <QDir>

#include <algorithm>
#include <cstdio>

namespace {

// Centre of the nodes' positions in the editor (the rectangle starts inverted, so an
// empty list gives the origin).
void centreOf(const std::vector<BaseNode*>& nodes, float& cx, float& cy)
{
    float x0 = 99999.f, y0 = 99999.f, x1 = -99999.f, y1 = -99999.f;
    for (const BaseNode* n : nodes) {
        x0 = std::min(x0, n->posx);
        y0 = std::min(y0, n->posy);
        x1 = std::max(x1, n->posx);
        y1 = std::max(y1, n->posy);
    }
    cx = nodes.empty() ? 0.f : 0.5f * (x0 + x1);
    cy = nodes.empty() ? 0.f : 0.5f * (y0 + y1);
}

void setPosition(BaseNode* n, float x, float y)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%f", double(x));
    n->uiParams.get("posx")->text = text;
    std::snprintf(text, sizeof(text), "%f", double(y));
    n->uiParams.get("posy")->text = text;
    n->uiParams.get("posx")->evaluate(0.f, 0);
    n->uiParams.get("posy")->evaluate(0.f, 0);
}

} // namespace

std::string NodeMaster::clipboardPath()
{
    return QDir::tempPath().toStdString() + "/qorva_copy_nodes_tmp.tmp";
}

int NodeMaster::copyNodes(const std::vector<BaseNode*>& selection)
{
    if (selection.empty()) return -1;
    const std::string path = clipboardPath();
    std::printf("storing in tmp file: %s\n", path.c_str());
    centreOf(selection, copyCenterX, copyCenterY);
    return saveGraph(path, selection, nullptr);
}

int NodeMaster::pasteNodes(std::vector<BaseNode*>& created)
{
    const std::string path = clipboardPath() + ".ng";
    std::printf("pasting from tmp file: %s\n", path.c_str());
    const int r = loadGraph(path, created, true, nullptr);
    if (r != 0) return r;
    copyCenterX += 25.f;
    copyCenterY += 25.f;
    float cx = 0.f, cy = 0.f;
    centreOf(created, cx, cy);
    for (BaseNode* n : created) setPosition(n, copyCenterX - cx + n->posx, copyCenterY - cy + n->posy);
    onParameterChanged(nullptr);
    return 0;
}

BaseNode* NodeMaster::createNodeAt(const std::string& key, float x, float y)
{
    if (verbose) std::printf("createNodeDual...\n");
    BaseNode* n = createNode(key);
    if (n) setPosition(n, x, y);
    return n;
}
