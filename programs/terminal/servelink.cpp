// The terminal on a framed link: any number of exchanges one after another, without a till that starts it.
#include "linkwire.h"
#include "operations.h"
#include "serve.h"
#include "version.h"
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace zat {

namespace {

constexpr int kLook = 60000; // one wait for a request, ms; the next one follows

// The faults are read anew for each connection, so that a person can change them under a running terminal.
int Serve(const tPlace& oPlace, Link& oLink) {
  const tFaults oFaults = ReadFaults(FaultsFile(oPlace.oRoot, oPlace.oConfig), "");
  SetLog(oFaults);
  if (oFaults[eFIlog].On()) oLink.LogTo(&LinkLogToGSLog, nullptr);
  tLinkWire oWire(oLink, oFaults);
  bool fOn = oWire.Open();
  while (fOn && oLink.IsOpen()) {
    tTalk oTalk(oWire, oFaults);
    tRequest oReq;
    if (!oTalk.Listen(oReq, kLook)) continue;
    AnswerRequest(oTalk, oReq, oPlace.oRoot);
    fOn = oTalk.Ended(); // a fault ended it: so does the connection
  }
  return fOn ? eXdone : eXlost;
}

int Complain(const tString& oWhy) {
  fprintf(stderr, "%s: %s\n", pccModule, oWhy.c_str());
  return eXusage;
}

} // namespace

int ServeTcp(const tPlace& oPlace, const tString& oAddress) {
  tLinkPlace oWhere;
  tString oWhy;
  LinkListener oListener;
  if (!LinkPlaceFromText("tcp:" + oAddress, oWhere, oWhy) || !oListener.Open(oWhere, oWhy))
    return Complain(oWhy);
  printf("%s listens on %s:%d\n", pccModule, oWhere.oHost.c_str(), oListener.Port());
  fflush(stdout);           // whoever started it reads the port from here
  signal(SIGCHLD, SIG_IGN); // no zombies of ended connections
  for (;;) {
    Link oLink;
    if (!oListener.Accept(oLink, kLook) || fork() != 0) continue;
    oListener.Close();
    _exit(Serve(oPlace, oLink));
  }
}

int ServeSerial(const tPlace& oPlace, const tString& oDevice) {
  tLinkPlace oWhere;
  tString oWhy;
  Link oLink;
  if (!LinkPlaceFromText("serial:" + oDevice, oWhere, oWhy) || !oLink.Open(oWhere, 0, oWhy))
    return Complain(oWhy);
  printf("%s answers on %s\n", pccModule, oWhere.oDevice.c_str());
  fflush(stdout);
  return Serve(oPlace, oLink);
}

} // namespace zat
