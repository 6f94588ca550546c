// zat_tool tags: the dictionary of parameters.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "command.h"
#include "gabids.h"

namespace zat::tool {

namespace {

const char* ShowText(tTagShow show) {
  switch (show) {
  case eTSplain: return "in clear";
  case eTSscan: return "without card numbers";
  case eTSlast4: return "last four digits";
  case eTShidden: break;
  }
  return "hidden";
}

void Print(bool json) {
  size_t count = 0;
  const tTag* tags = Tags(&count);
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const tTag* tag = tags; tag != tags + count; ++tag) {
    const char* group = TagGroupText(tag->pccTag);
    if (json)
      all.push_back({{"tag", tag->pccTag},
                     {"pointer", tag->pccName},
                     {"group", group ? group : ""},
                     {"shown", ShowText(tag->oShow)}});
    else
      fmt::print("{:<10} {:<12} {:<22} {}\n", tag->pccTag, tag->pccName, ShowText(tag->oShow),
                 group ? group : "");
  }
  if (json) fmt::print("{}\n", all.dump(2));
}

} // namespace

void AddTags(CLI::App& oApp, int* piExit) {
  CLI::App* cmd =
      oApp.add_subcommand("tags", "List the parameter tags: text, pointer, how a value is shown, group.");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "One JSON array");
  cmd->callback([json, piExit] {
    Print(*json);
    *piExit = eExitGood;
  });
}

} // namespace zat::tool
