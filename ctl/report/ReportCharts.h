#pragma once

#include "ctl/report/Report.h"

#include <string>
#include <string_view>

/// ReportCharts: the drawings of a report, as SVG. They are 328 units wide, which is what a small
/// phone has room for: one unit is then one pixel, and no text is smaller than 12.

namespace ctl::report {

inline constexpr double kChartWidth = 328;
inline constexpr double kMiddle = kChartWidth / 2;

/// Text for HTML, in an attribute too.
std::string escaped(std::string_view plain);
/// Coordinates and lengths: at most one decimal; 0 for what is no number.
std::string coordinate(double value);
/// 12 345, with narrow blanks that do not break.
std::string grouped(std::uint64_t n);
std::string count(long n); ///< grouped; 0 where it is below
std::string svgStart(double height, const std::string& title);
std::string svgText(double x, double y, const char* classes, const std::string& plain);
std::string svgLine(double x1, double y1, double x2, double y2, const char* classes);

/// A satellite: its system by colour and shape, its fate by what is inside. `radius` is that of a
/// filled dot.
std::string satelliteMark(char system, ref::Fate fate, double x, double y, double radius);
/// How far a mark reaches from its middle.
double markReach(ref::Fate fate, double radius);
/// Small drawings for the running text.
std::string systemIcon(char system);
std::string fateIcon(ref::Fate fate);

std::string skyPlot(const ReportData& data);
std::string rangeChangeChart(const ReportData& data);
enum class ErrorOf { range, phase };
std::string errorChart(const ReportData& data, const ref::Verdict& verdict, ErrorOf what);
std::string delayChart(const ReportData& data, double medianS, double ninetyNineS);

} // namespace ctl::report
