// The settings file at start and stop: first run, later runs, failed starts, broken files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "app/BEMIME.h"
#include "app/INITFILE.h"
#include "app/PATHMGR.h"
#include "app/SETTINGS.h"
#include "base/THREAD.h"
#include "storage/MSGIDINDEX.h"
#include "tests/app/TestFiles.h"
#include "tests/support/ALERTRECORDER.h"
#include "ui/APPHOST.h"
#include "ui/BEAPP.h"

namespace {
const char kWelcome[] = "Welcome to Vellowick News!\n\nIt appears that this is the first time "
                        "the program is being run.  Please see the Help menu for configuration "
                        "information and guidance.";

class HOST : public APPHOST {
public:
    bool windowOk = true;
    bool helpCheck() override { return true; }
    bool windowCreate(const char *) override { return windowOk; }
    void run() override {}
};

class InitStart : public testing::Test {
protected:
    void SetUp() override {
        // The settings file is named after the program.
        fProgram = std::string(pathMgr.progDir()) + "/" + pathMgr.progName();
        pathMgr.progSet("/usr/bin/vellowick");
        fPath = std::string(pathMgr.prefDir()) + "/vellowick.ini";
        std::filesystem::remove(fPath);
        std::filesystem::remove(std::string(pathMgr.prefDir()) + "/vellowick.bak");
        appStarted = false;
    }
    void TearDown() override {
        pathMgr.progSet(fProgram.c_str());
        THREAD::stop();
        appStarted = false;
        SETTINGS::reset();
    }

    // One run of the program, as a new process: start, change a setting when asked, and stop
    // whatever happened.
    bool run(bool windowOk = true, bool change = false) {
        appStarted = false;
        HOST host;
        host.windowOk = windowOk;
        BEAPP app(&host);
        bool started = app.start();
        if (change)
            SETTINGS::message.lineLength = 60;
        app.stop();
        return started;
    }

    std::string fPath;
    std::string fProgram;
    ALERTRECORDER fAlerts;
};

TEST_F(InitStart, FirstRunWritesDefaultsAndWelcomesThenLaterRunsChangeNothing) {
    ASSERT_TRUE(run());
    ASSERT_EQ(fAlerts.count(), 1u);
    EXPECT_EQ(fAlerts.texts()[0], kWelcome);
    std::string first = testfiles::text(fPath);
    EXPECT_EQ(first.rfind("; Vellowick News initialization file\n; Created ", 0), 0u);
    EXPECT_NE(first.find("\nPath = " + std::string(pathMgr.pathHome()) + "/VellowickData"),
              std::string::npos);

    ASSERT_TRUE(run());
    EXPECT_EQ(fAlerts.count(), 1u) << "no welcome the second time";
    EXPECT_EQ(testfiles::text(fPath), first);
}

TEST_F(InitStart, ChangesAreWrittenAtStopOnlyAfterAFullStart) {
    ASSERT_TRUE(run());
    std::string before = testfiles::text(fPath);
    EXPECT_FALSE(run(false, true));
    EXPECT_EQ(testfiles::text(fPath), before);
    ASSERT_TRUE(run(true, true));
    EXPECT_NE(testfiles::text(fPath).find("\nLineLength = 60 "), std::string::npos);
}

TEST_F(InitStart, UninstallRemovesTypesAndIndexUntilTheNextStart) {
    ASSERT_TRUE(run());
    const std::string message = BEMIME::packagePath("text/x-vellowick");
    const std::string settings = BEMIME::packagePath(INITFILE::kMimeType);
    const std::string link = BEMIME::packagePath("application/x-vnd.Be.URL.news");
    MSGIDINDEX::count(); // the index comes into being on first use
    for (const std::string &path : {message, settings, link, MSGIDINDEX::location()})
        EXPECT_TRUE(std::filesystem::exists(path)) << path;
    BEAPP app;
    EXPECT_TRUE(app.uninstall());
    for (const std::string &path : {message, settings, MSGIDINDEX::location()})
        EXPECT_FALSE(std::filesystem::exists(path)) << path;
    EXPECT_TRUE(std::filesystem::exists(link)) << "link types stay";
    ASSERT_TRUE(run());
    EXPECT_TRUE(std::filesystem::exists(message) && std::filesystem::exists(settings));
}

// Files a user might end up with: start fails with one alert and the file stays as it was.
struct BROKENCASE {
    const char *name;
    std::string (*text)();
};

const BROKENCASE kBrokenCases[] = {
    {"random_bytes",
     [] {
         std::mt19937 random(5);
         std::string text(20000, '\0');
         for (char &c : text)
             c = char(random());
         return text;
     }},
    {"one_long_line", [] { return std::string(100000, 'a'); }},
    {"every_value_invalid",
     [] {
         return std::string("[Storage]\nPath = x\nDaysToKeepMessages = many\n"
                            "DownloadDefault = Sometimes\n[Message]\nLineLength = 4000\n"
                            "[Colors]\nUrlFile = 1 2 999\n[View]\nColumnWidth0001 = 1\n");
     }},
    {"empty", [] { return std::string(); }},
};

class InitBroken : public InitStart, public testing::WithParamInterface<BROKENCASE> {};

TEST_P(InitBroken, StartFailsWithOneAlertAndKeepsTheFile) {
    const std::string text = GetParam().text();
    testfiles::set(fPath, text);
    EXPECT_FALSE(run());
    ASSERT_EQ(fAlerts.count(), 1u);
    EXPECT_EQ(fAlerts.texts()[0].rfind(
                  "Vellowick News initialization file problem\nFilename: " + fPath + "\n", 0),
              0u)
        << fAlerts.texts()[0];
    EXPECT_LE(fAlerts.texts()[0].size(), 2999u);
    EXPECT_EQ(testfiles::text(fPath), text);
    EXPECT_FALSE(std::filesystem::exists(fPath + ".new"));
}

INSTANTIATE_TEST_SUITE_P(InitStart, InitBroken, testing::ValuesIn(kBrokenCases),
                         [](const testing::TestParamInfo<BROKENCASE> &info) {
                             return std::string(info.param.name);
                         });
} // namespace
