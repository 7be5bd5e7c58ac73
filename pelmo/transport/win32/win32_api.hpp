#pragma once

// The one way this backend pulls in the Windows headers: Winsock 2 must come before windows.h,
// and the min/max macros would break the standard library's.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <winsock2.h>
