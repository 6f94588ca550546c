// zat_tool encode: a message from its parameters.
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "EFTPTable.h"
#include "EFTPWork.h"
#include "command.h"
#include "forms.h"
#include "gabids.h"
#include "text.h"

namespace zat::tool {

namespace {

struct tOptions {
  tString oWorkId;
  std::vector<tString> oPairs; // TAG=VALUE
  tString oForm = "message", oAs = "hex";
  bool fJson = false;
};

int Complain(int exit, const tString& what) {
  fmt::print(stderr, "zat_tool: {}\n", what);
  return exit;
}

// The id of two characters, or of the constant's name.
tEFTPWorkId IdFromText(const tString& text) {
  size_t count = 0;
  const tEFTPWorkIdName* names = EFTPWorkIdNames(&count);
  for (size_t i = 0; i < count; ++i)
    if (text == names[i].pccName || (text.length() == 2 && names[i].oId == EFTPWId(text[0], text[1])))
      return names[i].oId;
  return eEFTPwidNone;
}

bool HasField(const tEFTPRow& row, const char* tag) {
  for (const tEFTPField& field : row.oFields)
    if (*field.ppccTag == tag) return true;
  return tag == abisTMtid; // stands in every header
}

// One TAG=VALUE into the store; what is wrong with it, or nothing.
tString PutPair(const tEFTPRow& row, const tString& pair, SqueezeT& store) {
  const size_t equals = pair.find('=');
  if (equals == tString::npos) return fmt::format("'{}': TAG=VALUE is wanted", pair);
  const tString name = pair.substr(0, equals);
  const char* tag = TagFromText(name);
  if (!tag) return fmt::format("'{}': no such tag; see zat_tool tags", name);
  if (!HasField(row, tag)) return fmt::format("{} is no part of this message; see zat_tool messages", tag);
  const auto value = FromTyped(pair.substr(equals + 1));
  if (!value) return fmt::format("the value of {} cannot be written in the messages' code page", tag);
  if (!value->empty()) store.PutData(tag, value->data(), value->length());
  return "";
}

// Why a message could not be made: the first field that cannot be written.
tString Refusal(const tEFTPRow& row, tPadsData& pads) {
  for (const tEFTPField& field : row.oFields) {
    tString value;
    const bool there = pads.poSTin->GetData(pads.poSTin->Find(*field.ppccTag), &value) == eDTpdata;
    if (!there && !(field.oMode & (eEFTPppMopt | eEFTPppMopta)))
      return fmt::format("{} is missing", *field.ppccTag);
    if (there && field.lMakeMax != 0 && value.length() > field.lMakeMax)
      return fmt::format("{} has more than {} characters", *field.ppccTag, field.lMakeMax);
  }
  return "refused";
}

void Print(const tOptions& options, const tString& bytes) {
  if (options.fJson) {
    const nlohmann::ordered_json out = {{"workId", options.oWorkId},
                                        {"form", options.oForm},
                                        {"size", bytes.length()},
                                        {"hex", ToHex(bytes)}};
    fmt::print("{}\n", out.dump(2));
  } else if (options.oAs == "raw") {
    fwrite(bytes.data(), 1, bytes.length(), stdout);
  } else {
    fmt::print("{}\n", options.oAs == "hex" ? ToHex(bytes, " ") : ToScreen(bytes));
  }
}

int Encode(const tOptions& options) {
  const tEFTPRow* row = EFTPRowOf(IdFromText(options.oWorkId));
  if (!row)
    return Complain(eExitUsage,
                    fmt::format("'{}': no message has this work id; see zat_tool messages", options.oWorkId));
  SqueezeT store;
  for (const tString& pair : options.oPairs)
    if (const tString wrong = PutPair(*row, pair, store); !wrong.empty()) return Complain(eExitUsage, wrong);

  tPadsData pads{&store, nullptr, IdFromText(options.oWorkId), nullptr};
  tString data, tid, message;
  if (!EFTPMakeData(&pads, data)) return Complain(eExitFault, Refusal(*row, pads));
  store.GetData(store.Find(abisTMtid), &tid);
  EFTPMakeHeader(message, pads.oPWI, &tid, &data);
  const auto bytes = Wrap(message, *FormFromName(options.oForm));
  if (!bytes)
    return Complain(eExitFault,
                    fmt::format("{} bytes are too many for a {}", message.length(), options.oForm));
  Print(options, *bytes);
  return eExitGood;
}

} // namespace

void AddEncode(CLI::App& oApp, int* piExit) {
  CLI::App* cmd = oApp.add_subcommand("encode", "Make a message from its parameters.");
  auto options = std::make_shared<tOptions>();
  cmd->add_option("workid", options->oWorkId, "Two characters such as 10, or a constant such as eEFTPwidSale")
      ->required();
  cmd->add_option("parameters", options->oPairs,
                  "TAG=VALUE, with \\e and \\xNN for bytes; TM.TID is the terminal id");
  cmd->add_option("--form", options->oForm, "What to put around the message")
      ->check(CLI::IsMember({"message", "block", "frame"}))
      ->capture_default_str();
  cmd->add_option("--as", options->oAs, "How to print it")
      ->check(CLI::IsMember({"hex", "text", "raw"}))
      ->capture_default_str();
  cmd->add_flag("--json", options->fJson, "One JSON object");
  cmd->footer("Exit status: 0, 1 when the message cannot be made, 2 for wrong arguments.\n\n"
              "  zat_tool encode 10 TM.TID=1234 TR.AMT=125000\n"
              "  zat_tool encode 33 TM.TID=1234 --form frame --json");
  cmd->callback([options, piExit] { *piExit = Encode(*options); });
}

} // namespace zat::tool
