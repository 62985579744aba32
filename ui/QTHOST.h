// The Qt side of the application: the main window, the loop and the alert boxes.
#pragma once

#include <memory>

#include "base/ALERT.h"
#include "ui/APPHOST.h"

class BEWINDOW;

// The main window, null until the start sequence creates it.
extern BEWINDOW *window;

class QTHOST : public APPHOST, public ALERT::SINK {
public:
    QTHOST();
    ~QTHOST() override;

    bool helpCheck() override;
    bool windowCreate(const char *title) override;
    void run() override;
    // Shows a message box on the interface thread; a worker only queues it.
    void show(const std::string &text) override;
    // A message box with one button per choice, answered on the interface thread.
    void ask(const std::string &text, const std::vector<std::string> &buttons,
             std::function<void(size_t)> answer) override;

private:
    std::unique_ptr<BEWINDOW> fWindow;
};
