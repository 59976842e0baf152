// AddCommand: a new classic object of a type. redo makes it (the first redo picks the
// name, later ones make it again under that name); undo removes it by name and brings
// back the selection of before.
#pragma once

#include "app/simulation.h"

#include <QUndoCommand>
#include <string>
#include <vector>

class SceneObject;

class AddCommand : public QUndoCommand {
public:
    explicit AddCommand(int typeCode, std::string wantedName = "");

    void undo() override;
    void redo() override;
    std::string createdName() const { return name; }

    int typeCode;
    std::string wantedName;
    std::string name; // the name the object got; empty before the first redo
    std::vector<SelectionEntry> selectionBefore;

    // A new object of a classic type (systems 0, 1, 3; source 5, force 7, collider 8,
    // object 9) named after `wanted` or the type's default; null for other types. The
    // caller holds the classic data lock.
    static SceneObject* createOfType(int typeCode, const std::string& wanted);
    // Removes the classic object called `name` under the classic data lock; false when
    // there is none.
    static bool removeByName(const std::string& name);
};
