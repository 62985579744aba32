// The link kinds' MIME types, installed with the desktop's MIME database at start.
#include "app/BEMIME.h"
#include "base/URL.h"

// The file-type layer already knows how to write a bare type; this is the link table's own
// entry point to it, so that start-up names the table, not the layer.
bool URL::mimeInstall() {
    return BEMIME::linkInstall();
}
