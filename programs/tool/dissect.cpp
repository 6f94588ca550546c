#include "dissect.h"

#include <fmt/format.h>

#include "EFTPTable.h"

namespace zat::tool {

namespace {

tString FieldFault(const tEFTPField& field, size_t want, size_t left) {
  const char* tag = *field.ppccTag;
  if (field.oTake == eTakeVar) return fmt::format("{}: no ESC within {} characters", tag, want);
  return fmt::format("{}: {} bytes wanted, {} left", tag, want, left);
}

// Reads the data part field by field into out; the fault of the first one that is not there.
void CutData(tDissected& out, const tEFTPRow& row, size_t base) {
  const tString& msg = out.oWrap.oMessage;
  SqueezeT store;
  unsigned char* const begin = reinterpret_cast<unsigned char*>(out.oWrap.oMessage.data()) + kHeadSize;
  unsigned char* pos = begin;
  size_t left = msg.length() - kHeadSize;
  const bool whole = EFTPCutFields(row, &left, [&](const tEFTPField& field, size_t len) {
    const size_t before = left;
    unsigned char* const at = pos;
    const bool taken = EFTPParsP(&store, &pos, &left, *field.ppccTag, len, field.oMode);
    const size_t size = before - left;
    const size_t closed = field.oTake == eTakeVar && taken ? 1 : 0;
    if (taken)
      out.oFields.push_back({*field.ppccTag, base + static_cast<size_t>(at - begin), size, closed == size,
                             tString(reinterpret_cast<char*>(at), size - closed)});
    else
      out.oFault = {base + static_cast<size_t>(at - begin), FieldFault(field, len, before)};
    return taken;
  });
  if (!whole && !out.oFault)
    out.oFault = {base + static_cast<size_t>(pos - begin), fmt::format("{} bytes too many", left)};
}

void TakeData(tDissected& out) {
  const tEFTPRow* row = EFTPRowOf(out.oId);
  const size_t base = out.oWrap.lOfs + kHeadSize, there = out.oWrap.oMessage.length() - kHeadSize;
  if (!row) {
    out.oFault = {out.oWrap.lOfs, "no message has this work id"};
    return;
  }
  CutData(out, *row, base);
  if (there != out.lAnnounced)
    out.oFault = {base + std::min(there, out.lAnnounced),
                  fmt::format("{} data bytes announced, {} there", out.lAnnounced, there)};
  if (out.oFault) return;
  // What no single field shows, such as a list that must be a whole multiple of its entries.
  SqueezeT store;
  const auto* data = reinterpret_cast<const unsigned char*>(out.oWrap.oMessage.data()) + kHeadSize;
  if (!EFTPParsData(&store, out.oId, data, there))
    out.oFault = {out.oFields.empty() ? base : out.oFields.back().lOfs, "the data do not fit this message"};
}

} // namespace

tDissected Dissect(const tString& oBytes) {
  tDissected out;
  out.oWrap = Unwrap(oBytes);
  const tString& msg = out.oWrap.oMessage;
  if (msg.length() >= 2) {
    out.oWireId = msg.substr(kHeadId, 2);
    out.oId = static_cast<tEFTPWorkId>(EFTPWId(msg[0], msg[1]));
  }
  if (msg.length() < kHeadSize) {
    out.oFault = {out.oWrap.lOfs + msg.length(), fmt::format("a header has {} bytes", kHeadSize)};
    return out;
  }
  out.oTid = msg.substr(kHeadTid, kTidSize);
  char found = 0;
  out.lAnnounced = EFTPParsDLen(reinterpret_cast<const unsigned char*>(msg.data()) + kHeadLen, 2, &found);
  if (!found)
    out.oFault = {out.oWrap.lOfs + kHeadLen, "no data length"};
  else
    TakeData(out);
  if (!out.oFault) out.oFault = out.oWrap.oFault;
  return out;
}

} // namespace zat::tool
