// Headers, refusals and data parts: what a peer may send in the place of a message.
#include <cstring>
#include <memory>

#include "EFTPTable.h"
#include "EFTPWork.h"
#include "fuzz.h"
#include "quiet.h"
#include "scripted.h"
#include "zat_deft.h"

namespace {

const unsigned char* Pb(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// A buffer of 2048 bytes on the heap, as a till hands it in.
std::unique_ptr<char[]> Answer(const std::string& bytes) {
  auto buffer = std::make_unique<char[]>(2048);
  bytes.copy(buffer.get(), 2048);
  return buffer;
}

} // namespace

FUZZ_TARGET(headers) {
  fuzz::Quiet();
  const unsigned kind = in.Byte();
  std::string bytes = in.Rest();
  auto answer = Answer(bytes);
  tEFTPWorkId workId = eEFTPwidNone;
  tString id;
  int length = 0;
  EFTePars(answer.get(), workId, id, &length);
  FUZZ_HOLDS(id.size() == 10 && length >= 0 && length <= 65535);

  // What goes out comes in again.
  const tString data = bytes.size() > 14 ? bytes.substr(14) : "";
  tString message;
  EFTPMakeHeader(message, workId, &id, &data);
  tEFTPWorkId again = eEFTPwidNone;
  tString idAgain;
  EFTePars(message.data(), again, idAgain, &length);
  const bool cut = id.find('\0') != tString::npos; // an id is a text, and ends there
  FUZZ_HOLDS(again == workId && (cut || (idAgain == id && length == static_cast<int>(data.size()))));

  const tEFTErr code = static_cast<tEFTErr>(static_cast<int>(kind % 14) - 1);
  eftp_msgmod(answer.get(), code, kind & 0x80 ? 1251 : 866);
  static MicroSMan man(nullptr);
  man.lCP = kind & 0x40 ? 1251 : 866;
  man.fOldRet = kind & 0x20;
  man.oId = id;
  const int result = changeRet(&man, answer.get(), code);
  FUZZ_HOLDS(man.fOldRet || result == 0 || result == 9);
  char request[14];
  FUZZ_HOLDS(do_eft_break(request, id) == 14 && do_eft_break(request, data) == (data.size() == 10 ? 14 : 0));
}

FUZZ_TARGET(messages) {
  fuzz::Quiet();
  const auto rows = zat::EFTPRows();
  const unsigned first = in.Byte(), second = in.Byte();
  const auto& row = rows[first % rows.size()];
  const int wire = second == 0xFF ? static_cast<int>(in.Word()) : row.oIds[second % row.oIds.size()] & 0xFFFF;
  const tEFTPWorkId id = static_cast<tEFTPWorkId>(wire);
  const std::string data = in.Rest();

  // A data part that parses can be made again from what was kept, and that parses to the same.
  SqueezeT parsed;
  tEFTPWorkId got = id;
  if (EFTPParsData(&parsed, got, Pb(data), data.size())) {
    tPadsData pads{&parsed, nullptr, got, nullptr};
    tString made, madeAgain;
    if (EFTPMakeData(&pads, made)) {
      SqueezeT kept;
      tEFTPWorkId gotAgain = static_cast<tEFTPWorkId>(got & 0xFFFF);
      FUZZ_HOLDS(EFTPParsData(&kept, gotAgain, Pb(made), made.size()) && gotAgain == got);
      pads.poSTin = &kept;
      FUZZ_HOLDS(EFTPMakeData(&pads, madeAgain) && madeAgain == made);
    }
  }

  // The same bytes as a whole frame in a port's buffer.
  static ScriptedLink link;
  PortSEtx_tag port{};
  EFTPWorkInit(&port, &link, nullptr, &ScriptedLink::SetUp, first & 0x80);
  std::string frame;
  if (second & 0x80)
    EFTPMakeHeader(frame, id, nullptr, &data);
  else
    frame = data;
  frame = (first & 0x80 ? "\x10\x02" : "") + frame +
          (first & 0x80 ? "\x10\x03"
                          "x"
                        : "");
  const tLen length = std::min(frame.size(), sizeof port.mbCmd);
  memcpy(port.pbCmd, frame.data(), length);
  SqueezeT store;
  tPadsData pads{&store, &store, eEFTPwidNone, nullptr};
  EFTPParsCmd(&port, &pads, length, nullptr);
  EFTPMakeCmd(&port, &pads);
  FUZZ_HOLDS(zat::SqueezeCheck(store.pbBuffer, store.nBuffer, zat::eSCtags));
}
