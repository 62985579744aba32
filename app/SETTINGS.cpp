// The main settings file: its sections, items and the program-wide variables they fill.
#include "app/SETTINGS.h"

#include <cstring>
#include <string>

#include "app/PATHMGR.h"
#include "message/IMsg.h"

namespace {
using ITEM = INITFILE::ITEM;

// Window coordinates and splitter positions share these limits.
constexpr long long kCoordMin = -2147483648LL;
constexpr long long kCoordMax = 2147483647LL;
constexpr int64_t kDay = 86'400'000'000LL;
constexpr int64_t kSecond = 1'000'000LL;

constexpr RGBCOLOR rgb(uint8_t red, uint8_t green, uint8_t blue) {
    return RGBCOLOR{red, green, blue, 255};
}

constexpr SETTINGS::STORAGE kStorageDefault = {
    .path = {},
    .daysToKeepMessages = 10,
    .downloadDefault = SETTINGS::kHeadersOnly,
    .downloadLimit = true,
    .downloadArticles = 200,
    .downloadHeaders = 200,
    .charsetDefault = IMsg::CharsetISO1,
    .savePath = {},
    .transferLogging = SETTINGS::kLogOff,
};
constexpr SETTINGS::SIGNATURE kSignatureDefault = {
    .filename = {},
    .enabled = false,
    .reply = false,
};
constexpr SETTINGS::MESSAGE kMessageDefault = {
    .charset = IMsg::CharsetISO1,
    .lineLength = 72,
};
constexpr SETTINGS::KILLFILE kKillfileDefault = {
    .applyToDownload = false,
    .removeTime = 180 * kDay,
};
constexpr SETTINGS::WINDOWPOSITION kWindowPositionDefault = {
    .left = 0,
    .top = 0,
    .right = 0,
    .bottom = 0,
    .splitterHorizontal = 0,
    .splitterVertical = 0,
    .inputFocus = SETTINGS::kFocusMessage,
    .textFontFamily = {},
    .textFontStyle = {},
    .textFontSize = 10,
};
constexpr SETTINGS::EDITWINDOW kEditWindowDefault = {0, 0, 0, 0};
constexpr SETTINGS::PROGRESSWINDOW kProgressWindowDefault = {
    .left = 0,
    .top = 0,
    .tab = SETTINGS::kTabProgress,
    .transferStart = true,
    .delay = 2 * kSecond,
};
constexpr SETTINGS::VIEW kViewDefault = {
    .allowHTML = true,
    .loadNetPositive = true,
    .showMessageHeaders = false,
    .showReadMessages = false,
    .threaded = true,
    .threadExpanded = true,
    .column =
        {
            {"Subject", true, true, 10, 126, 0, true},
            {"Author", true, true, 136, 86, 0, true},
            {"E-Mail Address", false, false, 0, 58, 0, true},
            {"Newsgroups", false, true, 0, 160, 0, true},
            {"To", false, false, 0, 58, 0, true},
            {"Date/Time", true, false, 222, 116, 1, true},
            {"Filename", false, false, 0, 100, 0, true},
            {"Size", false, false, 0, 66, 0, true},
            {"Lines", true, false, 338, 35, 0, true},
            {"Charset", false, false, 0, 66, 0, true},
        },
};
constexpr SETTINGS::COLORS kColorsDefault = {
    .dialogBackground = rgb(186, 201, 209),
    .headersBackground = rgb(254, 248, 224),
    .headersHighlight = rgb(183, 200, 184),
    .messageBackground = rgb(254, 248, 224),
    .progressBar = rgb(255, 201, 209),
    .storageBackground = rgb(254, 248, 224),
    .storageHighlight = rgb(183, 200, 184),
    .transferBackground = rgb(186, 201, 209),
    .viewHighlight = rgb(0, 0, 229),
    .windowBackground = rgb(183, 200, 184),
    .urlEmail = rgb(0, 203, 0),
    .urlFile = rgb(72, 13, 107),
    .urlFTP = rgb(183, 0, 235),
    .urlHTTP = rgb(0, 0, 203),
    .urlHTTPS = rgb(203, 0, 0),
    .urlNNTP = rgb(139, 122, 113),
    .urlRTSP = rgb(255, 102, 20),
    .urlTelnet = rgb(160, 80, 0),
};

// Item builders: one line per setting in the tables below.
ITEM yesNo(const char *key, bool *variable, const char *description) {
    return ITEM{.key = key,
                .description = description,
                .type = FIELD::Bool,
                .variable = variable,
                .size = sizeof(bool),
                .names = SETTINGS::indexYesNo};
}

ITEM text(const char *key, char *variable, unsigned long size, long long min, long long max,
          const char *description) {
    return ITEM{.key = key,
                .description = description,
                .type = FIELD::String,
                .variable = variable,
                .size = size,
                .min = min,
                .max = max};
}

template <typename T>
ITEM number(const char *key, FIELD::TYPE type, T *variable, long long min, long long max,
            const char *description, const STR::INDEX *names = nullptr) {
    return ITEM{.key = key,
                .description = description,
                .type = type,
                .variable = variable,
                .size = sizeof(T),
                .names = names,
                .min = min,
                .max = max};
}

ITEM coord(const char *key, float *variable, const char *description) {
    return number(key, FIELD::Float, variable, kCoordMin, kCoordMax, description);
}

ITEM color(const char *key, RGBCOLOR *variable, const char *description) {
    return ITEM{.key = key,
                .description = description,
                .type = FIELD::RGB,
                .variable = variable,
                .size = sizeof(RGBCOLOR)};
}

ITEM charset(const char *key, uint32_t *variable, const char *description) {
    ITEM item = number(key, FIELD::Uint32, variable, 0, IMsg::CharsetUSASCII, description,
                       IMsg::indexCharset);
    item.validator = SETTINGS::charsetCheck;
    return item;
}

// The ten header columns: seven numbered items, written column by column.
template <typename T>
ITEM column(const char *key, FIELD::TYPE type, T *first, long long min, long long max,
            const char *description, const STR::INDEX *names) {
    ITEM item = number(key, type, first, min, max, description, names);
    item.instances = SETTINGS::kColumnCount;
    item.stride = sizeof(SETTINGS::COLUMN);
    item.required = SETTINGS::kColumnRequired;
    item.defaultWrite = SETTINGS::kColumnCount;
    item.writeCount = SETTINGS::kColumnCount;
    return item;
}

SETTINGS::STORAGE &gStorage = SETTINGS::storage;
SETTINGS::SIGNATURE &gSignature = SETTINGS::signature;
SETTINGS::WINDOWPOSITION &gWindow = SETTINGS::windowPosition;
SETTINGS::EDITWINDOW &gEdit = SETTINGS::editWindow;
SETTINGS::PROGRESSWINDOW &gProgress = SETTINGS::progressWindow;
SETTINGS::VIEW &gView = SETTINGS::view;
SETTINGS::COLORS &gColors = SETTINGS::colors;
SETTINGS::COLUMN *const gColumn = SETTINGS::view.column;

ITEM gStorageItems[] = {
    [] {
        ITEM item = text("Path", gStorage.path, sizeof gStorage.path, 4, SETTINGS::kPathMax,
                         "Directory for data");
        item.required = 1;
        return item;
    }(),
    number("DaysToKeepMessages", FIELD::Uint16, &gStorage.daysToKeepMessages, 0, 10000,
           "Days before a message is deleted"),
    number("DownloadDefault", FIELD::Uint32, &gStorage.downloadDefault, 1, 3,
           "Default for newly created newsgroups", SETTINGS::indexDownload),
    yesNo("DownloadLimit", &gStorage.downloadLimit, "Limit download amounts?"),
    number("DownloadArticles", FIELD::Uint32, &gStorage.downloadArticles, 0, 50000,
           "Maximum articles downloaded at once"),
    number("DownloadHeaders", FIELD::Uint32, &gStorage.downloadHeaders, 0, 50000,
           "Maximum headers downloaded at once"),
    charset("CharsetDefault", &gStorage.charsetDefault, "Character set default for newsgroups"),
    text("SavePath", gStorage.savePath, sizeof gStorage.savePath, 4, SETTINGS::kSavePathMax,
         "Where binary attachments are saved"),
    number("TransferLogging", FIELD::Uint32, &gStorage.transferLogging, 0, 2,
           "Save transfers to NNTP.log?", SETTINGS::indexTransferLog),
    ITEM{},
};

ITEM gSignatureItems[] = {
    text("Filename", gSignature.filename, sizeof gSignature.filename, 0, SETTINGS::kSigFileMax,
         "Filename for signature file"),
    yesNo("Enabled", &gSignature.enabled, "Add signature automatically?"),
    yesNo("Reply", &gSignature.reply, "Add to replies and forwards?"),
    ITEM{},
};

ITEM gMessageItems[] = {
    charset("Charset", &SETTINGS::message.charset, "Character set (default is ISO-8859-1)"),
    number("LineLength", FIELD::Uint16, &SETTINGS::message.lineLength, 50, 80,
           "Word-wrap line length"),
    ITEM{},
};

ITEM gKillfileItems[] = {
    yesNo("ApplyToDownload", &SETTINGS::killfile.applyToDownload,
          "Apply killfile during download?"),
    number("RemoveTime", FIELD::Microseconds, &SETTINGS::killfile.removeTime, 0, 3650 * kDay,
           "Time in the killfile before removal"),
    ITEM{},
};

ITEM gWindowPositionItems[] = {
    coord("Left", &gWindow.left, "Window left side"),
    coord("Top", &gWindow.top, "Window top side"),
    coord("Right", &gWindow.right, "Window right side"),
    coord("Bottom", &gWindow.bottom, "Window bottom side"),
    number("SplitterHorizontal", FIELD::Int16, &gWindow.splitterHorizontal, kCoordMin, kCoordMax,
           "Horizontal splitter location"),
    number("SplitterVertical", FIELD::Int16, &gWindow.splitterVertical, kCoordMin, kCoordMax,
           "Vertical splitter location"),
    number("InputFocus", FIELD::Uint32, &gWindow.inputFocus, 1, 3, "View that has input focus",
           SETTINGS::indexFocus),
    text("TextFontFamily", gWindow.textFontFamily, sizeof gWindow.textFontFamily, 0,
         SETTINGS::kFontNameMax, "Font name for message views"),
    text("TextFontStyle", gWindow.textFontStyle, sizeof gWindow.textFontStyle, 0,
         SETTINGS::kFontNameMax, "Font style for message views"),
    number("TextFontSize", FIELD::Uint16, &gWindow.textFontSize, 9, 20,
           "Font size for message views"),
    ITEM{},
};

ITEM gEditWindowItems[] = {
    coord("Left", &gEdit.left, "Edit window left side"),
    coord("Top", &gEdit.top, "Edit window top side"),
    coord("Right", &gEdit.right, "Edit window right side"),
    coord("Bottom", &gEdit.bottom, "Edit window bottom side"),
    ITEM{},
};

ITEM gProgressWindowItems[] = {
    coord("Left", &gProgress.left, "Window left side"),
    coord("Top", &gProgress.top, "Window top side"),
    number("Tab", FIELD::Uint32, &gProgress.tab, 0, 2, "Window selected tab", SETTINGS::indexTab),
    yesNo("TransferStart", &gProgress.transferStart, "Open window at transfer start or not"),
    number("Delay", FIELD::Microseconds, &gProgress.delay, 0, 30 * kSecond,
           "Time before window closes itself"),
    ITEM{},
};

ITEM gViewItems[] = {
    yesNo("AllowHTML", &gView.allowHTML, "Show message as HTML if available"),
    yesNo("LoadNetPositive", &gView.loadNetPositive, "Load NetPositive replicant or not"),
    yesNo("ShowMessageHeaders", &gView.showMessageHeaders, "Show headers in message view or not"),
    yesNo("ShowReadMessages", &gView.showReadMessages, "Show messages if already read"),
    yesNo("Threaded", &gView.threaded, "Group messages according to thread"),
    yesNo("ThreadExpanded", &gView.threadExpanded, "Expand conversation threads by default"),
    [] {
        ITEM item = column("ColumnLabel", FIELD::String, gColumn[0].label, 1,
                           SETTINGS::kColumnLabelMax, "Header column label", nullptr);
        item.size = sizeof gColumn[0].label;
        item.group = 7;
        return item;
    }(),
    column("ColumnDisplay", FIELD::Bool, &gColumn[0].display, FIELD::kNoMin, FIELD::kNoMax,
           "Display in header view", SETTINGS::indexYesNo),
    column("ColumnMessage", FIELD::Bool, &gColumn[0].message, FIELD::kNoMin, FIELD::kNoMax,
           "Display in message view", SETTINGS::indexYesNo),
    column("ColumnPosition", FIELD::Uint16, &gColumn[0].position, 0, 2000, "Header column position",
           nullptr),
    column("ColumnWidth", FIELD::Uint16, &gColumn[0].width, 30, 600, "Header column width",
           nullptr),
    column("ColumnSort", FIELD::Uint16, &gColumn[0].sort, 0, 510, "Header column sort order",
           nullptr),
    column("ColumnSortForward", FIELD::Bool, &gColumn[0].sortForward, FIELD::kNoMin, FIELD::kNoMax,
           "Sort forward or reverse", SETTINGS::indexYesNo),
    ITEM{},
};

ITEM gColorsItems[] = {
    color("DialogBackground", &gColors.dialogBackground, "Dialog box background color"),
    color("HeadersBackground", &gColors.headersBackground, "Headers background color"),
    color("HeadersHighlight", &gColors.headersHighlight, "Headers highlight color"),
    color("MessageBackground", &gColors.messageBackground, "Message background color"),
    color("ProgressBar", &gColors.progressBar, "News transfer progress bar"),
    color("StorageBackground", &gColors.storageBackground, "Storage (folder) background color"),
    color("StorageHighlight", &gColors.storageHighlight, "Storage highlight color"),
    color("TransferBackground", &gColors.transferBackground, "Transfer window color"),
    color("ViewHighlight", &gColors.viewHighlight, "Highlighted view color"),
    color("WindowBackground", &gColors.windowBackground, "Background view color"),
    color("UrlEmail", &gColors.urlEmail, "E-mail URL highlight"),
    color("UrlFile", &gColors.urlFile, "File URL highlight"),
    color("UrlFTP", &gColors.urlFTP, "FTP URL highlight"),
    color("UrlHTTP", &gColors.urlHTTP, "HTTP URL highlight"),
    color("UrlHTTPS", &gColors.urlHTTPS, "HTTPS URL highlight"),
    color("UrlNNTP", &gColors.urlNNTP, "NNTP URL highlight"),
    color("UrlRTSP", &gColors.urlRTSP, "RTSP URL highlight"),
    color("UrlTelnet", &gColors.urlTelnet, "Telnet URL highlight"),
    ITEM{},
};

INITFILE::SECT gStorageSect = {"Storage", "News message settings", gStorageItems, true};
INITFILE::SECT gSignatureSect = {"Signature", "Signature file settings", gSignatureItems, true};
INITFILE::SECT gMessageSect = {"Message", "Message creation settings", gMessageItems, true};
INITFILE::SECT gKillfileSect = {"Killfile", "Killfile settings", gKillfileItems, true};
INITFILE::SECT gWindowPositionSect = {"WindowPosition", "Main window location onscreen",
                                      gWindowPositionItems, true};
INITFILE::SECT gEditWindowSect = {"EditWindow", "Edit window location onscreen", gEditWindowItems,
                                  true};
INITFILE::SECT gProgressWindowSect = {"ProgressWindow", "Progress window data",
                                      gProgressWindowItems, true};
INITFILE::SECT gViewSect = {"View", "Header and message view settings", gViewItems, true};
INITFILE::SECT gColorsSect = {"Colors", "Main screen window colors", gColorsItems, true};
} // namespace

