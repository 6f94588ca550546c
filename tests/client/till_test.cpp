// The typed till against a library that plays a script (tests/till/fake): what every answer comes to, what the callbacks
// hear, breaks, and what becomes of an operation that has not ended.
#include <dlfcn.h>

#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cp1251.h"
#include "scratch.h"
#include "zat_client.h"

using namespace zat;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

// A response of the bank: code, and the amount in kopecks.
std::string Bank(const std::string& code, const std::string& amount = "000000125000") {
  return "block 60 0" + amount + "643" + "20261121115900" + "000000000012345" + "612345678901" + code +
         "A1B2C3\\e" + "4000001234567899=2512\\e" + "VISA\\e" + std::string("Слова банка"_1251) + "\\e\n";
}
const std::string kOk = Bank("00"), kNo = Bank("51"), kCut = "block 60 000000\n";
const Amount kAmount{1250, 0};

// A library of its own for each case: loaded anew, with the beginning of its script.
class Scripted {
public:
  explicit Scripted(const std::string& script) {
    setenv("FAKE_SCRIPT", oScratch.Put("script", script).c_str(), 1);
    setenv("FAKE_RECORD", (oScratch / "record").c_str(), 1);
    std::filesystem::copy(ZAT_FAKES "/libfake_ms.so", oScratch / "libfake_ms.so");
    oOptions.library = oScratch / "libfake_ms.so";
    oScratch.Put("zat_mm", ""); // looked for beside the library; never started here
    std::filesystem::permissions(oScratch / "zat_mm", std::filesystem::perms::owner_all);
  }
  std::string Record() const { return oScratch.Get("record"); }
  bool IsLoaded() const { // still, or for ever
    void* handle = dlopen(oOptions.library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle) dlclose(handle);
    return handle != nullptr;
  }

  Scratch oScratch;
  TillOptions oOptions;
};

TEST(Outcomes, OfEveryAnswer) {
  typedef std::function<Outcome(Till&)> Ask;
  const Ask sale = [](Till& till) { return till.sale(kAmount); };
  const Ask login = [](Till& till) { return till.login(); };
  const Ask last = [](Till& till) { return till.lastTransaction(); };
  std::string empties;
  for (int i = 0; i < 200; ++i) empties += "empty\n";
  struct {
    std::string oScript;
    Verdict oVerdict;
    Why oWhy;
    const char* pccCode = "";
    Ask oAsk;
  } cases[] = {
      {"block 52 \nblock 53 \n" + kOk + "good\n", Verdict::Approved, Why::Response, "00", sale},
      {kOk + "block 5X I7late\ngood\n", Verdict::Approved, Why::Response, "00",
       sale}, // takes no approval back
      {kOk + "old 9\n", Verdict::Approved, Why::Response, "00", sale},
      {kOk + "good\n", Verdict::Approved, Why::Response, "00", last},
      {"block 31 \ngood\n", Verdict::Done, Why::GoodEnd, "", login},
      {kNo + "good\n", Verdict::Declined, Why::Response, "51", sale},
      {kNo + "bad\n", Verdict::Declined, Why::Response, "51", sale},
      {kOk + kNo + "good\n", Verdict::Declined, Why::Response, "51", sale}, // the last response counts
      {"block 5X M1no link\nbad\n", Verdict::Declined, Why::Refusal, "M1", sale},
      {"block 51 \nbad\n", Verdict::Declined, Why::NotLoggedIn, "", sale},
      {"block 54 \nbad\n", Verdict::Declined, Why::NoReference, "", last},
      {"block 52 \nbad\n", Verdict::Aborted, Why::Ended, "", sale},
      {"block 52 \nold 10\n", Verdict::Aborted, Why::Ended, "", sale},
      {"stop X6 no\n", Verdict::Refused, Why::Pipes, "X6", sale},
      {"stop X8 no\n", Verdict::Refused, Why::NoModule, "X8", sale},
      {"old 8\n", Verdict::Refused, Why::NoModule, "X8", sale},
      {kOk + "bad\n", Verdict::Unknown, Why::Contradiction, "00", sale},
      {kOk + "stop XL lost\n", Verdict::Unknown, Why::Lost, "XL", sale},
      {"stop XL lost\n", Verdict::Unknown, Why::Lost, "XL", sale},
      {"old 65535\n", Verdict::Unknown, Why::Lost, "XL", sale},
      {"block 52 \nstop X6 no\n", Verdict::Unknown, Why::Pipes, "X6", sale}, // after the request went out
      {"block 52 \ngood\n", Verdict::Unknown, Why::NoResponse, "", sale},
      {kCut + "good\n", Verdict::Unknown, Why::Broken, "", sale},
      {Bank("00", "0000001250A0") + "good\n", Verdict::Unknown, Why::Broken, "00", sale},
      {empties, Verdict::Unknown, Why::Endless, "", sale},
      {"stop XX no\n", Verdict::Unknown, Why::Strange, "XX", sale},
      {"old 77\n", Verdict::Unknown, Why::Strange, "77", sale},
  };
  for (const auto& c : cases) {
    Scripted library(c.oScript);
    Till till(library.oOptions);
    const Outcome outcome = c.oAsk(till);
    EXPECT_STREQ(name(outcome.verdict), name(c.oVerdict)) << c.oScript;
    EXPECT_STREQ(name(outcome.why), name(c.oWhy)) << c.oScript;
    EXPECT_EQ(outcome.code, c.pccCode) << c.oScript;
    EXPECT_EQ(outcome.good(), c.oVerdict == Verdict::Approved || c.oVerdict == Verdict::Done);
  }
}

