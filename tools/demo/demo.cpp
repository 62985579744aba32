// Starts the program on a demo news server of its own, with nothing of the user's touched.
//
//   vellowick-demo --root DIR --program PATH
#include <cstdio>
#include <cstring>
#include <spawn.h>
#include <string>
#include <sys/wait.h>

#include "tools/demo/DEMO.h"

int main(int argc, char **argv) {
    std::string root = "build/demo";
    std::string program = "build/vellowick";
    for (int i = 1; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--root") == 0)
            root = argv[i + 1];
        else if (strcmp(argv[i], "--program") == 0)
            program = argv[i + 1];
    }
    DEMO demo(root);
    std::string error;
    printf("Starting the demo news server and filling its groups ...\n");
    fflush(stdout);
    if (!demo.serverStart(&error) || !demo.storePrepare(&error)) {
        fprintf(stderr, "The demo could not start: %s\n", error.c_str());
        demo.stop();
        return 1;
    }
    printf("Demo news server on 127.0.0.1:%u; the program's home is %s\n", unsigned(demo.port()),
           demo.home().c_str());
    fflush(stdout);
    char *args[] = {program.data(), nullptr};
    pid_t pid = 0;
    int status = 1;
    if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, args, environ) != 0) {
        fprintf(stderr, "Cannot run %s\n", program.c_str());
    } else {
        waitpid(pid, &status, 0);
        status = WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    }
    // Quitting the program ends the demo server too.
    demo.stop();
    return status;
}
