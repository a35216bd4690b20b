#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

/// Signals: the records name a carrier, "C2"; a RINEX 3 file names the signal on it, "C2W".

namespace ctl::rinex {

/// Attribute by system and band, such as W for {'G', '2'}.
using Attributes = std::map<std::pair<char, char>, char>;

/// Of lists such as "G=1C,2W,5Q". std::runtime_error for what is no signal of the system, and for
/// two signals of one carrier.
Attributes readSignals(const std::vector<std::string>& lists);

/// Whether the records can have a signal, such as "2W", of the system.
bool isSignal(char system, std::string_view signal);

/// "C2W" of "C2"; with a blank, which stands for an unknown signal, where it is not given.
std::string observationCode(char system, std::string_view type, const Attributes& attributes);

} // namespace ctl::rinex
