#include "ui/paramitemdelegate.h"

#include "ui/paramtablemodel.h"

#include "params/parameter.h"

#include <QComboBox>
#include <QLineEdit>

namespace {

const Parameter* rowOf(const QModelIndex& index)
{
    const auto* model = qobject_cast<const ParamTableModel*>(index.model());
    return model ? model->parameterAt(index.row()) : nullptr;
}

// The entries a combo box offers for a row; empty for rows edited as text.
QStringList entriesOf(const Parameter* p)
{
    QStringList out;
    if (!p) return out;
    if (p->type == kParamBool) return {QStringLiteral("true"), QStringLiteral("false")};
    if (p->isListKind())
        for (const std::string& e : p->listEntries()) out << QString::fromStdString(e);
    return out;
}

} // namespace

ParamItemDelegate::ParamItemDelegate(QObject* parent) : QStyledItemDelegate(parent) {}

QWidget* ParamItemDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                                         const QModelIndex& index) const
{
    const QStringList entries = entriesOf(rowOf(index));
    if (entries.isEmpty()) return QStyledItemDelegate::createEditor(parent, option, index);
    auto* combo = new QComboBox(parent);
    combo->addItems(entries);
    // A pick is the edit: hand it over at once.
    connect(combo, QOverload<int>::of(&QComboBox::activated), this, [this, combo](int) {
        auto* self = const_cast<ParamItemDelegate*>(this);
        emit self->commitData(combo);
        emit self->closeEditor(combo);
    });
    return combo;
}

void ParamItemDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const
{
    if (auto* combo = qobject_cast<QComboBox*>(editor)) {
        const int i = combo->findText(index.data(Qt::EditRole).toString());
        combo->setCurrentIndex(i < 0 ? 0 : i);
        return;
    }
    QStyledItemDelegate::setEditorData(editor, index);
}

void ParamItemDelegate::setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const
{
    if (auto* combo = qobject_cast<QComboBox*>(editor)) {
        model->setData(index, combo->currentText(), Qt::EditRole);
        return;
    }
    QStyledItemDelegate::setModelData(editor, model, index);
}
