// The program's name.
#include "app/APPNAME.h"

const char *const appName = "Vellowick News";
