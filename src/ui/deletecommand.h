// DeleteCommand: deletes the given classic objects and graph nodes. Classic objects are
// kept as their saved definition with the names of their connections and made again by
// undo; graph nodes go through the node editor, which saves and restores them with
// their wires.
#pragma once

#include "app/simulation.h"

#include <QUndoCommand>
#include <string>
#include <vector>

class DeleteCommand : public QUndoCommand {
public:
    explicit DeleteCommand(std::vector<SelectionEntry> entries);

    void undo() override;
    void redo() override;

    // One deleted classic object: its type code, name and saved definition.
    struct Saved {
        int typeCode = -1;
        std::string name;
        std::string text;
    };

    std::vector<SelectionEntry> entries;
    std::vector<Saved> saved;    // filled by redo
    std::string savedGraph;      // the node editor's text of the deleted nodes
    bool graphRemoved = false;
};
