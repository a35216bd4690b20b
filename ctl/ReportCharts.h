#pragma once

#include "ctl/Report.h"

#include <string>
#include <string_view>

/// ReportCharts: the drawings of a report, as SVG. They are 328 units wide, which is what a small
/// phone has room for: one unit is then one pixel, and no text is smaller than 12.

namespace ctl::report {

inline constexpr double kChartWidth = 328;

/// Text for HTML, in an attribute too.
std::string escaped(std::string_view plain);
/// Coordinates and lengths: at most one decimal; 0 for what is no number.
std::string coordinate(double value);
/// 12 345, with narrow blanks that do not break.
std::string grouped(std::uint64_t n);
std::string svgStart(double height, const std::string& title);
std::string svgText(double x, double y, const char* classes, const std::string& plain);
std::string svgLine(double x1, double y1, double x2, double y2, const char* classes);

/// The mark of a fate; `radius` is that of a dot.
std::string fateMark(ref::Fate fate, double x, double y, double radius);
/// A small drawing of it for the running text.
std::string fateIcon(ref::Fate fate);

std::string skyPlot(const ReportData& data);
std::string rangeChangeChart(const ReportData& data);
enum class ErrorOf { range, phase };
std::string errorChart(const ReportData& data, const ref::Verdict& verdict, ErrorOf what);
std::string delayChart(const ReportData& data, double medianS, double ninetyNineS);

} // namespace ctl::report
