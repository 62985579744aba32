// What the main window and the storage pane decide, without a display: the menu table,
// routing with its nesting guard, delayed commands, the context menus, sibling order, drops,
// removing, renaming, and the server form's checks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "tests/storage/STORETEST.h"
#include "tests/support/ALERTRECORDER.h"
#include "ui/GODOT.h"
#include "ui/MENUTABLE.h"
#include "ui/ROUTER.h"
#include "ui/SERVERFORM.h"
#include "ui/STORAGE.h"
#include "ui/STORAGEITEM.h"

namespace {

using testing::ElementsAre;

TEST(MenuTable, CodesHaveOwnersShortcutsAreUniqueChecksAreBound) {
    const std::set<std::string> windowCodes = {"quit", "aint", "ains", "asta", "aman"};
    const std::map<std::string, bool *> checks = {
        {"Group according to thread", &SETTINGS::view.threaded},
        {"Expand threads", &SETTINGS::view.threadExpanded},
        {"Show read messages", &SETTINGS::view.showReadMessages},
        {"Allow HTML", &SETTINGS::view.allowHTML},
        {"Show all Headers", &SETTINGS::view.showMessageHeaders},
        {"Auto display", &SETTINGS::progressWindow.transferStart},
    };
    std::set<char> shortcuts;
    size_t codes = 0, columns = 0;
    MENUTABLE::walk([&](const MENUITEM &item, const char *path) {
        SCOPED_TRACE(std::string(path) + " > " + item.label);
        if (item.shortcut != 0) {
            EXPECT_TRUE(shortcuts.insert(item.shortcut).second) << "shortcut used twice";
        }
        if (item.code != nullptr) {
            ++codes;
            ASSERT_EQ(strlen(item.code), 4u);
            if (ROUTER::owner(fourccOf(item.code)) == ROUTER::kWindow) {
                EXPECT_TRUE(windowCodes.count(item.code)) << item.code << " has no owner";
            }
        }
        if (item.column >= 0) {
            ++columns;
            bool *flag = std::string(item.code) == "hcch"
                             ? &SETTINGS::view.column[item.column].display
                             : &SETTINGS::view.column[item.column].message;
            EXPECT_EQ(item.check, flag);
            EXPECT_STREQ(item.label, SETTINGS::view.column[item.column].label);
        } else if (item.check != nullptr) {
            ASSERT_TRUE(checks.count(item.label)) << "an unexpected check item";
            EXPECT_EQ(item.check, checks.at(item.label));
        }
    });
    EXPECT_EQ(columns, 2 * SETTINGS::kColumnCount);
    EXPECT_EQ(codes, 80u); // 60 commands and 20 column items
    EXPECT_EQ(shortcuts, (std::set<char>{'Q', 'C', 'A', 'S', 'H', 'I', 'J', 'K', 'N', 'R', 'L', 'F',
                                         'D', 'M', 'U', 'T'}));
    // Separators where the design puts them, seen through their neighbours.
    std::vector<std::string> edit;
    for (const MENUITEM *item = MENUTABLE::bar()[1].items; item->label != nullptr; ++item)
        edit.emplace_back(item->label);
    EXPECT_THAT(edit,
                ElementsAre("Clear clipboard text", "Copy", "Select All", "separator", "ROT13"));
}

// Records what a pane receives, and can post itself again to test the guard.
struct PANE : ROUTER::HANDLER {
    ROUTER *router = nullptr;
    std::vector<std::string> got;
    int repost = 0;
    void MessageReceived(const MESSAGE &message) override {
        got.push_back(message.whatText());
        if (repost-- > 0)
            router->dispatch(message);
    }
};

TEST(Router, ByFirstLetterWithTheNestingGuard) {
    ROUTER router;
    PANE headers, message, storage, window;
    router.handlerSet(ROUTER::kHeaders, &headers);
    router.handlerSet(ROUTER::kMessage, &message);
    router.handlerSet(ROUTER::kStorage, &storage);
    router.handlerSet(ROUTER::kWindow, &window);
    for (const char *code : {"hmrs", "mahc", "COPY", "Tr13", "sdgf", "quit", "aman"})
        EXPECT_TRUE(router.dispatch(MESSAGE(fourccOf(code))));
    EXPECT_THAT(headers.got, ElementsAre("hmrs"));
    EXPECT_THAT(message.got, ElementsAre("mahc", "COPY", "Tr13"));
    EXPECT_THAT(storage.got, ElementsAre("sdgf"));
    EXPECT_THAT(window.got, ElementsAre("quit", "aman"));

    // A command that keeps posting itself: the fifth nested delivery is dropped and the
    // count starts again.
    headers.got.clear();
    headers.router = &router;
    headers.repost = 10;
    router.dispatch(MESSAGE(fourcc("hmtr")));
    EXPECT_EQ(headers.got.size(), 4u);
    EXPECT_EQ(router.nesting(), 0);
    router.handlerSet(ROUTER::kHeaders, nullptr);
    EXPECT_FALSE(router.dispatch(MESSAGE(fourcc("hmtr")))) << "no pane: dropped quietly";
}

struct RECORDER : MESSAGETARGET {
    std::vector<std::string> posted;
    bool post(const MESSAGE &message) override {
        posted.push_back(message.whatText());
        return true;
    }
};

TEST(Godot, DueEntriesOnePerCallInOrderAndCancelRemovesAll) {
    RECORDER target;
    godot.targetSet(&target);
    godot.msgSend(fourcc("hnnx"), 0);
    godot.msgSend(fourcc("snop"), 0);
    godot.msgSend(fourcc("hmtr"), 60'000'000);
    godot.tick();
    EXPECT_THAT(target.posted, ElementsAre("hnnx"));
    godot.tick();
    godot.tick();
    EXPECT_THAT(target.posted, ElementsAre("hnnx", "snop")) << "the later one is not due";
    for (int i = 0; i < 3; ++i)
        godot.msgSend(fourcc("sncl"), 0);
    godot.msgCancel(fourcc("sncl"));
    EXPECT_EQ(godot.waiting(), 1u);
    godot.msgCancel(fourcc("hmtr"));
    godot.targetSet(nullptr);
}

BARN::NODE nodeOf(NODETYPE type, const char *name, SORTCLASS sortClass) {
    BARN::NODE node{};
    node.type = type;
    node.sortClass = sortClass;
    node.holdsMessages = type != NODETYPE::Server;
    STR::copy(node.name, name, sizeof node.name);
    return node;
}

std::string menuText(const BARN::NODE &node) {
    std::string text;
    for (const STORAGE::MENUENTRY &entry : STORAGE::menuCreate(node))
        text += entry.label.empty()
                    ? "| "
                    : entry.label + (entry.marked ? "*" : "") + "=" + entry.code + " ";
    return text;
}

TEST(StoragePane, ContextMenuPerKindOfNode) {
    BARN::NODE server = nodeOf(NODETYPE::Server, "Home", SORTCLASS::Server);
    BARN::NODE folder = nodeOf(NODETYPE::Folder, "Keep", SORTCLASS::Folder);
    BARN::NODE outbox = nodeOf(NODETYPE::Folder, "Outbox", SORTCLASS::Outbox);
    outbox.folder.kind = FIXEDFOLDER::Outbox;
    BARN::NODE sent = nodeOf(NODETYPE::Folder, "Sent Messages", SORTCLASS::Sent);
    sent.folder.kind = FIXEDFOLDER::Sent;
    auto group = [](GROUPDOWNLOAD mode) {
        BARN::NODE node = nodeOf(NODETYPE::Newsgroup, "comp.lang.c", SORTCLASS::Newsgroup);
        node.group.download = mode;
        return node;
    };
    const struct {
        const char *name;
        BARN::NODE node;
        const char *menu;
    } rows[] = {
        {"server", server,
         "Download 'Home'=sdsf Download marked messages=sdsm Catch-up=scsr | Properties=ssup "
         "Select Newsgroups=ssgp | Rename server=ssrn Remove server=ssde "},
        {"headers only", group(GROUPDOWNLOAD::HeadersOnly),
         "Download 'comp.lang.c'=sdgf Download marked messages=sdgm Catch-up=scgp Character "
         "set=sgch | Mark all read=hmra Delete all=hmdb | Unsubscribe from newsgroup=sgdl | No "
         "download=sgnd Download Headers*=sghd Download Headers and Bodies=sghb "},
        {"headers and bodies", group(GROUPDOWNLOAD::HeadersAndBodies),
         "Download 'comp.lang.c'=sdgf Catch-up=scgp Character set=sgch | Mark all read=hmra "
         "Delete all=hmdb | Unsubscribe from newsgroup=sgdl | No download=sgnd Download "
         "Headers=sghd Download Headers and Bodies*=sghb "},
        {"no download", group(GROUPDOWNLOAD::NoDownload),
         "Catch-up=scgp Character set=sgch | Mark all read=hmra Delete all=hmdb | Unsubscribe "
         "from newsgroup=sgdl | No download*=sgnd Download Headers=sghd Download Headers and "
         "Bodies=sghb "},
        {"user folder", folder,
         "Create folder here=sfcr | Mark all read=hmra Delete all=hmdb | Rename folder=sfrn "
         "Remove folder=sfdl "},
        {"outbox", outbox, "Mark all read=hmra Delete all=hmdb "},
        {"sent messages", sent, "Mark all read=hmra Delete all=hmdb "},
    };
    for (const auto &row : rows)
        EXPECT_EQ(menuText(row.node), row.menu) << row.name;
}

TEST(StoragePane, SiblingOrderRowTextAndWords) {
    std::vector<STORAGEITEM> rows = {
        {nodeOf(NODETYPE::Server, "news", SORTCLASS::Server), -1},
        {nodeOf(NODETYPE::Folder, "zeta", SORTCLASS::Folder), -1},
        {nodeOf(NODETYPE::Folder, "Sent Messages", SORTCLASS::Sent), -1},
        {nodeOf(NODETYPE::Folder, "Alpha", SORTCLASS::Folder), -1},
        {nodeOf(NODETYPE::Folder, "Outbox", SORTCLASS::Outbox), -1},
        {nodeOf(NODETYPE::Folder, "Drafts", SORTCLASS::Drafts), -1},
        {nodeOf(NODETYPE::Folder, "alpha", SORTCLASS::Folder), -1},
    };
    std::sort(rows.begin(), rows.end(), STORAGEITEM::before);
    std::vector<std::string> names;
    for (const STORAGEITEM &row : rows)
        names.emplace_back(row.name());
    EXPECT_THAT(names,
                ElementsAre("Outbox", "Drafts", "Sent Messages", "Alpha", "alpha", "zeta", "news"));
    STORAGEITEM group(nodeOf(NODETYPE::Newsgroup, "alt.test", SORTCLASS::Newsgroup), -1);
    EXPECT_EQ(group.text(), "alt.test");
    EXPECT_FALSE(group.bold());
    group.setUnread(3);
    EXPECT_EQ(group.text(), "alt.test (3)");
    EXPECT_TRUE(group.bold());
    EXPECT_STREQ(STORAGEITEM::typeStr(NODETYPE(7)), "[Unknown]");
    EXPECT_EQ(STORAGE::noneSelected(NODETYPE::Newsgroup),
              "No newsgroup is currently selected.  To select a newsgroup, click on its icon.");
}

class StoreRules : public storetest::STORETEST {
protected:
    void SetUp() override {
        STORETEST::SetUp();
        ASSERT_TRUE(startStore());
        ASSERT_TRUE(load());
    }
    BARN::NODE fixed(FIXEDFOLDER kind) {
        long long number;
        BARN::NODE node;
        EXPECT_TRUE(barn.folderFixedNode(kind, &number));
        EXPECT_TRUE(barn.nodeRead(&node, number));
        return node;
    }
    BARN::NODE read(long long number) {
        BARN::NODE node;
        EXPECT_TRUE(barn.nodeRead(&node, number));
        return node;
    }
};

TEST_F(StoreRules, DropsMoveOutOfFixedFoldersCopyElseAndRefuseSomeTargets) {
    BARN::NODE keep = read(barn.folderCreate("Keep", BARN::kNodeNone));
    BARN::NODE server;
    BARN::serverDefault(&server);
    STR::copy(server.name, "Home", sizeof server.name);
    long long serverNumber = barn.serverCreate(&server);
    BARN::NODE group = read(barn.groupCreate(serverNumber, "alt.test", GROUPDOWNLOAD::HeadersOnly));
    BARN::NODE outbox = fixed(FIXEDFOLDER::Outbox);
    BARN::NODE sent = fixed(FIXEDFOLDER::Sent);
    const struct {
        const char *name;
        const BARN::NODE *target;
        std::string source;
        bool secondary;
        STORAGE::DROP drop;
    } rows[] = {
        {"outbox onto a folder", &keep, outbox.path, false, STORAGE::kDropMove},
        {"newsgroup onto a folder", &keep, group.path, false, STORAGE::kDropCopy},
        {"secondary button", &keep, group.path, true, STORAGE::kDropAsk},
        {"onto sent messages", &sent, group.path, false, STORAGE::kDropNone},
        {"onto a server", &server, group.path, false, STORAGE::kDropNone},
        {"onto where they came from", &keep, keep.path, false, STORAGE::kDropNone},
        {"onto nothing", nullptr, group.path, false, STORAGE::kDropNone},
    };
    for (const auto &row : rows)
        EXPECT_EQ(STORAGE::dropAction(row.target, row.source, row.secondary), row.drop) << row.name;

    // Two files out of the Outbox: moved, under free names, and counted in their new folder.
    std::string one = storetest::messageWrite(outbox.path, "VM000001.vmf");
    std::string two = storetest::messageWrite(outbox.path, "VM000002.vmf");
    storetest::messageWrite(keep.path, "VM000001.vmf", {.read = true});
    ASSERT_TRUE(STORAGE::dropStart({one, two}, keep.number, true));
    EXPECT_FALSE(STORAGE::dropStart({one}, keep.number, false)) << "one drop at a time";
    ASSERT_TRUE(storetest::waitFor([] { return !STORAGE::dropPending(); }));
    EXPECT_EQ(storetest::filesIn(outbox.path), 0u);
    EXPECT_EQ(storetest::filesIn(keep.path), 3u);
    EXPECT_TRUE(storetest::waitFor([&] { return read(keep.number).unread == 2; }));
}

TEST_F(StoreRules, RemovingAndRenamingWithTheirTexts) {
    ALERTRECORDER alerts;
    BARN::NODE outbox = fixed(FIXEDFOLDER::Outbox);
    EXPECT_EQ(STORAGE::removeRefusal(outbox),
              "Folder 'Outbox' is required for proper operation of the program and cannot be "
              "removed.");
    EXPECT_EQ(STORAGE::renameRefusal(outbox),
              "Folder 'Outbox' is required for proper operation of the program and cannot be "
              "renamed.");
    long long keep = barn.folderCreate("Keep", BARN::kNodeNone);
    long long inner = barn.folderCreate("Inner", keep);
    BARN::serverDefault(&outbox);
    STR::copy(outbox.name, "Home", sizeof outbox.name);
    long long server = barn.serverCreate(&outbox);
    BARN::NODE group = read(barn.groupCreate(server, "alt.test", GROUPDOWNLOAD::HeadersOnly));
    EXPECT_EQ(STORAGE::renameRefusal(group), "Newsgroups cannot be renamed.");
    std::string button;
    EXPECT_EQ(STORAGE::removeQuestion(group, &button),
              "Are you sure you want to remove newsgroup 'alt.test'?");
    EXPECT_EQ(button, "Remove newsgroup");

    using HOST = STORAGE::HOST;
    BARN::NODE keepNode = read(keep), innerNode = read(inner), serverNode = read(server);
    const struct {
        HOST::NAMEDIALOG kind;
        const BARN::NODE *node;
        const char *name;
        const char *refusal;
    } rows[] = {
        {HOST::kFolderNew, nullptr, "Keep", "There is already a folder named 'Keep'."},
        {HOST::kFolderNew, &keepNode, "Inner",
         "There is already a folder underneath 'Keep' named 'Inner'."},
        {HOST::kFolderNew, nullptr, "a/b", "'a/b' is not a valid folder name."},
        {HOST::kServerEdit, &serverNode, "Home", ""},
        {HOST::kFolderEdit, &innerNode, "Renamed", ""},
        {HOST::kFolderNew, &keepNode, "Inner", ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(STORAGE::nameApply(row.kind, row.node, row.name), row.refusal) << row.name;
    EXPECT_STREQ(read(inner).name, "Renamed");

    // Removing asks first; only "Remove newsgroup" removes.
    MESSAGE remove(fourcc("sgdl"));
    STORAGE::command(remove, group.number, nullptr);
    ASSERT_TRUE(alerts.answer(0));
    EXPECT_TRUE(barn.nodeRead(&group, group.number)) << "cancelled";
    STORAGE::command(remove, group.number, nullptr);
    ASSERT_TRUE(alerts.answer(1));
    EXPECT_FALSE(barn.nodeRead(&group, group.number));
    // Commands without what they need say so.
    STORAGE::command(MESSAGE(fourcc("sdgf")), keep, nullptr);
    STORAGE::command(MESSAGE(fourcc("ssus")), server, nullptr);
    EXPECT_THAT(alerts.texts().back(),
                testing::StrEq("There are no messages in the Outbox for the current server."));
    EXPECT_EQ(alerts.texts()[alerts.count() - 2], STORAGE::noneSelected(NODETYPE::Newsgroup));
}

TEST_F(StoreRules, ServerFormChecksEveryValueBeforeWritingAny) {
    static const std::string kLongName(BARN::kPostNameMax + 1, 'n');
    BARN::NODE node;
    BARN::serverDefault(&node);
    const SERVERFORM::VALUES good = SERVERFORM::fill(node);
    EXPECT_EQ(good.at("Port"), "119");
    EXPECT_EQ(good.at("Security"), "None");
    const struct {
        const char *key;
        const char *value;
        const char *problem;
    } rows[] = {
        {"Name", "",
         "'' cannot be the name of a server account: use a name without '/' that does "
         "not begin with a dot."},
        {"Hostname", "bad..host", "'bad..host' is not a valid news server name or address."},
        {"Port", "70000", "The port must be a number from 1 to 65535."},
        {"Timeout", "1", "The time-out must be from 2 to 1800 seconds."},
        {"Login", "Yes", "A login needs both a user name and a password."},
        {"PostMail", "nobody", "'nobody' is not a valid e-mail address."},
        {"PostName", kLongName.c_str(), "The Your name may be at most 60 characters long."},
    };
    for (const auto &row : rows) {
        SERVERFORM::VALUES values = good;
        values[row.key] = row.value;
        if (std::string(row.key) == "Login")
            values["Password"] = "";
        BARN::NODE changed = node;
        EXPECT_EQ(SERVERFORM::check(values, &changed, true), row.problem) << row.key;
        EXPECT_TRUE(BARN::nodeCompare(&changed, &node)) << "nothing written: " << row.key;
    }
    SERVERFORM::VALUES values = good;
    values["Name"] = "Provider";
    values["Security"] = "TLS";
    values["Port"] = SERVERFORM::portFor("TLS", values["Port"]);
    ASSERT_EQ(SERVERFORM::check(values, &node, true), "");
    EXPECT_EQ(node.server.port, 563);
    EXPECT_EQ(node.server.security, kSecurityTLS);
    EXPECT_EQ(SERVERFORM::portFor("None", "563"), "119");
    EXPECT_EQ(SERVERFORM::portFor("TLS", "8119"), "8119");
}

} // namespace
