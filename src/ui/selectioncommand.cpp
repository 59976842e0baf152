#include "ui/selectioncommand.h"

#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"

#include <utility>

SelectionCommand::SelectionCommand(std::vector<SelectionEntry> beforeEntries, std::vector<SelectionEntry> afterEntries)
    : before(std::move(beforeEntries)), after(std::move(afterEntries))
{
    setText(QStringLiteral("Selection"));
}

void SelectionCommand::selectByName(const std::vector<SelectionEntry>& entries)
{
    std::vector<SelectionEntry> found;
    for (const SelectionEntry& e : entries) {
        if (e.name.empty()) continue;
        SelectionEntry now;
        if (e.typeCode == kTypeGraphNode) {
            BaseNode* node = nodeMaster ? nodeMaster->findByName(e.name) : nullptr;
            if (!node) continue;
            now.typeCode = kTypeGraphNode;
            now.id = node->id;
            now.name = e.name;
        } else {
            now = selectionEntryFor(e.name);
        }
        if (now.typeCode < 0) continue; // gone meanwhile
        found.push_back(now);
    }
    setSelection(found);
    requestViewsRefresh();
}

void SelectionCommand::redo()
{
    selectByName(after);
}

void SelectionCommand::undo()
{
    selectByName(before);
}
