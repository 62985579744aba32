// The main window's menu bar as data: menus, sub-menus, items, check items and separators.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

// One entry of a menu. A list of entries ends with one whose label is null. The window turns
// the table into its menu bar and the tests walk it; nothing else holds the menus' contents.
struct MENUITEM {
    static constexpr const char *kSeparator = "separator";

    const char *label = nullptr;     // kSeparator draws a line
    const char *code = nullptr;      // the command's four characters; null for none
    char shortcut = 0;               // a letter used with the command key, or 0
    bool *check = nullptr;           // a program-wide setting shown as a mark and toggled
    const MENUITEM *items = nullptr; // the entries of a sub-menu
    int32_t column = -1;             // a column item: the column, sent as field "column"
    bool about = false;              // the about request

    bool separator() const;
};

class MENUTABLE {
public:
    // The menus of the bar, in order; each has items.
    static const MENUITEM *bar();
    // Calls visit for every entry below the bar, depth first, with the path of menu titles
    // that leads to it ("Message > Read > Mark").
    static void walk(const std::function<void(const MENUITEM &item, const char *path)> &visit);
    // The first entry with this code, or null.
    static const MENUITEM *find(const char *code);
};
