#pragma once

/// Where the build put the programs and where the sources lie. CMake fills in tests/paths.cpp.in,
/// so that a folder with another name compiles nothing else anew.

extern const char* const kServiceProgram; // Kestrune
extern const char* const kCtlProgram;     // kestrunectl
extern const char* const kGatewayProgram; // kestrune-gateway; "" where it is not built
extern const char* const kSourceFolder;   // root of the repository
extern const char* const kEmulator;       // starts both where they are for another processor; or ""
