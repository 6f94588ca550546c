// The terminal on a framed link: the same answers as over the pipes, and the link's own faults.
#include "EFTPLink.h"
#include "module.h"
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <pty.h>

namespace {

// zat_mm serving a link, until the object ends.
class Server {
public:
  Server(const Site& at, const std::string& option, const std::string& value) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    child = fork();
    if (child == 0) {
      dup2(ends[1], STDOUT_FILENO);
      const std::string program = at / "BIN/zat_mm";
      execl(program.c_str(), program.c_str(), option.c_str(), value.c_str(), nullptr);
      _exit(255);
    }
    close(ends[1]);
    for (char c = 0; read(ends[0], &c, 1) == 1 && c != '\n';)
      ready += c; // ends with the process, if not before
    close(ends[0]);
  }
  ~Server() {
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
  }
  std::string Port() const { return ready.substr(ready.rfind(':') + 1); }

  std::string ready; // the line that it prints when it can be reached

private:
  pid_t child = -1;
};

// A till's end of the link, with the link's log at hand.
class Till {
public:
  explicit Till(const std::string& place) {
    std::string why;
    zat::tLinkPlace where;
    EXPECT_TRUE(zat::LinkPlaceFromText(place, where, why) && link.Open(where, 20000, why)) << why;
    SetUp();
  }
  explicit Till(int line) {
    std::string why;
    EXPECT_TRUE(link.Adopt(line, why)) << why;
    SetUp();
  }

  // Sends a sale and takes the answer; the codes of the blocks, "nothing" where the exchange broke off.
  std::string Sale(const std::string& amount) {
    SqueezeT request, reply;
    request.PutData(abisTMtid, "0000001234", 10);
    request.PutData(abisTRamt, amount.data(), amount.size());
    tPadsData pads{&request, &reply, eEFTPwidSale, nullptr};
    std::vector<std::string> blocks;
    for (bool good = port.WorkCmd(&port, &pads);; good = link.WaitIn(20000) && port.WorkAck(&port, &pads)) {
      blocks.push_back(good ? std::string{static_cast<char>(pads.oPWI >> 8), static_cast<char>(pads.oPWI)}
                            : "");
      if (!good || blocks.back()[0] == '#') return Codes(blocks);
    }
  }

  size_t Logged(const std::string& what) const {
    size_t count = 0;
    for (size_t at = 0; (at = log.find(what, at)) != std::string::npos; ++at) ++count;
    return count;
  }

  std::string log;

private:
  void SetUp() {
    link.LogTo(
        [](void* self, const char* line, size_t n) { static_cast<Till*>(self)->log.append(line, n) += '\n'; },
        this);
    EXPECT_TRUE(EFTPWorkInit(&port, &link, nullptr, &EFTPLinkSetUp, true));
  }

  zat::Link link;
  PortSEtx_tag port{};
};

struct TcpTill : Server, Till {
  explicit TcpTill(const Site& at) : Server(at, "--listen", "127.0.0.1:0"), Till("tcp:127.0.0.1:" + Port()) {}
};

TEST(Link, AnswersOverTcpAsOverThePipes) {
  Site at;
  TcpTill till(at);
  EXPECT_EQ(till.Sale("30000"), "53 32 60 #0");
  EXPECT_EQ(till.Sale("30005"), "53 32 60 #1");
  EXPECT_EQ(till.Sale("30091"), "5X #1");
  Till other("tcp:127.0.0.1:" + till.Port());
  EXPECT_EQ(other.Sale("30000"), "53 32 60 #0") << "beside an open connection";
  EXPECT_EQ(till.Sale("30077"), "53 nothing");
  EXPECT_EQ(other.Sale("30000"), "53 32 60 #0") << "one connection's death is its own";
  EXPECT_NE(Codes(Module(at).Ask("20", "000000000000")), "54 5X #1") << "one day for all roads";
}

TEST(Link, AnswersOverASerialLine) {
  int master = -1, slave = -1;
  char name[64];
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  Site at;
  Server server(at, "--serial", name);
  ASSERT_NE(server.ready.find("answers on"), std::string::npos);
  close(slave);
  EXPECT_EQ(Till(master).Sale("30000"), "53 32 60 #0");
}

TEST(Link, HasFaultsOfItsOwn) {
  const struct {
    const char *keys, *codes, *logged;
    size_t times;
  } cases[] = {
      {"Nak=2", "53 32 60 #0", "< 15", 2},         // two NAKs, then the command is taken
      {"Nak=3", "nothing", "< 15", 3},             // one too many
      {"BadCheck=2", "53 32 60 #0", "> 15", 2},    // the till refuses two frames
      {"Noise=1:5", "53 32 60 #0", "61 62 63", 1}, // bytes before the frame
      {"Silent=1:100", "nothing", "> 06", 0},      // the command acknowledged, nothing answered
      {"Pause=1:300", "53 32 60 #0", "> 15", 0},   // late, but within the period
      {"Cut=1", "nothing", "> 06", 0},
  };
  for (const auto& c : cases) {
    Site at(c.keys);
    TcpTill till(at);
    EXPECT_EQ(till.Sale("30000"), c.codes) << c.keys << "\n" << till.log;
    EXPECT_EQ(till.Logged(c.logged), c.times) << c.keys << "\n" << till.log;
  }
}

TEST(Link, SaysWhatItCannotServe) {
  Site at;
  EXPECT_EQ(Server(at, "--listen", "nowhere").ready, "");
  EXPECT_EQ(Server(at, "--serial", "/dev/null").ready, "");
}

} // namespace
