// The places in a program from which it calls the system, as its machine code has them.
#pragma once
#include <map>
#include <set>
#include <string>
#include <vector>

namespace trust {

class Sites {
public:
  // Reads a program or object with objdump, addr2line and nm. False when they are not to be had.
  bool Load(const std::string& file);

  // How many places call a name of calls.inc, and which of them no call came from, in words. A place is a line of the
  // source: where the compiler has made several of it, one counts for all.
  size_t Count() const;
  std::vector<std::string> Unvisited() const;

  // Notes that a call of a name returned to an offset in the file. False when that is no place known here.
  bool Visit(const std::string& name, uint64_t offset);

  // The same for a call in another file. False for a place that is not in this one.
  bool VisitAs(const Sites& other, const std::string& name, uint64_t offset);

  // Leaves out the places that the other file has as well.
  void LeaveOut(const Sites& other);

  // A place in words.
  std::string Text(const std::string& name, uint64_t offset) const;

  // The names that the file takes from outside and that stand neither in calls.inc nor among those that never reach the
  // system.
  std::vector<std::string> UnknownNames() const { return {unknown.begin(), unknown.end()}; }

private:
  struct Call {
    std::string oPlace; // "name at file:line"
    std::string oName, oFunction;
    bool fJump; // the function ends with it: it returns to the function's caller
  };
  void TakeCall(uint64_t after, bool jump, const std::string& target);
  bool FindPlaces(const std::string& file);
  std::vector<std::string> PlacesOf(const std::string& name, uint64_t offset) const;

  std::map<uint64_t, Call> calls;            // by the address behind them
  std::map<uint64_t, std::string> functions; // by the address where they begin
  std::map<uint64_t, std::string> inner;     // calls of the file's own functions, "" through a pointer
  std::map<std::string, bool> places;        // whether one has been visited
  std::set<std::string> unknown;
};

// The name of a call by its number in calls.inc.
const char* NameOf(unsigned number);

} // namespace trust
