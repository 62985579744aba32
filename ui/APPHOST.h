// What the application object needs from the interface toolkit: the main window and the loop.
#pragma once

class APPHOST {
public:
    virtual ~APPHOST() = default;
    // Verifies the help files of the main window.
    virtual bool helpCheck() = 0;
    // Creates and shows the main window with this title.
    virtual bool windowCreate(const char *title) = 0;
    // Runs the message loop until the user quits.
    virtual void run() = 0;
};
