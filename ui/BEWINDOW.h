// The main window: menu bar, the three panes and the status line.
#pragma once

#include <QMainWindow>

#include "base/MESSAGE.h"

class QEvent;
class QCloseEvent;
class QLabel;

class BEWINDOW : public QMainWindow, public MESSAGETARGET {
    Q_OBJECT

public:
    static constexpr int kMinWidth = 300;
    static constexpr int kMinHeight = 200;
    static constexpr int kMaxWidth = 1600;
    static constexpr int kMaxHeight = 1600;
    static constexpr int kFirstWidth = 800; // before any frame was stored
    static constexpr int kFirstHeight = 600;
    static constexpr int kQuitPauseMicros = 100'000;

    explicit BEWINDOW(const char *title);

    // Help files are not installed yet, so there is nothing that could be missing.
    static bool helpCheck() { return true; }

    // Safe from any thread: the message is handled later on the window's thread.
    bool post(const MESSAGE &message) override;
    void MessageReceived(const MESSAGE &message);
    // Holds the workers, stores the frame in the settings and asks the application to quit;
    // true lets the window close.
    bool QuitRequested();

    QWidget *storagePane() const { return fStoragePane; }
    QWidget *headerList() const { return fHeaderList; }
    QWidget *messageView() const { return fMessageView; }

protected:
    bool event(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void _frameRestore();
    void _focusRestore();

    QWidget *fStoragePane;
    QWidget *fHeaderList;
    QWidget *fMessageView;
    QLabel *fStatusLine;
};
