#pragma once

#include <string_view>

/// ReportStyle: how a report looks. Systems differ by the shapes of their marks as well as by
/// colour, also for those who are blind to some colours; every mark and name has a contrast of at
/// least 4.5 against the page, every line of 3.

namespace ctl::report {

inline constexpr std::string_view kReportStyle = R"(
:root { color-scheme: light dark;
  --page: #fbfaf8; --ink: #1d2226; --soft: #5c656c; --line: #86898b;
  --G: #3c69e5; --R: #c4450a; --E: #1e7f5d; --C: #a3538a; --J: #503902; --S: #52565b;
  --good: #237559; --bad: #8d1214; --plain: #4a6f8f; }
@media (prefers-color-scheme: dark) { :root {
  --page: #15191c; --ink: #e8e6e1; --soft: #a2abb1; --line: #687177;
  --G: #addafe; --R: #f7814b; --E: #46c893; --C: #da99bf; --J: #fad863; --S: #8b8e8a;
  --good: #56e7c4; --bad: #ed8882; --plain: #8fb4d4; } }
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body { margin: 0; background: var(--page); color: var(--ink);
  font: 16px/1.55 system-ui, -apple-system, "Segoe UI", Roboto, "Liberation Sans", sans-serif; }
main { max-width: 60rem; margin: 0 auto; padding: 2rem 16px 4rem; }
h1 { font-size: 1.75rem; line-height: 1.2; margin: .2rem 0 .6rem; letter-spacing: -.015em; }
h2 { font-size: 1.15rem; line-height: 1.3; margin: 0 0 .3rem; }
p { margin: 0 0 .9rem; max-width: 38rem; }
.soft, .note { color: var(--soft); }
.note { font-size: .9rem; }
.over { color: var(--soft); font-size: .9rem; margin: 0; }
h1.good::before { content: "\2713\00a0"; color: var(--good); }
h1.bad::before { content: "\2717\00a0"; color: var(--bad); }
h1.open::before { content: "?\00a0"; color: var(--soft); }
.figures { display: grid; grid-template-columns: 1fr 1fr; gap: 1.1rem 1rem; margin: 1.6rem 0 0; }
.figures dt { color: var(--soft); font-size: .85rem; line-height: 1.3; }
.figures dd { margin: 0; font-size: 1.35rem; line-height: 1.3; font-variant-numeric: tabular-nums; }
.figures small { display: block; font-size: .85rem; color: var(--soft); }
.columns { display: grid; grid-template-columns: minmax(0, 1fr); }
section { border-top: 1px solid var(--line); padding: 1.8rem 0 2rem; margin: 0; min-width: 0; }
header { padding-bottom: 2.2rem; }
svg { display: block; width: 100%; height: auto; max-width: 28rem; margin: .6rem 0 .9rem; }
svg.icon { display: inline-block; width: 1em; height: 1em; margin: 0 .3em 0 0; vertical-align: -.1em; }
text { font-size: 12.4px; fill: var(--soft); font-variant-numeric: tabular-nums; }
.mid { text-anchor: middle; } .end { text-anchor: end; } .strong { font-weight: 600; }
text.bad { fill: var(--bad); font-weight: 600; }
.halo { paint-order: stroke; stroke: var(--page); stroke-width: 3px; stroke-linejoin: round; }
.icon, .plainc { --c: var(--plain); }
.G { --c: var(--G); } .R { --c: var(--R); } .E { --c: var(--E); }
.C { --c: var(--C); } .J { --c: var(--J); } .S { --c: var(--S); }
.own { fill: var(--c); } .dot { fill: var(--c); } .bar { fill: var(--c); }
.beyond { fill: var(--bad); }
.mark { fill: none; stroke: var(--c); stroke-width: 1.5; }
.hollow { fill: none; }
.axis { stroke: var(--line); stroke-width: 1; } .grid { stroke: var(--line); stroke-width: 1; stroke-dasharray: 1 4; }
.cutoff { stroke: var(--line); stroke-width: 1; stroke-dasharray: 4 2; }
.bound { stroke: var(--ink); stroke-width: 1.2; stroke-dasharray: 4 2; }
.track { fill: none; stroke: var(--c); stroke-width: 1; stroke-linecap: round; }
.dim { stroke-dasharray: 1 3; }
.leader { stroke: var(--c); stroke-width: 1; }
.limit { fill: none; stroke: var(--line); stroke-width: 1; stroke-dasharray: 2 3; }
.dots { fill: none; stroke: var(--c); stroke-width: 3.4; stroke-linecap: round; stroke-linejoin: round; }
.curve { fill: none; stroke: var(--c); stroke-width: 1.2; stroke-linecap: round; }
.median { stroke: var(--ink); stroke-width: 1.2; } .high { stroke: var(--ink); stroke-width: 1.2; stroke-dasharray: 5 3; }
.key { display: flex; flex-wrap: wrap; gap: .15rem .9rem; padding: 0; margin: 0 0 1rem; list-style: none; font-size: .85rem; }
table { border-collapse: collapse; width: 100%; font-size: .9rem; line-height: 1.5; }
th, td { text-align: left; vertical-align: top; padding: .45rem .8rem .45rem 0; border-top: 1px solid var(--line); }
th { font-weight: 600; width: 9.5rem; }
td { font-variant-numeric: tabular-nums; }
@media (max-width: 47.99rem) { th, td { display: block; width: auto; border: 0; padding: 0; }
  th { border-top: 1px solid var(--line); padding: .6rem 0 .2rem; } td { padding-bottom: .7rem; } }
td div { padding-left: 1.3em; text-indent: -1.3em; }
.numbers { width: auto; } .numbers th { width: auto; white-space: nowrap; }
.numbers th, .numbers td { display: table-cell; border-top: 1px solid var(--line); padding: .3rem 1.2rem .3rem 0; }
.numbers thead th { border: 0; color: var(--soft); font-weight: 400; white-space: normal; }
.scroll { overflow-x: auto; margin: 0 0 .9rem; }
details { font-size: .9rem; } summary { color: var(--soft); cursor: pointer; }
.types { margin: .8rem 0 0; font-size: .9rem; }
.types div { display: grid; grid-template-columns: minmax(0, 1fr) auto; column-gap: 1rem; break-inside: avoid; }
.types dd { margin: 0; text-align: right; font-variant-numeric: tabular-nums; }
.types i { grid-column: 1 / 3; height: 7px; margin: .1rem 0 .75rem; border-radius: 2px; background: var(--plain); min-width: 2px; }
ul.wrong { padding-left: 1.2rem; margin: 0; overflow-wrap: anywhere; }
@media (min-width: 48rem) {
  main { padding: 3.5rem 2rem 5rem; }
  h1 { font-size: 2.3rem; }
  .figures { grid-template-columns: repeat(4, 1fr); }
  .columns { grid-template-columns: minmax(0, 1fr) minmax(0, 1fr); column-gap: 4rem; }
  section.wide { grid-column: 1 / 3; }
  .types { columns: 2; column-gap: 4rem; }
  .pair { display: grid; grid-template-columns: minmax(0, 1fr) minmax(0, 1fr); column-gap: 4rem; } }
@media print {
  main { padding: 0; max-width: none; }
  .columns, .pair { display: block; }
  section { padding: .8rem 0; }
  svg, tr, li, h2 + p, .key, .figures div { break-inside: avoid; }
  h1, h2, h2 + p, thead, summary { break-after: avoid; }
  .numbers th, .numbers td { padding: .1rem .9rem .1rem 0; }
  details::details-content { content-visibility: visible; }
  svg { max-width: 24rem; } }
)";

} // namespace ctl::report
