#pragma once

#include "app/Service.h"
#include "beside/datapack.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// Surface: the process-wide names of an embedder. There is nothing behind them but the members of
/// the one service that main runs, and what an embedder alone uses; nothing beneath knows them.

/// The command line as kept for the process.
struct ControlRecord {
    int argc = 0;
    std::array<char*, 5> argv{};
};
extern ControlRecord CTRL;
/// Command packets of a connection.
extern PackState StaComDamo;

extern DeployConfig& DLY;
extern EphemerisStore& BRDEPH;
extern VrsEncoders& VrsEco;
extern std::array<RangeHistory, kMaxSatellites>& last_drleng;
extern ReplyCallback& onrtcm;
extern int& inputSocketID;
extern int& outputSocketID;

/// Reads command line and configuration and sizes the buffers; ends the process on a fault.
void Initialize(int argc, char** argv);
/// Reply callback: an epoch is answered by the virtual station, every other frame is forwarded.
void onrtcm0(std::uint32_t status, const std::uint8_t* frame, std::int32_t length);
/// Starts the service; does not return.
[[noreturn]] void serve(int argc, char** argv);
/// Gives back what DLY holds, for a program that stops the loop; nothing is served afterwards.
void finish();
/// Appends the value as a line to the file "log" in the working directory.
void Write(int value);
