// SearchableMenu: the node creation menu ("create node"). A line edit at the top filters
// the node types by substring as the user types; below it one sub-menu per category of
// the node master's type table. Enter in the line edit takes the first match.
#pragma once

#include <QMenu>
#include <QStringList>
#include <string>
#include <vector>

class QLineEdit;
class QWidgetAction;

class SearchableMenu : public QMenu {
    Q_OBJECT
public:
    struct Category {
        QString name;
        QStringList keys;
    };

    explicit SearchableMenu(const std::vector<Category>& categories, QWidget* parent = nullptr);

    QLineEdit* searchField = nullptr;
    std::vector<QMenu*> categoryMenus;
    std::vector<QAction*> matchActions; // the filtered entries, shown while a filter is set
    QStringList allKeys;                // every key once, in menu order

    // The keys whose name holds `text` (any case); all keys for an empty text.
    QStringList matches(const QString& text) const;
    // The entries the menu shows for the current filter (the keys of matchActions, or every
    // key of the sub-menus when no filter is set).
    QStringList visibleEntries() const;
    void setFilter(const QString& text);
    // Emits nodeChosen for the first match of the filter; false when nothing matches.
    bool chooseFirstMatch();

signals:
    void nodeChosen(const QString& key);

protected:
    void showEvent(QShowEvent* event) override;

private:
    QWidgetAction* searchAction = nullptr;
    QAction* separator = nullptr;
};
