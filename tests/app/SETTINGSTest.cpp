// The settings schema: the default files byte for byte, and the schema's own rules.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>

#include "app/BARNINFO.h"
#include "app/INITFILE.h"
#include "app/SERVERSETTINGS.h"
#include "app/SETTINGS.h"
#include "tests/app/TestFiles.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TestHome.h"

namespace {
// The creation line carries the current time; the expected files hold a placeholder.
std::string dateMasked(std::string text) {
    const std::string head = "; Vellowick News initialization file\n; Created ";
    const std::string form = "0000/00/00 00:00:00";
    if (text.compare(0, head.size(), head) != 0 || text.size() < head.size() + form.size() + 1)
        return text;
    for (size_t i = 0; i < form.size(); ++i) {
        char c = text[head.size() + i];
        if (form[i] == '0' ? !std::isdigit((unsigned char)c) : c != form[i])
            return text;
    }
    if (text[head.size() + form.size()] != '\n')
        return text;
    return text.replace(head.size(), form.size(), "@DATE@");
}

// The text without the lines that start with any of the keys.
std::string linesDropped(const std::string &text, std::initializer_list<const char *> keys) {
    std::string out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        bool drop = false;
        for (const char *key : keys)
            drop = drop || line.rfind(key, 0) == 0;
        if (!drop)
            out += line + "\n";
    }
    return out;
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

TEST_F(Settings, UnlimitedHeadersWhenTheLimitIsZero) {
    EXPECT_EQ(readWith("Storage", "DownloadHeaders = 0\nDownloadLimit = Yes\n"),
              DISKFILE::kSuccess);
    EXPECT_EQ(BARNINFO::downloadMax(false), 20'000'000u);
    EXPECT_EQ(BARNINFO::downloadMax(true), 200u);
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

TEST_F(Settings, ShortLineLengthIsRefusedAndKept) {
    EXPECT_EQ(readWith("Message", "LineLength = 40\n"), DISKFILE::kContentsInvalid);
    EXPECT_EQ(SETTINGS::message.lineLength, 72);
    ASSERT_EQ(fAlerts.count(), 1u);
    EXPECT_NE(fAlerts.texts()[0].find(": [Message] item 'LineLength' is set to an invalid value"),
              std::string::npos);
}

TEST_F(Settings, UnknownCharacterSetNumberIsRefused) {
    EXPECT_EQ(readWith("Storage", "CharsetDefault = 11\n"), DISKFILE::kContentsInvalid);
    EXPECT_EQ(BARNINFO::charsetGet(), IMsg::CharsetISO1);
    EXPECT_EQ(readWith("Storage", "CharsetDefault = utf-8\n"), DISKFILE::kSuccess);
    EXPECT_EQ(BARNINFO::charsetGet(), IMsg::CharsetUTF8);
}

TEST_F(Settings, FirstEightColumnsAreRequired) {
    INITFILE file;
    ASSERT_EQ(file.writeDefault(SETTINGS::sections, fPath.c_str()), DISKFILE::kSuccess);
    std::string text = testfiles::text(fPath);
    testfiles::set(fPath,
                   linesDropped(text, {"ColumnWidth0003", "ColumnWidth0008", "ColumnLabel0010"}));
    SETTINGS::view.column[9].label[0] = 'X';
    EXPECT_EQ(file.read(SETTINGS::sections, fPath.c_str()), DISKFILE::kContentsInvalid);
    ASSERT_EQ(fAlerts.count(), 1u);
    const std::string alert = fAlerts.texts()[0];
    EXPECT_EQ(alert.substr(alert.find('\n', alert.find("Filename: ")) + 1),
              "[View] item 'ColumnWidth0003' is required and was not found\n"
              "[View] item 'ColumnWidth0008' is required and was not found\n");
    EXPECT_EQ(SETTINGS::view.column[9].label[0], 'X') << "a missing ninth or tenth stays";
}

TEST_F(Settings, PathKeepsNoTrailingSlash) {
    EXPECT_EQ(readWith("Storage", "Path = /srv/news//\nSavePath = /srv/files/\n"),
              DISKFILE::kSuccess);
    SETTINGS::afterRead();
    EXPECT_STREQ(SETTINGS::storage.path, "/srv/news");
    EXPECT_STREQ(SETTINGS::storage.savePath, "/srv/files");
}

struct LOGINCASE {
    const char *name;
    const char *username;
    const char *password;
    bool login;
};

const LOGINCASE kLoginCases[] = {
    {"both", "user", "secret", true},
    {"no_password", "user", "", false},
    {"no_username", "", "secret", false},
};

class ServerLogin : public testing::TestWithParam<LOGINCASE> {};

TEST_P(ServerLogin, NeedsBothNameAndPassword) {
    const LOGINCASE &c = GetParam();
    BARN::NODE node = templateServer();
    node.server.login = true;
    std::strcpy(node.server.username, c.username);
    std::strcpy(node.server.password, c.password);
    std::string path = testhome::path() + "/login.ini";
    ASSERT_EQ(SERVERSETTINGS::writeDefault(&node, path.c_str()), DISKFILE::kSuccess);
    EXPECT_NE(testfiles::text(path).find("Login = Yes"), std::string::npos);
    BARN::NODE back{};
    EXPECT_EQ(SERVERSETTINGS::read(&back, path.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(back.server.login, c.login);
}

INSTANTIATE_TEST_SUITE_P(Settings, ServerLogin, testing::ValuesIn(kLoginCases),
                         [](const testing::TestParamInfo<LOGINCASE> &info) {
                             return std::string(info.param.name);
                         });

TEST_F(Settings, ServerValuesAreChecked) {
    std::string path = testhome::path() + "/check.ini";
    testfiles::set(path,
                   "[Server]\nHostname = bad host!\nPort = 0\nTimeout = 1 second\n"
                   "PostName = Me\nPostMail = not-an-address\nPostOrg = <b>Org</b>\nLogin = No\n");
    BARN::NODE node = templateServer();
    ALERTRECORDER alerts;
    EXPECT_EQ(SERVERSETTINGS::read(&node, path.c_str()), DISKFILE::kContentsInvalid);
    EXPECT_STREQ(node.server.hostname, "news.example.invalid");
    EXPECT_EQ(node.server.port, 119);
    EXPECT_EQ(node.server.timeout, 120'000'000);
    EXPECT_STREQ(node.server.postName, "Me");
    EXPECT_STREQ(node.server.postMail, "your.name@example.invalid");
    ASSERT_EQ(alerts.count(), 1u);
    EXPECT_EQ(alerts.texts()[0], "Vellowick News initialization file problem\nFilename: " + path +
                                     "\nLine 2: [Server] item 'Hostname' is set to an invalid "
                                     "value\nLine 3: [Server] item 'Port' is set to an invalid "
                                     "value\nLine 4: [Server] item 'Timeout' is set to an "
                                     "invalid value\nLine 6: [Server] item 'PostMail' is set to "
                                     "an invalid value\n");
}
} // namespace
