// The main window on the offscreen platform: its frame, its panes and the quit path.
#include <QApplication>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>
#include <QTimer>
#include <QtTest>
#include <chrono>
#include <thread>

#include "app/SETTINGS.h"
#include "base/ALERT.h"
#include "base/MESSAGE.h"
#include "base/THREAD.h"
#include "tests/support/TestHome.h"
#include "ui/BEAPP.h"
#include "ui/BEWINDOW.h"
#include "ui/QTHOST.h"

class BEWINDOWTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { testhome::setUp(); }
    void cleanupTestCase() { testhome::tearDown(); }

    void frameLimitsAndPanes() {
        BEWINDOW window(appName);
        QCOMPARE(window.windowTitle(), QStringLiteral("Vellowick News"));
        QCOMPARE(window.minimumSize(), QSize(300, 200));
        QCOMPARE(window.maximumSize(), QSize(1600, 1600));
        window.resize(100, 100);
        QCOMPARE(window.size(), QSize(300, 200));
        window.resize(3000, 3000);
        QCOMPARE(window.size(), QSize(1600, 1600));
        QVERIFY(window.menuBar() != nullptr);
        QVERIFY(window.statusBar() != nullptr);
        QVERIFY(window.isAncestorOf(window.storagePane()));
        QVERIFY(window.isAncestorOf(window.headerList()));
        QVERIFY(window.isAncestorOf(window.messageView()));
    }

    // Quitting stores the frame, so the next start opens the window where it was.
    void frameSurvivesQuitAndRestart() {
        SETTINGS::windowPosition = {};
        SETTINGS::windowPosition.inputFocus = SETTINGS::kFocusHeaders;
        {
            BEWINDOW first(appName);
            QCOMPARE(SETTINGS::windowPosition.inputFocus, 0u);
            first.setGeometry(40, 50, 700, 500);
            QVERIFY(first.QuitRequested());
        }
        QCOMPARE(SETTINGS::windowPosition.left, 40.0f);
        QCOMPARE(SETTINGS::windowPosition.top, 50.0f);
        QCOMPARE(SETTINGS::windowPosition.right, 740.0f);
        QCOMPARE(SETTINGS::windowPosition.bottom, 550.0f);
        BEWINDOW second(appName);
        QCOMPARE(second.geometry(), QRect(40, 50, 700, 500));
        SETTINGS::windowPosition = {};
    }

    // A worker's alert is queued for the interface thread; the worker does not wait for it.
    void workerAlertDoesNotBlock() {
        QTHOST host;
        ALERT::sinkSet(&host);
        auto begun = std::chrono::steady_clock::now();
        std::thread worker([] { ALERT::show("Couldn't open help file."); });
        worker.join();
        QVERIFY(std::chrono::steady_clock::now() - begun < std::chrono::seconds(2));
        QString shown;
        QTimer closer;
        connect(&closer, &QTimer::timeout, [&] {
            for (QWidget *top : QApplication::topLevelWidgets()) {
                auto *box = qobject_cast<QMessageBox *>(top);
                if (box != nullptr && box->isVisible()) {
                    shown = box->text();
                    box->accept();
                }
            }
        });
        closer.start(20);
        QTRY_COMPARE(shown, QStringLiteral("Couldn't open help file."));
        ALERT::sinkSet(nullptr);
    }

    // The whole program path: start, the loop, a "quit" command from a worker, stop. Runs
    // last: the application has quit afterwards.
    void quitCommandHoldsWorkersAndEndsTheLoop() {
        QTHOST host;
        BEAPP app(&host);
        appStarted = false;
        QVERIFY(app.start());
        QVERIFY(THREAD::running());
        QVERIFY(window != nullptr);
        QVERIFY(window->isVisible());

        bool timedOut = false;
        QTimer limit;
        limit.setSingleShot(true);
        connect(&limit, &QTimer::timeout, [&] {
            timedOut = true;
            QApplication::quit();
        });
        limit.start(10000);
        std::thread worker([] { window->post(MESSAGE(fourcc("quit"))); });
        worker.join();
        app.run();
        QVERIFY(!timedOut);
        QVERIFY(!THREAD::running());
        QVERIFY(!window->isVisible());
        app.stop();
        QCOMPARE(THREAD::count(), size_t(0));
    }
};

QTEST_MAIN(BEWINDOWTest)
#include "BEWINDOWTest.moc"
