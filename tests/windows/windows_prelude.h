// Forced ahead of every portable test source in the Windows build:
// windows.h (which the public header includes there) defines `near` and
// `far` as empty macros, and the tests use those words as names.
#pragma once
#include <windows.h>
#undef near
#undef far
