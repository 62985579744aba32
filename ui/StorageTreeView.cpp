// The storage pane on screen.
#include "ui/StorageTreeView.h"

#include <QContextMenuEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QUrl>
#include <atomic>

#include "ui/CharsetDialog.h"
#include "ui/NameDialog.h"
#include "ui/ServerDialog.h"
#include "ui/StorageModel.h"

namespace {

// Where the storage tree's callbacks, which come on other threads, post their news.
std::atomic<MESSAGETARGET *> gWindow{nullptr};

void postNode(const char (&code)[5], long long number) {
    if (MESSAGETARGET *window = gWindow.load()) {
        MESSAGE message(fourcc(code));
        message.addInt64("node", number);
        window->post(message);
    }
}

bool loadNode(const BARN::NODE *node) {
    postNode("snad", node->number);
    return true;
}

void loadDone() {
    if (MESSAGETARGET *window = gWindow.load())
        window->post(MESSAGE(fourcc("snfn")));
}

void treeChanged(long long number) {
    postNode("sncg", number);
}

void unreadChanged(const BARN::NODE *node) {
    if (MESSAGETARGET *window = gWindow.load()) {
        MESSAGE message(fourcc("snur"));
        message.addInt64("node", node->number);
        message.addInt64("unread", node->unread);
        window->post(message);
    }
}

// The keys the main window turns into commands; the tree must not take them for itself.
bool windowKey(const QString &text) {
    return text.size() == 1 && QString("RrTt[]{}").contains(text[0]);
}

} // namespace

StorageTreeView::StorageTreeView(MESSAGETARGET *window, QWidget *parent)
    : QTreeView(parent), fWindow(window), fModel(new StorageModel(this)) {
    setObjectName("storagePane");
    setAccessibleName("Storage");
    setModel(fModel);
    header()->hide();
    // Long newsgroup names are scrolled to rather than cut.
    header()->setStretchLastSection(false);
    header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    setUniformRowHeights(true);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAcceptDrops(true);
    viewport()->setAcceptDrops(true);
    setDropIndicatorShown(true);
    setDragDropMode(QAbstractItemView::DropOnly);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    connect(this, &QTreeView::expanded, this,
            [this](const QModelIndex &index) { _expandedSave(index, true); });
    connect(this, &QTreeView::collapsed, this,
            [this](const QModelIndex &index) { _expandedSave(index, false); });
    connect(this, &QTreeView::activated, this, [this](const QModelIndex &) { _post("sinv"); });
    gWindow = window;
    barn.treeCallbackRegister(treeChanged);
    barn.unreadCallbackRegister(unreadChanged);
    _populate();
}

StorageTreeView::~StorageTreeView() {
    barn.treeCallbackUnregister(treeChanged);
    barn.unreadCallbackUnregister(unreadChanged);
    gWindow = nullptr;
}

// The fixed folders, servers and newsgroups now; the user folders as the background load
// finds them.
void StorageTreeView::_populate() {
    static std::vector<long long> *found = nullptr;
    std::vector<long long> numbers;
    found = &numbers;
    barn.iterateMain([](const BARN::NODE *node) {
        found->push_back(node->number);
        return true;
    });
    found = nullptr;
    for (long long number : numbers)
        fModel->sync(number);
    _expandStored({});
    barn.iterateFolders(loadNode, loadDone);
    if (fModel->rowCount() > 0)
        setCurrentIndex(fModel->index(0, 0));
}

void StorageTreeView::_expandStored(const QModelIndex &parent) {
    for (int row = 0; row < fModel->rowCount(parent); ++row) {
        QModelIndex index = fModel->index(row, 0, parent);
        if (fModel->item(index)->data().expanded) {
            setExpanded(index, true);
            _expandStored(index);
        }
    }
}

void StorageTreeView::_expandedSave(const QModelIndex &index, bool expanded) {
    STORAGEITEM *row = fModel->item(index);
    BARN::NODE node;
    if (row != nullptr && barn.nodeRead(&node, row->node()) && node.expanded != expanded) {
        node.expanded = expanded;
        barn.nodeSave(&node);
    }
}

long long StorageTreeView::selected() const {
    STORAGEITEM *row = fModel->item(currentIndex());
    return row != nullptr ? row->node() : BARN::kNodeNone;
}

void StorageTreeView::select(long long number) {
    QModelIndex index = fModel->indexOf(number);
    if (index.isValid()) {
        setCurrentIndex(index);
        scrollTo(index);
    }
}

void StorageTreeView::currentChanged(const QModelIndex &current, const QModelIndex &previous) {
    QTreeView::currentChanged(current, previous);
    emit nodeSelected(selected());
}

void StorageTreeView::_post(const char *code) {
    fWindow->post(MESSAGE(fourccOf(code)));
}

void StorageTreeView::MessageReceived(const MESSAGE &message) {
    int64_t number = BARN::kNodeNone;
    message.findInt64("node", &number);
    switch (message.what) {
    case fourcc("snad"):
    case fourcc("sncg"): {
        bool wasShown = fModel->indexOf(number).isValid();
        fModel->sync(number);
        QModelIndex index = fModel->indexOf(number);
        // A node that appears shows expanded as it was left, with its waiting children.
        if (!wasShown && index.isValid() && fModel->item(index)->data().expanded) {
            setExpanded(index, true);
            _expandStored(index);
        }
        return;
    }
    case fourcc("snur"): {
        int64_t unread = 0;
        message.findInt64("unread", &unread);
        fModel->unreadSet(number, (unsigned long)unread);
        return;
    }
    case fourcc("snfn"):
        return;
    case fourcc("snnx"):
        _navigate(true);
        return;
    case fourcc("snpr"):
        _navigate(false);
        return;
    case fourcc("sinv"): {
        QModelIndex index = currentIndex();
        if (index.isValid() && fModel->rowCount(index) > 0)
            setExpanded(index, !isExpanded(index));
        return;
    }
    case fourcc("ssgu"): {
        // The newsgroup window changed the subscriptions: bring the server's rows up to date.
        int64_t server = BARN::kNodeNone;
        message.findInt64("server", &server);
        unsigned long count = 0;
        barn.groupCount(server, &count);
        BARN::NODE group;
        for (unsigned long i = 0; barn.groupNext(server, &group, i); ++i)
            fModel->sync(group.number);
        return;
    }
    default:
        STORAGE::command(message, selected(), this);
    }
}

