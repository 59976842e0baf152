#include "ui/parametereditor.h"

#include "ui/keyframes.h"
#include "ui/paramtablemodel.h"
#include "ui/paramtableview.h"
#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "app/writingqueue.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "params/parameterset.h"
#include "params/paths.h"
#include "particles/collisionobject.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QHeaderView>
#include <QInputDialog>
#include <QMenu>
#include <cmath>
#include <cstdio>

ParameterEditor::ParameterEditor(QWidget* parent) : QDockWidget(QStringLiteral("Parameters"), parent)
{
    setObjectName(QStringLiteral("parameterEditor"));
    model = new ParamTableModel(this);
    table = new ParamTableView(this);
    table->setModel(model);
    table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Interactive);
    table->horizontalHeader()->resizeSection(0, 170);
    setWidget(table);
    connect(table, &QAbstractItemView::doubleClicked, this, &ParameterEditor::onTableDoubleClicked);
    connect(table, &QAbstractItemView::clicked, this, &ParameterEditor::onTableClicked);
    connect(table, &ParamTableView::contextMenuForRow, this, &ParameterEditor::showContextMenu);
    connect(model, &ParamTableModel::edited, this, &ParameterEditor::onEdited);
    connect(UiEvents::instance(), &UiEvents::selectionChanged, this, &ParameterEditor::refresh);
    connect(UiEvents::instance(), &UiEvents::parametersChanged, this, &ParameterEditor::refresh);
    parameterEditor = this;
    refresh();
}

ParameterEditor::~ParameterEditor()
{
    if (parameterEditor == this) parameterEditor = nullptr;
}

QString ParameterEditor::titleFor(const SelectionEntry& entry)
{
    switch (entry.typeCode) {
    case kTypeGranularSystem: return QStringLiteral("GranularSystem");
    case kTypeSphSystem: return QStringLiteral("SPHSystem");
    case kTypeDumbSystem: return QStringLiteral("DumbSystem");
    case kTypeGraphNode: {
        BaseNode* node = nodeMaster ? nodeMaster->findByName(entry.name) : nullptr;
        if (node && !node->displayName.empty()) return QString::fromStdString(node->displayName);
        return QStringLiteral("Parameters");
    }
    default: return QStringLiteral("Parameters");
    }
}

bool ParameterEditor::isPathKey(const std::string& key)
{
    return key == "initialStateFilePath" || key == "particleCacheFilePath" || key == "writeFilePath" ||
           key == "imagePath" || key == "readFilePath" || key == "colliderName";
}

void ParameterEditor::clearTarget()
{
    model->clearTarget();
    setWindowTitle(QStringLiteral("Parameters"));
}

void ParameterEditor::refresh()
{
    if (model->dragging) { // the drag writes the row itself; a reset would end it
        table->viewport()->update();
        return;
    }
    const std::vector<SelectionEntry> selection = currentSelection();
    SelectionEntry entry = selection.empty() ? SelectionEntry() : selection.front();
    if (entry.typeCode >= 0 && !parameterSetOf(entry)) entry = SelectionEntry(); // gone meanwhile
    if (entry.typeCode != model->target.typeCode || entry.name != model->target.name) model->setTarget(entry);
    else model->rebuild();
    setWindowTitle(titleFor(entry));
}

void ParameterEditor::onEdited(const QString& key)
{
    const std::string k = key.toStdString();
    if (model->isNodeTarget()) return;
    if (k == "particleCacheFilePath" || k == "initialStateFilePath" || k == "filePath") {
        filePathChanged = true;
        changedObjectName = model->target.name;
        otherFlag = true;
    }
}

bool ParameterEditor::resetToDefault(int row)
{
    Parameter* p = model->parameterAt(row);
    if (!p || ParamTableModel::isSpecial(*p) || p->type == kParamObjectName) return false;
    if (p->text == p->defaultText) return false;
    return model->editText(row, p->defaultText);
}


bool ParameterEditor::setKey(int row)
{
    Parameter* p = model->parameterAt(row);
    if (!p || ParamTableModel::isSpecial(*p) || !p->isNumeric()) return false;
    const std::string text = textWithKey(*p, simState ? double(simState->frame) : 0.0, fieldValue(*p));
    if (text == p->text) return false;
    ParamTableModel::pushEdit(model->target, p->key, p->text, text);
    return true;
}

bool ParameterEditor::deleteKey(int row)
{
    Parameter* p = model->parameterAt(row);
    if (!p || !p->isNumeric()) return false;
    const double frame = simState ? double(simState->frame) : 0.0;
    std::string text;
    if (!textWithoutKey(*p, frame, text)) {
        std::printf("no key at frame %g.\n", frame);
        return false;
    }
    ParamTableModel::pushEdit(model->target, p->key, p->text, text);
    return true;
}

