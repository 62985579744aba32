// The program's name, as its texts, files and posted headers show it.
#pragma once

extern const char *const appName;
