// Writes the program's file types as shared-mime-info packages into a folder, for installing
// them system-wide: the same packages the program writes for its user at every start.
//
//   vellowick-mimepackage FOLDER
#include <cstdio>
#include <string>

#include "app/BEMIME.h"
#include "app/INITFILE.h"
#include "message/VMSG.h"

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    for (const FILETYPE *type : {VMSG::fileType(), INITFILE::fileType()}) {
        std::string path = std::string(argv[1]) + "/" + BEMIME::packageName(type->mimeType);
        FILE *file = fopen(path.c_str(), "w");
        std::string text = BEMIME::packageText(type);
        if (file == nullptr || fwrite(text.data(), 1, text.size(), file) != text.size() ||
            fclose(file) != 0) {
            perror(path.c_str());
            return 1;
        }
    }
    return 0;
}
