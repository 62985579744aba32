// The settings schema: the default files byte for byte, and the schema's own rules.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "app/INITFILE.h"
#include "app/SETTINGS.h"
#include "storage/BARNINFO.h"
#include "storage/SERVERSETTINGS.h"
#include "tests/app/TestFiles.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TestHome.h"

namespace {
// The creation line carries the current time; the expected files hold a placeholder.
std::string dateMasked(const std::string &text) {
    static const std::regex created("^(; Vellowick News initialization file\n; Created )"
                                    "\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d\n");
    return std::regex_replace(text, created, "$1@DATE@\n", std::regex_constants::format_first_only);
}

std::string golden(const char *name) {
    return testfiles::text(std::string(VW_TEST_DATA) + "/settings/" + name);
}

BARN::NODE templateServer() {
    BARN::NODE node{};
    node.type = NODETYPE::Server;
    std::strcpy(node.server.hostname, "news.example.invalid");
    node.server.port = 119;
    node.server.timeout = 120'000'000;
    std::strcpy(node.server.postName, "Your Name Here");
    std::strcpy(node.server.postMail, "your.name@example.invalid");
    std::strcpy(node.server.postOrg, "Your Organization Here");
    std::strcpy(node.server.username, "username");
    std::strcpy(node.server.password, "changeme");
    node.server.compress = true;
    return node;
}

class Settings : public testing::Test {
protected:
    void SetUp() override {
        SETTINGS::reset("/home/user");
        fPath = testhome::path() + "/settings.ini";
        std::filesystem::remove(fPath);
    }
    void TearDown() override { SETTINGS::reset(); }

