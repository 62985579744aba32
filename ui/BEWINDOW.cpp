// The main window: menu bar, the three panes and the status line.
#include "ui/BEWINDOW.h"

#include <QApplication>
#include <QCloseEvent>
#include <QLabel>
#include <QMenuBar>
#include <QSplitter>
#include <QStatusBar>
#include <thread>

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
    resize(800, 600);
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
