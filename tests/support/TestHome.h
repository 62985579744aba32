// A temporary home for one test process: HOME and the XDG folders point inside it.
#pragma once

#include <string>

namespace testhome {
// Creates the folder and sets HOME, XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME and
// XDG_RUNTIME_DIR; called once by the test main before any test runs.
void setUp();
// Removes the folder and everything in it.
void tearDown();
// The temporary home, without a trailing slash.
const std::string &path();
} // namespace testhome
