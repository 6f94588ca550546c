// zat_tool messages: the layouts of all messages, as the codec has them.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "EFTPTable.h"
#include "command.h"
#include "text.h"

namespace zat::tool {

namespace {

constexpr int kVariantBits = ~0xFFFF; // of a work id: what never goes out

tString Wire(tEFTPWorkId id) { return {static_cast<char>(id >> 8), static_cast<char>(id)}; }

tString Count(size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

// How a builder writes a field, in words.
tString Written(const tEFTPField& field) {
  const bool digits = field.oMode & eEFTPppMdig, absent = field.oMode & eEFTPppMopta;
  tString out;
  if (field.lWidth != 0)
    out = Count(field.lWidth, digits ? "digit" : "character") +
          (digits ? ", zeros in front" : ", blanks behind");
  else
    out = "as long as it is";
  if (field.lMakeMax != 0) out += fmt::format(", at most {}", field.lMakeMax);
  if (field.oMode & eEFTPppMvar) out += ", closed by ESC";
  if (field.oMake == eMakeText) out += ", stored as text only";
  if (field.oMode & eEFTPppMopt) out += "; absent: a lone ESC";
  if (absent) out += "; absent: nothing";
  if (field.oMake == eMakeBehind) out += "; only behind other data";
  return out;
}

// How a parser takes it.
tString Taken(const tEFTPField& field) {
  switch (field.oTake) {
  case eTakeFixed: return Count(field.lTake, "byte");
  case eTakeVar: return fmt::format("up to its ESC, at most {}", field.lTake);
  case eTakeMore: return Count(field.lTake, "byte") + ", when any are left";
  case eTakeExact: return Count(field.lTake, "byte") + ", when just those are left";
  case eTakeRest: break;
  }
  return field.lTake != 0 ? fmt::format("all that is left, at most {}", field.lTake) : "all that is left";
}

struct tIdText {
  tString oWire, oText;
};

// The ids that go out, and the flags that make internal variants of them.
std::vector<tIdText> WireIds(const tEFTPRow& row) {
  std::vector<tIdText> out;
  for (tEFTPWorkId id : row.oIds)
    if ((id & kVariantBits) == 0) out.push_back({Wire(id), EFTPWorkIdName(id)->pccText});
  return out;
}

void PrintPlain(const tEFTPRow& row) {
  fmt::print("{}\n", row.pccText);
  for (const tIdText& id : WireIds(row)) fmt::print("  {}  {}\n", id.oWire, id.oText);
  for (const tEFTPField& field : row.oFields)
    fmt::print("    {:<9} {}\n              read: {}\n", *field.ppccTag, Written(field), Taken(field));
  fmt::print("\n");
}

void PrintMarkdown(const tEFTPRow& row) {
  tString title = row.pccText;
  title[0] = static_cast<char>(title[0] - 'a' + 'A');
  fmt::print("### {}\n\n", title);
  tString ids;
  for (const tIdText& id : WireIds(row))
    ids += fmt::format("{}`{}` {}", ids.empty() ? "" : "; ", id.oWire, id.oText);
  fmt::print("{}\n\n", ids);
  if (row.oFields.empty()) return;
  fmt::print("| Field | Written | Read |\n|---|---|---|\n");
  for (const tEFTPField& field : row.oFields)
    fmt::print("| `{}` | {} | {} |\n", *field.ppccTag, Written(field), Taken(field));
  fmt::print("\n");
}

// The same for programs, in the order of the enumerations.
constexpr const char* kMakeNames[] = {"add", "text", "behind"};
constexpr const char* kTakeNames[] = {"fixed", "var", "more", "exact", "rest"};

nlohmann::ordered_json Json(const tEFTPRow& row) {
  nlohmann::ordered_json ids = nlohmann::ordered_json::array(), fields = ids;
  for (const tIdText& id : WireIds(row)) ids.push_back({{"workId", id.oWire}, {"text", id.oText}});
  for (const tEFTPField& field : row.oFields)
    fields.push_back({{"tag", *field.ppccTag},
                      {"width", field.lWidth},
                      {"mode", static_cast<int>(field.oMode)},
                      {"make", kMakeNames[field.oMake]},
                      {"makeMax", field.lMakeMax},
                      {"take", kTakeNames[field.oTake]},
                      {"takeWidth", field.lTake},
                      {"written", Written(field)},
                      {"read", Taken(field)}});
  return {{"group", row.pccText}, {"workIds", ids}, {"fields", fields}};
}

void Print(bool json, bool markdown) {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const tEFTPRow& row : EFTPRows()) {
    if (json)
      all.push_back(Json(row));
    else if (markdown)
      PrintMarkdown(row);
    else
      PrintPlain(row);
  }
  if (json) fmt::print("{}\n", all.dump(2));
}

} // namespace

void AddMessages(CLI::App& oApp, int* piExit) {
  CLI::App* cmd =
      oApp.add_subcommand("messages", "List the messages: work ids and the fields of their data.");
  auto json = std::make_shared<bool>(false), markdown = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "One JSON array");
  cmd->add_flag("--markdown", *markdown, "As it stands in docs/protocol.md")->excludes("--json");
  cmd->callback([json, markdown, piExit] {
    Print(*json, *markdown);
    *piExit = eExitGood;
  });
}

} // namespace zat::tool
