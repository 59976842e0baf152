// SelectionCommand: one change of the selection, kept as names with their type codes so
// that it still applies after the objects were deleted and made again.
#pragma once

#include "app/simulation.h"

#include <QUndoCommand>
#include <string>
#include <vector>

class SelectionCommand : public QUndoCommand {
public:
    SelectionCommand(std::vector<SelectionEntry> before, std::vector<SelectionEntry> after);

    void undo() override;
    void redo() override;

    std::vector<SelectionEntry> before;
    std::vector<SelectionEntry> after;

    // Selects the entries that still exist, looked up by name; an empty list clears the
    // selection. The views hear of it through UiEvents.
    static void selectByName(const std::vector<SelectionEntry>& entries);
};
