#pragma once

#include "gnss/Session.h"

#include <span>
#include <string>
#include <string_view>

/// Rnxobs: saves the epochs of a station, one file for each day, as RINEX 3 records (phases in
/// cycles, ranges in m, Doppler in Hz, C/N0 in dB-Hz; GPS time). The files have no header.

/// Where epochs are saved.
struct OutputFolder {
    std::string path;
    bool used = false; // a file in it has been opened
};

/// The writer; one lives for one epoch.
struct RinexWriter {
    bool written = false; // an epoch record was written
    double version = 2.11;
    std::string fileName{};
    int mjd = -1;                  // day of the file
    std::string station{};         // 4 characters
    const EpochObs* obs = nullptr; // of the epoch, by configured satellite
    const Session* session = nullptr;
    OutputFolder* folder = nullptr;
};

/// Resets a writer.
void Rnxobs_initial(RinexWriter& writer);
/// Writes the epoch of the writer. 0, or -1 when the file does not have it.
int Rnxobs_v_outFileObs(RinexWriter& writer, int mjd, double sod);
/// Names the file of a time ("MJD:seconds of day") and sets the version.
void Rnxobs_v_openOutFile(RinexWriter& writer, std::string_view time, double version);
/// There is no header; below version 3.0 a line says so.
void Rnxobs_v_outFileHeader(const RinexWriter& writer);
/// Appends one epoch record: the whole of it or nothing, which gives a line. A file that cannot be
/// opened ends the process as long as none could be.
int Rnxobs_m_outputObs_v3x(int mjd, RinexWriter& writer, double sod);

/// The columns of a system's records, such as "C1", "L1", "D1", "S1"; none for B, S, J and I.
std::span<const std::string_view> Rnxobs_m_initObsType(char system);
/// Position of a name among the types; -1 where it is absent or empty.
int pointer_string_obstyp(std::span<const std::string_view> types, std::string_view name);
