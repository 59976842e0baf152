// ConnectCommand: a wire drawn in the node editor, or one pulled off its input
// (`disconnecting`), as one undo step. Both ends are held as node name and plug index (an
// input and an output of one node may share a name); undoing a drawn wire takes it out and
// gives the input back the wire it replaced, if any.
#pragma once

#include <QUndoCommand>
#include <string>

class Plug;

class ConnectCommand : public QUndoCommand {
public:
    // `a` and `b` in either order; nothing happens on redo unless they can be wired.
    ConnectCommand(Plug* a, Plug* b);

    void redo() override;
    void undo() override;

    struct End {
        std::string node;
        int index = -1;
    };
    End output, input, replaced; // replaced.node empty: the input was free
    bool disconnecting = false;

    void join();
    void cut();

    static Plug* outputOf(const End& end);
    static Plug* inputOf(const End& end);
};
