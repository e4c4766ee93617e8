#pragma once

// What the executable and the desktop module agree on. The module exports
// two C symbols: `holdenmere_desktop_interface`, an int that must equal
// HOLDENMERE_DESKTOP_INTERFACE, and `holdenmere_desktop_main`, which runs
// the app on the process's arguments and returns its exit status. Raise the
// number whenever the entry's meaning changes, so that a module left over
// from another build is refused rather than called.
#define HOLDENMERE_DESKTOP_INTERFACE 1

extern "C" {
using HoldenmereDesktopMain = int (*)(int* argc, char** argv, int openedQuietly);
}
