// The main settings file: its sections, items and the program-wide variables they fill.
#pragma once

#include <cstddef>
#include <cstdint>

#include "app/FIELD.h"
#include "app/INITFILE.h"

// Each variable's compiled-in value is its default: reset() sets them, reading the settings
// file overwrites them, and writing the file stores them back. Readers use the variables
// directly or through BARNINFO. The defaults below the home directory are empty until the
// first reset(), which the settings step of the start makes.
class SETTINGS {
public:
    static constexpr size_t kPathMax = 80;      // Storage/Path
    static constexpr size_t kSavePathMax = 250; // Storage/SavePath
    static constexpr size_t kSigFileMax = 250;  // Signature/Filename
    static constexpr size_t kFontNameMax = 63;  // WindowPosition/TextFont...
    static constexpr size_t kColumnLabelMax = 40;
    static constexpr size_t kColumnCount = 10;
    static constexpr size_t kColumnRequired = 8;
    // Default names below the home directory.
    static constexpr const char *kDataDirName = "VellowickData";
    static constexpr const char *kSigFileName = "sig.txt";

    enum TRANSFERLOG : uint32_t {
        kLogOff = 0,
        kLogActions = 1,
        kLogTransfers = 2,
    };
    enum INPUTFOCUS : uint32_t {
        kFocusStorage = 1,
        kFocusHeaders = 2,
        kFocusMessage = 3,
    };
    // A newsgroup's download mode; the storage tree's GROUPDOWNLOAD takes these values.
    enum DOWNLOADMODE : uint32_t {
        kNoDownload = 1,
        kHeadersOnly = 2,
        kHeadersAndBodies = 3,
    };
    enum PROGRESSTAB : uint32_t {
        kTabProgress = 0,
        kTabActions = 1,
        kTabErrors = 2,
    };

    struct STORAGE {
        char path[kPathMax + 1];
        uint16_t daysToKeepMessages;
        uint32_t downloadDefault; // a GROUPDOWNLOAD
        bool downloadLimit;
        uint32_t downloadArticles;
        uint32_t downloadHeaders;
        uint32_t charsetDefault; // an IMsg::Charset
        char savePath[kSavePathMax + 1];
        uint32_t transferLogging; // a TRANSFERLOG
    };
    struct SIGNATURE {
        char filename[kSigFileMax + 1];
        bool enabled;
        bool reply;
    };
    struct MESSAGE {
        uint32_t charset; // an IMsg::Charset
        uint16_t lineLength;
    };
    struct KILLFILE {
        bool applyToDownload;
        int64_t removeTime; // microseconds
    };
    struct WINDOWPOSITION {
        float left;
        float top;
        float right;
        float bottom;
        int16_t splitterHorizontal;
        int16_t splitterVertical;
        uint32_t inputFocus; // an INPUTFOCUS
        char textFontFamily[kFontNameMax + 1];
        char textFontStyle[kFontNameMax + 1];
        uint16_t textFontSize;
    };
    struct EDITWINDOW {
        float left;
        float top;
        float right;
        float bottom;
    };
    struct PROGRESSWINDOW {
        float left;
        float top;
        uint32_t tab; // a PROGRESSTAB
        bool transferStart;
        int64_t delay; // microseconds
    };
    // One header column's settings, in the header list's column order.
    struct COLUMN {
        char label[kColumnLabelMax + 1];
        bool display;
        bool message;
        uint16_t position;
        uint16_t width;
        uint16_t sort; // place among the sort keys, 0 = not a key
        bool sortForward;
    };
    struct VIEW {
        bool allowHTML;
        bool loadNetPositive;
        bool showMessageHeaders;
        bool showReadMessages;
        bool threaded;
        bool threadExpanded;
        COLUMN column[kColumnCount];
    };
    struct COLORS {
        RGBCOLOR dialogBackground;
        RGBCOLOR headersBackground;
        RGBCOLOR headersHighlight;
        RGBCOLOR messageBackground;
        RGBCOLOR progressBar;
        RGBCOLOR storageBackground;
        RGBCOLOR storageHighlight;
        RGBCOLOR transferBackground;
        RGBCOLOR viewHighlight;
        RGBCOLOR windowBackground;
        RGBCOLOR urlEmail;
        RGBCOLOR urlFile;
        RGBCOLOR urlFTP;
        RGBCOLOR urlHTTP;
        RGBCOLOR urlHTTPS;
        RGBCOLOR urlNNTP;
        RGBCOLOR urlRTSP;
        RGBCOLOR urlTelnet;
    };

    static STORAGE storage;
    static SIGNATURE signature;
    static MESSAGE message;
    static KILLFILE killfile;
    static WINDOWPOSITION windowPosition;
    static EDITWINDOW editWindow;
    static PROGRESSWINDOW progressWindow;
    static VIEW view;
    static COLORS colors;

    // The sections of the main settings file in file order, null-terminated.
    static INITFILE::SECT *sections[];

    // Name tables of the word-valued items.
    static const STR::INDEX indexYesNo[];
    static const STR::INDEX indexDownload[];
    static const STR::INDEX indexTransferLog[];
    static const STR::INDEX indexFocus[];
    static const STR::INDEX indexTab[];

    // Every variable back to its default; the defaults below the home directory use the home
    // that PATHMGR answers, or the one given.
    static void reset();
    static void reset(const char *home);
    // Brings values read from a file into their kept form: Path and SavePath lose trailing
    // slashes.
    static void afterRead();
    // Validator of the character-set items: the number is a known character set.
    static bool charsetCheck(const void *value);
};
