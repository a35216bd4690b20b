#pragma once

#include "gnss/GTime.h"

#include <span>

/// Leaps: UTC against GPS time, by the built-in table `leaps` and by what the leap-second file
/// knows beyond it.

GTime gpst2utc(GTime t);
GTime utc2gpst(GTime t);

/// A row of the leap-second file.
struct LeapEntry {
    int mjd;
    int taiMinusUtc; // s
    int line;        // of the file
    bool stuck;      // something other than a blank or a comment follows one of the numbers
};
/// Puts the values that are later than the last built-in one behind the table, in place of those
/// given before. Values are in the order of their days. One that is not a leap second away from
/// the value before it ends the list: that is a file with an error, not the Earth's rotation.
void extendLeaps(std::span<const LeapEntry> values);
