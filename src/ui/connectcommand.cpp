#include "ui/connectcommand.h"

#include "app/globals.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "ui/nodesgraphicsview.h"
#include "ui/uiglobals.h"

#include <cstdio>

namespace {
ConnectCommand::End endOf(const Plug* plug, const std::vector<Plug*>& list)
{
    ConnectCommand::End end;
    if (!plug || !plug->owner) return end;
    end.node = plug->owner->name();
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i] == plug) end.index = int(i);
    return end;
}

void cookAfterEdit()
{
    markSceneEdited();
    if (nodeEditor) nodeEditor->cookGraph();
}
} // namespace

ConnectCommand::ConnectCommand(Plug* a, Plug* b)
{
    setText("Connect");
    Plug* out = a && !a->isInput() ? a : b;
    Plug* in = a && a->isInput() ? a : b;
    if (!out || !in || out == in) return;
    output = endOf(out, out->owner->outputs);
    input = endOf(in, in->owner->inputs);
    if (Plug* old = in->sourcePlug(); old && old != in && old->owner) replaced = endOf(old, old->owner->outputs);
}

Plug* ConnectCommand::outputOf(const End& end)
{
    BaseNode* node = nodeMaster ? nodeMaster->findByName(end.node) : nullptr;
    return node && end.index >= 0 && end.index < int(node->outputs.size()) ? node->outputs[size_t(end.index)] : nullptr;
}

Plug* ConnectCommand::inputOf(const End& end)
{
    BaseNode* node = nodeMaster ? nodeMaster->findByName(end.node) : nullptr;
    return node && end.index >= 0 && end.index < int(node->inputs.size()) ? node->inputs[size_t(end.index)] : nullptr;
}

void ConnectCommand::redo()
{
    if (disconnecting) cut();
    else join();
}

void ConnectCommand::undo()
{
    if (disconnecting) join();
    else cut();
}

void ConnectCommand::join()
{
    Plug* out = outputOf(output);
    Plug* in = inputOf(input);
    int made = -1;
    if (out && in && graphMutex.tryLock(500)) {
        made = nodeMaster->connectPlugs(out, in);
        graphMutex.unlock();
    }
    // a wire the rules refuse is no step to undo
    if (made < 0) {
        if (!disconnecting) setObsolete(true);
        return;
    }
    cookAfterEdit();
}

void ConnectCommand::cut()
{
    Plug* out = outputOf(output);
    Plug* in = inputOf(input);
    if (!out || !in) {
        std::printf("Connect Undo: plug not found.\n");
        return;
    }
    if (!graphMutex.tryLock(500)) {
        std::printf("Connect Undo: the graph stayed busy.\n");
        return;
    }
    nodeMaster->disconnectPlugs(out, in);
    if (!disconnecting && !replaced.node.empty())
        if (Plug* old = outputOf(replaced)) nodeMaster->connectPlugs(old, in);
    graphMutex.unlock();
    cookAfterEdit();
}
