// The main window: the menu bar, the three panes with their splitters, and the status line.
#pragma once

#include <QMainWindow>
#include <map>
#include <string>

#include "base/MESSAGE.h"
#include "ui/ROUTER.h"

class QAction;
class QCloseEvent;
class QEvent;
class QLabel;
class QMenu;
class QSplitter;
class StorageTreeView;
struct MENUITEM;

// Every command arrives here, from the menus, the keys, the panes and the workers (posted
// messages), and goes where its code says (ROUTER). The window runs its own few commands:
// quit, the help topics and the about box.
class BEWINDOW : public QMainWindow, public MESSAGETARGET, public ROUTER::HANDLER {
    Q_OBJECT

public:
    static constexpr int kMinWidth = 300;
    static constexpr int kMinHeight = 200;
    static constexpr int kMaxWidth = 1600;
    static constexpr int kMaxHeight = 1600;
    static constexpr int kFirstWidth = 800; // before any frame was stored
    static constexpr int kFirstHeight = 600;
    static constexpr int kStorageWidth = 250; // splitters before any were stored
    static constexpr int kHeadersHeight = 240;
    static constexpr int kQuitPauseMicros = 100'000;

    // The help topics: their codes and files, in the Help menu's order.
    struct HELPTOPIC {
        const char *code;
        const char *file;
    };
    static const HELPTOPIC kHelpTopics[4];
    static constexpr const char *kHelpFolder = "help";

    explicit BEWINDOW(const char *title);
    ~BEWINDOW() override;

    // Whether the help documents are where the program looks for them; a missing one is
    // reported, and the program still starts.
    static bool helpCheck();
    // The folder holding the help documents: "help" beside the program, else the installed
    // share/vellowick/help.
    static std::string helpFolder();

    // Safe from any thread: the message is handled later on the window's thread.
    bool post(const MESSAGE &message) override;
    // Routes a command to its owner, or runs it when it is the window's own.
    void MessageReceived(const MESSAGE &message) override;
    // Holds the workers, stores the frame, splitters and focus in the settings and asks the
    // application to quit; true lets the window close.
    bool QuitRequested();

    // The pane that owns a kind of command; the header list and message view plug in here.
    void ownerSet(ROUTER::OWNER owner, ROUTER::HANDLER *handler) {
        fRouter.handlerSet(owner, handler);
    }
    void statusSet(const std::string &text);

    StorageTreeView *storagePane() const { return fStoragePane; }
    QWidget *headerList() const { return fHeaderList; }
    QWidget *messageView() const { return fMessageView; }
    // The action of a menu command, for the tests.
    QAction *action(const char *code) const;

protected:
    bool event(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    ROUTER fRouter;
    StorageTreeView *fStoragePane;
    QWidget *fHeaderList;
    QWidget *fMessageView;
    QSplitter *fPanes;
    QSplitter *fRight;
    QLabel *fStatusLine;
    std::map<std::string, QAction *> fActions;

    void _menusBuild();
    void _menuFill(QMenu *menu, const MENUITEM *items);
    void _frameRestore();
    void _splittersRestore();
    void _focusRestore();
    void _helpOpen(const char *code);
    void _about();
};
