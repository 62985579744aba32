// Installing file types into the desktop's MIME database and removing them again.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "app/BEMIME.h"
#include "app/INITFILE.h"
#include "app/PATHMGR.h"
#include "base/DISKFILE.h"
#include "tests/app/TestFiles.h"

namespace {
const char *const kExtensions[] = {"vtst", nullptr};
const FILETYPE::ATTRINFO kAttributes[] = {
    {"TEST:name", "Name", DISKFILE::kTypeString, true, false, 100, FILETYPE::kAlignLeft, false},
    {nullptr, nullptr, 0, false, false, 0, FILETYPE::kAlignLeft, false},
};
const FILETYPE kType = {
    .icon = "text-x-generic",
    .mimeType = "text/x-vellowick-test",
    .shortDescription = "Test <file> & more",
    .longDescription = "A type for tests",
    .extensions = kExtensions,
    .attributes = kAttributes,
};

TEST(BeMime, InstallWritesAPackageOnceAndUninstallRemovesIt) {
    std::string package = BEMIME::packagePath(kType.mimeType);
    EXPECT_EQ(package, std::string(pathMgr.dataDir()) +
                           "/mime/packages/vellowick-text-x-vellowick-test.xml");
    ASSERT_TRUE(BEMIME::install(&kType));
    EXPECT_TRUE(BEMIME::installed(&kType));
    EXPECT_EQ(testfiles::text(package),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
              "  <mime-type type=\"text/x-vellowick-test\">\n"
              "    <comment>Test &lt;file&gt; &amp; more</comment>\n"
              "    <sub-class-of type=\"text/plain\"/>\n"
              "    <generic-icon name=\"text-x-generic\"/>\n"
              "    <glob pattern=\"*.vtst\"/>\n"
              "  </mime-type>\n"
              "</mime-info>\n");

    // An installed type is left as the user or an earlier run left it.
    std::ofstream(package, std::ios::app) << "<!-- edited -->\n";
    std::string edited = testfiles::text(package);
    ASSERT_TRUE(BEMIME::install(&kType));
    EXPECT_EQ(testfiles::text(package), edited);

    ASSERT_TRUE(BEMIME::uninstall(&kType));
    EXPECT_FALSE(BEMIME::installed(&kType));
    EXPECT_FALSE(std::filesystem::exists(package));
    EXPECT_TRUE(BEMIME::uninstall(&kType)) << "removing a missing type is no failure";
}

TEST(BeMime, DatabaseIsCompiledWhenTheToolIsThere) {
    if (std::system("command -v update-mime-database >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "update-mime-database is not installed";
    ASSERT_TRUE(INITFILE::mimeInstall());
    std::string compiled = std::string(pathMgr.dataDir()) + "/mime/text/x-initialization.xml";
    EXPECT_TRUE(std::filesystem::exists(compiled));
    ASSERT_TRUE(INITFILE::mimeUninstall());
    EXPECT_FALSE(std::filesystem::exists(compiled));
}

TEST(BeMime, MissingToolIsNoFailure) {
    const std::string path = std::getenv("PATH");
    setenv("PATH", pathMgr.dataDir(), 1); // where no database tool is
    const FILETYPE bare = {.mimeType = "application/x-vnd.Be.URL.telnet"};
    bool installed = BEMIME::install(&bare);
    setenv("PATH", path.c_str(), 1);
    ASSERT_TRUE(installed);
    EXPECT_EQ(testfiles::text(BEMIME::packagePath(bare.mimeType)),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
              "  <mime-type type=\"application/x-vnd.Be.URL.telnet\"/>\n"
              "</mime-info>\n");
    EXPECT_TRUE(BEMIME::uninstall(&bare));
}

TEST(BeMime, OnlyTheMessageIdCanBeIndexed) {
    FILETYPE::ATTRINFO attributes[] = {
        {"VELLOWICK:msgid", "Message ID", DISKFILE::kTypeString, true, false, 150,
         FILETYPE::kAlignLeft, true},
        {nullptr, nullptr, 0, false, false, 0, FILETYPE::kAlignLeft, false},
    };
    FILETYPE type = {.mimeType = "text/x-vellowick-indexed", .attributes = attributes};
    EXPECT_TRUE(BEMIME::indexInstall(&type));
    attributes[0].name = "TEST:subject";
    EXPECT_FALSE(BEMIME::install(&type));
    EXPECT_FALSE(BEMIME::installed(&type)) << "a failed index install installs nothing";
}

TEST(BeMime, LinkTypesInOrderStoppingAtTheFirstFailure) {
    // Something that is not a package stands where the HTTP type's package would go.
    std::string blocked = BEMIME::packagePath("application/x-vnd.Be.URL.http");
    std::filesystem::create_directories(blocked);
    EXPECT_FALSE(BEMIME::linkInstall());
    for (const char *kind : {"mailto", "file", "ftp"})
        EXPECT_TRUE(std::filesystem::is_regular_file(
            BEMIME::packagePath((std::string("application/x-vnd.Be.URL.") + kind).c_str())))
            << kind;
    for (const char *kind : {"https", "news", "rtsp", "telnet"})
        EXPECT_FALSE(std::filesystem::exists(
            BEMIME::packagePath((std::string("application/x-vnd.Be.URL.") + kind).c_str())))
            << kind;
    std::filesystem::remove(blocked);
    EXPECT_TRUE(BEMIME::linkInstall());
    EXPECT_TRUE(
        std::filesystem::is_regular_file(BEMIME::packagePath("application/x-vnd.Be.URL.telnet")));
}
} // namespace