void StorageTreeView::_navigate(bool forward) {
    auto expandedOf = [](const STORAGEITEM *item, void *data) {
        auto *view = static_cast<StorageTreeView *>(data);
        return view->isExpanded(view->fModel->indexOf(item->node()));
    };
    const STORAGEITEM *next =
        fModel->list().next(fModel->item(currentIndex()), forward, expandedOf, this);
    if (next != nullptr)
        select(next->node());
}

void StorageTreeView::contextMenuEvent(QContextMenuEvent *event) {
    QModelIndex index = indexAt(event->pos());
    STORAGEITEM *row = fModel->item(index);
    if (row == nullptr)
        return;
    setCurrentIndex(index);
    QMenu menu(this);
    for (const STORAGE::MENUENTRY &entry : STORAGE::menuCreate(row->data())) {
        if (entry.label.empty()) {
            menu.addSeparator();
            continue;
        }
        QAction *action = menu.addAction(QString::fromStdString(entry.label));
        if (entry.marked) {
            action->setCheckable(true);
            action->setChecked(true);
        }
        std::string code = entry.code;
        connect(action, &QAction::triggered, this, [this, code] { _post(code.c_str()); });
    }
    menu.exec(event->globalPos());
}

void StorageTreeView::keyPressEvent(QKeyEvent *event) {
    if (windowKey(event->text())) {
        event->ignore();
        return;
    }
    QTreeView::keyPressEvent(event);
}

STORAGE::DROP StorageTreeView::_dropFor(const QMimeData *data, const QPoint &pos, bool secondary,
                                        std::vector<std::string> *files, long long *target) const {
    files->clear();
    *target = BARN::kNodeNone;
    if (data == nullptr || !data->hasUrls())
        return STORAGE::kDropNone;
    for (const QUrl &url : data->urls())
        if (url.isLocalFile())
            files->push_back(url.toLocalFile().toStdString());
    STORAGEITEM *row = fModel->item(indexAt(pos));
    if (files->empty() || row == nullptr)
        return STORAGE::kDropNone;
    *target = row->node();
    const std::string &first = files->front();
    std::string source = first.substr(0, first.find_last_of('/'));
    BARN::NODE node;
    if (!barn.nodeRead(&node, *target))
        return STORAGE::kDropNone;
    return STORAGE::dropAction(&node, source, secondary);
}

void StorageTreeView::dragEnterEvent(QDragEnterEvent *event) {
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
    else
        event->ignore();
}

void StorageTreeView::dragMoveEvent(QDragMoveEvent *event) {
    std::vector<std::string> files;
    long long target;
    STORAGE::DROP drop =
        _dropFor(event->mimeData(), event->position().toPoint(), false, &files, &target);
    if (drop == STORAGE::kDropNone) {
        event->ignore();
        return;
    }
    event->setDropAction(drop == STORAGE::kDropMove ? Qt::MoveAction : Qt::CopyAction);
    event->accept();
}

void StorageTreeView::dropEvent(QDropEvent *event) {
    STORAGE::DROP drop = dropFiles(event->mimeData(), event->position().toPoint(),
                                   event->buttons() & Qt::RightButton);
    if (drop == STORAGE::kDropNone) {
        event->ignore();
        return;
    }
    event->setDropAction(drop == STORAGE::kDropMove ? Qt::MoveAction : Qt::CopyAction);
    event->accept();
}

STORAGE::DROP StorageTreeView::dropFiles(const QMimeData *data, const QPoint &pos, bool secondary) {
    std::vector<std::string> files;
    long long target;
    STORAGE::DROP drop = _dropFor(data, pos, secondary, &files, &target);
    if (drop == STORAGE::kDropAsk) {
        QMenu menu(this);
        QAction *copy = menu.addAction(STORAGE::kNamePopupCopy);
        QAction *move = menu.addAction(STORAGE::kNamePopupMove);
        menu.addSeparator();
        menu.addAction(STORAGE::kNamePopupCancel);
        QAction *chosen = menu.exec(viewport()->mapToGlobal(pos));
        drop = chosen == copy   ? STORAGE::kDropCopy
               : chosen == move ? STORAGE::kDropMove
                                : STORAGE::kDropNone;
    }
    if (drop != STORAGE::kDropNone)
        STORAGE::dropStart(files, target, drop == STORAGE::kDropMove);
    return drop;
}

void StorageTreeView::serverDialog(const BARN::NODE &server, bool create) {
    ServerDialog dialog(server, create, this);
    dialog.exec();
}

void StorageTreeView::nameDialog(NAMEDIALOG kind, const BARN::NODE *node) {
    NameDialog dialog(kind, node, this);
    dialog.exec();
}

void StorageTreeView::charsetDialog(const BARN::NODE &group) {
    CharsetDialog dialog("Newsgroup Character Set", group.group.charset, this);
    if (dialog.exec() == QDialog::Accepted)
        STORAGE::charsetApply(group.number, dialog.charset());
}

bool StorageTreeView::windowCommand(const MESSAGE &message) {
    return fOpener && fOpener(message);
}
