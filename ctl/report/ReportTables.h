#pragma once

#include "ctl/report/Report.h"

#include <string>

/// ReportTables: the tables of a report, those behind its charts included.

namespace ctl::report {

/// Where the reference and the virtual station stand, and how far apart.
std::string placesTable(const ReportData& d, const simulate::Totals& t);
/// Observations of the stream by signal, and what became of them.
std::string signalsTable(const ReportData& d, const ref::Verdict& v);
/// Of a run with both answers: the signals that each kept.
std::string keptTable(const simulate::Totals& t);

/// With the changes of range.
std::string skyTable(const ReportData& d);
std::string errorTable(const ReportData& d, const ref::Verdict& v);
std::string delayTable(const ReportData& d);

} // namespace ctl::report