SETTINGS::STORAGE SETTINGS::storage = kStorageDefault;
SETTINGS::SIGNATURE SETTINGS::signature = kSignatureDefault;
SETTINGS::MESSAGE SETTINGS::message = kMessageDefault;
SETTINGS::KILLFILE SETTINGS::killfile = kKillfileDefault;
SETTINGS::WINDOWPOSITION SETTINGS::windowPosition = kWindowPositionDefault;
SETTINGS::EDITWINDOW SETTINGS::editWindow = kEditWindowDefault;
SETTINGS::PROGRESSWINDOW SETTINGS::progressWindow = kProgressWindowDefault;
SETTINGS::VIEW SETTINGS::view = kViewDefault;
SETTINGS::COLORS SETTINGS::colors = kColorsDefault;

INITFILE::SECT *SETTINGS::sections[] = {
    &gStorageSect,    &gSignatureSect,      &gMessageSect, &gKillfileSect, &gWindowPositionSect,
    &gEditWindowSect, &gProgressWindowSect, &gViewSect,    &gColorsSect,   nullptr,
};

const STR::INDEX SETTINGS::indexYesNo[] = {{0, "No"}, {1, "Yes"}, {0, nullptr}};
const STR::INDEX SETTINGS::indexDownload[] = {
    {0, STR::kUnknown},
    {SETTINGS::kNoDownload, "NoDownload"},
    {SETTINGS::kHeadersOnly, "HeadersOnly"},
    {SETTINGS::kHeadersAndBodies, "HeadersAndBodies"},
    {0, nullptr},
};
// The first name of a value is the one written, so "None" and "No" are read but "Off" is
// written back.
const STR::INDEX SETTINGS::indexTransferLog[] = {
    {kLogOff, "Off"},
    {kLogOff, "No"},
    {kLogOff, "None"},
    {kLogActions, "ActionsOnly"},
    {kLogActions, "Actions"},
    {kLogTransfers, "ActionsAndTransfers"},
    {0, nullptr},
};
const STR::INDEX SETTINGS::indexFocus[] = {
    {kFocusStorage, "Storage"},
    {kFocusHeaders, "Headers"},
    {kFocusMessage, "Message"},
    {0, nullptr},
};
const STR::INDEX SETTINGS::indexTab[] = {
    {kTabProgress, "Progress"},
    {kTabActions, "Actions"},
    {kTabErrors, "Errors"},
    {0, nullptr},
};

void SETTINGS::reset() {
    reset(pathMgr.pathHome());
}

void SETTINGS::reset(const char *home) {
    storage = kStorageDefault;
    signature = kSignatureDefault;
    message = kMessageDefault;
    killfile = kKillfileDefault;
    windowPosition = kWindowPositionDefault;
    editWindow = kEditWindowDefault;
    progressWindow = kProgressWindowDefault;
    view = kViewDefault;
    colors = kColorsDefault;
    // Paths are joined the way BARNINFO joins them: one slash between parts.
    std::string base = home != nullptr ? home : "";
    if (base.empty() || base.back() != '/')
        base += '/';
    STR::copy(storage.path, base + kDataDirName, sizeof storage.path);
    STR::copy(storage.savePath, home != nullptr ? home : "", sizeof storage.savePath);
    STR::copy(signature.filename, base + kSigFileName, sizeof signature.filename);
    afterRead();
}

void SETTINGS::afterRead() {
    PATHMGR::slashesDrop(storage.path);
    PATHMGR::slashesDrop(storage.savePath);
}

bool SETTINGS::charsetCheck(const void *value) {
    return IMsg::CharsetIsValid(IMsg::Charset(*static_cast<const uint32_t *>(value)));
}
