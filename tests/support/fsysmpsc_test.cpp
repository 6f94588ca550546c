#include "fsysmpsc.h"
#include "scratch.h"
#include "utilf.h"
#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// A walk that keeps its calls ("B" or "A", "f" or "d", the path below the top) and answers as it is told.
struct Trace {
  std::vector<std::string> calls;
  std::function<int(const std::string&)> answer = [](const std::string&) { return 0; };
  std::string top;
  tFSysMpScData data{};

  explicit Trace(const Scratch& dir) : top(dir / "") {
    data.oInit.pccPathIn = top.c_str();
    data.pvUser = this;
  }
  int Run(bool dirs, int allowance) {
    const auto job = [](tFSysMpScData* d) {
      auto& self = *static_cast<Trace*>(d->pvUser);
      const std::string path = d->oWork.pccPathIn;
      self.calls.push_back(std::string(d->fBefore ? "B" : "A") + (d->oFType == eFSMSFTdir ? "d " : "f ") +
                           path.substr(std::min(path.size(), self.top.size())));
      return self.answer(self.calls.back());
    };
    return FSysMpSc(&data, job, dirs, allowance);
  }
};
using Calls = std::vector<std::string>;

} // namespace

TEST(FSysWalk, OrderOfCalls) {
  Scratch dir;
  dir.Put("sub/file", "");
  Trace included(dir), plain(dir);
  EXPECT_EQ(included.Run(true, 0), 0);
  EXPECT_EQ(included.calls, (Calls{"Bd ", "Bd sub", "Bf sub/file", "Af sub/file", "Ad sub", "Ad "}));
  EXPECT_EQ(plain.Run(false, 0), 0);
  // The after-call of "sub" shows the last entry inside it.
  EXPECT_EQ(plain.calls, (Calls{"Bd sub", "Bf sub/file", "Af sub/file", "Af sub/file"}));
  EXPECT_EQ(plain.data.oInit.pccPathIn, plain.top.c_str());
  EXPECT_STREQ(plain.data.oInit.pccMask, "*");
}

TEST(FSysWalk, NothingToWalk) {
  Scratch dir;
  Trace trace(dir);
  const std::string missing = dir / "missing", file = dir.Put("file", "");
  for (const char* path : {missing.c_str(), file.c_str(), "", static_cast<const char*>(nullptr)}) {
    trace.data.oInit.pccPathIn = path;
    EXPECT_EQ(trace.Run(true, 0), 0);
  }
  EXPECT_TRUE(trace.calls.empty());
  EXPECT_EQ(FSysMpSc(nullptr, FSysMpScList, true, 0), -1);
}

TEST(FSysWalk, MasksTheOutputSideAndLinks) {
  Scratch dir;
  for (const char* name : {"a.lck", "b.txt", "in.lck/c.lck", "out/d.lck"}) dir.Put(name, "");
  ASSERT_EQ(symlink("in.lck", (dir / "link.lck").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (dir / "dead.lck").c_str()), 0);
  Trace trace(dir);
  trace.data.oInit.pccMask = "*.lck";
  trace.data.oInit.pccPathOut = "there";
  Calls out;
  trace.answer = [&](const std::string& call) {
    if (call[0] == 'B')
      out.push_back(trace.data.oWork.pccPathOut + std::string(":") + trace.data.oWork.pccMask);
    return 0;
  };
  EXPECT_EQ(trace.Run(false, 0), 0);
  std::sort(out.begin(), out.end());
  EXPECT_EQ(out, (Calls{"there/a.lck:a.lck", "there/dead.lck:dead.lck", "there/in.lck/c.lck:c.lck",
                        "there/in.lck:in.lck", "there/link.lck/c.lck:c.lck", "there/link.lck:link.lck"}));
}

TEST(FSysWalk, AnAllowanceIsSpentBySiblings) {
  Scratch dir;
  for (const char* name : {"1/x/y/f", "2/x/y/f", "3/x/y/f"}) dir.Put(name, "");
  const auto directories = [&](int allowance) {
    Trace trace(dir);
    EXPECT_EQ(trace.Run(true, allowance), 0);
    return std::count_if(trace.calls.begin(), trace.calls.end(),
                         [](const auto& c) { return c[0] == 'B' && c[1] == 'd'; });
  };
  // none; the top alone; one of three besides; one with its "x", one without; no limit
  for (auto [allowance, seen] : {std::pair(-1, 1), {1, 1}, {2, 2}, {3, 4}, {0, 10}})
    EXPECT_EQ(directories(allowance), seen) << allowance;
}

