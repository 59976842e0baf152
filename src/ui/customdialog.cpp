#include "ui/customdialog.h"

#include "ui/colorbutton.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCompleter>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cstdio>

CustomDialog::CustomDialog(const QString& title, QWidget* parent) : QDialog(parent)
{
    setWindowTitle(title);
    auto* outer = new QVBoxLayout(this);
    grid = new QGridLayout();
    outer->addLayout(grid);
    outer->addStretch(1);
    auto* buttons = new QHBoxLayout();
    buttons->addStretch(1);
    okButton = new QPushButton("Okay", this);
    cancelButton = new QPushButton("Cancel", this);
    okButton->setDefault(true);
    buttons->addWidget(okButton);
    buttons->addWidget(cancelButton);
    outer->addLayout(buttons);
    connect(okButton, &QPushButton::clicked, this, &CustomDialog::accept);
    connect(cancelButton, &QPushButton::clicked, this, &CustomDialog::reject);
}

int CustomDialog::addRow(int kind, const QString& label, QWidget* widget, void* value, const QString& toolTip)
{
    Row row;
    row.kind = kind;
    row.label = new QLabel(label, this);
    row.widget = widget;
    row.value = value;
    const int index = int(rows.size());
    if (widget) {
        grid->addWidget(row.label, index, 0);
        grid->addWidget(widget, index, 1);
        if (!toolTip.isEmpty()) {
            row.label->setToolTip(toolTip);
            widget->setToolTip(toolTip);
        }
    } else {
        grid->addWidget(row.label, index, 0, 1, 2);
    }
    rows.push_back(row);
    return index;
}

int CustomDialog::addLabel(const QString& text)
{
    return addRow(kLabelRow, text, nullptr, nullptr, QString());
}

int CustomDialog::addLineEdit(const QString& label, std::string* value, const QString& toolTip)
{
    auto* edit = new QLineEdit(this);
    if (value) edit->setText(QString::fromStdString(*value));
    return addRow(kLineEditRow, label, edit, value, toolTip);
}

int CustomDialog::addAutoCompletePrev(const QStringList& words)
{
    if (rows.empty() || rows.back().kind != kLineEditRow) {
        std::printf("ERROR: addAutoCompletePrev() must proceed addLineEdit()\n");
        return -1;
    }
    auto* edit = static_cast<QLineEdit*>(rows.back().widget);
    auto* completer = new QCompleter(words, edit);
    completer->setCaseSensitivity(Qt::CaseInsensitive);
    edit->setCompleter(completer);
    return int(rows.size()) - 1;
}

int CustomDialog::addCheckBox(const QString& label, bool* value, const QString& toolTip)
{
    auto* box = new QCheckBox(this);
    if (value) box->setChecked(*value);
    return addRow(kCheckBoxRow, label, box, value, toolTip);
}

int CustomDialog::addSpinBox(const QString& label, int* value, int min, int max, const QString& toolTip)
{
    auto* spin = new QSpinBox(this);
    spin->setRange(min, max);
    if (value) spin->setValue(*value);
    return addRow(kSpinBoxRow, label, spin, value, toolTip);
}

int CustomDialog::addDoubleSpinBox(const QString& label, double* value, double min, double max, int decimals,
                                   const QString& toolTip)
{
    auto* spin = new QDoubleSpinBox(this);
    spin->setDecimals(decimals);
    spin->setRange(min, max);
    if (value) spin->setValue(*value);
    return addRow(kDoubleSpinBoxRow, label, spin, value, toolTip);
}

int CustomDialog::addComboBox(const QString& label, const QStringList& items, int* index,
                              const QString& toolTip)
{
    auto* combo = new QComboBox(this);
    combo->addItems(items);
    if (index && *index >= 0 && *index < items.size()) combo->setCurrentIndex(*index);
    return addRow(kComboBoxRow, label, combo, index, toolTip);
}

int CustomDialog::addColorSel(const QString& label, QColor* value, const QString& toolTip)
{
    auto* button = new ColorButton(value ? *value : QColor(Qt::white), this);
    return addRow(kColorRow, label, button, value, toolTip);
}

bool CustomDialog::wireCheckBox(int checkRow, int targetRow, Wiring how)
{
    if (checkRow < 0 || checkRow >= int(rows.size()) || targetRow < 0 || targetRow >= int(rows.size()) ||
        rows[size_t(checkRow)].kind != kCheckBoxRow) {
        std::printf("CustomDialog: cannot wire row %d to row %d\n", checkRow, targetRow);
        return false;
    }
    auto* box = static_cast<QCheckBox*>(rows[size_t(checkRow)].widget);
    const Row target = rows[size_t(targetRow)];
    auto apply = [target, how](bool on) {
        for (QWidget* w : {static_cast<QWidget*>(target.label), target.widget}) {
            if (!w) continue;
            switch (how) {
            case kEnableRow:
                w->setEnabled(on);
                break;
            case kDisableRow:
                w->setDisabled(on);
                break;
            case kShowRow:
                w->setVisible(on);
                break;
            case kHideRow:
                w->setHidden(on);
                break;
            }
        }
    };
    connect(box, &QCheckBox::toggled, this, apply);
    apply(box->isChecked());
    return true;
}

QWidget* CustomDialog::fieldAt(int row) const
{
    return row >= 0 && row < int(rows.size()) ? rows[size_t(row)].widget : nullptr;
}

QLabel* CustomDialog::labelAt(int row) const
{
    return row >= 0 && row < int(rows.size()) ? rows[size_t(row)].label : nullptr;
}

void CustomDialog::writeValues()
{
    for (const Row& row : rows) {
        if (!row.value || !row.widget) continue;
        switch (row.kind) {
        case kLineEditRow:
            *static_cast<std::string*>(row.value) = static_cast<QLineEdit*>(row.widget)->text().toStdString();
            break;
        case kCheckBoxRow:
            *static_cast<bool*>(row.value) = static_cast<QCheckBox*>(row.widget)->isChecked();
            break;
        case kSpinBoxRow:
            *static_cast<int*>(row.value) = static_cast<QSpinBox*>(row.widget)->value();
            break;
        case kDoubleSpinBoxRow:
            *static_cast<double*>(row.value) = static_cast<QDoubleSpinBox*>(row.widget)->value();
            break;
        case kComboBoxRow:
            *static_cast<int*>(row.value) = static_cast<QComboBox*>(row.widget)->currentIndex();
            break;
        case kColorRow:
            *static_cast<QColor*>(row.value) = static_cast<ColorButton*>(row.widget)->color;
            break;
        default:
            break;
        }
    }
}

void CustomDialog::accept()
{
    writeValues();
    cancelled = false;
    QDialog::accept();
}

void CustomDialog::reject()
{
    cancelled = true;
    QDialog::reject();
}
