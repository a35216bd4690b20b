#pragma once

#include "base/Findings.h"
#include "gnss/Session.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

/// Com, frequencies: the carrier of a slot name ("L1", "L2", "L5", "L6", "L7", "L8") per system.
/// Slot names are matched by substring, so "L1C" counts as "L1".

/// Carrier in Hz, k being the GLONASS channel; nothing for an unknown system or slot.
std::optional<double> carrier(char system, std::string_view slot, int k);
/// What is said of a slot for which `carrier` has nothing, to the file that names it.
Finding unknownCarrier(char system, std::string_view slot, const std::string& file);
/// The same, but ends the process on an unknown system or slot.
double getfreq(char system, std::string_view slot, int k);
/// Channels that the stream has stated, + 8, by slot number - 1 and 0 for unknown; empty for none.
using StreamedChannels = std::span<const int>;
/// Channel of a GLONASS satellite from the object file or else from the stream; kUnknownChannel
/// where neither knows.
int glonassChannel(const SatelliteRecord& satellite, StreamedChannels streamed);
/// Carrier of a satellite's slot, Hz; 0 where the system (one printed line) or the GLONASS channel
/// is unknown.
double freqbytp(const SatelliteRecord& satellite, std::string_view slot, StreamedChannels streamed);
/// The same by the number of the slot, below the size of the satellite's slots.
double carrierOf(const SatelliteRecord& satellite, std::size_t slot, StreamedChannels streamed);
/// Fills a satellite's slots from the names, the highest frequency first, and the constants of its
/// combinations. The mode holds "IF", "SF" or "RAW". False after a fatal finding about the file
/// that names them; a GLONASS satellite whose channel is unknown has slots with frequency 0.
bool get_freq(SatelliteRecord& satellite, std::string_view mode, std::span<const std::string> names,
              const std::string& file, Findings& findings);
/// Index of the first name that contains the slot name, or -1.
int index_freq(std::span<const std::string> names, std::string_view slot);
/// Refreshes slots and pair wavelengths of a satellite, in the configured order of the names.
void updateSatfreq(SatelliteRecord& satellite, std::span<const std::string> names);
