// File types the program installs: the desktop's MIME database and the Message-ID index.
#pragma once

#include <cstdint>
#include <string>

#include "base/FILETYPE.h"

// On this system a type is a shared-mime-info package of its own below
// $XDG_DATA_HOME/mime/packages, compiled by update-mime-database when that tool is present.
// Attribute descriptions have no place in that database; an attribute marked indexed is kept
// by the store's Message-ID index, which builds itself on first use.
class BEMIME {
public:
    static constexpr const char *kPackagePrefix = "vellowick-";
    static constexpr const char *kUpdateTool = "update-mime-database";

    // Indexes first (a type whose indexed attribute nothing can keep fails), then the type
    // itself unless it is installed already: an installed type is deliberately left as the
    // user or an earlier run left it. Success also when the database tool is absent.
    static bool install(const FILETYPE *type);
    // The type's package; its index (the Message-ID index) is the store's to remove.
    static bool uninstall(const FILETYPE *type);
    static bool indexInstall(const FILETYPE *type);

    // The bare types of the link kinds, in the order of the link table, stopping at the first
    // that fails. They are deliberately never uninstalled.
    static bool linkInstall();

    // Whether the type's package is installed, and where it is (or would be).
    static bool installed(const FILETYPE *type);
    static std::string packagePath(const char *mimeType);
    // The package's file name, the same in the user's and the system's database.
    static std::string packageName(const char *mimeType);
    // The package text for a type.
    static std::string packageText(const FILETYPE *type);

private:
    // install without the database update; *written says whether a package was written.
    static bool packageInstall(const FILETYPE *type, bool *written);
};
