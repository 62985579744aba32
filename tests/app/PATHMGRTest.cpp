// The program's own directories: home, settings, data, and the executable's name.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "app/PATHMGR.h"
#include "tests/support/TestHome.h"

namespace {
TEST(PathMgr, DirectoriesFollowTheEnvironmentAndTheExecutable) {
    const std::string home = testhome::path();
    EXPECT_EQ(std::string(pathMgr.pathHome()), home);
    EXPECT_EQ(std::string(pathMgr.prefDir()), home + "/.config");
    EXPECT_EQ(std::string(pathMgr.dataDir()), home + "/.local/share");
    std::string name = pathMgr.progName(), folder = pathMgr.progDir();
    EXPECT_EQ(name, "test_app_settings") << "found from the running executable";
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    pathMgr.progSet("/opt/vw/bin/vellowick");
    EXPECT_STREQ(pathMgr.progName(), "vellowick");
    EXPECT_STREQ(pathMgr.progDir(), "/opt/vw/bin");
    pathMgr.progSet((folder + "/" + name).c_str());
}

TEST(PathMgr, HomeIsReplacedOnlyByAUsableDirectory) {
    const std::string home = testhome::path();
    ASSERT_TRUE(pathMgr.homeDir((home + "/other/home/").c_str())) << "created when missing";
    EXPECT_EQ(std::string(pathMgr.pathHome()), home + "/other/home");
    std::ofstream(home + "/plain-file") << "x";
    EXPECT_FALSE(pathMgr.homeDir((home + "/plain-file/below").c_str()));
    EXPECT_FALSE(pathMgr.homeDir(""));
    EXPECT_EQ(std::string(pathMgr.pathHome()), home + "/other/home") << "left unchanged";
    ASSERT_TRUE(pathMgr.homeDir(home.c_str()));
    EXPECT_EQ(std::string(pathMgr.pathHome()), home);
}

TEST(PathMgr, DirsCreateMakesEveryLevelButRefusesAFileInTheWay) {
    const std::string deep = testhome::path() + "/a/b/c", file = testhome::path() + "/in-the-way";
    EXPECT_TRUE(PATHMGR::dirsCreate(deep.c_str()));
    EXPECT_TRUE(std::filesystem::is_directory(deep));
    EXPECT_TRUE(PATHMGR::dirsCreate(deep.c_str())) << "existing directories are fine";
    std::ofstream(file) << "x";
    EXPECT_FALSE(PATHMGR::dirsCreate(file.c_str()));
    EXPECT_FALSE(PATHMGR::dirsCreate((file + "/below").c_str()));
}
} // namespace
