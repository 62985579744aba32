// The Qt side of the application: the main window, the loop and the alert boxes.
#include "ui/QTHOST.h"

#include <QApplication>
#include <QMessageBox>
#include <QThread>

#include "ui/BEWINDOW.h"

BEWINDOW *window = nullptr;

QTHOST::QTHOST() = default;

QTHOST::~QTHOST() {
    window = nullptr;
}

bool QTHOST::helpCheck() {
    return BEWINDOW::helpCheck();
}

bool QTHOST::windowCreate(const char *title) {
    fWindow = std::make_unique<BEWINDOW>(title);
    window = fWindow.get();
    fWindow->show();
    return true;
}

void QTHOST::run() {
    QApplication::exec();
}

void QTHOST::show(const std::string &text) {
    QString message = QString::fromStdString(text);
    auto showBox = [message] {
        QMessageBox box(QMessageBox::Information, QStringLiteral("Vellowick News"), message,
                        QMessageBox::Ok, window);
        box.exec();
    };
    if (QThread::currentThread() == qApp->thread())
        showBox();
    else
        QMetaObject::invokeMethod(qApp, showBox, Qt::QueuedConnection);
}
