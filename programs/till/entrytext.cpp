#include "entrytext.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "charset.h"
#include "command.h"
#include "texts.h"
#include "zat_client.h"

namespace zat::till {
namespace {

using client::Entry;
using client::Fate;
using client::Ground;

struct FateRow {
  Fate oFate;
  Text oTitle;
};
constexpr FateRow kFates[] = {{Fate::Unknown, Text::Unknown},   {Fate::Approved, Text::Approved},
                              {Fate::Declined, Text::Declined}, {Fate::Aborted, Text::Aborted},
                              {Fate::NotSent, Text::Refused},   {Fate::NotMade, Text::NotMade},
                              {Fate::Done, Text::Done}};

// In the order of the grounds.
struct GroundRow {
  Ground oGround;
  const char* pccName;
  Text oText;
};
constexpr GroundRow kGrounds[] = {
    {Ground::Reference, "reference", Text::GroundReference},
    {Ground::Last, "last", Text::GroundLast},
    {Ground::NothingSince, "nothingSince", Text::GroundNothingSince},
    {Ground::EmptyDay, "emptyDay", Text::GroundEmptyDay},
    {Ground::Gone, "gone", Text::GroundGone},
    {Ground::Hidden, "hidden", Text::GroundHidden},
    {Ground::OtherTill, "otherTill", Text::GroundOtherTill},
    {Ground::TwoAlike, "twoAlike", Text::GroundTwoAlike},
    {Ground::DayClosed, "dayClosed", Text::GroundDayClosed},
    {Ground::TooEarly, "tooEarly", Text::GroundTooEarly},
    {Ground::NoAnswer, "noAnswer", Text::GroundNoAnswer},
    {Ground::NotShown, "notShown", Text::GroundNotShown},
    {Ground::Lost, "lost", Text::GroundLost},
};

const GroundRow& Row(Ground ground) { return kGrounds[static_cast<size_t>(ground)]; }

Text TitleOf(const Entry& entry) {
  if (entry.fRunning) return Text::Running;
  for (const FateRow& row : kFates)
    if (row.oFate == entry.oEnding.oFate) return row.oTitle;
  return Text::Unknown;
}

tString When(time_t time, bool machine) {
  tm local{};
  char text[32];
  localtime_r(&time, &local);
  return {text, machine ? strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local)
                        : strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local)};
}

tString Rubles(uint64_t kopecks) {
  const auto most = static_cast<uint64_t>(Amount::kMaxKopecks);
  return Amount::ofKopecks(static_cast<std::int64_t>(std::min(kopecks, most))).text();
}

// "sale 1250.00"
tString Operation(const Entry& entry) {
  tString words = CommandOf(entry.oIntent.oWorkId);
  if (entry.oIntent.ulKopecks) words += " " + Rubles(entry.oIntent.ulKopecks);
  return words;
}

// "2026-11-21 12:00:03", "sale 1250.00", "terminal 1"
std::vector<tString> Description(const Entry& entry) {
  if (!entry.fKnown) return {Say(Text::GroundLost)};
  return {When(entry.oWhen, false), Operation(entry), Say(Text::OfTerminal, entry.oIntent.oTid)};
}

} // namespace

tString LineOf(const Entry& entry, size_t width) {
  constexpr size_t kNumber = 5;
  const tString margin(kNumber + 2, ' '), &ref = entry.oEnding.oRef;
  std::vector<tString> pieces = Description(entry);
  pieces.push_back(Say(TitleOf(entry)));
  if (!ref.empty()) pieces.push_back(ref);
  if (entry.oEnding.oSource == client::Source::Person) pieces.push_back(Say(Text::ByPerson));
  tString out, line = fmt::format("{:>{}}", entry.uNumber, kNumber);
  for (const tString& piece : pieces) {
    if (client::Characters(line) > margin.size() &&
        client::Characters(line) + 2 + client::Characters(piece) > width) {
      out += line + "\n";
      line = margin + piece;
    } else {
      line += "  " + piece;
    }
  }
  return out + line + "\n";
}

nlohmann::json JsonOf(const Entry& entry) {
  const client::Ending& ending = entry.oEnding;
  nlohmann::json object = {{"number", entry.uNumber},
                           {"state", entry.fRunning ? "running" : client::NameOf(ending.oFate)}};
  static constexpr const char* kSources[] = {"till", "terminal", "person"};
  if (entry.oTold) object["toldBy"] = kSources[static_cast<size_t>(ending.oSource)];
  if (entry.oTold) object["toldAt"] = When(entry.oTold, true);
  if (!ending.oCode.empty()) object["code"] = ending.oCode;
  if (!ending.oRef.empty()) object["rrn"] = ending.oRef;
  if (!entry.fKnown) return object;
  object.update({{"time", When(entry.oWhen, true)},
                 {"operation", CommandOf(entry.oIntent.oWorkId)},
                 {"workId", entry.oIntent.oWorkId},
                 {"tid", entry.oIntent.oTid}});
  if (entry.oIntent.ulKopecks) object["amount"] = Rubles(entry.oIntent.ulKopecks);
  if (!entry.oIntent.oRef.empty()) object["about"] = entry.oIntent.oRef;
  if (!entry.oIntent.oRoad.empty()) object["place"] = entry.oIntent.oRoad;
  return object;
}

tString Warning(const client::Entries& unknown) {
  if (unknown.empty()) return "";
  const Entry& first = unknown.front();
  tString words;
  for (const tString& piece : Description(first)) words += (words.empty() ? "" : ", ") + piece;
  return unknown.size() == 1 ? Say(Text::WarnOne, first.uNumber, words)
                             : Say(Text::WarnSome, unknown.size(), first.uNumber, words);
}

client::Entries UnknownOf(const client::Entries& entries) {
  client::Entries unknown;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(unknown),
               [](const Entry& entry) { return entry.IsUnknown(); });
  return unknown;
}

tString Explain(Ground ground) { return Say(Row(ground).oText); }
const char* NameOf(Ground ground) { return Row(ground).pccName; }

} // namespace zat::till
