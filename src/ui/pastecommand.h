// PasteCommand: a new classic object made from a saved definition (Edit > Copy of a
// classic object), named uniquely. undo removes it by name, as AddCommand does.
//
// A saved definition is a small XML text: the object's type, every row's text and the
// names of what it is connected to (a system's colliders, sources and forces; the
// geometry object of a source, collider or force; the systems or objects that refer to it).
#pragma once

#include "app/simulation.h"

#include <QUndoCommand>
#include <string>
#include <vector>

class PasteCommand : public QUndoCommand {
public:
    PasteCommand(int typeCode, std::string text);

    void undo() override;
    void redo() override;

    int typeCode;
    std::string text;
    std::string name; // the pasted object's name; empty before the first redo
    std::vector<SelectionEntry> selectionBefore;
};

// The saved definition of the classic object called `name`; empty when there is none.
std::string copyObjectText(const std::string& name);
// Makes an object of `typeCode` from a saved definition, named `wantedName` (empty: the
// name in the text), made unique; the rows take the saved texts. Answers the object's
// name, empty on failure. The caller holds the classic data lock.
std::string objectFromText(int typeCode, const std::string& text, const std::string& wantedName);
// Makes the connections a saved definition names again for the object called `name`;
// a link that can't be made prints a line. The caller holds the classic data lock.
void restoreObjectLinks(const std::string& name, const std::string& text);
// The type code a saved definition names; -1 when the text is none.
int objectTextType(const std::string& text);
