// zat_tool decode: a message by name, field by field.
#include <fstream>
#include <iostream>
#include <iterator>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "command.h"
#include "dissect.h"
#include "gabids.h"
#include "text.h"

namespace zat::tool {

namespace {

struct tOptions {
  tString oInput;       // the bytes themselves, or "-" for standard input
  tString oFile;        // where they are instead
  tString oAs = "auto"; // "hex", "text": how the input is written
  bool fJson = false, fUnmasked = false;
};

// ---- input ------------------------------------------------------------------------------------------------

bool ReadAll(const tOptions& options, tString& bytes) {
  if (options.oFile.empty() && options.oInput != "-") {
    bytes = options.oInput;
    return true;
  }
  std::ifstream file;
  if (!options.oFile.empty()) file.open(options.oFile, std::ios::binary);
  std::istream& in = options.oFile.empty() ? std::cin : file;
  if (!in) return false;
  bytes.assign(std::istreambuf_iterator<char>(in), {});
  return !in.bad();
}

// What an editor or echo adds is no part of a message.
tString WithoutLineEnd(tString bytes) {
  if (bytes.ends_with('\n')) bytes.pop_back();
  if (bytes.ends_with('\r')) bytes.pop_back();
  return bytes;
}

// Takes the bytes as text: as they are, without a line end, with the escapes of a typed argument; the first
// way without a fault.
tDissected ReadText(const tString& bytes, bool typed) {
  std::vector<tString> ways = {bytes, WithoutLineEnd(bytes)};
  if (typed)
    if (auto escaped = FromTyped(bytes)) ways.insert(ways.begin(), *escaped);
  for (const tString& way : ways)
    if (tDissected out = Dissect(way); !out.oFault) return out;
  return Dissect(ways.front());
}

// A text of digits and blanks may be a message, and hexadecimal too. What is wrapped or without a fault as
// hexadecimal is that, then what is a good message as text; a fault is told of what the blanks make it look like.
tDissected Read(const tOptions& options, const tString& bytes) {
  const auto hex = options.oAs == "text" ? std::nullopt : FromHex(bytes);
  if (options.oAs == "hex") return Dissect(hex.value_or(""));
  const bool typed = options.oFile.empty() && options.oInput != "-";
  if (!hex) return ReadText(bytes, typed);
  const tDissected asHex = Dissect(*hex), asText = ReadText(bytes, typed);
  if (!asHex.oFault || asHex.oWrap.oForm != eFormMessage) return asHex;
  const bool blanks = WithoutLineEnd(bytes).find_first_of(" \t\n") != tString::npos;
  return asText.oFault && blanks ? asHex : asText;
}

// ---- output -----------------------------------------------------------------------------------------------

tString Shown(const tFoundField& field, bool unmasked) {
  tString value = field.oValue;
  if (!unmasked) MaskValue(field.pccTag, value);
  return value;
}

const char* IdName(const tDissected& message) {
  const tEFTPWorkIdName* row = EFTPWorkIdName(message.oId);
  return row ? row->pccName : "unknown";
}

const char* IdText(const tDissected& message) {
  const tEFTPWorkIdName* row = EFTPWorkIdName(message.oId);
  return row ? row->pccText : "unknown work id";
}

void PrintLine(size_t ofs, const tString& name, size_t size, const tString& value) {
  fmt::print("{:>6}  {:<12} {:>4}  {}\n", ofs, name, size, value);
}

void PrintText(const tDissected& message, bool unmasked) {
  const size_t base = message.oWrap.lOfs;
  fmt::print("{}\n{:>6}  {:<12} {:>4}  value\n", FormName(message.oWrap.oForm), "offset", "field", "size");
  if (message.oId != eEFTPwidNone)
    PrintLine(base + kHeadId, "work id", kHeadTid,
              fmt::format("{}  {} ({})", ToScreen(message.oWireId), IdText(message), IdName(message)));
  if (!message.oTid.empty()) {
    PrintLine(base + kHeadTid, "terminal id", kTidSize, ToScreen(message.oTid));
    PrintLine(base + kHeadLen, "data length", kHeadSize - kHeadLen, fmt::format("{}", message.lAnnounced));
  }
  for (const tFoundField& field : message.oFields)
    PrintLine(field.lOfs, field.pccTag, field.lSize,
              field.fAbsent ? "(absent)" : ToScreen(Shown(field, unmasked)));
  if (message.oFault) fmt::print("fault at {}: {}\n", message.oFault->lOfs, message.oFault->oWhat);
}

void PrintJson(const tDissected& message, bool unmasked) {
  nlohmann::ordered_json out;
  out["form"] = FormName(message.oWrap.oForm);
  if (message.oId != eEFTPwidNone) {
    out["workId"] = ToUtf8(message.oWireId);
    out["name"] = IdName(message);
    out["text"] = IdText(message);
  }
  if (!message.oTid.empty()) {
    out["terminalId"] = ToUtf8(message.oTid);
    out["dataLength"] = message.lAnnounced;
  }
  out["fields"] = nlohmann::ordered_json::array();
  for (const tFoundField& field : message.oFields) {
    nlohmann::ordered_json one = {{"tag", field.pccTag}, {"offset", field.lOfs}, {"size", field.lSize}};
    one["value"] =
        field.fAbsent ? nlohmann::ordered_json() : nlohmann::ordered_json(ToUtf8(Shown(field, unmasked)));
    out["fields"].push_back(one);
  }
  out["fault"] = nullptr;
  if (message.oFault) out["fault"] = {{"offset", message.oFault->lOfs}, {"what", message.oFault->oWhat}};
  fmt::print("{}\n", out.dump(2));
}

int Decode(const tOptions& options) {
  tString bytes;
  if (!ReadAll(options, bytes)) {
    fmt::print(stderr, "zat_tool: cannot read {}\n", options.oFile);
    return eExitUsage;
  }
  const tDissected message = Read(options, bytes);
  if (options.fJson)
    PrintJson(message, options.fUnmasked);
  else
    PrintText(message, options.fUnmasked);
  return message.oFault ? eExitFault : eExitGood;
}

} // namespace

void AddDecode(CLI::App& oApp, int* piExit) {
  CLI::App* cmd =
      oApp.add_subcommand("decode", "Take a message apart: header and fields by name, with offsets.");
  auto options = std::make_shared<tOptions>();
  cmd->add_option(
         "message", options->oInput,
         "A message, a block (0x17 ...) or a frame (0x10 0x02 ...), as text with \\e and \\xNN, or in\n"
         "hexadecimal; - for standard input")
      ->default_str("-");
  cmd->add_option("-f,--file", options->oFile, "Read it from a file")->excludes("message");
  cmd->add_option("--as", options->oAs, "How the input is written")
      ->check(CLI::IsMember({"auto", "text", "hex"}))
      ->capture_default_str();
  cmd->add_flag("--json", options->fJson, "One JSON object");
  cmd->add_flag("--unmasked", options->fUnmasked, "Show card data in clear");
  cmd->footer("Exit status: 0 for a well-formed message, 1 for a fault in it, 2 for wrong arguments.\n\n"
              "  zat_tool decode '10000000123400'\n"
              "  zat_tool decode --file block.bin --json\n"
              "  zat_tool decode '10 02 35 30 30 30 30 30 30 30 30 30 30 30 30 30 10 03 05'");
  cmd->callback([options, piExit] {
    if (options->oInput.empty()) options->oInput = "-";
    *piExit = Decode(*options);
  });
}

} // namespace zat::tool
