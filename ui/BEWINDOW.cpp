// The main window: menu bar, the three panes and the status line.
#include "ui/BEWINDOW.h"

#include <QApplication>
#include <QCloseEvent>
#include <QLabel>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>
#include <thread>

#include "app/SETTINGS.h"
#include "base/THREAD.h"

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

QWidget *emptyPane(const char *name) {
    auto *pane = new QWidget;
    pane->setFocusPolicy(Qt::StrongFocus);
    pane->setObjectName(name);
    pane->setAutoFillBackground(true);
    pane->setPalette(QPalette(QColor(Qt::white)));
    return pane;
}
} // namespace

BEWINDOW::BEWINDOW(const char *title) {
    setWindowTitle(QString::fromUtf8(title));
    setMinimumSize(kMinWidth, kMinHeight);
    setMaximumSize(kMaxWidth, kMaxHeight);
    menuBar()->setNativeMenuBar(false);

    fStoragePane = emptyPane("storagePane");
    fHeaderList = emptyPane("headerList");
    fMessageView = emptyPane("messageView");
    auto *right = new QSplitter(Qt::Vertical);
    right->addWidget(fHeaderList);
    right->addWidget(fMessageView);
    auto *panes = new QSplitter(Qt::Horizontal);
    panes->addWidget(fStoragePane);
    panes->addWidget(right);
    panes->setStretchFactor(1, 3);
    panes->setSizes({220, 580});
    setCentralWidget(panes);

    fStatusLine = new QLabel;
    statusBar()->addWidget(fStatusLine, 1);
    _frameRestore();
    _focusRestore();
}

// The frame stored by the last quit, if there is one; a first start gets a sensible size.
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

bool BEWINDOW::post(const MESSAGE &message) {
    QCoreApplication::postEvent(this, new MESSAGEEVENT(message));
    return true;
}

bool BEWINDOW::event(QEvent *event) {
    if (event->type() == MESSAGEEVENT::type()) {
        MessageReceived(static_cast<MESSAGEEVENT *>(event)->message());
        return true;
    }
    return QMainWindow::event(event);
}

void BEWINDOW::MessageReceived(const MESSAGE &message) {
    if (message.what == fourcc("quit"))
        close();
}

bool BEWINDOW::QuitRequested() {
    THREAD::state(false);
    // The settings are written by the application's stop sequence, after the loop ends.
    QRect frame = geometry();
    SETTINGS::windowPosition.left = static_cast<float>(frame.left());
    SETTINGS::windowPosition.top = static_cast<float>(frame.top());
    SETTINGS::windowPosition.right = static_cast<float>(frame.left() + frame.width());
    SETTINGS::windowPosition.bottom = static_cast<float>(frame.top() + frame.height());
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
