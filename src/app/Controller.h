#pragma once

#include <array>
#include <cstdint>

/// Controller: start-up, the connect and receive loop, and the reply callback.

/// The command line as kept for the process.
struct ControlRecord {
    int argc = 0;
    std::array<char*, 5> argv{};
};
extern ControlRecord CTRL;

/// Both are the one descriptor on which the reference stream arrives and the replies leave.
extern int inputSocketID;
extern int outputSocketID;

/// Reads command line and configuration and sizes the buffers; ends the process on a fault.
void Initialize(int argc, char** argv);
/// Readies the record, the buffers and the ephemeris store of a configuration for its first byte.
void prepareSession();
/// Reply callback: an epoch is answered by the virtual station, every other frame is forwarded.
void onrtcm0(std::uint32_t status, const std::uint8_t* frame, std::int32_t length);
/// One pass of the loop: keep the connection up, receive a block, decode it.
void serveOnce();
/// Starts the service; does not return.
[[noreturn]] void serve(int argc, char** argv);
/// Gives back what DLY holds, for a program that stops the loop; nothing is served afterwards.
void finish();
/// Appends the value as a line to the file "log" in the working directory.
void Write(int value);
