#include "ui/deletecommand.h"

#include "ui/addcommand.h"
#include "ui/pastecommand.h"
#include "ui/selectioncommand.h"
#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/sceneobject.h"

#if __has_include("ui/nodesgraphicsview.h")
#include "ui/nodesgraphicsview.h"
#define QORVA_HAVE_NODE_EDITOR 1
#endif

#include <QString>
#include <cstdio>
#include <utility>

DeleteCommand::DeleteCommand(std::vector<SelectionEntry> selected) : entries(std::move(selected))
{
    setText(QStringLiteral("Delete"));
}

void DeleteCommand::redo()
{
    saved.clear();
    std::vector<std::string> nodeNames;
    // The definitions are all taken first, so that each still names the others it links to.
    for (const SelectionEntry& e : entries) {
        if (e.typeCode == kTypeGraphNode) {
            nodeNames.push_back(e.name);
            continue;
        }
        if (e.typeCode == kTypeGlobalSettings) continue; // never deleted
        Saved s;
        s.typeCode = e.typeCode;
        s.name = e.name;
        s.text = copyObjectText(e.name);
        if (s.text.empty()) {
            std::printf("Delete: object %s not found.\n", e.name.c_str());
            continue;
        }
        saved.push_back(std::move(s));
    }
    setSelection({});
    for (const Saved& s : saved) AddCommand::removeByName(s.name);

    graphRemoved = false;
    if (!nodeNames.empty()) {
#ifdef QORVA_HAVE_NODE_EDITOR
        if (nodeEditor) {
            savedGraph = nodeEditor->removeNodes(nodeNames);
            graphRemoved = true;
        } else {
            std::printf("Delete: no node editor to delete graph nodes with.\n");
        }
#else
        std::printf("Delete: no node editor to delete graph nodes with.\n");
#endif
    }
    emit UiEvents::instance()->sceneChanged();
    emit UiEvents::instance()->parametersChanged();
    markSceneEdited();
    requestViewsRefresh();
}

void DeleteCommand::undo()
{
    if (!saved.empty()) {
        const bool locked = vboMutex.tryLock(1000);
        if (!locked) std::printf("Delete Undo: the scene stayed busy; going on without the lock.\n");
        // All objects first, then their links, so that links among them are found.
        std::vector<std::string> made;
        for (const Saved& s : saved) made.push_back(objectFromText(s.typeCode, s.text, s.name));
        for (size_t i = 0; i < saved.size(); ++i)
            if (!made[i].empty()) restoreObjectLinks(made[i], saved[i].text);
        if (locked) vboMutex.unlock();
    }
#ifdef QORVA_HAVE_NODE_EDITOR
    if (graphRemoved && nodeEditor) nodeEditor->restoreNodes(savedGraph);
#endif
    emit UiEvents::instance()->sceneChanged();
    SelectionCommand::selectByName(entries);
    emit UiEvents::instance()->parametersChanged();
    markSceneEdited();
}
