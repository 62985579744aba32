// The main window's menu bar as data, in the order and with the words the user sees.
#include "ui/MENUTABLE.h"

#include <array>
#include <cstring>
#include <string>

#include "app/SETTINGS.h"

namespace {

using ITEM = MENUITEM;

constexpr ITEM kEnd{};
const ITEM kLine{MENUITEM::kSeparator};

ITEM command(const char *label, const char *code, char shortcut = 0) {
    return ITEM{label, code, shortcut};
}
ITEM check(const char *label, const char *code, bool *setting, char shortcut = 0) {
    return ITEM{label, code, shortcut, setting};
}
ITEM submenu(const char *label, const ITEM *items) {
    return ITEM{label, nullptr, 0, nullptr, items};
}

// The column labels of the two View sub-menus, in the order of the column settings.
constexpr const char *kColumnLabels[SETTINGS::kColumnCount] = {
    "Subject",   "Author",   "E-Mail Address", "Newsgroups", "To",
    "Date/Time", "Filename", "Size",           "Lines",      "Charset"};

// A View sub-menu: its own items, a separator, then one check item per column showing and
// toggling that column's flag (display in the header list, or in the message view).
template <size_t OWN>
std::array<ITEM, OWN + 1 + SETTINGS::kColumnCount + 1>
columnMenu(const ITEM (&own)[OWN], const char *code, bool SETTINGS::COLUMN::*flag) {
    std::array<ITEM, OWN + 1 + SETTINGS::kColumnCount + 1> items{};
    size_t at = 0;
    for (const ITEM &item : own)
        items[at++] = item;
    items[at++] = kLine;
    for (size_t column = 0; column < SETTINGS::kColumnCount; ++column)
        items[at++] =
            ITEM{kColumnLabels[column], code, 0, &(SETTINGS::view.column[column].*flag), nullptr,
                 int32_t(column)};
    return items;
}

const ITEM kFolder[] = {command("Create ...", "sfcr"), command("Rename ...", "sfrn"),
                        command("Remove ...", "sfdl"), kEnd};
const ITEM kFile[] = {submenu("Folder", kFolder), kLine, command("Quit", "quit", 'Q'), kEnd};
const ITEM kEdit[] = {command("Clear clipboard text", "Txcp"),
                      command("Copy", "COPY", 'C'),
                      command("Select All", "SALL", 'A'),
                      kLine,
                      command("ROT13", "Tr13"),
                      kEnd};
const ITEM kAccount[] = {command("Create ...", "sscr"),
                         kLine,
                         command("Properties ...", "ssup"),
                         command("Rename ...", "ssrn"),
                         command("Remove ...", "ssde"),
                         kLine,
                         command("Download newsgroup list ...", "sslt"),
                         command("Select newsgroups ...", "ssgp"),
                         kEnd};
const ITEM kHeadersOwn[] = {
    check("Group according to thread", "htch", &SETTINGS::view.threaded),
    check("Expand threads", "htex", &SETTINGS::view.threadExpanded),
    check("Show read messages", "huch", &SETTINGS::view.showReadMessages, 'S')};
const ITEM kMessageOwn[] = {
    check("Allow HTML", "mahc", &SETTINGS::view.allowHTML),
    check("Show all Headers", "mhch", &SETTINGS::view.showMessageHeaders, 'H'),
    command("Character set ...", "mchr")};
const auto kViewHeaders = columnMenu(kHeadersOwn, "hcch", &SETTINGS::COLUMN::display);
const auto kViewMessage = columnMenu(kMessageOwn, "mcol", &SETTINGS::COLUMN::message);
const ITEM kView[] = {submenu("Headers", kViewHeaders.data()),
                      submenu("Message", kViewMessage.data()), kEnd};

const ITEM kDownloadMark[] = {command("Current Selected", "hmmo"), command("Thread", "hmmt"),
                              command("All Messages", "hmma"), kEnd};
const ITEM kDownloadUnmark[] = {command("Current Selected", "hmmu"), command("Thread", "hmmw"),
                                command("All Messages", "hmmv"), kEnd};
const ITEM kMessageDownload[] = {submenu("Mark", kDownloadMark),
                                 submenu("Un-mark", kDownloadUnmark), kEnd};
const ITEM kReadMark[] = {command("Current Selected", "hmrs"), command("Thread", "hmrt", 'I'),
                          command("All Messages", "hmra", 'J'), kEnd};
const ITEM kReadUnmark[] = {command("Current Selected", "hmus"), command("Thread", "hmut"),
                            command("All Messages", "hmua"), kEnd};
const ITEM kMessageRead[] = {submenu("Mark", kReadMark), submenu("Un-mark", kReadUnmark), kEnd};
const ITEM kMessageDelete[] = {command("Current Selected", "hmda"), command("Thread", "hmdt"),
                               command("All Messages", "hmdb", 'K'), kEnd};
const ITEM kMessage[] = {submenu("Download", kMessageDownload),
                         submenu("Read", kMessageRead),
                         submenu("Delete", kMessageDelete),
                         command("Killfile", "hkil"),
                         kLine,
                         command("Create ...", "smcr", 'N'),
                         command("Edit ...", "smed"),
                         command("Reply ...", "smrp", 'R'),
                         kEnd};
const ITEM kAttachment[] = {command("Actions ...", "matm", 'L'), command("View All", "matv", 'F'),
                            kEnd};

const ITEM kCatchup[] = {command("Newsgroup", "scgp"), command("Server", "scsr"),
                         command("All Servers", "scsa"), kEnd};
const ITEM kDownload[] = {command("Current Selected", "hmdn"), command("Newsgroup", "sdgf"),
                          command("Server", "sdsf"), command("All Servers", "sdaf", 'D'), kEnd};
const ITEM kDownloadMarked[] = {command("Newsgroup", "sdgm"), command("Server", "sdsm"),
                                command("All Servers", "sdam", 'M'), kEnd};
const ITEM kUpload[] = {command("Server", "ssus"), command("All Servers", "ssua", 'U'), kEnd};
const ITEM kWindow[] = {command("Show", "snop"), command("Hide", "sncl"), kLine,
                        check("Auto display", nullptr, &SETTINGS::progressWindow.transferStart),
                        kEnd};
const ITEM kTransfer[] = {submenu("Catch-up", kCatchup),
                          submenu("Download", kDownload),
                          submenu("Download Marked", kDownloadMarked),
                          submenu("Upload", kUpload),
                          submenu("Window", kWindow),
                          kLine,
                          command("Transfer All", "stra", 'T'),
                          kEnd};
const ITEM kHelp[] = {command("Introduction", "aint"),
                      command("Installation", "ains"),
                      command("Getting Started", "asta"),
                      command("Help Index", "aman"),
                      kLine,
                      ITEM{"About ...", nullptr, 0, nullptr, nullptr, -1, true},
                      kEnd};

const ITEM kBar[] = {submenu("File", kFile),
                     submenu("Edit", kEdit),
                     submenu("Account", kAccount),
                     submenu("View", kView),
                     submenu("Message", kMessage),
                     submenu("Attachment", kAttachment),
                     submenu("Transfer", kTransfer),
                     submenu("Help", kHelp),
                     kEnd};

void walkItems(const ITEM *items, const std::string &path,
               const std::function<void(const MENUITEM &, const char *)> &visit) {
    for (const ITEM *item = items; item->label != nullptr; ++item) {
        visit(*item, path.c_str());
        if (item->items != nullptr)
            walkItems(item->items, path.empty() ? item->label : path + " > " + item->label, visit);
    }
}

} // namespace

bool MENUITEM::separator() const {
    return label != nullptr && strcmp(label, kSeparator) == 0;
}

const MENUITEM *MENUTABLE::bar() {
    return kBar;
}

void MENUTABLE::walk(const std::function<void(const MENUITEM &, const char *)> &visit) {
    walkItems(kBar, "", visit);
}

const MENUITEM *MENUTABLE::find(const char *code) {
    const MENUITEM *found = nullptr;
    walk([&](const MENUITEM &item, const char *) {
        if (found == nullptr && item.code != nullptr && strcmp(item.code, code) == 0)
            found = &item;
    });
    return found;
}
