// A byte link that plays a script: after the n-th thing sent, the n-th reaction arrives. Its clock runs a
// tick for each byte read and a whole period for each read that finds nothing.
#pragma once
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "PortSEtx.h"

struct ScriptedLink {
  std::deque<unsigned char> oIn;       // what has arrived
  std::vector<std::string> oReactions; // arrives after the first, second, ... thing sent
  std::function<int()> procNoise;      // when set, a byte for every read that finds nothing else
  std::vector<std::string> oSent;      // what was sent, call by call
  std::vector<std::string> oLog;       // WriteLog
  tTicks oNow = 0;
  bool fDeaf = false; // sending fails
  int iCleared = 0;

  void Arrive(const std::string& bytes) { oIn.insert(oIn.end(), bytes.begin(), bytes.end()); }

  // Everything sent, "|" between the calls.
  std::string Sent() const {
    std::string all;
    for (const std::string& one : oSent) all += (all.empty() ? "" : "|") + one;
    return all;
  }

  static ScriptedLink* Of(PortWork_tag* work) { return static_cast<ScriptedLink*>(work->poHandle); }

  // One byte, or -1 when the period passes in silence.
  int Next(PortWork_tag* work) {
    if (work->iPreReaded >= 0) return std::exchange(work->iPreReaded, -1);
    int byte = -1;
    if (!oIn.empty()) {
      byte = oIn.front();
      oIn.pop_front();
    } else if (procNoise) {
      byte = procNoise();
    }
    oNow += byte >= 0 ? 1 : work->oTimePeriod;
    return byte;
  }

  static tLen Send(PortCmds_tag* cmds, const void* pcv, tLen len, int) {
    ScriptedLink* self = Of(cmds->poPortWork);
    if (self->fDeaf) return 0;
    self->oSent.emplace_back(static_cast<const char*>(pcv), len);
    if (self->oSent.size() <= self->oReactions.size()) self->Arrive(self->oReactions[self->oSent.size() - 1]);
    return len;
  }

  static tLen Recv(PortCmds_tag* cmds, void* pv, tLen len, int end, int, unsigned* flags) {
    ScriptedLink* self = Of(cmds->poPortWork);
    const std::string want =
        end < 0 ? ""
                : std::string(reinterpret_cast<const char*>(cmds->poPC[end].poByte), cmds->poPC[end].oLen);
    std::string got;
    const tTicks begin = self->oNow;
    while ((!pv || got.size() < len) && self->oNow - begin < cmds->poPortWork->oTimePeriod) {
      const int byte = self->Next(cmds->poPortWork);
      if (byte < 0) break;
      got += static_cast<char>(byte);
      if (!want.empty() && got.ends_with(want)) {
        if (flags) *flags |= 2;
        break;
      }
    }
    if (pv) got.copy(static_cast<char*>(pv), got.size());
    return got.size();
  }

  static tBool SetUp(PortSEtx_tag* port, void* handle, tPortCmd* cmds) {
    port->oPortWork = {};
    port->oPortWork.poHandle = handle;
    port->oPortWork.iPreReaded = -1;
    port->oPortWork.TimePeriod = [](PortWork_tag* work, tTicks* set) -> tTicks {
      return set ? work->oTimePeriod = *set : work->oTimePeriod;
    };
    port->oPortWork.TimeStart = [](PortWork_tag* work, tTicks* start) { *start = Of(work)->oNow; };
    port->oPortWork.TimeEnd = [](PortWork_tag* work, tTicks period, tTicks* start) -> tBool {
      return Of(work)->oNow - *start >= period;
    };
    port->oPortWork.ClearIn = [](PortWork_tag* work) {
      Of(work)->oIn.clear();
      ++Of(work)->iCleared;
    };
    port->oPortWork.WriteLog = [](PortWork_tag* work, const char* line, tLen len) {
      Of(work)->oLog.emplace_back(line, len);
    };
    port->oPortCmds = {};
    port->oPortCmds.poPC = cmds;
    port->oPortCmds.poPortWork = &port->oPortWork;
    port->oPortCmds.Send = &Send;
    port->oPortCmds.Recv = &Recv;
    return true;
  }
};