TEST(FSysWalk, ResultsSteerIt) {
  Scratch dir;
  dir.Put("d/f", "");
  // at: the call that answers what follows
  typedef std::tuple<bool, const char*, int, int, size_t> Row;
  for (const auto& [dirs, at, answer, result, calls] :
       {Row{false, "Bd d", 2, 0, 1}, Row{false, "Bd d", -1, -1, 1}, Row{false, "Bf d/f", 1, 1, 2},
        Row{false, "Bf d/f", 2, 0, 3}, Row{false, "Af d/f", 2, 0, 4}, Row{false, "Af d/f", 7, 7, 3},
        Row{true, "Bd ", 2, 0, 1}, Row{true, "Bd d", 2, 0, 3}, Row{true, "Ad d", 2, 0, 6},
        Row{true, "Ad ", 2, 0, 6}, Row{true, "Ad d", -1, -1, 5}}) {
    Trace trace(dir);
    trace.answer = [&](const std::string& call) { return call == at ? answer : 0; };
    EXPECT_EQ(trace.Run(dirs, 0), result) << at << answer;
    EXPECT_EQ(trace.calls.size(), calls) << at << answer;
  }
}

TEST(FSysJobs, DeleteNeverLeavesTheTree) {
  Scratch dir;
  for (const char* name : {"t/a.x", "t/b", "t/s/c.x", "t/s/d", "kept/file"}) dir.Put(name, "");
  ASSERT_EQ(symlink("../kept", (dir / "t/link").c_str()), 0);
  ASSERT_EQ(symlink("kept", (dir / "link").c_str()), 0);
  EXPECT_EQ(FSMSDirDelete((dir / "t").c_str(), "*.x"), 0);
  EXPECT_FALSE(dir.Has("t/a.x") || dir.Has("t/s/c.x"));
  EXPECT_TRUE(dir.Has("t/b") && dir.Has("t/s/d") && dir.Has("t/link"));
  EXPECT_EQ(fremoved((dir / "t").c_str()), 0);
  EXPECT_EQ(fremoved((dir / "link/").c_str()), 0);
  EXPECT_FALSE(dir.Has("t") || dir.Has("link"));
  EXPECT_TRUE(dir.Has("kept/file"));
  EXPECT_EQ(FSMSDirDelete("/proc/self/fdinfo", nullptr), -1); // nothing there can be deleted
}

TEST(FSysJobs, MoveReplacesAndKeeps) {
  Scratch dir;
  for (const char* name : {"from/a", "from/s/b", "from/s/e/f", "to/a", "to/s/other", "kept/file"})
    dir.Put(name, *name == 'f' ? "new" : "old");
  ASSERT_EQ(symlink("../kept", (dir / "from/link").c_str()), 0);
  const std::string from = dir / "from", to = dir / "to";
  EXPECT_EQ(frenamed(from.c_str(), (from + "/s/deeper").c_str()), -1);
  EXPECT_EQ(frenamed(from.c_str(), (from + "/").c_str()), 0);
  EXPECT_TRUE(dir.Has("from/s/e/f") && !dir.Has("from/s/deeper"));
  EXPECT_EQ(frenamed(from.c_str(), to.c_str()), 0);
  EXPECT_FALSE(dir.Has("from"));
  EXPECT_EQ(dir.Get("to/a") + dir.Get("to/s/b") + dir.Get("to/s/e/f"), "newnewnew");
  EXPECT_EQ(dir.Get("to/s/other") + dir.Get("kept/file"), "oldold");
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "to/link"));
  EXPECT_EQ(frenamed(to.c_str(), (dir / "kept/file").c_str()), -1); // a file is in the way
}

TEST(FSysJobs, TimesOfATree) {
  Scratch dir;
  const timespec old[2] = {{1000, 0}, {2000, 0}}, recent[2] = {{5000000000, 0}, {6000000000, 0}};
  utimensat(AT_FDCWD, dir.Put("a", "").c_str(), old, 0);
  utimensat(AT_FDCWD, dir.Put("s/b", "").c_str(), recent, 0);
  tFSysMpScExtDT newest{}, oldest{};
  newest.fMaxMin = true;
  EXPECT_EQ(FSMSDirExtDT((dir / "").c_str(), &newest) + FSMSDirExtDT((dir / "").c_str(), &oldest), 0);
  EXPECT_TRUE(newest.oTBf.oATime == 5000000000 && newest.oTBf.oMTime == 6000000000);
  EXPECT_GT(newest.oTBd.oMTime, 1000000000);
  EXPECT_TRUE(oldest.oTBf.oMTime == -1 && oldest.oTBd.oCTime == -1);
}
