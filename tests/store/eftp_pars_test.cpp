// The parsers of message bodies: what is taken, what is consumed, what the log may show.
#include "EFTPMisc.h"
#include "SLogger.h"
#include "scratch.h"
#include <gtest/gtest.h>

namespace {

const std::string kEsc = "\x1B";
const char kOtherEcd[] = "EF.ECD"; // the text of a tag, but not the tag

// A body in a block of its very size, so that a read beyond it is seen.
struct Body {
  explicit Body(const std::string& text)
      : bytes(text.begin(), text.end()), pos(bytes.data()), left(bytes.size()) {}
  size_t Consumed() const { return bytes.size() - left; }
  std::vector<unsigned char> bytes;
  unsigned char* pos;
  size_t left;
};

std::string Value(SqueezeT& store, const char* tag) {
  std::string value = "-";
  long number = 0;
  if (store.GetLong(store.Find(tag), number) == eDTlong) return "#" + std::to_string(number);
  store.GetData(store.Find(tag), &value);
  return value;
}

// The global logger writes into a file of the test's own.
class Log {
public:
  Log() : logger((scratch / "log").c_str(), true), before(poGSLog) { poGSLog = &logger; }
  ~Log() { poGSLog = before; }
  std::string Text() const { return scratch.Get("log"); }

private:
  Scratch scratch;
  SLogger logger;
  SLogger* before;
};

TEST(EFTPPars, OneParameter) {
  const std::string kHead = "[MicroM] EFTPParsP [";
  const tEFTPppMode kVarOnly = eEFTPppMvar;
  struct {
    const char* name;
    std::string body;
    const char* tag;
    size_t len;
    tEFTPppMode mode;
    bool taken;
    size_t consumed;
    std::string value, log;
  } const cases[] = {
      {"fixed", "ABCD", abisTRrfn, 3, eEFTPppMdef, true, 3, "ABC", "present [dL:3]\r"},
      {"fixed, short", "AB", abisTRrfn, 3, eEFTPppMdef, false, 0, "-", "not detected"},
      {"fixed, none", "", abisTRrfn, 0, eEFTPppMdef, true, 0, "", "present [dL:0]"},
      {"shown", "000000001000", abisTRamt, 12, eEFTPppMdef, true, 12, "000000001000",
       "[dL:12] '000000001000'"},
      {"var", "AB" + kEsc + "C", abisTRacd, 6, kVarOnly, true, 3, "AB", "present [dL:2]"},
      {"var, ESC behind the limit", "ABC" + kEsc, abisTRacd, 3, kVarOnly, true, 4, "ABC", "present [dL:3]"},
      {"var, ESC too late", "ABCD" + kEsc, abisTRacd, 3, kVarOnly, false, 0, "-", "- var, absent"},
      {"var, no ESC", "AB", abisTRacd, 3, kVarOnly, false, 0, "-", "- var, absent"},
      {"var, at once", kEsc + "A", abisTRacd, 3, kVarOnly, false, 0, "-", "- var, absent"},
      {"var, no byte", "", abisTRacd, 3, eEFTPppMoptv, false, 0, "-", "- var, absent"},
      {"optional, absent", kEsc + "A", abisTRacd, 3, eEFTPppMoptv, true, 1, "-", "- optional, var, absent"},
      {"card", "4000001234567899=2512" + kEsc, abisTRpex, 25, eEFTPppMoptv, true, 22, "4000001234567899=2512",
       "[dL:21] '************7899=****'"},
      {"number behind blanks", "  12", abisTRchq, 4, eEFTPppMlng, true, 4, "#12", "present [dL:4]"},
      {"number, sign ignored", "-7x9", abisTRchq, 4, eEFTPppMlng, true, 4, "#7", "present [dL:4]"},
      {"number, no digit", "abcd", abisTRchq, 3, eEFTPppMlng, false, 3, "-", "not detected"},
      {"number, var", "42" + kEsc, abisTRchq, 5, eEFTPppMlngv, true, 3, "#42", "present [dL:2]"},
      {"print line", "text", abisEFpln, 4, eEFTPppMdef, true, 4, "text", ""},
      {"equal text, another pointer", "12", kOtherEcd, 2, eEFTPppMdef, true, 2, "12", "present [dL:2]\r"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    Log log;
    SqueezeT store;
    Body body(row.body);
    EXPECT_EQ(EFTPParsP(&store, &body.pos, &body.left, row.tag, row.len, row.mode), row.taken);
    EXPECT_EQ(body.Consumed(), row.consumed);
    EXPECT_EQ(body.pos, body.bytes.data() + row.consumed);
    EXPECT_EQ(Value(store, row.tag), row.value);
    EXPECT_NE(log.Text().find(row.log.empty() ? "" : kHead + row.tag), std::string::npos);
    EXPECT_NE(log.Text().find(row.log), std::string::npos) << log.Text();
    EXPECT_EQ(log.Text().find("4000001234567899"), std::string::npos);
    EXPECT_EQ(row.tag == abisEFpln, log.Text().empty());
  }
}

TEST(EFTPPars, AFieldThatTheStoreRefusesIsConsumed) {
  SqueezeT full(32, 0);
  Body body("ABCD");
  EXPECT_FALSE(EFTPParsP(&full, &body.pos, &body.left, abisTRrfn, 3, eEFTPppMdef));
  EXPECT_EQ(body.Consumed(), 3u);
}

const std::string kFixed = "1"
                           "000000001000"
                           "643"
                           "20261121101530"
                           "000000123456789"
                           "632510004217"
                           "00";

TEST(EFTPPars, Response) {
  const std::string card = "4000001234567899=2512" + kEsc;
  struct {
    const char* name;
    std::string rest;
    bool whole;
    char out;
    const char *pan, *expiry, *additional;
  } const cases[] = {
      {"all absent", kEsc + kEsc + kEsc + kEsc, true, '0', "-", "-", "-"},
      {"card split", "A12345" + kEsc + card + "VISA" + kEsc + "OK" + kEsc, true, '0', "4000001234567899",
       "2512", "-"},
      {"not a track", kEsc + "40x0" + kEsc + kEsc + kEsc, true, '0', "40x0", "-", "-"},
      {"no expiry date", kEsc + "4000001234567899=" + kEsc + kEsc + kEsc, true, '0', "4000001234567899", "-",
       "-"},
      {"60 bytes more", kEsc + kEsc + kEsc + kEsc + std::string(60, 'r'), true, '1', "-", "-", "rrr"},
      {"61 bytes more", kEsc + kEsc + kEsc + kEsc + std::string(61, 'r'), false, '0', "-", "-", "-"},
      {"cut off", kEsc + card + kEsc, false, '0', "-", "-", "-"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    SqueezeT store;
    Body body(kFixed + row.rest);
    char out = '?';
    EXPECT_EQ(EFTPParsPResp(&store, &body.pos, &body.left, &out), row.whole);
    EXPECT_EQ(out, row.out);
    EXPECT_EQ(Value(store, abisTMmid), "000000123456789");
    EXPECT_EQ(Value(store, abisTRpan), row.pan);
    EXPECT_EQ(Value(store, abisTRedt), row.expiry);
    EXPECT_EQ(Value(store, abisEFrad).substr(0, 3), row.additional);
  }
  for (size_t cut = 0; cut < kFixed.size(); ++cut) {
    SqueezeT store;
    Body body(kFixed.substr(0, cut));
    EXPECT_FALSE(EFTPParsPResp(&store, &body.pos, &body.left, nullptr)) << cut;
  }
}

TEST(EFTPPars, InformationPrintLineAndRefusal) {
  struct {
    tEFTPWorkId layout;
    std::string body;
    int result; // a flag, or the work id of an information message
    const char* head;
    std::string rest;
  } const rows[] = {
      {eEFTPwidMsgInfo, "11" + std::string(36, 'd'), eEFTPwidRespInfo, "11", std::string(36, 'd')},
      {eEFTPwidMsgInfo, "11" + std::string(37, 'd'), eEFTPwidNone, "11", "-"},
      {eEFTPwidMsgInfo, "11", eEFTPwidRespInfo, "11", "-"},
      {eEFTPwidMsgInfo, "12abc", eEFTPwidMsgInfo, "12", "abc"},
      {eEFTPwidMsgInfo, "1", eEFTPwidNone, "-", "-"},
      {eEFTPwidPrLine, "1Total", true, "1", "Total"},
      {eEFTPwidPrLine, "0", true, "0", "-"},
      {eEFTPwidPrLine, "", false, "-", "-"},
      {eEFTPwidRubad, "09No connection", true, "09", "No connection"},
      {eEFTPwidRubad, "09", true, "09", "-"},
      {eEFTPwidRubad, "0", false, "-", "-"},
  };
  for (const auto& row : rows) {
    SqueezeT store;
    Body body(row.body);
    char out = '?';
    bool info = row.layout == eEFTPwidMsgInfo, line = row.layout == eEFTPwidPrLine;
    int result = info   ? int{EFTPParsPInfo(&store, &body.pos, &body.left)}
                 : line ? EFTPParsPPrLine(&store, &body.pos, &body.left, &out)
                        : EFTPParsPRubad(&store, &body.pos, &body.left);
    EXPECT_EQ(result, row.result) << row.body;
    EXPECT_EQ(Value(store, info ? abisEFitp : line ? abisEFsln : abisEFecd), row.head) << row.body;
    EXPECT_EQ(Value(store, info ? abisEFidt : line ? abisEFpln : abisEFmsg), row.rest) << row.body;
    EXPECT_EQ(out, !line ? '?' : row.result ? row.body[0] : '\0');
  }
}

TEST(EFTPPars, PairValues) {
  struct {
    const char* tag;
    long value;
    tTypeFmtSource source;
    const char* text;
  } const cases[] = {
      {abisTRtyp, 1, eTFSinternal, "0"},  {abisTRtyp, 5, eTFSa7, "304000"},
      {abisTRtyp, 27, eTFSinternal, "N"}, {abisTRtyp, 0x105, eTFSinternal, "L"},
      {abisTRtyp, 0, eTFSa7, ""},         {abisTRtyp, 28, eTFSa7, ""},
      {abisTRtyp, -1, eTFSa7, ""},        {abisTRtyp, 1, eTFSnone, ""},
      {abisTRenm, 10, eTFSa7, "9010"},    {abisTRenm, 2, eTFSa7, "9000"},
      {abisTRenm, 1, eTFSa7, "0100"},     {abisTRenm, 1, eTFSinternal, ""},
      {abisTRcnd, 4, eTFSa7, "59"},       {abisTRcnd, 0, eTFSa7, "00"},
      {abisTRcnd, 5, eTFSa7, ""},         {abisTRamt, 1, eTFSa7, ""},
  };
  for (const auto& row : cases)
    EXPECT_STREQ(GetPairValue(row.tag, &row.value, row.source), row.text) << row.tag << row.value;
  EXPECT_STREQ(GetPairValue(abisTRtyp, nullptr, eTFSa7), "");
}

} // namespace
