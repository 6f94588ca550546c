// The lines of the shared log (zat_comm.log), as every process of an installation has written them:
//
//   2026-11-21 14.03.59 {0000ABCD} : [MicroS] Open UP: 1 CR LF
//   local time           process       text
//
// A text holds messages as they are on the wire, line ends included, and a killed process leaves half a line. So a
// line ends where the next one begins with time and process, and what begins otherwise belongs to the one before.
#pragma once
#include <functional>
#include <optional>
#include <string_view>

#include "ztypes.h"

namespace zat::tool {

struct tRecord {
  std::string_view
      oWhen; // "2026-11-21 14.03.59"; empty for text before the first line of a log, or of another file
  uint32_t ulProcess = 0;
  std::string_view oText; // without the line end; of a text that is no log: the whole of it
};

// Calls oTake for each line in order. The views live as long as the text. A text without such lines is one record.
void ForEachRecord(std::string_view oText, const std::function<void(const tRecord&)>& oTake);

// The message that a line's text ends with ("[MicroS] ReadBlock: 60..."); empty when it has none.
std::string_view MessageOf(std::string_view oText);

// How many bytes of a log that is being written are whole lines: its last one counts once its line end is there.
size_t WholeLines(std::string_view oText);

// Reads a log that is being written, from its beginning: first the one that was moved to the backup name, then the
// current one, then whatever is added, also when the log is moved away meanwhile.
class LogReader {
public:
  // oName: the current log. fBackup: begin with its backup.
  LogReader(const tString& oName, bool fBackup);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Appends what there is to read to oText. False, with errno, when there is no such log or it cannot be read; a log
  // that has gone for a moment, because it is being moved, is none of that after the first call.
  bool Read(tString& oText);

private:
  bool ReadOpen(tString& oText);
  bool Reopen();

  tString oPath, oBackup;
  int iFd = -1;
  bool fBackupDone;
};

// All bytes of a file, or of the standard input when the name is "-". False, with errno.
bool ReadWhole(const tString& oName, tString& oBytes);

// The backup name of a log: its fifth character from the end is "2" ("zat_com2.log"). Empty when it has none.
tString BackupName(const tString& oName);

} // namespace zat::tool
