// Renders the main window on a real X server and keeps the picture for people to look at.
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <QSet>
#include <QtTest>

#include "tests/support/TestHome.h"
#include "ui/BEAPP.h"
#include "ui/BEWINDOW.h"

class ScreenshotTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { testhome::setUp(); }
    void cleanupTestCase() { testhome::tearDown(); }

    void mainWindowIsDrawn() {
        BEWINDOW window(appName);
        window.resize(900, 600);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QTest::qWait(200);
        QPixmap shot = window.screen()->grabWindow(window.winId());
        QVERIFY(!shot.isNull());
        QImage image = shot.toImage();
        QCOMPARE(image.size(), QSize(900, 600));

        QDir().mkpath(QStringLiteral(SCREENSHOT_DIR));
        QString file = QStringLiteral(SCREENSHOT_DIR "/mainwindow.png");
        QVERIFY(image.save(file));
        qInfo("screenshot: %s", qPrintable(file));

        // A blank or black picture means nothing was drawn: ask for several colours.
        QSet<QRgb> colours;
        for (int y = 0; y < image.height(); y += 4)
            for (int x = 0; x < image.width(); x += 4)
                colours.insert(image.pixel(x, y));
        QVERIFY2(colours.size() >= 3, qPrintable(QString("only %1 colours").arg(colours.size())));
    }
};

QTEST_MAIN(ScreenshotTest)
#include "ScreenshotTest.moc"