TEST(Outcomes, ResponseAndReceipt) {
  Scripted library(std::string("block 32 0") + "ЧЕК №1"_1251 + "\nblock 32 1end\nblock 32 0second\n" + kNo +
                   "bad\n");
  const Outcome outcome = Till(library.oOptions).refund(kAmount, Track2{";4000001234567899=25121011234?"});
  EXPECT_THAT(library.Record(),
              HasSubstr("request 140000000001280000001250004000001234567899=25121011234\n"));
  ASSERT_TRUE(outcome.response);
  EXPECT_EQ(outcome.response->amount, kAmount);
  EXPECT_EQ(outcome.response->rrn, "612345678901");
  EXPECT_EQ(outcome.response->dateTime, "20261121115900");
  EXPECT_EQ(outcome.response->card, "************7899");
  EXPECT_EQ(outcome.text, "Слова банка");
  std::vector<std::string> lines;
  for (const ReceiptLine& line : outcome.receipt) lines.push_back((line.last ? "*" : "") + line.text);
  EXPECT_THAT(lines, ElementsAre("ЧЕК №1", "*end", "second"));
}

TEST(Requests, OnTheWire) {
  const std::pair<std::function<Outcome(Till&)>, const char*> cases[] = {
      {[](Till& till) { return till.reverse("612345678901", kAmount); },
       "1A000000AB1218612345678901000000125000"},
      {[](Till& till) {
         return till.reversePart("77", kAmount, {0, 5});
       },
       "1A000000AB122477          000000125000000000000005"},
      {[](Till& till) { return till.transaction("612345678901"); }, "20000000AB120C612345678901"},
      {[](Till& till) { return till.lastTransaction(); }, "20000000AB120C000000000000"},
      {[](Till& till) { return till.raw("99", "any"); }, "99000000AB1203any"},
  };
  for (const auto& [ask, request] : cases) {
    Scripted library("bad\n");
    library.oOptions.terminal = "AB12";
    {
      Till till(library.oOptions);
      ask(till);
    }
    EXPECT_EQ(library.Record(), std::string("create (null)\nrequest ") + request + "\ndestroy\n");
  }
}

TEST(Requests, WrongOnesReachNothing) {
  const std::function<Outcome(Till&)> cases[] = {
      [](Till& till) { return till.sale(Amount{}); },
      [](Till& till) { return till.sale(kAmount, Track2{"4000001234567899"}); },
      [](Till& till) {
        return till.reversePart("1", kAmount, Amount{1250, 1});
      },
      [](Till& till) { return till.voidPayment(""); },
      [](Till& till) { return till.transaction("1234567890123"); },
      [](Till& till) { return till.raw("1\x1B", ""); },
      [](Till& till) { return till.raw("10", std::string(255, 'x')); },
      [](Till& till) { return till.raw("10", std::string(2035, 'x')); },
  };
  Scripted library("");
  Till till(library.oOptions);
  for (const auto& ask : cases) {
    const Outcome outcome = ask(till);
    EXPECT_EQ(outcome.verdict, Verdict::BadRequest);
    EXPECT_NE(outcome.text, "");
  }
  library.oOptions.terminal = "a.b";
  EXPECT_EQ(Till(library.oOptions).login().verdict, Verdict::BadRequest);
  EXPECT_THAT(library.Record(), Not(HasSubstr("request")));
}