bool ParameterEditor::makeInitialStateFile()
{
    const SelectionEntry entry = model->target;
    if (entry.typeCode < 0 || entry.typeCode >= 4 || !simulation) {
        std::printf("Please select a particle system first.\n");
        return false;
    }
    std::string folder = simulation->globalSettings ? simulation->globalSettings->fallbackPathCaches : std::string();
    if (folder.empty()) {
        if (simulation->scenePath.empty()) {
            std::printf("Initial state: please save the scene or specify a cache path.\n");
            return false;
        }
        folder = folderOf(simulation->scenePath) + "/caches/" + simulation->sceneName;
    }
    if (!QDir(QString::fromStdString(folder)).exists()) {
        QDir().mkpath(QString::fromStdString(folder));
        std::printf("created dir: %s\n", folder.c_str());
    }
    const std::string path = folder + "/" + entry.name + ".initialState." + "prt";
    std::printf("initial state is going to: %s\n", path.c_str());
    std::shared_ptr<Body> body;
    {
        const bool locked = vboMutex.tryLock(1000);
        body = simulation->systemSnapshot(entry.name);
        if (locked) vboMutex.unlock();
    }
    if (!body || writeBodyJob(path, body, currentFrameStamp()) != 0)
        std::printf("Initial state: writing %s failed.\n", path.c_str());
    const int row = model->rowOfKey("initialStateFilePath");
    return row >= 0 && model->editText(row, path);
}

bool ParameterEditor::choosePath(int row)
{
    Parameter* p = model->parameterAt(row);
    if (!p) return false;
    const std::string key = p->key;
    QString chosen;
    if (key == "colliderName") {
        QStringList names;
        if (simulation)
            for (const CollisionObject* c : simulation->colliders) names << QString::fromStdString(c->name);
        if (names.isEmpty()) {
            std::printf("There are no colliders in the scene.\n");
            return false;
        }
        bool ok = false;
        chosen = QInputDialog::getItem(this, QStringLiteral("Collider"), QStringLiteral("Collider Name"), names, 0,
                                       false, &ok);
        if (!ok) return false;
    } else {
        const QString start = QString::fromStdString(folderOf(p->text));
        const bool writes = key == "writeFilePath" || key == "particleCacheFilePath";
        chosen = writes ? QFileDialog::getSaveFileName(this, QStringLiteral("File Path"), start)
                        : QFileDialog::getOpenFileName(this, QStringLiteral("File Path"), start);
        if (chosen.isEmpty()) return false;
    }
    return model->editText(row, chosen.toStdString());
}

void ParameterEditor::onTableDoubleClicked(const QModelIndex& index)
{
    const Parameter* p = model->parameterAt(index.row());
    if (!p || ParamTableModel::isSpecial(*p)) return;
    if (isPathKey(p->key)) {
        choosePath(index.row());
        return;
    }
    table->edit(model->index(index.row(), 1));
}

void ParameterEditor::onTableClicked(const QModelIndex& index)
{
    const Parameter* p = model->parameterAt(index.row());
    if (!p || p->key != "writeButton") return;
    if (!(QApplication::keyboardModifiers() & Qt::ShiftModifier)) {
        std::printf("Shift+click the write button to start writing.\n");
        return;
    }
    emit writeRequested(QString::fromStdString(model->target.name));
}

void ParameterEditor::showContextMenu(int row, const QPoint& globalPos)
{
    const Parameter* p = model->parameterAt(row);
    if (!p || ParamTableModel::isSpecial(*p)) return;
    QMenu menu(this);
    QAction* setKeyAction = menu.addAction(QStringLiteral("set key"));
    QAction* deleteKeyAction = menu.addAction(QStringLiteral("delete key"));
    setKeyAction->setEnabled(p->isNumeric());
    deleteKeyAction->setEnabled(p->isNumeric() && !p->keys.empty());
    QAction* resetAction = menu.addAction(QStringLiteral("reset to default"));
    QAction* initialAction = nullptr;
    if (p->key == "initialStateFilePath")
        initialAction = menu.addAction(QStringLiteral("make initial state file from current state"));
    QAction* picked = menu.exec(globalPos);
    if (!picked) return;
    if (picked == setKeyAction) setKey(row);
    else if (picked == deleteKeyAction) deleteKey(row);
    else if (picked == resetAction) resetToDefault(row);
    else if (picked == initialAction) makeInitialStateFile();
}
