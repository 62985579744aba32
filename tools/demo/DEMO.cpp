// The demo's news server and store.
#include "tools/demo/DEMO.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <thread>

#include "app/INITFILE.h"
#include "app/PATHMGR.h"
#include "app/SETTINGS.h"
#include "base/STR.h"
#include "base/THREAD.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "tools/demo/DEMOARTICLES.h"

namespace {
constexpr int kLoadWaitSteps = 1000; // of 10 ms
} // namespace

bool DEMO::serverStart(std::string *error) {
    if (!fInn.start()) {
        *error = fInn.error();
        return false;
    }
    for (const DEMOARTICLES::GROUP &group : DEMOARTICLES::groups()) {
        size_t accepted = 0;
        if (!fInn.groupCreate(group.name, error) ||
            !fInn.feed(group.name, group.articles, &accepted, error))
            return false;
    }
    size_t accepted = 0;
    return fInn.groupCreate(DEMOARTICLES::kLarge, error) &&
           fInn.fill(DEMOARTICLES::kLarge, 0, DEMOARTICLES::kLargeCount, 2026, &accepted, error);
}

bool DEMO::storePrepare(std::string *error) {
    const std::string home = this->home();
    PATHMGR::dirsCreate(home.c_str());
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    setenv("XDG_DATA_HOME", (home + "/.local/share").c_str(), 1);
    pathMgr.homeDir(home.c_str());
    SETTINGS::reset(home.c_str());
    // A setting the user changed in an earlier demo (the data directory, say) is kept.
    INITFILE settings;
    settings.read(SETTINGS::sections, nullptr);

    THREAD::start();
    if (!barn.start()) {
        *error = "cannot open the demo's data directory " + std::string(SETTINGS::storage.path);
        THREAD::stop();
        return false;
    }
    // The accounts of an earlier run come with the tree's background load.
    THREAD::state(true);
    barn.iterateFolders(nullptr, nullptr);
    for (int wait = 0; !barn.final() && wait < kLoadWaitSteps; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    THREAD::state(false);
    BARN::NODE server;
    long long number = BARN::kNodeNone;
    for (unsigned long i = 0; barn.serverNext(&server, i); ++i)
        if (strcmp(server.name, kServerName) == 0)
            number = server.number;
    if (number == BARN::kNodeNone) {
        BARN::serverDefault(&server);
        STR::copy(server.name, kServerName, sizeof server.name);
        STR::copy(server.server.hostname, "127.0.0.1", sizeof server.server.hostname);
        STR::copy(server.server.postName, "Demo Reader", sizeof server.server.postName);
        STR::copy(server.server.postMail, "reader@demo.invalid", sizeof server.server.postMail);
        STR::copy(server.server.postOrg, "", sizeof server.server.postOrg);
        server.server.port = port();
        number = barn.serverCreate(&server);
    } else {
        // The server is new on every run, on a port of its own.
        server.server.port = port();
        barn.nodeSave(&server);
    }
    bool ok = number != BARN::kNodeNone;
    for (const char *group : {DEMOARTICLES::kDiscussion, DEMOARTICLES::kBinaries}) {
        BARN::NODE node;
        if (ok && !barn.groupRead(number, &node, group))
            ok =
                barn.groupCreate(number, group, GROUPDOWNLOAD::HeadersAndBodies) != BARN::kNodeNone;
    }
    // The newsgroup list, as a download of it would leave it, so the large group can be
    // found and subscribed in the newsgroup window.
    BARNFILE::LIST names = {DEMOARTICLES::kBinaries, DEMOARTICLES::kDiscussion,
                            DEMOARTICLES::kLarge};
    ok = ok && BARNFILE::slistWrite(number, &names);
    barn.stop();
    THREAD::stop();
    if (!ok)
        *error = "cannot make the demo's server account";
    return ok;
}
