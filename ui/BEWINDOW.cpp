// The main window: menu bar, the three panes and the status line.
#include "ui/BEWINDOW.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QSplitter>
#include <QStatusBar>
#include <atomic>
#include <thread>

#include "app/APPNAME.h"
#include "app/PATHMGR.h"
#include "app/SETTINGS.h"
#include "base/ALERT.h"
#include "base/DISKFILE.h"
#include "base/LAUNCHER.h"
#include "base/THREAD.h"
#include "base/TextFormat.h"
#include "net/NEWS.h"
#include "ui/DesktopNotifier.h"
#include "ui/GODOT.h"
#include "ui/MENUTABLE.h"
#include "ui/StorageTreeView.h"

const BEWINDOW::HELPTOPIC BEWINDOW::kHelpTopics[4] = {
    {"aint", "introduction.html"},
    {"ains", "installation.html"},
    {"asta", "getting-started.html"},
    {"aman", "index.html"},
};

namespace {
// Carries a MESSAGE through the Qt event queue, which is safe to post to from any thread.
class MESSAGEEVENT : public QEvent {
public:
    static QEvent::Type type() {
        static const auto kType = static_cast<QEvent::Type>(QEvent::registerEventType());
        return kType;
    }
    explicit MESSAGEEVENT(const MESSAGE &message) : QEvent(type()), fMessage(message) {}
    const MESSAGE &message() const { return fMessage; }

private:
    MESSAGE fMessage;
};

// A pane whose view has not been put in yet: it takes the focus, reads as what it will be
// and says what will appear there.
QWidget *emptyPane(const char *objectName, const char *accessibleName, const char *hint) {
    auto *pane = new QLabel(hint);
    pane->setAlignment(Qt::AlignCenter);
    pane->setWordWrap(true);
    pane->setFocusPolicy(Qt::StrongFocus);
    pane->setObjectName(objectName);
    pane->setAccessibleName(accessibleName);
    pane->setAutoFillBackground(true);
    pane->setBackgroundRole(QPalette::Base);
    pane->setForegroundRole(QPalette::PlaceholderText);
    return pane;
}

// The keys a pane leaves alone and the commands the window makes of them.
uint32_t keyCommand(const QString &text) {
    if (text.size() != 1)
        return 0;
    switch (text[0].toLatin1()) {
    case 'R':
    case 'r':
        return fourcc("hmtr");
    case 'T':
    case 't':
        return fourcc("hmtt");
    case '[':
        return fourcc("hnpr");
    case ']':
        return fourcc("hnnx");
    case '{':
        return fourcc("snpr");
    case '}':
        return fourcc("snnx");
    default:
        return 0;
    }
}
// Where the transfer queue's end-of-run summary goes: the window, as a message of its own.
std::atomic<BEWINDOW *> gTransferWindow{nullptr};

void transferFinished(const char *summary) {
    if (BEWINDOW *window = gTransferWindow.load()) {
        MESSAGE message(fourcc("wnot"));
        message.addString("summary", summary);
        window->post(message);
    }
}
} // namespace

BEWINDOW::BEWINDOW(const char *title) {
    setWindowTitle(QString::fromUtf8(title));
    setMinimumSize(kMinWidth, kMinHeight);
    setMaximumSize(kMaxWidth, kMaxHeight);
    menuBar()->setNativeMenuBar(false);

    fStoragePane = new StorageTreeView(this);
    fHeaderList =
        emptyPane("headerList", "Headers", "Select a newsgroup or folder to see its messages.");
    fMessageView = emptyPane("messageView", "Message", "Select a message to read it.");
    fRight = new QSplitter(Qt::Vertical);
    fRight->addWidget(fHeaderList);
    fRight->addWidget(fMessageView);
    fPanes = new QSplitter(Qt::Horizontal);
    fPanes->addWidget(fStoragePane);
    fPanes->addWidget(fRight);
    fPanes->setStretchFactor(1, 3);
    setCentralWidget(fPanes);
    fRouter.handlerSet(ROUTER::kWindow, this);
    fRouter.handlerSet(ROUTER::kStorage, fStoragePane);

    fStatusLine = new QLabel;
    fStatusLine->setAccessibleDescription("Status line");
    statusBar()->addWidget(fStatusLine, 1);
    _menusBuild();
    _frameRestore();
    _splittersRestore();
    _focusRestore();
    godot.targetSet(this);
    godot.start();
    gTransferWindow = this;
    news.finishedSet(transferFinished);
}

BEWINDOW::~BEWINDOW() {
    news.finishedSet(nullptr);
    gTransferWindow = nullptr;
    godot.targetSet(nullptr);
}