TEST(Callbacks, HearEverythingAndCannotLoseTheOutcome) {
  Scripted library("block 52 \nblock 36 01text\nblock 32 0line\nblock 38 1MV014000001234567899=2512\n" + kOk +
                   "good\n");
  Till till(library.oOptions);
  std::vector<std::string> heard;
  Callbacks callbacks;
  callbacks.status = [&](Status status, const std::string& text) {
    heard.push_back(name(status) + (":" + text));
    if (status == Status::Connecting) heard.push_back(name(till.sale(kAmount).why)); // not inside another one
  };
  callbacks.block = [&](const std::string& id, const std::string& data) { heard.push_back(id + ":" + data); };
  callbacks.line = [](const std::string&, bool) { throw std::runtime_error("no paper"); };
  const Outcome outcome = till.sale(kAmount, callbacks);
  EXPECT_THAT(heard,
              ElementsAre("connecting:", "unfinished", "pin:", "info:text", "38:1MV01****************=****"));
  EXPECT_EQ(outcome.verdict, Verdict::Approved);
  ASSERT_TRUE(outcome.thrown);
  EXPECT_THROW(std::rethrow_exception(outcome.thrown), std::runtime_error);
}

const std::string kBreakable = "idle 20000\nbad\nbroken\nblock 34 0\nbad\n";

TEST(Break, ByTheIdleCallback) {
  Scripted library(kBreakable + "idle 5\nbad\n" + "idle 20000\nbroken\nblock 34 1\nbad\n");
  Till till(library.oOptions);
  int asked = 0;
  Callbacks callbacks;
  callbacks.idle = [&] { return ++asked == 3; };
  EXPECT_EQ(till.sale(kAmount, callbacks).why, Why::Break);
  EXPECT_EQ(asked, 3);
  till.breakOff(); // nothing runs: the next one is not touched
  EXPECT_EQ(till.sale(kAmount).why, Why::Ended);
  EXPECT_EQ(library.Record().find("break"), library.Record().rfind("break"));
  callbacks.idle = [] { return true; };
  EXPECT_EQ(till.sale(kAmount, callbacks).why, Why::Ended); // too late, the terminal said
}

TEST(Break, FromAnotherThread) {
  Scripted library(kBreakable);
  Till till(library.oOptions);
  std::atomic<bool> waiting = false;
  std::thread other([&] {
    waiting.wait(false);
    till.breakOff();
  });
  Callbacks callbacks;
  callbacks.idle = [&] {
    waiting = true;
    waiting.notify_one();
    return false;
  };
  EXPECT_EQ(till.sale(kAmount, callbacks).verdict, Verdict::Aborted);
  callbacks.idle(); // should nobody have asked: the thread must end
  other.join();
  EXPECT_THAT(library.Record(), HasSubstr("break"));
}

TEST(Pause, IsWaitedOutOrNot) {
  Scripted library("pause\nold 10 pause\n" + kOk + "good\npause\n");
  Till(library.oOptions);
  Till till(library.oOptions);
  EXPECT_EQ(till.sale(kAmount).verdict, Verdict::Approved);
  Callbacks callbacks;
  callbacks.status = [&](Status status, const std::string&) {
    if (status == Status::Connecting) till.breakOff();
  };
  EXPECT_EQ(till.sale(kAmount, callbacks).why, Why::Break);

  Scripted again("pause\n");
  again.oOptions.pause = std::chrono::seconds(0);
  const Outcome outcome = Till(again.oOptions).sale(kAmount);
  EXPECT_EQ(outcome.verdict, Verdict::Refused);
  EXPECT_EQ(outcome.why, Why::Pause);
}

