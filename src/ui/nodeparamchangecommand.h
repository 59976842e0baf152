// NodeParamChangeCommand: one edit of a row of a graph node, as the old and new text of
// the row. The node is found by name at each undo and redo.
#pragma once

#include <QUndoCommand>
#include <string>

class BaseNode;
class Parameter;

class NodeParamChangeCommand : public QUndoCommand {
public:
    NodeParamChangeCommand(std::string nodeName, std::string key, std::string oldText, std::string newText);

    void undo() override;
    void redo() override;

    std::string nodeName;
    std::string key;
    std::string oldText;
    std::string newText;
    // The name the node has now as far as this command knows (an edit of its name row
    // moves it on).
    std::string nameNow;

    // The row `key` of the node's own rows, its editor rows (position, colour,
    // visibility) or its state rows; null when either is gone.
    static Parameter* findRow(const std::string& nodeName, const std::string& key);
    // Writes `text` through the row's text path, evaluates it at the current frame and
    // lets the node master cook. Answers the node's name afterwards; empty when the node
    // or the row is gone (printing `missing`).
    static std::string applyText(const std::string& nodeName, const std::string& key, const std::string& text,
                                 const char* missing);

private:
    void apply(const std::string& text, const char* missing);
};
