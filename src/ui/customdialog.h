// CustomDialog: a small form builder for the window's one-off dialogs. Each add* call
// appends a labelled row bound to a caller's variable; "Okay" writes every field back to
// its variable, "Cancel" leaves them alone. Check boxes can enable, disable, show or hide
// other rows as they are toggled.
#pragma once

#include <QColor>
#include <QDialog>
#include <QString>
#include <QStringList>

#include <string>
#include <vector>

class QGridLayout;
class QLabel;
class QPushButton;

class CustomDialog : public QDialog {
    Q_OBJECT
public:
    enum RowKind {
        kLabelRow,
        kLineEditRow,
        kCheckBoxRow,
        kSpinBoxRow,
        kDoubleSpinBoxRow,
        kComboBoxRow,
        kColorRow
    };
    // How a check box drives another row while it is ticked.
    enum Wiring { kEnableRow, kDisableRow, kShowRow, kHideRow };

    struct Row {
        int kind = kLabelRow;
        QLabel* label = nullptr;
        QWidget* widget = nullptr; // null for a label row
        void* value = nullptr;     // the caller's variable
    };

    explicit CustomDialog(const QString& title, QWidget* parent = nullptr);

    QGridLayout* grid = nullptr;
    QPushButton* okButton = nullptr;
    QPushButton* cancelButton = nullptr;
    std::vector<Row> rows;
    // True until the dialog is closed with "Okay".
    bool cancelled = true;

    // Each answers the new row's index.
    int addLabel(const QString& text);
    int addLineEdit(const QString& label, std::string* value, const QString& toolTip = QString());
    // Gives the line edit added just before a completer over `words`; -1 when the row
    // before is no line edit.
    int addAutoCompletePrev(const QStringList& words);
    int addCheckBox(const QString& label, bool* value, const QString& toolTip = QString());
    int addSpinBox(const QString& label, int* value, int min, int max, const QString& toolTip = QString());
    int addDoubleSpinBox(const QString& label, double* value, double min, double max, int decimals = 3,
                         const QString& toolTip = QString());
    int addComboBox(const QString& label, const QStringList& items, int* index,
                    const QString& toolTip = QString());
    int addColorSel(const QString& label, QColor* value, const QString& toolTip = QString());

    // The check box of row `checkRow` drives row `targetRow` (label and field) through
    // setEnabled, setDisabled, setVisible or setHidden; the current state applies at once.
    bool wireCheckBox(int checkRow, int targetRow, Wiring how);

    QWidget* fieldAt(int row) const;
    QLabel* labelAt(int row) const;
    // Copies every field into its variable.
    void writeValues();

public slots:
    void accept() override;
    void reject() override;

private:
    int addRow(int kind, const QString& label, QWidget* widget, void* value, const QString& toolTip);
};