// Ending a session waits for the terminal for ever, so one that has not answered is left alone.
TEST(Lost, IsLeftAlone) {
  for (const char* script : {"stop XL lost\n", "block 52 \nstop XL lost\n"}) {
    Scripted library(script);
    {
      Till till(library.oOptions);
      EXPECT_EQ(till.sale(kAmount).verdict, Verdict::Unknown);
      const Outcome next = till.sale(kAmount);
      EXPECT_EQ(next.verdict, Verdict::Refused);
      EXPECT_EQ(next.why, Why::Unfinished);
    }
    const std::string record = library.Record();
    EXPECT_EQ(record.find("request"), record.rfind("request"));
    EXPECT_THAT(record, Not(HasSubstr("destroy")));
    EXPECT_TRUE(library.IsLoaded());
  }
}

TEST(Lost, AnswerComesLate) {
  Scripted library("block 32 0first\nstop XL lost\nstop XL lost\nblock 32 0second\n" + kOk + "good\n");
  library.oOptions.journal = library.oScratch / "journal";
  {
    Till till(library.oOptions);
    EXPECT_EQ(till.sale(kAmount).why, Why::Lost);
    EXPECT_EQ(till.sale(kAmount).why, Why::Unfinished);
    EXPECT_EQ(till.resume().why, Why::Lost);
    const Outcome late = till.resume();
    EXPECT_EQ(late.verdict, Verdict::Approved);
    EXPECT_EQ(late.receipt.size(), 1u);
    EXPECT_EQ(till.resume().why, Why::NoExchange);
  }
  EXPECT_THAT(library.Record(), testing::EndsWith("destroy\n"));
  EXPECT_FALSE(library.IsLoaded());
  std::string journal = library.oScratch.Get("journal");
  std::replace(journal.begin(), journal.end(), '\0', ' ');
  EXPECT_THAT(journal, testing::ContainsRegex(
                           "O\t2\t[0-9]+\tnotSent.*O\t1\t[0-9]+\tapproved\t00\t125000\t612345678901"));
}

TEST(Lost, ReopenedAndAsked) {
  Scripted library("block 52 \nstop XL lost\nmark reopened\n" + kNo + "good\n");
  library.oOptions.config = "/etc/x.cfg";
  {
    Till till(library.oOptions);
    EXPECT_EQ(till.sale(kAmount).why, Why::Lost);
    EXPECT_EQ(till.reopen(), LoadFault::None);
    EXPECT_EQ(till.lastTransaction().verdict, Verdict::Declined);
  }
  EXPECT_THAT(library.Record(),
              testing::ContainsRegex("destroy\ncreate /etc/x.cfg\nrequest 20.*\nreopened\ndestroy\n$"));
}

// Without a module nothing can have been sent.
TEST(Lost, ModuleMissing) {
  Scripted library("stop XL lost\n");
  std::filesystem::remove(library.oScratch / "zat_mm");
  const Outcome outcome = Till(library.oOptions).sale(kAmount);
  EXPECT_EQ(outcome.verdict, Verdict::Refused);
  EXPECT_EQ(outcome.why, Why::ModuleMissing);
  EXPECT_THAT(library.Record(), HasSubstr("destroy"));
}

TEST(Library, WhatCannotBeUsed) {
  Scripted fake("");
  setenv("FAKE_NO_SESSION", "1", 1);
  struct {
    std::string oPath;
    LoadFault oFault;
    Why oWhy;
  } cases[] = {{"/nowhere/libzat_ms.so", LoadFault::Missing, Why::NoLibrary},
               {"/etc/passwd", LoadFault::Unreadable, Why::NoLibrary},
               {ZAT_FAKES "/libforeign_ms.so", LoadFault::Foreign, Why::NoLibrary},
               {fake.oOptions.library, LoadFault::NoSession, Why::Handle}};
  for (const auto& c : cases) {
    Till till(c.oPath, "");
    EXPECT_EQ(till.loadFault(), c.oFault) << c.oPath;
    const Outcome outcome = till.sale(kAmount);
    EXPECT_EQ(outcome.verdict, Verdict::Refused) << c.oPath;
    EXPECT_EQ(outcome.why, c.oWhy) << c.oPath;
  }
  unsetenv("FAKE_NO_SESSION");
}

} // namespace
