// The application object: command line, the start and stop order of the subsystems.
#pragma once

#include <cstddef>

#include "app/APPNAME.h"

class APPHOST;

// Set by the last step of a successful start; the settings are written back only then.
extern bool appStarted;

class BEAPP {
public:
    static constexpr const char *kSignature = "application/x-vnd.Kelbury-VellowickNews";
    static constexpr size_t kArgumentMax = 85; // the uninstall option is read from this buffer

    explicit BEAPP(APPHOST *host = nullptr) : fHost(host) {}
    void hostSet(APPHOST *host) { fHost = host; }

    // True: go on and start. Prints the usage or the uninstall notice and returns false
    // otherwise.
    bool cmdLine(int argc, char **argv);
    // Runs every start step in order and stops at the first that fails.
    bool start();
    // Runs the message loop of the host.
    void run();
    // Runs every stop step in reverse order; safe after a partial start or none.
    void stop();
    // Removes the file types and the Message-ID index; true when all of them went.
    bool uninstall();
    // Reads the settings file; on the first run writes the default one and welcomes the user.
    bool initStart();
    void initMessage();
    // Merges the settings back into their file, only after a complete start.
    void initStop();

    // Number of start steps that succeeded in the last start().
    size_t stepsStarted() const { return fStepsStarted; }

    struct STEP {
        const char *name;
        bool (BEAPP::*start)();
        void (BEAPP::*stop)(); // nullptr: nothing to undo
    };
    static const STEP kSteps[];
    static const size_t kStepCount;

private:
    APPHOST *fHost;
    size_t fStepsStarted = 0;

    void _settingsApply();
    bool _helpCheck();
    bool _threadStart();
    void _threadStop();
    bool _networkStart();
    void _networkStop();
    bool _typesInstall();
    bool _newsStart();
    void _newsStop();
    bool _nntpStart();
    void _nntpStop();
    bool _storageStart();
    void _storageStop();
    bool _killfileStart();
    void _killfileStop();
    bool _windowCreate();
    bool _running();
    void _holdAndStopWorkers();
};
