#include "ui/searchablemenu.h"

#include "nodes/nodetable.h"

#include <QLineEdit>
#include <QWidgetAction>
#include <algorithm>

SearchableMenu::SearchableMenu(const std::vector<Category>& categories, QWidget* parent) : QMenu(parent)
{
    setTitle("create node");
    searchField = new QLineEdit(this);
    searchField->setPlaceholderText("search...");
    searchField->setClearButtonEnabled(true);
    searchAction = new QWidgetAction(this);
    searchAction->setDefaultWidget(searchField);
    addAction(searchAction);
    separator = addSeparator();

    for (const Category& c : categories) {
        QMenu* sub = addMenu(c.name);
        categoryMenus.push_back(sub);
        for (const QString& key : c.keys) {
            QAction* a = sub->addAction(key);
            a->setData(key);
            // node types this build can't make yet stay listed, greyed out
            a->setEnabled(findNodeMaker(key.toStdString()) != nullptr);
            connect(a, &QAction::triggered, this, [this, key] { emit nodeChosen(key); });
            if (!allKeys.contains(key)) allKeys.push_back(key);
        }
    }
    connect(searchField, &QLineEdit::textChanged, this, &SearchableMenu::setFilter);
    connect(searchField, &QLineEdit::returnPressed, this, [this] {
        if (chooseFirstMatch()) close();
    });
}

QStringList SearchableMenu::matches(const QString& text) const
{
    const QString needle = text.trimmed();
    if (needle.isEmpty()) return allKeys;
    QStringList out;
    for (const QString& key : allKeys)
        if (key.contains(needle, Qt::CaseInsensitive) && findNodeMaker(key.toStdString()) != nullptr) out.push_back(key);
    // names that start with the text come first
    std::stable_sort(out.begin(), out.end(), [&](const QString& a, const QString& b) {
        return a.startsWith(needle, Qt::CaseInsensitive) && !b.startsWith(needle, Qt::CaseInsensitive);
    });
    return out;
}

QStringList SearchableMenu::visibleEntries() const
{
    if (!matchActions.empty()) {
        QStringList out;
        for (const QAction* a : matchActions) out.push_back(a->data().toString());
        return out;
    }
    if (!searchField->text().trimmed().isEmpty()) return {};
    QStringList out;
    for (const QMenu* sub : categoryMenus)
        for (const QAction* a : sub->actions()) out.push_back(a->data().toString());
    return out;
}

void SearchableMenu::setFilter(const QString& text)
{
    for (QAction* a : matchActions) {
        removeAction(a);
        a->deleteLater();
    }
    matchActions.clear();
    const bool filtering = !text.trimmed().isEmpty();
    for (QMenu* sub : categoryMenus) sub->menuAction()->setVisible(!filtering);
    if (searchField->text() != text) searchField->setText(text);
    if (!filtering) return;
    for (const QString& key : matches(text)) {
        auto* a = new QAction(key, this);
        a->setData(key);
        connect(a, &QAction::triggered, this, [this, key] { emit nodeChosen(key); });
        insertAction(nullptr, a); // after the separator, where the sub-menus were
        matchActions.push_back(a);
    }
    adjustSize();
}

bool SearchableMenu::chooseFirstMatch()
{
    const QStringList found = matches(searchField->text());
    if (found.isEmpty()) return false;
    emit nodeChosen(found.front());
    return true;
}

void SearchableMenu::showEvent(QShowEvent* event)
{
    QMenu::showEvent(event);
    setActiveAction(searchAction);
    searchField->setFocus();
}
