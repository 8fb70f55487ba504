// The version of the program, as CMake's project() has it.
#pragma once

#ifndef FINDWRIGHT_VERSION
#define FINDWRIGHT_VERSION "0.1.0"
#endif
