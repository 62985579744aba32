// The main window on the offscreen platform, used as a user would: menus, keys, the storage
// pane with its dialog and drops, and the frame kept across a quit.
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QTimer>
#include <QUrl>
#include <QtTest>
#include <chrono>
#include <thread>

#include "app/SETTINGS.h"
#include "base/ALERT.h"
#include "base/MESSAGE.h"
#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "base/THREAD.h"
#include "message/VMSG.h"
#include "net/NETWORK.h"
#include "net/NEWS.h"
#include "net/NNTP.h"
#include "reader/KILLFILE.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TestHome.h"
#include "tools/innfill/INNSERVER.h"
#include "ui/BEAPP.h"
#include "ui/BEWINDOW.h"
#include "ui/QTHOST.h"
#include "ui/STORAGE.h"
#include "ui/ServerDialog.h"
#include "ui/StorageModel.h"
#include "ui/StorageTreeView.h"

namespace {

// A message file with its attributes, unread.
void messageWrite(const std::string &folder, const char *leaf) {
    std::string path = folder + "/" + leaf;
    TEXTFILE file;
    VMSG::fileCreate(&file, path.c_str(), 0);
    std::string text = "From: Ann <ann@example.invalid>\nSubject: Hello\nNewsgroups: alt.test\n"
                       "Message-ID: <" +
                       std::string(leaf) + "@example.invalid>\n\nBody\n";
    file.textWrite(text.c_str());
    file.close();
    VMSG::attrCreate(path.c_str(), IMsg::MsgTypeNews, nullptr, IMsg::CharsetNone, false, 0, false,
                     VMSG::kServerNone);
}

// The text and font of a node's row.
QModelIndex rowOf(BEWINDOW &window, long long number) {
    return window.storagePane()->storageModel()->indexOf(number);
}

} // namespace

// A store of the test's own with its workers running, as the program has it, for the life
// of one test however it ends.
struct STORE {
    STORE() {
        SETTINGS::reset(testhome::path().c_str());
        static int count = 0;
        std::string root = testhome::path() + "/store" + std::to_string(++count);
        STR::copy(SETTINGS::storage.path, root.c_str(), sizeof SETTINGS::storage.path);
        THREAD::start();
        started = barn.start();
        THREAD::state(true);
    }
    ~STORE() {
        THREAD::state(false);
        THREAD::stop();
        barn.stop();
    }
    bool started = false;
};

QSplitter *splitter(BEWINDOW &window, Qt::Orientation orientation) {
    for (QSplitter *each : window.findChildren<QSplitter *>())
        if (each->orientation() == orientation)
            return each;
    return nullptr;
}

class BEWINDOWTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { testhome::setUp(); }
    void cleanupTestCase() { testhome::tearDown(); }

    void frameLimitsMenusAndPanes() {
        BEWINDOW window(appName);
        QCOMPARE(window.windowTitle(), QStringLiteral("Vellowick News"));
        QCOMPARE(window.minimumSize(), QSize(300, 200));
        QCOMPARE(window.maximumSize(), QSize(1600, 1600));
        window.resize(3000, 3000);
        QCOMPARE(window.size(), QSize(1600, 1600));
        QStringList menus;
        for (QAction *menu : window.menuBar()->actions())
            menus << menu->text();
        QCOMPARE(menus, QStringList({"&File", "&Edit", "&Account", "&View", "&Message",
                                     "&Attachment", "&Transfer", "&Help"}));
        QCOMPARE(window.action("stra")->shortcut(), QKeySequence("Ctrl+T"));
        QCOMPARE(window.storagePane()->accessibleName(), QStringLiteral("Storage"));
        QCOMPARE(window.headerList()->accessibleName(), QStringLiteral("Headers"));
        QCOMPARE(window.messageView()->accessibleName(), QStringLiteral("Message"));
        // A check item shows and toggles its setting.
        SETTINGS::view.showReadMessages = false;
        window.action("huch")->trigger();
        QVERIFY(SETTINGS::view.showReadMessages);
        window.action("huch")->trigger();
        QVERIFY(!SETTINGS::view.showReadMessages);
    }

    // Create a server through the dialog: it appears in the tree and its account file is
    // written; a bad value keeps the dialog open with the reason.
    void serverCreatedThroughTheDialog() {
        STORE store;
        QVERIFY(store.started);
        ALERTRECORDER alerts;
        {
            BEWINDOW window(appName);
            window.show();
            QString problem;
            QTimer::singleShot(0, [&] {
                auto *dialog = qobject_cast<ServerDialog *>(QApplication::activeModalWidget());
                QVERIFY(dialog != nullptr);
                QCOMPARE(dialog->windowTitle(), QStringLiteral("Create Server Account"));
                static_cast<QLineEdit *>(dialog->field("Name"))->setText("Provider");
                static_cast<QLineEdit *>(dialog->field("Hostname"))->setText("bad..host");
                dialog->accept();
                problem = dialog->findChildren<QLabel *>().last()->text();
                static_cast<QLineEdit *>(dialog->field("Hostname"))
                    ->setText("news.example.invalid");
                static_cast<QComboBox *>(dialog->field("Security"))->setCurrentText("TLS");
                QCOMPARE(static_cast<QLineEdit *>(dialog->field("Port"))->text(),
                         QStringLiteral("563"));
                dialog->accept();
            });
            window.storagePane()->MessageReceived(MESSAGE(fourcc("sscr")));
            QCOMPARE(problem, QStringLiteral("'bad..host' is not a valid news server name or "
                                             "address."));
            BARN::NODE server;
            QVERIFY(barn.serverNext(&server, 0));
            QCOMPARE(QString(server.name), QStringLiteral("Provider"));
            QCOMPARE(server.server.security, uint32_t(kSecurityTLS));
            QTRY_VERIFY(rowOf(window, server.number).isValid());
            QVERIFY(QFile::exists(QString(server.path) + "/Server.ini"));
            QVERIFY(alerts.texts().back().rfind(
                        "Download a list of all newsgroups from server 'Provider'?", 0) == 0);
            QVERIFY(alerts.answer(0));
        }
    }

    // A group with unread messages is drawn bold with its count; two files dropped from the
    // Outbox onto a folder are moved there.
    void unreadCountsAndDrops() {
        STORE store;
        QVERIFY(store.started);
        {
            BARN::NODE server;
            BARN::serverDefault(&server);
            long long number = barn.serverCreate(&server);
            long long group = barn.groupCreate(number, "alt.test", GROUPDOWNLOAD::HeadersOnly);
            long long keep = barn.folderCreate("Keep", BARN::kNodeNone);
            BARN::NODE node, outbox;
            QVERIFY(barn.nodeRead(&node, group));
            long long outboxNumber;
            QVERIFY(barn.folderFixedNode(FIXEDFOLDER::Outbox, &outboxNumber));
            QVERIFY(barn.nodeRead(&outbox, outboxNumber));

            BEWINDOW window(appName);
            window.show();
            for (const char *leaf : {"VM000001.vmf", "VM000002.vmf", "VM000003.vmf"})
                messageWrite(node.path, leaf);
            barn.nodeUpdate(group);
            QTRY_COMPARE(rowOf(window, group).data().toString(), QStringLiteral("alt.test (3)"));
            QVERIFY(rowOf(window, group).data(Qt::FontRole).value<QFont>().bold());

            messageWrite(outbox.path, "VM000001.vmf");
            messageWrite(outbox.path, "VM000002.vmf");
            QTRY_VERIFY(rowOf(window, keep).isValid());
            StorageTreeView *pane = window.storagePane();
            QMimeData data;
            data.setUrls({QUrl::fromLocalFile(QString(outbox.path) + "/VM000001.vmf"),
                          QUrl::fromLocalFile(QString(outbox.path) + "/VM000002.vmf")});
            QPoint at = pane->visualRect(rowOf(window, keep)).center();
            QCOMPARE(pane->dropFiles(&data, at, false), STORAGE::kDropMove);
            QTRY_VERIFY(!STORAGE::dropPending());
            QDir keepDir(QString(outbox.path) + "/../../saved/Keep");
            QCOMPARE(QDir(outbox.path).entryList(QDir::Files).size(), 0);
            QCOMPARE(keepDir.entryList(QDir::Files).size(), 2);
            QTRY_COMPARE(rowOf(window, keep).data().toString(), QStringLiteral("Keep (2)"));
        }
    }

    // Against the real news server, from the pane's own commands: the newsgroup list of a new
    // server, then the headers of a subscribed group, whose count then shows in the tree.
    void transfersFromThePane() {
        INNSERVER &inn = INNSERVER::shared();
        QVERIFY2(inn.ok(), inn.error().c_str());
        std::string error;
        size_t accepted = 0;
        QVERIFY2(inn.groupCreate("vw.pane.heads", &error), error.c_str());
        QVERIFY2(inn.fill("vw.pane.heads", 0, 20, 7, &accepted, &error), error.c_str());
        STORE store;
        QVERIFY(store.started);
        ALERTRECORDER alerts; // the list file is looked for before it exists
        SETTINGS::progressWindow.transferStart = false;
        QVERIFY(NETWORK::start() && NNTP::start() && KILLFILE::Start() && news.start());
        {
            BEWINDOW window(appName);
            window.show();
            BARN::NODE server;
            BARN::serverDefault(&server);
            STR::copy(server.name, "INN", sizeof server.name);
            STR::copy(server.server.hostname, "127.0.0.1", sizeof server.server.hostname);
            server.server.port = inn.readerPort();
            long long number = barn.serverCreate(&server);
            StorageTreeView *pane = window.storagePane();
            QTRY_VERIFY(rowOf(window, number).isValid());
            pane->select(number);
            window.post(MESSAGE(fourcc("sslt")));
            auto listed = [number] {
                BARNFILE::LIST names;
                return BARNFILE::slistRead(number, &names) &&
                       std::find(names.begin(), names.end(), "vw.pane.heads") != names.end();
            };
            QTRY_VERIFY_WITH_TIMEOUT(listed(), 30000);

            long long group = barn.groupCreate(number, "vw.pane.heads", GROUPDOWNLOAD::HeadersOnly);
            QTRY_VERIFY(rowOf(window, group).isValid());
            pane->select(group);
            window.post(MESSAGE(fourcc("sdgf")));
            QTRY_COMPARE_WITH_TIMEOUT(rowOf(window, group).data().toString(),
                                      QStringLiteral("vw.pane.heads (20)"), 30000);
        }
        news.stop();
        KILLFILE::Stop();
        NNTP::stop();
        NETWORK::stop();
    }

    // Keys become commands: } moves to the next node of the tree.
    void keysReachTheirPanes() {
        STORE store;
        QVERIFY(store.started);
        {
            BEWINDOW window(appName);
            window.show();
            StorageTreeView *pane = window.storagePane();
            pane->setFocus();
            QTRY_VERIFY(pane->storageModel()->rowCount() == 3);
            pane->setCurrentIndex(pane->storageModel()->index(0, 0));
            QTest::keyClick(pane, '}');
            QTRY_COMPARE(pane->currentIndex().row(), 1);
            QTest::keyClick(pane, '{');
            QTRY_COMPARE(pane->currentIndex().row(), 0);
        }
    }

    // Quitting stores the frame, the splitters and the focus, so the next start opens the
    // window as it was left.
    void frameAndSplittersSurviveQuitAndRestart() {
        SETTINGS::windowPosition = {};
        SETTINGS::windowPosition.inputFocus = SETTINGS::kFocusHeaders;
        {
            BEWINDOW first(appName);
            QCOMPARE(SETTINGS::windowPosition.inputFocus, 0u);
            first.setGeometry(40, 50, 700, 500);
            first.show();
            splitter(first, Qt::Horizontal)->setSizes({180, 520});
            QVERIFY(first.QuitRequested());
        }
        QCOMPARE(SETTINGS::windowPosition.left, 40.0f);
        QCOMPARE(SETTINGS::windowPosition.bottom, 550.0f);
        QCOMPARE(SETTINGS::windowPosition.splitterHorizontal, 180);
        BEWINDOW second(appName);
        second.show();
        QCOMPARE(second.geometry(), QRect(40, 50, 700, 500));
        QCOMPARE(splitter(second, Qt::Horizontal)->sizes().value(0), 180);
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