    // Writes a default file, then puts text in front of its [Storage] section's lines.
    int32_t readWith(const std::string &section, const std::string &lines) {
        INITFILE file;
        EXPECT_EQ(file.writeDefault(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
        std::string text = testfiles::text(fPath);
        size_t at = text.find("[" + section + "]");
        at = text.find('\n', at) + 1;
        testfiles::set(fPath, text.insert(at, lines));
        return file.read(SETTINGS::sections, fPath.c_str());
    }

    std::string fPath;
    ALERTRECORDER fAlerts;
};

TEST_F(Settings, DefaultMainFileIsExact) {
    INITFILE file;
    ASSERT_EQ(file.writeDefault(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(dateMasked(testfiles::text(fPath)), golden("vellowick.ini"));
}

TEST_F(Settings, DefaultServerFileIsExact) {
    BARN::NODE node = templateServer();
    std::string path = testhome::path() + "/" + SERVERSETTINGS::kFileName;
    ASSERT_EQ(SERVERSETTINGS::writeDefault(&node, path.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(dateMasked(testfiles::text(path)), golden("Server.ini"));
    // The file holds a password: only its owner may read it.
    EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    BARN::NODE back{};
    back.type = NODETYPE::Server;
    EXPECT_EQ(SERVERSETTINGS::read(&back, path.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(std::memcmp(&back.server, &node.server, sizeof node.server), 0);
    EXPECT_EQ(fAlerts.count(), 0u);
}

TEST_F(Settings, DefaultFileReadsBackToTheDefaults) {
    INITFILE file;
    ASSERT_EQ(file.writeDefault(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
    SETTINGS::STORAGE storage = SETTINGS::storage;
    SETTINGS::VIEW view = SETTINGS::view;
    SETTINGS::COLORS colors = SETTINGS::colors;
    std::memset(&SETTINGS::storage, 0, sizeof SETTINGS::storage);
    std::memset(&SETTINGS::view, 0, sizeof SETTINGS::view);
    std::memset(&SETTINGS::colors, 0, sizeof SETTINGS::colors);
    EXPECT_EQ(file.read(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(std::memcmp(&storage, &SETTINGS::storage, sizeof storage), 0);
    EXPECT_EQ(std::memcmp(&view, &SETTINGS::view, sizeof view), 0);
    EXPECT_EQ(std::memcmp(&colors, &SETTINGS::colors, sizeof colors), 0);
    EXPECT_EQ(fAlerts.count(), 0u);
}

TEST_F(Settings, ValuesReadFromTheFile) {
    EXPECT_EQ(readWith("Storage", "DownloadHeaders = 0\nDownloadLimit = Yes\nCharsetDefault = "
                                  "utf-8\nPath = /srv/news//\nSavePath = /srv/files/\n"),
              DISKFILE::kSuccess);
    EXPECT_EQ(BARNINFO::downloadMax(false), 20'000'000u) << "unlimited headers when zero";
    EXPECT_EQ(BARNINFO::downloadMax(true), 200u);
    EXPECT_EQ(BARNINFO::charsetGet(), IMsg::CharsetUTF8);
    SETTINGS::afterRead();
    EXPECT_STREQ(SETTINGS::storage.path, "/srv/news") << "no trailing slash is kept";
    EXPECT_STREQ(SETTINGS::storage.savePath, "/srv/files");
}

TEST_F(Settings, RefusedValuesKeepTheirDefaults) {
    EXPECT_EQ(readWith("Message", "LineLength = 40\n"), DISKFILE::kContentsInvalid);
    EXPECT_EQ(SETTINGS::message.lineLength, 72);
    EXPECT_EQ(readWith("Storage", "CharsetDefault = 11\n"), DISKFILE::kContentsInvalid);
    EXPECT_EQ(BARNINFO::charsetGet(), IMsg::CharsetISO1);
    ASSERT_EQ(fAlerts.count(), 2u);
    EXPECT_NE(fAlerts.texts()[0].find(": [Message] item 'LineLength' is set to an invalid value"),
              std::string::npos);
}

TEST_F(Settings, TransferLoggingNoneIsWrittenBackOff) {
    EXPECT_EQ(readWith("Storage", "TransferLogging = ActionsAndTransfers\n"), DISKFILE::kSuccess);
    EXPECT_EQ(BARNINFO::nntpLogSetting(), uint32_t(SETTINGS::kLogTransfers));
    std::string text = testfiles::text(fPath);
    text.replace(text.find("TransferLogging = ActionsAndTransfers"),
                 std::strlen("TransferLogging = ActionsAndTransfers"), "TransferLogging = None");
    testfiles::set(fPath, text);
    INITFILE file;
    EXPECT_EQ(file.read(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(BARNINFO::nntpLogSetting(), uint32_t(SETTINGS::kLogOff));
    EXPECT_EQ(file.write(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
    text = testfiles::text(fPath);
    EXPECT_EQ(text.find("TransferLogging = None"), std::string::npos);
    EXPECT_NE(text.find("TransferLogging = Off\n"), std::string::npos)
        << "the changed line loses nothing but its value";
}

TEST_F(Settings, FirstEightColumnsAreRequired) {
    INITFILE file;
    ASSERT_EQ(file.writeDefault(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
    std::string text = testfiles::text(fPath);
    testfiles::set(
        fPath,
        std::regex_replace(
            text, std::regex("\n(ColumnWidth0003|ColumnWidth0008|ColumnLabel0010)[^\n]*"), ""));
    SETTINGS::view.column[9].label[0] = 'X';
    EXPECT_EQ(file.read(SETTINGS::sections, fPath.c_str()), DISKFILE::kContentsInvalid);
    ASSERT_EQ(fAlerts.count(), 1u);
    const std::string alert = fAlerts.texts()[0];
    EXPECT_EQ(alert.substr(alert.find('\n', alert.find("Filename: ")) + 1),
              "[View] item 'ColumnWidth0003' is required and was not found\n"
              "[View] item 'ColumnWidth0008' is required and was not found\n");
    EXPECT_EQ(SETTINGS::view.column[9].label[0], 'X') << "a missing ninth or tenth stays";
}

TEST_F(Settings, ServerLoginNeedsBothNameAndPassword) {
    const struct {
        const char *username, *password;
        bool login;
    } cases[] = {{"user", "secret", true}, {"user", "", false}, {"", "secret", false}};
    for (const auto &c : cases) {
        BARN::NODE node = templateServer();
        node.server.login = true;
        std::strcpy(node.server.username, c.username);
        std::strcpy(node.server.password, c.password);
        std::string path = testhome::path() + "/login.ini";
        ASSERT_EQ(SERVERSETTINGS::writeDefault(&node, path.c_str()), DISKFILE::kSuccess);
        EXPECT_NE(testfiles::text(path).find("Login = Yes"), std::string::npos);
        BARN::NODE back{};
        EXPECT_EQ(SERVERSETTINGS::read(&back, path.c_str()), DISKFILE::kSuccess);
        EXPECT_EQ(back.server.login, c.login) << c.username << "/" << c.password;
    }
}

TEST_F(Settings, ServerValuesAreChecked) {
    std::string path = testhome::path() + "/check.ini";
    testfiles::set(path,
                   "[Server]\nHostname = bad host!\nPort = 0\nTimeout = 1 second\n"
                   "PostName = Me\nPostMail = not-an-address\nPostOrg = <b>Org</b>\nLogin = No\n");
    BARN::NODE node = templateServer();
    EXPECT_EQ(SERVERSETTINGS::read(&node, path.c_str()), DISKFILE::kContentsInvalid);
    EXPECT_STREQ(node.server.hostname, "news.example.invalid");
    EXPECT_EQ(node.server.port, 119);
    EXPECT_EQ(node.server.timeout, 120'000'000);
    EXPECT_STREQ(node.server.postName, "Me");
    EXPECT_STREQ(node.server.postMail, "your.name@example.invalid");
    ASSERT_EQ(fAlerts.count(), 1u);
    EXPECT_EQ(fAlerts.texts()[0], "Vellowick News initialization file problem\nFilename: " + path +
                                      "\nLine 2: [Server] item 'Hostname' is set to an invalid "
                                      "value\nLine 3: [Server] item 'Port' is set to an invalid "
                                      "value\nLine 4: [Server] item 'Timeout' is set to an "
                                      "invalid value\nLine 6: [Server] item 'PostMail' is set to "
                                      "an invalid value\n");
}
} // namespace
