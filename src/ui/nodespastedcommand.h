// NodesPastedCommand: nodes that an edit has just brought into the graph (a paste, a preset
// read in), as one undo step. It is pushed after the fact: its first redo does nothing;
// undo takes the nodes out by name, keeping them as graph text, and redo puts them back.
#pragma once

#include <QUndoCommand>
#include <string>
#include <vector>

class NodesPastedCommand : public QUndoCommand {
public:
    NodesPastedCommand(std::vector<std::string> names, const QString& text);

    void redo() override;
    void undo() override;

    std::vector<std::string> names;
    std::string saved;
    bool done = true; // the nodes are in the graph already when the command is pushed
};