void BEWINDOW::_menusBuild() {
    for (const MENUITEM *menu = MENUTABLE::bar(); menu->label != nullptr; ++menu)
        _menuFill(menuBar()->addMenu(QString("&") + menu->label), menu->items);
}

void BEWINDOW::_menuFill(QMenu *menu, const MENUITEM *items) {
    for (const MENUITEM *item = items; item->label != nullptr; ++item) {
        if (item->separator()) {
            menu->addSeparator();
            continue;
        }
        if (item->items != nullptr) {
            _menuFill(menu->addMenu(item->label), item->items);
            continue;
        }
        QAction *action = menu->addAction(item->label);
        if (item->shortcut != 0)
            action->setShortcut(QKeySequence(Qt::CTRL | Qt::Key(item->shortcut)));
        if (item->about) {
            connect(action, &QAction::triggered, this, &BEWINDOW::_about);
            continue;
        }
        const std::string code = item->code != nullptr ? item->code : "";
        const int32_t column = item->column;
        if (item->check != nullptr) {
            bool *setting = item->check;
            action->setCheckable(true);
            action->setChecked(*setting);
            // The mark follows the setting wherever it was changed.
            connect(menu, &QMenu::aboutToShow, action,
                    [action, setting] { action->setChecked(*setting); });
            connect(action, &QAction::toggled, this, [this, setting, code, column](bool on) {
                if (*setting == on)
                    return;
                *setting = on;
                if (code.empty())
                    return;
                MESSAGE message(fourccOf(code));
                if (column >= 0)
                    message.addInt32("column", column);
                post(message);
            });
        } else {
            connect(action, &QAction::triggered, this,
                    [this, code] { post(MESSAGE(fourccOf(code))); });
        }
        if (!code.empty() && fActions.count(code) == 0)
            fActions[code] = action;
    }
}

QAction *BEWINDOW::action(const char *code) const {
    auto found = fActions.find(code);
    return found != fActions.end() ? found->second : nullptr;
}

// The frame stored by the last quit, if there is one and it is on a screen; a first start
// gets a sensible size.
void BEWINDOW::_frameRestore() {
    const SETTINGS::WINDOWPOSITION &stored = SETTINGS::windowPosition;
    if (stored.right > stored.left && stored.bottom > stored.top) {
        setGeometry(static_cast<int>(stored.left), static_cast<int>(stored.top),
                    static_cast<int>(stored.right - stored.left),
                    static_cast<int>(stored.bottom - stored.top));
        return;
    }
    resize(kFirstWidth, kFirstHeight);
}

void BEWINDOW::_splittersRestore() {
    const SETTINGS::WINDOWPOSITION &stored = SETTINGS::windowPosition;
    int storage = stored.splitterHorizontal > 0 ? stored.splitterHorizontal : kStorageWidth;
    int headers = stored.splitterVertical > 0 ? stored.splitterVertical : kHeadersHeight;
    fPanes->setSizes({storage, std::max(width() - storage, 1)});
    fRight->setSizes({headers, std::max(height() - headers, 1)});
}

// The pane named by the setting gets the focus once; the setting is then spent.
void BEWINDOW::_focusRestore() {
    switch (SETTINGS::windowPosition.inputFocus) {
    case SETTINGS::kFocusStorage:
        fStoragePane->setFocus();
        break;
    case SETTINGS::kFocusHeaders:
        fHeaderList->setFocus();
        break;
    case SETTINGS::kFocusMessage:
        fMessageView->setFocus();
        break;
    default:
        break;
    }
    SETTINGS::windowPosition.inputFocus = 0;
}

void BEWINDOW::statusSet(const std::string &text) {
    fStatusLine->setText(QString::fromStdString(text));
}

bool BEWINDOW::post(const MESSAGE &message) {
    QCoreApplication::postEvent(this, new MESSAGEEVENT(message));
    return true;
}

bool BEWINDOW::event(QEvent *event) {
    if (event->type() == MESSAGEEVENT::type()) {
        fRouter.dispatch(static_cast<MESSAGEEVENT *>(event)->message());
        return true;
    }
    return QMainWindow::event(event);
}

void BEWINDOW::MessageReceived(const MESSAGE &message) {
    for (const HELPTOPIC &topic : kHelpTopics) {
        if (message.what == fourccOf(topic.code)) {
            _helpOpen(topic.code);
            return;
        }
    }
    if (message.what == fourcc("quit")) {
        close();
    } else if (message.what == fourcc("wnot")) {
        // Someone looking at the window sees the counts change; someone elsewhere is told.
        std::string summary;
        if (!isActiveWindow() && message.findString("summary", &summary))
            DesktopNotifier::show(QString::fromStdString(summary));
    }
}

