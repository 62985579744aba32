// The application object: command line texts and the start and stop order.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "app/APPHOST.h"
#include "app/BEAPP.h"
#include "base/THREAD.h"

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
    void SetUp() override { appStarted = false; }
    void TearDown() override { THREAD::stop(); }
};

TEST_F(BEAPPStart, FullStartRunsEveryStepThenReleasesWorkers) {
    FAKEHOST host;
    BEAPP app(&host);
    ASSERT_TRUE(app.start());
    EXPECT_TRUE(appStarted);
    EXPECT_TRUE(THREAD::running());
    EXPECT_EQ(app.stepsStarted(), BEAPP::kStepCount);
    EXPECT_EQ(host.calls, (std::vector<std::string>{"help", "window Vellowick News"}))
        << "workers must still be held while the window is created";
    app.stop();
    EXPECT_FALSE(THREAD::running());
    EXPECT_EQ(THREAD::count(), 0u);
}

TEST_F(BEAPPStart, FailedHelpCheckStopsBeforeThreads) {
    FAKEHOST host;
    host.helpOk = false;
    BEAPP app(&host);
    EXPECT_FALSE(app.start());
    EXPECT_EQ(app.stepsStarted(), 0u);
    EXPECT_EQ(host.calls, std::vector<std::string>{"help"});
    EXPECT_FALSE(appStarted);
    app.stop();
    EXPECT_FALSE(THREAD::running());
}

TEST_F(BEAPPStart, FailedWindowLeavesWorkersHeldAndNotStarted) {
    FAKEHOST host;
    host.windowOk = false;
    BEAPP app(&host);
    EXPECT_FALSE(app.start());
    EXPECT_FALSE(appStarted);
    EXPECT_FALSE(THREAD::running());
    app.stop();
}

TEST_F(BEAPPStart, StopWithoutStartIsSafe) {
    BEAPP app;
    app.stop();
    app.stop();
    EXPECT_FALSE(appStarted);
}
} // namespace
