// ParamChangeCommand: one edit of a row of a classic object, as the old and new text of
// the row. The object is found by name at each undo and redo, so the command still
// applies after the object was deleted and made again.
#pragma once

#include <QUndoCommand>
#include <string>

class ParamChangeCommand : public QUndoCommand {
public:
    ParamChangeCommand(std::string objectName, std::string key, std::string oldText, std::string newText);

    void undo() override;
    void redo() override;

    std::string objectName;
    std::string key;
    std::string oldText;
    std::string newText;
    // The name the object has now as far as this command knows: an edit of the name row
    // moves it on.
    std::string nameAfter;

    void apply(const std::string& text);

    // Writes `text` into the row through its text path and evaluates the object at the
    // current frame, under the classic data lock. Answers the object's name afterwards;
    // empty when the object or the row is gone (with a message).
    static std::string applyText(const std::string& objectName, const std::string& key, const std::string& text);
};
