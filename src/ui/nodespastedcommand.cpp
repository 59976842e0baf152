#include "ui/nodespastedcommand.h"

#include "ui/nodesgraphicsview.h"
#include "ui/uiglobals.h"

#include <cstdio>

NodesPastedCommand::NodesPastedCommand(std::vector<std::string> pasted, const QString& text)
    : names(std::move(pasted))
{
    setText(text);
}

void NodesPastedCommand::redo()
{
    if (done) return;
    if (!nodeEditor) {
        std::printf("Paste Redo: no node editor.\n");
        return;
    }
    names = nodeEditor->restoreNodes(saved);
    nodeEditor->selectNodesByName(names);
    done = true;
}

void NodesPastedCommand::undo()
{
    if (!nodeEditor) {
        std::printf("Paste Undo: no node editor.\n");
        return;
    }
    saved = nodeEditor->removeNodes(names);
    done = false;
}
