#include "loghtml.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "text.h"
#include "timeline.h"

namespace zat::tool {

namespace {

// The strip: one row per terminal, time from left to right.
constexpr double kWidth = 1000, kLeft = 90, kRow = 26, kBar = 16, kTop = 24, kLeast = 3;
constexpr int kTicks = 6;
constexpr time_t kLeastSpan = 60; // seconds: a log of one sale should look short
constexpr time_t kDay = 86400;

constexpr char kStyle[] = R"(
:root{--ink:#1c2430;--faint:#66707f;--line:#d8dde5;--paper:#fff;--good:#2c8a4b;--warn:#c98a12;--bad:#c8322b;--run:#3a72c4}
@media(prefers-color-scheme:dark){:root{--ink:#e4e8ee;--faint:#98a2b3;--line:#39414e;--paper:#161a20;--good:#4fb573;
--warn:#e0ab45;--bad:#ef6a62;--run:#76a5ec}}
body{font:15px/1.45 system-ui,sans-serif;color:var(--ink);background:var(--paper);max-width:1080px;margin:24px auto;padding:0 16px}
h1{font-size:21px;margin:0 0 4px}p.sum{color:var(--faint);margin:0 0 18px}svg{width:100%;height:auto}
svg text{fill:var(--faint);font-size:12px}svg .grid{stroke:var(--line)}
.approved,.done{fill:var(--good);color:var(--good)}.running{fill:var(--run);color:var(--run)}
.unknown{fill:var(--bad);color:var(--bad)}.declined,.refused,.brokenOff,.notStarted,.tooEarly{fill:var(--warn);color:var(--warn)}
details{border-top:1px solid var(--line);padding:6px 0}summary{cursor:pointer}summary b{margin:0 8px}
summary .result{font-weight:600}summary .faint,td.faint{color:var(--faint)}:target{outline:2px solid var(--run);outline-offset:3px}
table{border-collapse:collapse;margin:6px 0 6px 18px;font-size:14px}td{padding:2px 14px 2px 0;vertical-align:top}
td.faint{white-space:nowrap}
td code{overflow-wrap:anywhere}tr.trouble td{color:var(--bad)}tr.gap td{color:var(--warn)}
@media(max-width:640px){table{margin-left:0}}
)";

// Everything from the log is text on the page and never a part of it.
tString Escaped(std::string_view text) {
  tString out;
  for (char c : text) {
    if (c == '<')
      out += "&lt;";
    else if (c == '>')
      out += "&gt;";
    else if (c == '&')
      out += "&amp;";
    else if (c == '"')
      out += "&quot;";
    else
      out += c;
  }
  return out;
}

tString What(const tExchange& one) {
  const auto amount = one.Amount();
  return OperationText(one) + (amount && amount->inKopecks() ? " " + amount->text() : "");
}

tString Terminal(const tExchange& one) { return one.oTid.empty() ? "?" : ToScreen(WithoutZeros(one.oTid)); }

typedef std::vector<std::shared_ptr<tExchange>> tList;

// ---- the strip --------------------------------------------------------------------------------------------

struct tScale {
  time_t oFrom, oTo;
  double At(time_t when) const {
    const double span = static_cast<double>(std::max<time_t>(oTo - oFrom, 1));
    return kLeft + (kWidth - kLeft - 10) * static_cast<double>(when - oFrom) / span;
  }
};

tString Grid(const tScale& scale, double height) {
  tString out;
  for (int i = 0; i < kTicks; ++i) {
    const time_t when = scale.oFrom + (scale.oTo - scale.oFrom) * i / (kTicks - 1);
    const double x = scale.At(when);
    const bool last = i == kTicks - 1;
    out += fmt::format("<line class=\"grid\" x1=\"{0:.1f}\" x2=\"{0:.1f}\" y1=\"{1}\" y2=\"{2}\"/>"
                       "<text x=\"{0:.1f}\" y=\"14\" text-anchor=\"{3}\">{4}</text>\n",
                       x, kTop - 4, height, last ? "end" : "start",
                       i == 0 || scale.oTo - scale.oFrom >= kDay ? TimeText(when).substr(5, 11)
                                                                 : TimeText(when).substr(11));
  }
  return out;
}

tString Bar(const tExchange& one, size_t number, const tScale& scale, double y, time_t now) {
  const double x = scale.At(one.oBegin), width = std::max(scale.At(one.oLast) - x, kLeast);
  const tExchangeResult result = one.Result(now);
  return fmt::format(
      "<a href=\"#x{}\"><rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{}\" rx=\"2\">"
      "<title>{} {}: {}, {} s</title></rect></a>\n",
      number, ResultName(result), x, y, width, kBar, TimeText(one.oBegin), Escaped(What(one)),
      ResultText(result), one.oLast - one.oBegin);
}

tString Strip(const tList& list, time_t now) {
  tScale scale = {list.front()->oBegin, list.front()->oLast};
  std::map<tString, double> rows;
  for (const auto& one : list) {
    scale.oFrom = std::min(scale.oFrom, one->oBegin);
    scale.oTo = std::max(scale.oTo, one->oLast);
    rows[Terminal(*one)] = 0;
  }
  scale.oTo = std::max(scale.oTo, scale.oFrom + kLeastSpan);
  double height = kTop;
  tString labels, bars;
  for (auto& [terminal, y] : rows) {
    y = height;
    labels += fmt::format("<text x=\"0\" y=\"{}\">terminal {}</text>\n", y + kBar - 3, Escaped(terminal));
    height += kRow;
  }
  // Failures are drawn last: a short one must not vanish below its good neighbours.
  for (const bool failed : {false, true})
    for (size_t i = 0; i < list.size(); ++i)
      if (failed == (list[i]->Result(now) >= eResDeclined))
        bars += Bar(*list[i], i, scale, rows[Terminal(*list[i])], now);
  return fmt::format("<svg viewBox=\"0 0 {} {}\" role=\"img\" aria-label=\"exchanges over time\">\n", kWidth,
                     height + 4) +
         Grid(scale, height) + labels + bars + "</svg>\n";
}

// ---- the exchanges ----------------------------------------------------------------------------------------

tString EventRow(const tExchange& one, const tEvent& event, time_t before) {
  tString out;
  if (event.oWhen - before >= kGapSeconds)
    out = fmt::format("<tr class=\"gap\"><td><td><td>{} s without a line</tr>\n", event.oWhen - before);
  return out + fmt::format("<tr class=\"{0}\"><td class=\"faint\">+{1} s<td>{0}<td><code>{2}</code></tr>\n",
                           EventName(event.oKind), event.oWhen - one.oBegin, Escaped(EventText(event)));
}

tString Details(const tExchange& one, size_t number, time_t now) {
  const tExchangeResult result = one.Result(now);
  const tString reason = result == eResApproved ? "" : one.Reason();
  tString out = fmt::format("<details id=\"x{}\"{}><summary><span class=\"faint\">{}</span><b>{}</b><span "
                            "class=\"result {}\">{}</span> {} "
                            "<span class=\"faint\">terminal {}, {} s, process {}</span></summary>\n<table>\n",
                            number, result >= eResDeclined ? " open" : "", TimeText(one.oBegin),
                            Escaped(What(one)), ResultName(result), ResultText(result), Escaped(reason),
                            Escaped(Terminal(one)), one.oLast - one.oBegin, one.ulProcess);
  time_t before = one.oBegin;
  for (const tEvent& event : one.oEvents) {
    out += EventRow(one, event, before);
    before = event.oWhen;
  }
  return out + "</table></details>\n";
}

tString Summary(const tList& list, time_t now) {
  std::map<tExchangeResult, size_t> counts;
  for (const auto& one : list) ++counts[one->Result(now)];
  tString out = fmt::format("{} exchanges", list.size());
  for (const auto& [result, count] : counts)
    out += fmt::format(", <span class=\"{}\">{} {}</span>", ResultName(result), count, ResultText(result));
  return out;
}

} // namespace

tString LogPage(const tList& oExchanges, const tString& oTitle, time_t oNow) {
  tString out = fmt::format(
      "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
      "<meta name=\"viewport\" content=\"width=device-width\"><title>{0}</title><style>{1}</style></head>\n"
      "<body><h1>{0}</h1>\n<p class=\"sum\">{2}; made {3}</p>\n",
      Escaped(oTitle), kStyle, Summary(oExchanges, oNow), TimeText(oNow));
  if (!oExchanges.empty()) out += Strip(oExchanges, oNow);
  for (size_t i = 0; i < oExchanges.size(); ++i) out += Details(*oExchanges[i], i, oNow);
  return out + "</body></html>\n";
}

} // namespace zat::tool
