#include "forms.h"

#include <fmt/format.h>

#include "EFTPWork.h"
#include "PortCalls.h"
#include "upipes.h"

namespace zat::tool {

namespace {

constexpr struct {
  tForm oForm;
  const char* pccName;
} kForms[] = {{eFormMessage, "message"}, {eFormBlock, "block"}, {eFormFrame, "frame"}};

const unsigned char* Bytes(const tString& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

tString Sequence(tSEtxCmdId id) {
  const tPortCmd& cmd = moEFTPCmdDefs[id];
  return tString(reinterpret_cast<const char*>(cmd.poByte), cmd.oLen);
}

// A block: start byte, length of two bytes (low byte first), message, end byte.
constexpr size_t kBlockHead = 3;

char BlockByte(bool end) {
  char bytes[2] = {};
  UnnamedPipes::GetSysC(UnnamedPipes::eBTver0, bytes);
  return bytes[end ? 1 : 0];
}

tUnwrapped UnwrapBlock(const tString& bytes) {
  tUnwrapped out = {eFormBlock, kBlockHead, "", std::nullopt};
  if (bytes.length() < kBlockHead) {
    out.oFault = {bytes.length(), "the block ends inside its length"};
    return out;
  }
  const size_t len = Bytes(bytes)[1] + Bytes(bytes)[2] * 256u, end = kBlockHead + len;
  out.oMessage = bytes.substr(kBlockHead, len);
  if (bytes.length() <= end)
    out.oFault = {bytes.length(), fmt::format("the block announces {} bytes and its end byte, {} are there",
                                              len, bytes.length() - kBlockHead)};
  else if (bytes[end] != BlockByte(true))
    out.oFault = {end, fmt::format("no end byte 0x{:02X}", BlockByte(true))};
  else if (bytes.length() > end + 1)
    out.oFault = {end + 1, "bytes behind the end of the block"};
  return out;
}

tUnwrapped UnwrapFrame(const tString& bytes) {
  const tString etx = Sequence(ePCISEetx);
  const size_t beg = Sequence(ePCISEstx).length();
  tUnwrapped out = {eFormFrame, beg, bytes.substr(beg), std::nullopt};
  if (out.oMessage.length() < kHeadSize) return out; // the message itself will be found too short
  const size_t end = beg + kHeadSize + EFTPParsDLen(Bytes(bytes) + beg + kHeadLen, 2, nullptr),
               lrc = end + etx.length();
  out.oMessage = bytes.substr(beg, end - beg);
  if (bytes.length() < end) return out;
  if (bytes.compare(end, etx.length(), etx) != 0)
    out.oFault = {end, "no end sequence DLE ETX"};
  else if (bytes.length() == lrc)
    out.oFault = {lrc, "no LRC"};
  else if (const unsigned char want = XorSum(Bytes(bytes), beg, end); Bytes(bytes)[lrc] != want)
    out.oFault = {lrc, fmt::format("LRC {:02X} where {:02X} is right", Bytes(bytes)[lrc], want)};
  else if (bytes.length() > lrc + 1)
    out.oFault = {lrc + 1, "bytes behind the end of the frame"};
  return out;
}

} // namespace

const char* FormName(tForm oForm) { return kForms[oForm].pccName; }

std::optional<tForm> FormFromName(const tString& oName) {
  for (const auto& row : kForms)
    if (oName == row.pccName) return row.oForm;
  return std::nullopt;
}

tUnwrapped Unwrap(const tString& oBytes) {
  if (!oBytes.empty() && oBytes[0] == BlockByte(false)) return UnwrapBlock(oBytes);
  if (oBytes.starts_with(Sequence(ePCISEstx))) return UnwrapFrame(oBytes);
  return {eFormMessage, 0, oBytes, std::nullopt};
}

std::optional<tString> Wrap(const tString& oMessage, tForm oForm) {
  const size_t len = oMessage.length();
  if (oForm == eFormMessage) return oMessage;
  if (oForm == eFormBlock) {
    if (len > 0xFFFF) return std::nullopt;
    const tString head = {BlockByte(false), static_cast<char>(len), static_cast<char>(len >> 8)};
    return head + oMessage + BlockByte(true);
  }
  const tString stx = Sequence(ePCISEstx), etx = Sequence(ePCISEetx);
  if (stx.length() + len + etx.length() + 1 > kCmdMax) return std::nullopt; // no port could take it
  return stx + oMessage + etx + static_cast<char>(XorSum(Bytes(oMessage), 0, len));
}

} // namespace zat::tool
