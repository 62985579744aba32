// The storage pane on screen: the tree of folders, servers and newsgroups, its context menu,
// drops of message files, and the dialogs its commands open.
#pragma once

#include <QTreeView>
#include <functional>

#include "base/MESSAGE.h"
#include "ui/ROUTER.h"
#include "ui/STORAGE.h"

class StorageModel;

// The pane's rules are STORAGE's; this class turns clicks, keys and drops into its calls and
// shows the dialogs it asks for. Changes of the storage tree arrive as messages posted to the
// window ("sncg" a node changed, "snur" an unread count, "snad" and "snfn" from the
// background load), so rows are only ever touched on the interface thread.
class StorageTreeView : public QTreeView, public ROUTER::HANDLER, public STORAGE::HOST {
    Q_OBJECT

public:
    // window receives the commands the pane posts (the main window, which routes them).
    explicit StorageTreeView(MESSAGETARGET *window, QWidget *parent = nullptr);
    ~StorageTreeView() override;

    void MessageReceived(const MESSAGE &message) override;
    // The selected node, or kNodeNone.
    long long selected() const;
    void select(long long number);
    StorageModel *storageModel() const { return fModel; }
    // Opens the windows the pane's commands ask for (newsgroup selection, composer, the
    // transfer window); without one those commands do nothing.
    void windowOpenerSet(std::function<bool(const MESSAGE &)> opener) {
        fOpener = std::move(opener);
    }

    // A drop of the files data carries at pos (viewport coordinates), with the secondary
    // mouse button or not: what it did.
    STORAGE::DROP dropFiles(const QMimeData *data, const QPoint &pos, bool secondary);

    // STORAGE::HOST
    void serverDialog(const BARN::NODE &server, bool create) override;
    void nameDialog(NAMEDIALOG kind, const BARN::NODE *node) override;
    void charsetDialog(const BARN::NODE &group) override;
    bool windowCommand(const MESSAGE &message) override;

signals:
    void nodeSelected(long long number);

protected:
    void contextMenuEvent(QContextMenuEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void keyboardSearch(const QString &) override {}
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;

private:
    MESSAGETARGET *fWindow;
    StorageModel *fModel;
    std::function<bool(const MESSAGE &)> fOpener;

    void _populate();
    void _expandStored(const QModelIndex &index);
    void _expandedSave(const QModelIndex &index, bool expanded);
    void _navigate(bool forward);
    // The files a drag carries and the node under pos, with what a drop would do.
    STORAGE::DROP _dropFor(const QMimeData *data, const QPoint &pos, bool secondary,
                           std::vector<std::string> *files, long long *target) const;
    void _post(const char *code);
};
