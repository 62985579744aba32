// What a file type declares: its MIME name, file-name extensions and typed attributes.
#pragma once

#include <cstdint>

// Plain descriptors, so the owner of a type (the message file, the settings file) can declare
// it next to its attributes while the installer lives with the application's settings.
struct FILETYPE {
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

    // The desktop icon name shown for files of the type, or null.
    const char *icon = nullptr;
    const char *mimeType = nullptr;
    const char *preferredApp = nullptr; // an application signature, or null
    const char *shortDescription = nullptr;
    const char *longDescription = nullptr;
    const char *const *extensions = nullptr; // null-terminated, without the dot
    const ATTRINFO *attributes = nullptr;
};
