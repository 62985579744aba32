// File types the program installs: the desktop's MIME database and the Message-ID index.
#pragma once

#include <cstdint>
#include <string>

// On this system a type is a shared-mime-info package of its own below
// $XDG_DATA_HOME/mime/packages, compiled by update-mime-database when that tool is present.
// Attribute descriptions have no place in that database; an attribute marked indexed is kept
// by the Message-ID index (MSGIDINDEX), which builds itself on first use.
class BEMIME {
public:
    static constexpr const char *kPackagePrefix = "vellowick-";
    static constexpr const char *kUpdateTool = "update-mime-database";

    enum ALIGNMENT : int32_t {
        kAlignLeft = 0,
        kAlignRight = 1,
    };

    // One attribute of a type; a list ends with a null name.
    struct ATTRINFO {
        const char *name;
        const char *publicName;
        uint32_t type; // the attribute type code
        bool viewable;
        bool editable;
        int32_t width;
        ALIGNMENT alignment;
        bool indexed;
    };

    struct FILETYPE {
        // The desktop icon name shown for files of the type, or null.
        const char *icon = nullptr;
        const char *mimeType = nullptr;
        const char *preferredApp = nullptr; // an application signature, or null
        const char *shortDescription = nullptr;
        const char *longDescription = nullptr;
        const char *const *extensions = nullptr; // null-terminated, without the dot
        const ATTRINFO *attributes = nullptr;
    };

    // Indexes first (a type whose indexed attribute nothing can keep fails), then the type
    // itself unless it is installed already: an installed type is deliberately left as the
    // user or an earlier run left it. Success also when the database tool is absent.
    static bool install(const FILETYPE *type);
    // The type's indexes, then the type.
    static bool uninstall(const FILETYPE *type);
    static bool indexInstall(const FILETYPE *type);
    static bool indexUninstall(const FILETYPE *type);

    // The bare types of the link kinds, in the order of the link table, stopping at the first
    // that fails. They are deliberately never uninstalled.
    static bool linkInstall();

    // Whether the type's package is installed, and where it is (or would be).
    static bool installed(const FILETYPE *type);
    static std::string packagePath(const char *mimeType);
    // The package text for a type.
    static std::string packageText(const FILETYPE *type);

private:
    // install without the database update; *written says whether a package was written.
    static bool packageInstall(const FILETYPE *type, bool *written);
};
