// The Qt side of the application: the main window, the loop and the alert boxes.
#include "ui/QTHOST.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
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

void QTHOST::ask(const std::string &text, const std::vector<std::string> &buttons,
                 std::function<void(size_t)> answer) {
    QString message = QString::fromStdString(text);
    auto askBox = [message, buttons, answer = std::move(answer)] {
        QMessageBox box(QMessageBox::Warning, QStringLiteral("Vellowick News"), message,
                        QMessageBox::NoButton, window);
        std::vector<QPushButton *> shown;
        for (const std::string &label : buttons)
            shown.push_back(
                box.addButton(QString::fromStdString(label),
                              shown.empty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
        // The last choice is the safe one: Enter and Escape both take it.
        if (!shown.empty()) {
            box.setDefaultButton(shown.back());
            box.setEscapeButton(shown.back());
        }
        box.exec();
        for (size_t i = 0; i < shown.size(); ++i)
            if (box.clickedButton() == shown[i] && answer)
                answer(i);
    };
    if (QThread::currentThread() == qApp->thread())
        askBox();
    else
        QMetaObject::invokeMethod(qApp, askBox, Qt::QueuedConnection);
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
