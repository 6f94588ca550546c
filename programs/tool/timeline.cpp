#include "timeline.h"

#include <algorithm>

#include <fmt/format.h>

#include "text.h"

namespace zat::tool {

namespace {

// "2026-11-21", `between`, "14:03:59".
tString TimeAs(time_t when, char between) {
  struct tm local = {};
  localtime_r(&when, &local);
  char text[32];
  tString out(text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local));
  std::replace(out.begin(), out.end(), ' ', between);
  return out;
}

tString IdText(const tDissected& message) {
  const tEFTPWorkIdName* row = EFTPWorkIdName(message.oId);
  return fmt::format("{}  {}", ToScreen(message.oWireId), row ? row->pccText : "unknown message");
}

tString TidText(const tExchange& exchange) {
  return exchange.oTid.empty() ? "?" : ToScreen(WithoutZeros(exchange.oTid));
}

tColour EventColour(const tEvent& event) {
  if (event.oKind == eEvTrouble) return eColBad;
  return event.oKind == eEvStart || event.oKind == eEvPrint ? eColFaint : eColPlain;
}

} // namespace

tString TimeText(time_t oWhen) { return TimeAs(oWhen, ' '); }

tString EventText(const tEvent& oEvent) {
  if (!oEvent.oMessage) return oEvent.oText;
  tString out = IdText(*oEvent.oMessage);
  for (const tFoundField& field : oEvent.oMessage->oFields)
    if (tString value = FieldText(field); !value.empty()) out += fmt::format("  {}={}", field.pccTag, value);
  if (oEvent.oMessage->oFault) out += fmt::format("  (damaged: {})", oEvent.oMessage->oFault->oWhat);
  return out;
}

tColour ColourOf(tExchangeResult oResult) {
  if (oResult == eResApproved || oResult == eResDone) return eColGood;
  return oResult == eResUnknown ? eColBad : eColWarn;
}

tString HeadLine(const tExchange& oExchange, time_t oNow, const Output& oOut) {
  const tExchangeResult result = oExchange.Result(oNow);
  tString what = OperationText(oExchange);
  if (const auto amount = oExchange.Amount(); amount && amount->inKopecks()) what += " " + amount->text();
  tString line = fmt::format("{}  terminal {}  {}  {}", TimeText(oExchange.oBegin), TidText(oExchange),
                             oOut.In(eColBold, what), oOut.In(ColourOf(result), ResultText(result)));
  const tString reason = result == eResApproved ? "" : oExchange.Reason();
  if (!reason.empty()) line += fmt::format(" ({})", reason);
  line += fmt::format("  {} s  process {}", oExchange.oLast - oExchange.oBegin, oExchange.ulProcess);
  if (!oExchange.fBeginning) line += "  (its beginning is not in the log)";
  return line;
}

void PrintExchange(const tExchange& oExchange, time_t oNow, bool fShort, Output& oOut) {
  oOut.Line(HeadLine(oExchange, oNow, oOut));
  if (fShort) return;
  time_t before = oExchange.oBegin;
  for (const tEvent& event : oExchange.oEvents) {
    if (event.oWhen - before >= kGapSeconds)
      oOut.Line(oOut.In(eColWarn, fmt::format("          ... {} s without a line", event.oWhen - before)));
    before = event.oWhen;
    oOut.Line(fmt::format("  {:>4} s  {:<8} {}", fmt::format("+{}", event.oWhen - oExchange.oBegin),
                          EventName(event.oKind), oOut.In(EventColour(event), EventText(event))));
  }
  oOut.Line("");
}

namespace {

nlohmann::ordered_json EventJson(const tEvent& event) {
  nlohmann::ordered_json out = {{"time", TimeAs(event.oWhen, 'T')}, {"kind", EventName(event.oKind)}};
  if (!event.oMessage) {
    out["text"] = event.oText;
    return out;
  }
  const tDissected& message = *event.oMessage;
  out["workId"] = ToScreen(message.oWireId);
  const tEFTPWorkIdName* row = EFTPWorkIdName(message.oId);
  out["text"] = row ? row->pccText : "unknown message";
  out["fields"] = nlohmann::ordered_json::object();
  for (const tFoundField& field : message.oFields)
    if (!field.fAbsent) out["fields"][field.pccTag] = FieldText(field);
  if (message.oFault) out["damaged"] = message.oFault->oWhat;
  return out;
}

} // namespace

nlohmann::ordered_json ExchangeJson(const tExchange& oExchange, time_t oNow) {
  const auto amount = oExchange.Amount();
  nlohmann::ordered_json out = {
      {"begin", TimeAs(oExchange.oBegin, 'T')}, {"seconds", oExchange.oLast - oExchange.oBegin},
      {"process", oExchange.ulProcess},         {"terminalId", ToScreen(oExchange.oTid)},
      {"workId", ToScreen(oExchange.oWorkId)},  {"operation", OperationText(oExchange)}};
  out["amount"] = amount ? nlohmann::ordered_json(amount->inKopecks()) : nlohmann::ordered_json();
  out["result"] = ResultName(oExchange.Result(oNow));
  out["reason"] = oExchange.Reason();
  out["whole"] = oExchange.fBeginning;
  out["events"] = nlohmann::ordered_json::array();
  for (const tEvent& event : oExchange.oEvents) out["events"].push_back(EventJson(event));
  return out;
}

} // namespace zat::tool
