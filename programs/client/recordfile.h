// A record log (MiscFunc.h) whose records are on the disk when a call returns, and that is read even when it is
// damaged.
//
// An append writes the new record over the log's trailer and a new trailer behind it. Whatever ends it half-way, the
// records before it are not touched: a torn append costs the trailer and the record that was not finished, and nobody
// relied on that one yet. So appending in place is safe as long as the records are found by their own lengths and
// checksums, and no copy of the file is made for each of them. Before an append the log is checked as a whole, and
// written anew from the records that can be read when it is not what its trailer says.
#pragma once
#include <vector>

#include "ztypes.h"

namespace zat::client {

typedef std::vector<tString> Records;

// What a file holds.
struct Contents {
  Records oRecords; // in their order
  bool fExists = false;
  size_t lInside = 0; // damaged: bytes between records, or before the first, that belong to none
  size_t lBehind = 0; // unfinished: bytes behind the last record that are no trailer of these records
};

class RecordFile {
public:
  // Nothing is opened yet. The id goes into the trailer.
  RecordFile(const tString& name, uint16_t id) : oName(name), uId(id) {}

  const tString& Name() const { return oName; }

  // Reads every record that is whole. False with errno when the file exists and cannot be read.
  bool Read(Contents& contents) const;

  // True when the file is missing, or is exactly what an unbroken series of appends leaves.
  bool IsSound() const;

  // Adds a record, at most 65529 bytes; it is on the disk after a true. False with errno: the file is as it was, or its
  // tail is torn. Wants a sound file.
  bool Append(const tString& record) const;

  // Puts these records in place of the file in one step: before it the old file stands, after it the new one, and
  // both have reached the disk. False with errno: the old file stands.
  bool Replace(const Records& records) const;

  // Makes `name` a copy of the file, in one step too.
  bool CopyTo(const tString& name) const;

private:
  bool Settle(const tString& finished, const tString& name) const;

  tString oName;
  uint16_t uId;
};

} // namespace zat::client
