// Renders the main window and its dialogs on a real X server with realistic content, and keeps
// the pictures for people to look at.
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <QSet>
#include <QtTest>

#include "app/SETTINGS.h"
#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "base/THREAD.h"
#include "message/VMSG.h"
#include "storage/BARN.h"
#include "tests/support/TestHome.h"
#include "ui/BEAPP.h"
#include "ui/BEWINDOW.h"
#include "ui/ServerDialog.h"
#include "ui/StorageModel.h"
#include "ui/StorageTreeView.h"

namespace {

void unreadMessages(long long group, int count) {
    BARN::NODE node;
    barn.nodeRead(&node, group);
    for (int i = 1; i <= count; ++i) {
        std::string path = std::string(node.path) + "/VM" + std::to_string(100000 + i) + ".vmf";
        TEXTFILE file;
        VMSG::fileCreate(&file, path.c_str(), 0);
        file.textWrite("From: Ann <ann@example.invalid>\nSubject: Hello\n\nBody\n");
        file.close();
        VMSG::attrCreate(path.c_str(), IMsg::MsgTypeNews, nullptr, IMsg::CharsetNone, false, 0,
                         false, VMSG::kServerNone);
    }
    barn.nodeUpdate(group);
}

// Saves the widget's picture and checks that something was drawn.
void shoot(QWidget *widget, const char *name) {
    QVERIFY(QTest::qWaitForWindowExposed(widget));
    QTest::qWait(300);
    QImage image = widget->screen()->grabWindow(widget->winId()).toImage();
    QVERIFY(!image.isNull());
    QDir().mkpath(QStringLiteral(SCREENSHOT_DIR));
    QString file = QStringLiteral(SCREENSHOT_DIR "/") + name;
    QVERIFY(image.save(file));
    qInfo("screenshot: %s", qPrintable(file));
    QSet<QRgb> colours;
    for (int y = 0; y < image.height(); y += 4)
        for (int x = 0; x < image.width(); x += 4)
            colours.insert(image.pixel(x, y));
    QVERIFY2(colours.size() >= 3, qPrintable(QString("only %1 colours").arg(colours.size())));
}

} // namespace

class ScreenshotTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        testhome::setUp();
        SETTINGS::reset(testhome::path().c_str());
        THREAD::start();
        QVERIFY(barn.start());
        THREAD::state(true);
        BARN::NODE server;
        BARN::serverDefault(&server);
        STR::copy(server.name, "Example News", sizeof server.name);
        long long number = barn.serverCreate(&server);
        unreadMessages(barn.groupCreate(number, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly), 12);
        unreadMessages(
            barn.groupCreate(number, "comp.os.linux.misc", GROUPDOWNLOAD::HeadersAndBodies), 3);
        barn.groupCreate(number, "alt.folklore.computers", GROUPDOWNLOAD::HeadersOnly);
        barn.groupCreate(number, "news.announce.newusers", GROUPDOWNLOAD::NoDownload);
        long long keep = barn.folderCreate("Keep", BARN::kNodeNone);
        barn.folderCreate("Recipes", keep);
    }
    void cleanupTestCase() {
        THREAD::state(false);
        THREAD::stop();
        barn.stop();
        testhome::tearDown();
    }

    void mainWindowWithAPopulatedTree() {
        BEWINDOW window(appName);
        window.resize(900, 600);
        window.show();
        StorageTreeView *pane = window.storagePane();
        QTRY_VERIFY(pane->storageModel()->list().size() >= 10);
        pane->expandAll();
        pane->select(pane->storageModel()->list().children(BARN::kNodeNone).back()->node());
        window.statusSet("4 newsgroups, 15 unread messages");
        shoot(&window, "mainwindow.png");
    }

    void serverDialog() {
        BARN::NODE server;
        BARN::serverDefault(&server);
        ServerDialog dialog(server, true);
        dialog.show();
        shoot(&dialog, "serverdialog.png");
    }
};

QTEST_MAIN(ScreenshotTest)
#include "ScreenshotTest.moc"
