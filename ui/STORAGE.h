// The storage pane's behaviour: its commands with their checks and texts, the context menu of
// a node, drops of message files and their "Storage" worker, removing and renaming.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/MESSAGE.h"
#include "storage/BARN.h"

// Toolkit-free: the pane's window turns clicks, keys and drops into calls here, and shows
// what HOST is asked for. Every refusal is an alert with the pane's own text; actions that
// need the network go to the transfer queue, file work to the "Storage" worker.
class STORAGE {
public:
    // What the window does for the commands.
    class HOST {
    public:
        enum NAMEDIALOG {
            kFolderNew,  // "New Folder Name", under the node given (or at the top)
            kFolderEdit, // "Edit Folder Name"
            kServerEdit, // "Edit Server Name"
        };
        virtual ~HOST() = default;
        virtual void serverDialog(const BARN::NODE &server, bool create) = 0;
        virtual void nameDialog(NAMEDIALOG kind, const BARN::NODE *node) = 0;
        virtual void charsetDialog(const BARN::NODE &group) = 0;
        // Commands for windows of their own (newsgroup selection, composer, the transfer
        // window); false when the window cannot be had.
        virtual bool windowCommand(const MESSAGE &message) = 0;
    };

    // A context-menu entry; an empty label is a separator.
    struct MENUENTRY {
        std::string label;
        std::string code;
        bool marked = false;
    };

    enum DROP {
        kDropNone, // ignored
        kDropCopy,
        kDropMove,
        kDropAsk, // the secondary button: "Copy here", "Move here", "Cancel"
    };

    static constexpr const char *kWorkerName = "Storage";
    static constexpr const char *kNamePopupCopy = "Copy here";
    static constexpr const char *kNamePopupMove = "Move here";
    static constexpr const char *kNamePopupCancel = "Cancel";

    // Runs one of the pane's commands on the selected node (kNodeNone: none). False for a
    // code the pane does not run here (navigation and drops are the window's).
    static bool command(const MESSAGE &message, long long selected, HOST *host);

    // The context menu of a node, in order, separators only between non-empty groups.
    static std::vector<MENUENTRY> menuCreate(const BARN::NODE &node);

    // What dropping message files that come from sourceFolder onto target does.
    static DROP dropAction(const BARN::NODE *target, const std::string &sourceFolder,
                           bool secondaryButton);
    // Hands the files to a "Storage" worker, which copies or moves them one per run into
    // target's folder under free names and then recounts both folders. False (the drop is
    // ignored) while an earlier drop is still pending.
    static bool dropStart(const std::vector<std::string> &files, long long target, bool move);
    static bool dropPending();

    // The refusals and questions of removing and renaming, with their texts; an empty text
    // means the action may go on.
    static std::string removeRefusal(const BARN::NODE &node);
    static std::string removeQuestion(const BARN::NODE &node, std::string *button);
    static std::string renameRefusal(const BARN::NODE &node);
    // Checks a new name for a folder or server (parent: the folder it goes under, kNodeNone
    // at the top or for a server) and applies it: create or rename. Returns the refusal text.
    static std::string nameApply(HOST::NAMEDIALOG kind, const BARN::NODE *node, const char *name);
    // Stores a newsgroup's character set.
    static bool charsetApply(long long group, uint32_t charset);

    // "No %s is currently selected.  To select a %s, click on its icon."
    static std::string noneSelected(NODETYPE type);
    // The text of a node's download mode being off.
    static std::string notConfigured(const BARN::NODE &group);

private:
    // The node a command acts on: the selection when of the type; for a server, also the
    // server of a selected newsgroup. False after the "nothing selected" alert.
    static bool _selected(long long selected, NODETYPE type, BARN::NODE *node);
    static bool _waitLoad();
    static bool _anyServer();
    static void _duplicate();
    static void _transfer(const MESSAGE &message, long long selected);
    static void _remove(const BARN::NODE &node);
    static void _groupMode(long long selected, GROUPDOWNLOAD mode);
};
