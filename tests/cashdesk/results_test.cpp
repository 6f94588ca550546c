// Headers, coded texts and result codes: what a till reads.
#include <gtest/gtest.h>

#include <cstring>

#include "cp1251.h"
#include "till.h"
#include "util.h"
#include "zat_deft.h"

namespace {

TEST(Header, ClassDecidesWhetherAnExchangeGoesOn) {
  struct {
    const char* workId;
    tEFTErr result;
  } const cases[] = {
      {"10", eEFTEnone},     {"21", eEFTEnone},     {"32", eEFTEnone},     {"5X", eEFTEnone},
      {"60", eEFTEnone},     {"8A", eEFTEnone},     {"33", eEFTEunsupcmd}, {"#0", eEFTEunsupcmd},
      {"#1", eEFTEunsupcmd}, {"40", eEFTEunsupcmd}, {"70", eEFTEunsupcmd}, {"\0\0", eEFTEunsupcmd},
  };
  for (const auto& c : cases) {
    std::string message = Message(c.workId, "abc");
    tEFTPWorkId workId = eEFTPwidNone;
    tString id;
    int length = -1;
    EXPECT_EQ(EFTePars(message.data(), workId, id, &length), c.result) << c.workId;
    EXPECT_EQ(workId, EFTPWId(c.workId[0], c.workId[1]));
    EXPECT_EQ(id, kTid);
    EXPECT_EQ(length, 3);
  }
}

TEST(Header, BreakRequestNeedsTenCharacters) {
  char buffer[16] = "untouched......";
  EXPECT_EQ(do_eft_break(buffer, "123456789"), 0);
  EXPECT_EQ(do_eft_break(buffer, "12345678901"), 0);
  EXPECT_STREQ(buffer, "untouched......");
  EXPECT_EQ(do_eft_break(buffer, "1234567890"), 14);
  EXPECT_EQ(std::string(buffer, 15), "33123456789000.");
}

// What the till finds in its buffer for each way a call can fail, in both languages.
TEST(Result, EveryCodeHasItsBlock) {
  struct {
    int code;
    std::string russian, english;
  } const cases[] = {
      {eEFTElost, "XLПотеряна связь с MicroM"_1251, "XLnot recv resp"},
      {eEFTEbadsts, "X2Неверный статус"_1251, "X2badly status"},
      {eEFTEunsupcmd, "X3Отсутствующая команда"_1251, "X3unsupport command"},
      {eEFTEwrparams, "X4Неверный набор параметров"_1251, "X4wrong param combination for current status"},
      {eEFTEbusy, "X5Неверное значение tid"_1251, "X5working with another tid"},
      {eEFTEupip, "X6Невозможно создать pipe"_1251, "X6can`t create upipe"},
      {eEFTEinuse, "X7Уже используется"_1251, "X7already in use"},
      {eEFTEmmabs, "X8Невозможно запустить MicroM"_1251, "X8can`t start mm"},
      {eEFTEfiner, "XAЗавершено с ошибкой"_1251, "XAbad final"},
      {77, "XXSome return code: 77", "XXSome return code: 77"},
  };
  MicroSMan man(nullptr);
  man.oId = kTid;
  for (const auto& c : cases) {
    for (long codePage : {1251L, 866L}) {
      man.lCP = codePage;
      std::string expected = Message("5X", codePage == 1251 ? c.russian : c.english);
      char buffer[2048] = {};
      int result = 5 << 16 | (c.code & 0xFFFF); // the state's half is dropped
      EXPECT_EQ(changeRet(&man, buffer, result), 9);
      EXPECT_EQ(std::string(buffer, expected.size()), expected) << c.code;
      man.fOldRet = true;
      EXPECT_EQ(changeRet(&man, buffer, result), c.code & 0xFFFF);
      man.fOldRet = false;
      EXPECT_EQ(changeRet(&man, nullptr, result), 9);
    }
  }
}

TEST(Result, SuccessAndBlocksLeaveTheBufferAlone) {
  MicroSMan man(nullptr);
  char buffer[16] = "as it was";
  EXPECT_EQ(changeRet(&man, buffer, eEFTEnone), 0);
  EXPECT_EQ(changeRet(&man, buffer, eEFTEfinok), 9);
  EXPECT_EQ(changeRet(&man, nullptr, eEFTEnone), 0);
  EXPECT_STREQ(buffer, "as it was");
}

TEST(Result, HandlesThatAreNoSessionAlwaysTakeTheNewForm) {
  char buffer[2048] = {};
  const std::string null = Message("5X", "X1pvSelf == 0", ""), wrong = Message("5X", "XBwrong pointer", "");
  EXPECT_EQ(eftp_do(nullptr, nullptr, buffer, nullptr, nullptr), 9);
  EXPECT_EQ(std::string(buffer, null.size()), null);
  alignas(16) char foreign[sizeof(MicroSMan)] = {};
  for (void* handle :
       {static_cast<void*>(foreign), reinterpret_cast<void*>(8), static_cast<void*>(foreign + 1)}) {
    EXPECT_EQ(eftp_do(handle, nullptr, buffer, nullptr, nullptr), 9);
    EXPECT_EQ(std::string(buffer, wrong.size()), wrong);
    eftp_destroy(handle);
  }
}

TEST(Result, ADestroyedSessionIsRecognised) {
  alignas(MicroSMan) char memory[sizeof(MicroSMan)];
  MicroSMan* man = new (memory) MicroSMan(nullptr);
  EXPECT_TRUE(MicroSMan::ItIsMe(man));
  man->~MicroSMan();
  EXPECT_FALSE(MicroSMan::ItIsMe(man));
}

TEST(CodedText, IsReplacedInTheTillsLanguage) {
  struct {
    const char* name;
    std::string data, expected; // the same text: left as it is
    long codePage;
  } const cases[] = {
      {"whole text", "I1Bad request", "I1Некорректная формат запроса со стороны кассы"_1251, 1251},
      {"code alone", "09", "09Ошибка соединения с хостом"_1251, 1251},
      {"phrase inside", "M4host: NETWORK ERROR (7)", "M4host: Ошибка транспортного уровня (7)"_1251, 1251},
      {"phrase missing", "M4connection reset", "M4Ошибка транспортного уровня"_1251, 1251},
      {"phrase for a code alone", "I7", "I7Некорректная последовательность ответов со стороны терминала"_1251,
       1251},
      {"other code page", "I1Bad request", "I1Bad request", 866},
      {"unknown code", "Z9Something", "Z9Something", 1251},
      {"no room for a code", "I", "I", 1251},
  };
  for (const auto& c : cases) {
    char buffer[2048] = {};
    std::string before = Message("5X", c.data), after = Message("5X", c.expected);
    memcpy(buffer, before.data(), before.size());
    EXPECT_EQ(eftp_msgmod(buffer, eEFTEnone, c.codePage), c.data != c.expected) << c.name;
    EXPECT_EQ(std::string(buffer, after.size()), after) << c.name;
    // A shorter text leaves zeros behind it, never the rest of the longer one.
    for (size_t i = after.size(); i < sizeof buffer; ++i) ASSERT_EQ(buffer[i], 0) << c.name << " at " << i;
  }
}

TEST(CodedText, OnlyForAnswersTheTillIsAboutToSee) {
  std::string message = Message("5X", "09no host");
  message.resize(2048);
  for (tEFTErr code : {eEFTElost, eEFTEbusy, eEFTEmmabs, eEFTEinuse})
    EXPECT_FALSE(eftp_msgmod(message.data(), code, 1251)) << code;
  std::string sale = Message("10", "09no host");
  EXPECT_FALSE(eftp_msgmod(sale.data(), eEFTEnone, 1251));
  EXPECT_FALSE(eftp_msgmod(nullptr, eEFTEnone, 1251));
  EXPECT_TRUE(eftp_msgmod(message.data(), eEFTEfiner, 1251));
}

// A length field that announces more than the buffer holds must not be believed. (The sanitizers watch the ends.)
TEST(CodedText, NeverLeavesTheAnswerBuffer) {
  for (const char* start : {"M4NETWORK ERROR", "I1", "M4"}) {
    auto buffer = std::make_unique<char[]>(2048);
    memset(buffer.get(), 'x', 2048);
    memcpy(buffer.get(), "5X0000000123\x2F\xFF", 14);
    memcpy(buffer.get() + 14, start, strlen(start));
    EXPECT_TRUE(eftp_msgmod(buffer.get(), eEFTEnone, 1251)) << start;
    EXPECT_EQ(memcmp(buffer.get(), "5X0000000123", 12), 0);
  }
}

TEST(Pause, LimitsComeFromTheRequestAndItsEnd) {
  SimpleCfg cfg;
  cfg.SetValue("COMMON", "DefaultNOkTimeout", "20");
  cfg.SetValue("COMMON", "timeoutafter-14-ok", "3");
  cfg.SetValue("COMMON", "TimeoutAfter-30-NOk", "0");
  tTOmanager pause;
  pause.GetCommonTO(&cfg);
  EXPECT_EQ(pause.lReqTOlimW, 0); // before the first exchange there is no pause
  struct {
    tEFTPWorkId workId;
    const char* name;
    long ok, bad;
  } const cases[] = {
      {eEFTPwidSale, "TimeoutAfter-10", 8, 20},
      {eEFTPwidCredit, "TimeoutAfter-14", 3, 20},
      {eEFTPwidLogin, "TimeoutAfter-30", 2, 0},
  };
  for (const auto& c : cases) {
    pause.GetLocalTO(&cfg, c.workId);
    EXPECT_EQ(pause.oNameT, c.name);
    EXPECT_EQ(pause.lReqTOlimW, c.ok);
    pause.ModLocalTO(true);
    EXPECT_EQ(pause.lReqTOlimW, c.bad);
    pause.ModLocalTO(false);
    EXPECT_EQ(pause.lReqTOlimW, c.ok);
  }
}

TEST(Pause, HoldsOnlyWhenALimitAndAnEndAreKnown) {
  tTOmanager pause;
  EXPECT_FALSE(pause.TooEarly());
  pause.lReqTOlimW = 60;
  EXPECT_FALSE(pause.TooEarly());
  pause.SetReqTC();
  EXPECT_TRUE(pause.TooEarly());
  pause.lReqTOlimW = -5; // a slip in the configuration must not lock the till for ever
  EXPECT_FALSE(pause.TooEarly());
  pause.lReqTOlimW = 60;
  pause.oReqTOcur -= TicksFromMs(61000);
  EXPECT_FALSE(pause.TooEarly());
}

TEST(Session, ConfigurationPathIsQuotedForTheModule) {
  EXPECT_EQ(MicroSMan(nullptr).oIPath, "-");
  EXPECT_EQ(MicroSMan("").oIPath, "-");
  EXPECT_EQ(MicroSMan("/x/y").oIPath, "\"/x/y\"");
}

} // namespace