void BEWINDOW::keyPressEvent(QKeyEvent *event) {
    uint32_t code = event->modifiers() & (Qt::ControlModifier | Qt::AltModifier)
                        ? 0
                        : keyCommand(event->text());
    if (code == 0) {
        QMainWindow::keyPressEvent(event);
        return;
    }
    post(MESSAGE(code));
}

std::string BEWINDOW::helpFolder() {
    const std::string beside = std::string(pathMgr.progDir()) + "/" + kHelpFolder;
    const std::string installed =
        std::string(pathMgr.progDir()) + "/../share/vellowick/" + kHelpFolder;
    DISKFILE file;
    DISKFILE::ENTRYTYPE type;
    if (file.typeGet(beside.c_str(), &type) == DISKFILE::kSuccess &&
        type == DISKFILE::kEntryDirectory)
        return beside;
    return installed;
}

bool BEWINDOW::helpCheck() {
    const std::string folder = helpFolder();
    for (const HELPTOPIC &topic : kHelpTopics) {
        std::string path = folder + "/" + topic.file;
        DISKFILE file;
        DISKFILE::ERROR error = file.open(path.c_str(), DISKFILE::kRead);
        if (error != DISKFILE::kSuccess) {
            ALERT::showf("Couldn't open help file.\n\nFilename: %s\n\nProblem: %s", path.c_str(),
                         DISKFILE::errorStr(error));
            break;
        }
    }
    // The program is usable without its help: a missing document was reported above.
    return true;
}

void BEWINDOW::_helpOpen(const char *code) {
    for (const HELPTOPIC &topic : kHelpTopics) {
        if (strcmp(topic.code, code) != 0)
            continue;
        std::string path = helpFolder() + "/" + topic.file;
        DISKFILE file;
        DISKFILE::ERROR error = file.open(path.c_str(), DISKFILE::kRead);
        if (error != DISKFILE::kSuccess) {
            ALERT::showf("Couldn't open help file.\n\nFilename: %s\n\nProblem: %s", path.c_str(),
                         DISKFILE::errorStr(error));
            return;
        }
        file.close();
        // The launcher waits for the desktop's opener, which returns as soon as the browser
        // has the file; the window is not held while a browser starts.
        std::thread([path] {
            int status = LAUNCHER::open(path);
            if (status != 0)
                ALERT::showf("Couldn't launch help file.\n\nFilename: %s\n\nError code: %08lX",
                             path.c_str(), (unsigned long)(uint32_t(status)));
        }).detach();
        return;
    }
}

void BEWINDOW::_about() {
    QMessageBox::about(
        this, QString("About ") + appName,
        QString("<h3>%1 %2</h3><p>A Usenet newsreader: news server accounts, threaded "
                "reading, posting through an Outbox, attachments, a killfile and expiry.</p>"
                "<p>Messages are kept one file per message in your data directory.</p>")
            .arg(appName, VW_VERSION));
}

bool BEWINDOW::QuitRequested() {
    THREAD::state(false);
    // The settings are written by the application's stop sequence, after the loop ends.
    QRect frame = geometry();
    SETTINGS::WINDOWPOSITION &stored = SETTINGS::windowPosition;
    stored.left = static_cast<float>(frame.left());
    stored.top = static_cast<float>(frame.top());
    stored.right = static_cast<float>(frame.left() + frame.width());
    stored.bottom = static_cast<float>(frame.top() + frame.height());
    stored.splitterHorizontal = int16_t(fPanes->sizes().value(0));
    stored.splitterVertical = int16_t(fRight->sizes().value(0));
    // The pane with the focus gets it again at the next start.
    QWidget *focus = QApplication::focusWidget();
    auto within = [focus](QWidget *pane) {
        return focus != nullptr && (focus == pane || pane->isAncestorOf(focus));
    };
    stored.inputFocus = 0;
    if (within(fStoragePane))
        stored.inputFocus = SETTINGS::kFocusStorage;
    else if (within(fHeaderList))
        stored.inputFocus = SETTINGS::kFocusHeaders;
    else if (within(fMessageView))
        stored.inputFocus = SETTINGS::kFocusMessage;
    // Give workers a moment to finish the call they are in before the loop ends.
    std::this_thread::sleep_for(std::chrono::microseconds(kQuitPauseMicros));
    QCoreApplication::quit();
    return true;
}

void BEWINDOW::closeEvent(QCloseEvent *event) {
    if (QuitRequested())
        event->accept();
    else
        event->ignore();
}
