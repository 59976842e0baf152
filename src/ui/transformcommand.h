// TransformCommand: one finished gizmo drag as an undo step. It keeps the target's name and
// the nine transform values before and after, and writes them back by name through the
// rows' text, so it survives the object or node being rebuilt in between.
#pragma once

#include <QUndoCommand>
#include <string>

class TransformCommand : public QUndoCommand {
public:
    TransformCommand(std::string name, bool isNode, const float oldValues[9], const float newValues[9]);

    void undo() override;
    void redo() override;

    // Writes the nine values into the rows of the object or node called `name`, each as
    // its trimmed number text; false (and a printed line) when it is gone.
    static bool applyValues(const std::string& name, bool isNode, const float values[9]);

    std::string name;
    bool isNode = false;
    float oldValues[9];
    float newValues[9];
};
