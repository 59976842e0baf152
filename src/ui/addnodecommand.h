// AddNodeCommand: a node made by type key at a place in the node editor, optionally wired
// behind another node (which hands its visibility over). The node is remembered by name,
// so a redo after an undo makes it again under the same name.
#pragma once

#include "app/simulation.h"

#include <QPointF>
#include <QUndoCommand>
#include <string>
#include <vector>

class BaseNode;

class AddNodeCommand : public QUndoCommand {
public:
    AddNodeCommand(const std::string& key, QPointF pos, const std::string& behindName = std::string());

    void redo() override;
    void undo() override;

    std::string key;
    QPointF pos;
    std::string behindName;  // the node the new one is wired behind; empty for none
    std::string name;        // the created node's name, once made
    bool behindWasVisible = false;
    std::vector<SelectionEntry> before; // the selection when the command was made

    std::string createdName() const { return name; }
    // Sets a row of a node by its text, evaluated at once (rows of all three sets).
    static void setRow(BaseNode* node, const std::string& rowKey, const std::string& text);
};
