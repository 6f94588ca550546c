// A program of somebody else: it knows the installed headers and the object, nothing else of this tree. Both
// ends of a socket pair, one exchange, status 0 when everything arrived.
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <thread>
#include <zat_link.h>

namespace {

void Put(SqueezeT& store, const char* tag, const char* value) { store.PutData(tag, value, strlen(value)); }

bool Serve(zat::Link& link) {
  PortSEtx_tag port{};
  SqueezeT request, reply;
  Put(reply, abisTMtid, "1234");
  tPadsData pads{nullptr, &request, eEFTPwidNone, nullptr}, answer{&reply, nullptr, eEFTPwidRfok, nullptr};
  return EFTPWorkInit(&port, &link, nullptr, &EFTPLinkSetUp, true) && link.WaitIn(5000) &&
         port.RecvCmd(&port, ePCISEetx, port.ParsCmdOnly, &pads) != 0 && pads.oPWI == eEFTPwidSale &&
         zat::LinkReply(&port, &answer);
}

bool Pay(zat::Link& link) {
  PortSEtx_tag port{};
  SqueezeT request, reply;
  Put(request, abisTMtid, "1234");
  Put(request, abisTRamt, "125000");
  tPadsData pads{&request, &reply, eEFTPwidSale, nullptr};
  tString tid;
  return EFTPWorkInit(&port, &link, nullptr, &EFTPLinkSetUp, true) && port.WorkCmd(&port, &pads) &&
         pads.oPWI == eEFTPwidRfok && reply.GetData(reply.Find(abisTMtid), &tid) == eDTpdata &&
         tid == "0000001234";
}

} // namespace

int main() {
  int fds[2];
  zat::Link near, far;
  tString why;
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0 || !near.Adopt(fds[0], why) || !far.Adopt(fds[1], why))
    return 2;
  bool served = false;
  std::thread other([&] { served = Serve(far); });
  const bool paid = Pay(near);
  other.join();
  printf("served %d, paid %d, lcmd %d\n", served, paid, static_cast<int>(moEFTPCmdDefs[ePCISEstx].oLen));
  return served && paid ? 0 : 1;
}
