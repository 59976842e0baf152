// ParamTableModel: the rows of one parameter set as a two-column table (label | value),
// the visible rows only, in the set's order. The set is looked up by the target's name
// on each use, never kept as a pointer. An accepted edit is one undo command; the
// command's first redo writes the text.
#pragma once

#include "app/simulation.h"

#include <QAbstractTableModel>
#include <string>
#include <vector>

class Parameter;
class ParameterSet;

class ParamTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    explicit ParamTableModel(QObject* parent = nullptr);

    SelectionEntry target;  // whose rows are shown; typeCode -1 for none
    std::vector<int> rows;  // index into the set's rows per table row

    // Ctrl+drag on a literal number: the value while dragging is written straight into
    // the row; the release pushes one command from the start text to the last one.
    bool dragging = false;
    int dragRow = -1;
    std::string dragKey;
    std::string dragStartText;
    std::string dragText;
    double dragStartValue = 0.0;

    void setTarget(const SelectionEntry& entry);
    void clearTarget();
    // Reads the set again: which rows are visible, and their texts.
    void rebuild();
    ParameterSet* parameterSet() const;
    Parameter* parameterAt(int row) const;
    int rowOfKey(const std::string& key) const;
    bool isNodeTarget() const;

    // What the value cell shows for a row.
    static std::string displayText(const Parameter& p);
    static bool isSpecial(const Parameter& p);

    // An edit of row `row` to `text`: pushes one command when the text differs. A number
    // over keys only overrides the keyed value (the core's rule), with no command. false
    // when nothing changed.
    bool editText(int row, const std::string& text);
    // Pushes the command fitting the target (classic object or graph node).
    static void pushEdit(const SelectionEntry& entry, const std::string& key, const std::string& oldText,
                         const std::string& newText);

    bool isDraggable(int row) const;
    bool beginDrag(int row);
    // `pixels`: the horizontal distance from where the drag began.
    void dragBy(int pixels);
    // Ends the drag; true when a command was pushed.
    bool endDrag();

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

signals:
    // After an accepted edit of the row `key` was pushed.
    void edited(const QString& key);

private:
    void applyOverride(Parameter& p, const std::string& text);
    // Writes a text into the row without a command (the live part of a drag).
    void applyLive(const std::string& text);
};
