// The application object: command line, the start and stop order of the subsystems.
#include "ui/BEAPP.h"

#include <cctype>
#include <cstring>
#include <strings.h>

#include "app/BEMIME.h"
#include "app/INITFILE.h"
#include "app/SETTINGS.h"
#include "base/ALERT.h"
#include "base/CONSOLE.h"
#include "base/THREAD.h"
#include "compose/EDITHEADERS.h"
#include "message/VMSG.h"
#include "net/NETWORK.h"
#include "net/NEWS.h"
#include "net/NNTP.h"
#include "reader/KILLFILE.h"
#include "storage/BARN.h"
#include "storage/BARNINFO.h"
#include "storage/MSGIDINDEX.h"
#include "ui/APPHOST.h"

bool appStarted = false;

// Start runs these in order; stop runs the stop half of every row in reverse order, started
// or not, so each stop operation must tolerate never having been started. The last row's
// stop half holds and ends the workers before any subsystem goes away; THREAD's own row ends
// them once more at the very end.
const BEAPP::STEP BEAPP::kSteps[] = {
    {"help files", &BEAPP::_helpCheck, nullptr},
    {"threads", &BEAPP::_threadStart, &BEAPP::_threadStop},
    {"network", &BEAPP::_networkStart, &BEAPP::_networkStop},
    {"file types", &BEAPP::_typesInstall, nullptr},
    {"settings", &BEAPP::initStart, &BEAPP::initStop},
    {"storage", &BEAPP::_storageStart, &BEAPP::_storageStop},
    {"transfer queue", &BEAPP::_newsStart, &BEAPP::_newsStop},
    {"news sessions", &BEAPP::_nntpStart, &BEAPP::_nntpStop},
    {"killfile", &BEAPP::_killfileStart, &BEAPP::_killfileStop},
    {"main window", &BEAPP::_windowCreate, nullptr},
    {"running", &BEAPP::_running, &BEAPP::_holdAndStopWorkers},
};
const size_t BEAPP::kStepCount = sizeof(kSteps) / sizeof(kSteps[0]);

bool BEAPP::cmdLine(int argc, char **argv) {
    if (argc < 2)
        return true;
    CONSOLE::print("\n");
    if (argc == 2) {
        char option[kArgumentMax];
        std::strncpy(option, argv[1], sizeof(option) - 1);
        option[sizeof(option) - 1] = '\0';
        // Slashes and dashes are dropped anywhere, so "/uninstall", "-uninstall" and
        // "--UNINSTALL" are all accepted; deliberate.
        char *out = option;
        for (const char *in = option; *in != '\0'; ++in)
            if (*in != '/' && *in != '-')
                *out++ = *in;
        *out = '\0';
        if (strcasecmp(option, "uninstall") == 0) {
            uninstall();
            CONSOLE::print("MIME types and indexes removed.\n"
                           "They will be re-created the next time the program is run.\n");
            return false;
        }
    }
    CONSOLE::print("Unrecognized command line option.\n");
    CONSOLE::printf("Usage: %s /uninstall  Removes MIME types and BFS indexes\n", argv[0]);
    return false;
}

bool BEAPP::start() {
    // A start that fails must not leave an earlier start's flag behind to write the settings.
    appStarted = false;
    fStepsStarted = 0;
    for (const STEP &step : kSteps) {
        if (!(this->*step.start)())
            return false;
        ++fStepsStarted;
    }
    appStarted = true;
    return true;
}

void BEAPP::run() {
    if (fHost != nullptr)
        fHost->run();
}

void BEAPP::stop() {
    for (const STEP *step = kSteps + kStepCount; step-- != kSteps;)
        if (step->stop != nullptr)
            (this->*step->stop)();
}

// The link types stay installed, deliberately.
bool BEAPP::uninstall() {
    bool message = BEMIME::uninstall(VMSG::fileType());
    bool settings = INITFILE::mimeUninstall();
    bool index = MSGIDINDEX::remove();
    return message && settings && index;
}

bool BEAPP::initStart() {
    // A start begins from the compiled-in values; the file then overwrites them.
    SETTINGS::reset();
    INITFILE file;
    int32_t result = file.read(SETTINGS::sections, nullptr);
    if (result == DISKFILE::kSuccess) {
        SETTINGS::afterRead();
        _settingsApply();
        return true;
    }
    if (result != DISKFILE::kNotFound)
        return false;
    if (file.writeDefault(SETTINGS::sections, nullptr) != DISKFILE::kSuccess)
        return false;
    _settingsApply();
    initMessage();
    return true;
}

// Values that other subsystems keep a copy of, handed over once the settings are known.
void BEAPP::_settingsApply() {
    VMSG::csetDefault(BARNINFO::charsetGet());
}

void BEAPP::initMessage() {
    ALERT::showf("Welcome to %s!\n\nIt appears that this is the first time the program is being "
                 "run.  Please see the Help menu for configuration information and guidance.",
                 appName);
}

void BEAPP::initStop() {
    // Only a complete start may write: a half-started program never overwrites the settings.
    if (!appStarted)
        return;
    INITFILE file;
    file.write(SETTINGS::sections, nullptr);
}

bool BEAPP::_helpCheck() {
    return fHost == nullptr || fHost->helpCheck();
}

bool BEAPP::_threadStart() {
    return THREAD::start();
}

void BEAPP::_threadStop() {
    THREAD::stop();
}

// Every start, so types removed by "/uninstall" come back; results deliberately ignored.
bool BEAPP::_typesInstall() {
    INITFILE::mimeInstall();
    BEMIME::install(VMSG::fileType());
    BEMIME::linkInstall();
    return true;
}

// Checks the data directory, adds the fixed folders and starts the storage worker; an
// unusable data directory has been reported by then.
bool BEAPP::_networkStart() {
    return NETWORK::start();
}

void BEAPP::_networkStop() {
    NETWORK::stop();
}

bool BEAPP::_newsStart() {
    return news.start();
}

void BEAPP::_newsStop() {
    news.stop();
}

// The posting header table is filled once here, before any transfer can run.
bool BEAPP::_nntpStart() {
    return NNTP::start() && EDIT::headers();
}

void BEAPP::_nntpStop() {
    NNTP::stop();
}

bool BEAPP::_storageStart() {
    return barn.start();
}

void BEAPP::_storageStop() {
    barn.stop();
}

bool BEAPP::_killfileStart() {
    return KILLFILE::Start();
}

void BEAPP::_killfileStop() {
    KILLFILE::Stop();
}

bool BEAPP::_windowCreate() {
    return fHost == nullptr || fHost->windowCreate(appName);
}

bool BEAPP::_running() {
    THREAD::state(true);
    return true;
}

void BEAPP::_holdAndStopWorkers() {
    THREAD::state(false);
    THREAD::stop();
}
