// The composer's part of start-up: the header lines every posted article carries.
#include "compose/EDITHEADERS.h"

#include <cstdio>
#include <string>
#include <sys/utsname.h>

#include "app/APPNAME.h"
#include "message/HdrBuf.h"
#include "net/NNTP.h"

#ifndef VW_VERSION
#error "VW_VERSION must name the program's version"
#endif

bool EDIT::headers() {
    NNTP::hdrClear();
    char agent[kAgentMax + 1];
    agentStr(agent, sizeof agent);
    HdrBuf header;
    std::string line;
    return header.HeaderCreate(line, HdrBuf::HdrUserAgent, agent) && NNTP::hdrAdd(line.c_str()) &&
           header.HeaderCreate(line, HdrBuf::HdrProgramURL, kProgramURL) &&
           NNTP::hdrAdd(line.c_str());
}

void EDIT::agentStr(char *out, unsigned long size) {
    struct utsname system {};
    if (uname(&system) != 0)
        snprintf(system.sysname, sizeof system.sysname, "%s", "Linux");
    snprintf(out, size, "%s/%s, %s %s", appName, VW_VERSION, system.sysname, system.release);
}
