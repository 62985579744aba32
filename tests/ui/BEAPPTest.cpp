// The application object: command line texts and the start and stop order.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/THREAD.h"
#include "ui/APPHOST.h"
#include "ui/BEAPP.h"

namespace {
struct CMDCASE {
    const char *name;
    std::vector<const char *> args;
    bool goOn;
    const char *printed;
};

const char kUsage[] = "\nUnrecognized command line option.\n"
                      "Usage: vellowick /uninstall  Removes MIME types and BFS indexes\n";
const char kRemoved[] = "\nMIME types and indexes removed.\n"
                        "They will be re-created the next time the program is run.\n";

const CMDCASE kCmdCases[] = {
    {"no-arguments", {"vellowick"}, true, ""},
    {"plain", {"vellowick", "uninstall"}, false, kRemoved},
    {"slash-mixed-case", {"vellowick", "/UnInstall"}, false, kRemoved},
    {"dash", {"vellowick", "-uninstall"}, false, kRemoved},
    {"double-dash-upper", {"vellowick", "--UNINSTALL"}, false, kRemoved},
    {"dashes-inside", {"vellowick", "un-in/stall"}, false, kRemoved},
    {"two-arguments", {"vellowick", "uninstall", "extra"}, false, kUsage},
    {"unknown", {"vellowick", "--help"}, false, kUsage},
    {"empty", {"vellowick", ""}, false, kUsage},
    // The option is read from an 85-byte buffer: the 85th character and later are not seen.
    {"x-is-85th-character",
     {"vellowick",
      "uninstall---------------------------------------------------------------------------x"},
     false,
     kRemoved},
    {"x-is-84th-character",
     {"vellowick",
      "uninstall--------------------------------------------------------------------------x"},
     false,
     kUsage},
};

TEST(BEAPPTest, CommandLine) {
    for (const CMDCASE &c : kCmdCases) {
        BEAPP app;
        testing::internal::CaptureStdout();
        bool goOn =
            app.cmdLine(static_cast<int>(c.args.size()), const_cast<char **>(c.args.data()));
        std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(goOn, c.goOn) << c.name;
        EXPECT_EQ(printed, c.printed) << c.name;
    }
}

class FAKEHOST : public APPHOST {
public:
    bool helpOk = true;
    bool windowOk = true;
    std::vector<std::string> calls;

    bool helpCheck() override {
        calls.push_back("help");
        return helpOk;
    }
    bool windowCreate(const char *title) override {
        calls.push_back(std::string("window ") + title + (THREAD::running() ? " running" : ""));
        return windowOk;
    }
    void run() override { calls.push_back("run"); }
};

class BEAPPStart : public testing::Test {
protected:
    void TearDown() override { THREAD::stop(); }
};

// The window is created while the workers are still held; a failed step ends the start there.
TEST_F(BEAPPStart, StepsInOrderAndFailuresStopTheStart) {
    const std::vector<std::string> helpAndWindow = {"help", "window Vellowick News"};
    const struct {
        const char *name;
        bool helpOk, windowOk, started;
        std::vector<std::string> calls;
    } cases[] = {{"full", true, true, true, helpAndWindow},
                 {"help fails", false, true, false, {"help"}},
                 {"window fails", true, false, false, helpAndWindow}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        appStarted = false;
        FAKEHOST host;
        host.helpOk = c.helpOk;
        host.windowOk = c.windowOk;
        BEAPP app(&host);
        EXPECT_EQ(app.start(), c.started);
        EXPECT_EQ(appStarted, c.started);
        EXPECT_EQ(THREAD::running(), c.started);
        EXPECT_EQ(host.calls, c.calls);
        if (c.started || !c.helpOk) {
            EXPECT_EQ(app.stepsStarted(), c.started ? BEAPP::kStepCount : 0u);
        }
        app.stop();
        EXPECT_FALSE(THREAD::running());
        EXPECT_EQ(THREAD::count(), 0u);
    }
    appStarted = false;
    BEAPP bare;
    bare.stop();
    bare.stop();
    EXPECT_FALSE(appStarted);
}
} // namespace
