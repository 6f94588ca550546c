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
struct Log : Scratch {
  SLogger logger{(*this / "log").c_str(), true}, *before = std::exchange(poGSLog, &logger);
  ~Log() { poGSLog = before; }
  std::string Text() const { return Get("log"); }
};

TEST(EFTPPars, OneParameter) {
  const tEFTPppMode kDef = eEFTPppMdef, kVar = eEFTPppMvar, kOpt = eEFTPppMoptv, kLng = eEFTPppMlng;
  // shown: how the log line ends, none when empty
  typedef std::tuple<std::string, const char*, size_t, tEFTPppMode, bool, size_t, std::string, std::string>
      Row;
  for (const auto& [text, tag, len, mode, taken, consumed, value, shown] :
       {Row{"ABCD", abisTRrfn, 3, kDef, true, 3, "ABC", "present [dL:3]\r"},
        Row{"AB", abisTRrfn, 3, kDef, false, 0, "-", "not detected"},
        Row{"", abisTRrfn, 0, kDef, true, 0, "", "present [dL:0]"},
        Row{"000000001000", abisTRamt, 12, kDef, true, 12, "000000001000", "[dL:12] '000000001000'"},
        Row{"ABC" + kEsc, abisTRacd, 3, kVar, true, 4, "ABC", "present [dL:3]"}, // ESC behind the limit
        Row{"ABCD" + kEsc, abisTRacd, 3, kVar, false, 0, "-", "- var, absent"},
        Row{"AB", abisTRacd, 3, kVar, false, 0, "-", "- var, absent"},
        Row{kEsc + "A", abisTRacd, 3, kVar, false, 0, "-", "- var, absent"},
        Row{"", abisTRacd, 3, kOpt, false, 0, "-", "- var, absent"},
        Row{kEsc + "A", abisTRacd, 3, kOpt, true, 1, "-", "- optional, var, absent"},
        Row{"4000001234567899=2512" + kEsc, abisTRpex, 25, kOpt, true, 22, "4000001234567899=2512",
            "[dL:21] '************7899=****'"},
        Row{"  12", abisTRchq, 4, kLng, true, 4, "#12", "present [dL:4]"},
        Row{"-7x9", abisTRchq, 4, kLng, true, 4, "#7", "present [dL:4]"}, // no sign
        Row{"abcd", abisTRchq, 3, kLng, false, 3, "-", "not detected"},
        Row{"42" + kEsc, abisTRchq, 5, eEFTPppMlngv, true, 3, "#42", "present [dL:2]"},
        Row{"text", abisEFpln, 4, kDef, true, 4, "text", ""},
        Row{"12", kOtherEcd, 2, kDef, true, 2, "12", "present [dL:2]\r"}}) {
    SCOPED_TRACE(text + " " + tag);
    Log log;
    SqueezeT store;
    Body body(text);
    EXPECT_EQ(EFTPParsP(&store, &body.pos, &body.left, tag, len, mode), taken);
    EXPECT_EQ(body.Consumed(), consumed);
    EXPECT_EQ(body.pos, body.bytes.data() + consumed);
    EXPECT_EQ(Value(store, tag), value);
    EXPECT_EQ(log.Text().empty(), shown.empty());
    const std::string head = shown.empty() ? "" : std::string("[MicroM] EFTPParsP [") + tag;
    EXPECT_NE(log.Text().find(head), std::string::npos);
    EXPECT_NE(log.Text().find(shown), std::string::npos) << log.Text();
    EXPECT_EQ(log.Text().find("4000001234567899"), std::string::npos);
  }
}

TEST(EFTPPars, AFieldThatTheStoreRefusesIsConsumed) {
  SqueezeT full(32, 0);
  Body body("ABCD");
  EXPECT_FALSE(EFTPParsP(&full, &body.pos, &body.left, abisTRrfn, 3, eEFTPppMdef));
  EXPECT_EQ(body.Consumed(), 3u);
}

TEST(EFTPPars, Response) {
  const std::string kFixed = "10000000010006432026112110153000000012345678963251000421700";
  const std::string card = "4000001234567899=2512" + kEsc, esc2 = kEsc + kEsc, esc4 = esc2 + esc2;
  // values: PAN, expiry date, the beginning of the additional data
  typedef std::tuple<std::string, bool, char, std::string> Row;
  for (const auto& [rest, whole, outcome, values] :
       {Row{esc4, true, '0', "- - -"},
        Row{"A12345" + kEsc + card + "VISA" + kEsc + "OK" + kEsc, true, '0', "4000001234567899 2512 -"},
        Row{kEsc + "40x0" + kEsc + esc2, true, '0', "40x0 - -"}, // not a track
        Row{kEsc + "4000001234567899=" + kEsc + esc2, true, '0', "4000001234567899 - -"},
        Row{esc4 + std::string(60, 'r'), true, '1', "- - rrr"},
        Row{esc4 + std::string(61, 'r'), false, '0', "- - -"},
        Row{kEsc + card + kEsc, false, '0', "- - -"}}) {
    SqueezeT store;
    Body body(kFixed + rest);
    char out = '?';
    EXPECT_EQ(EFTPParsPResp(&store, &body.pos, &body.left, &out), whole) << rest;
    EXPECT_EQ(out, outcome) << rest;
    EXPECT_EQ(Value(store, abisTMmid), "000000123456789");
    EXPECT_EQ(Value(store, abisTRpan) + " " + Value(store, abisTRedt) + " " +
                  Value(store, abisEFrad).substr(0, 3),
              values);
  }
  for (size_t cut = 0; cut < kFixed.size(); ++cut) {
    SqueezeT store;
    Body body(kFixed.substr(0, cut));
    EXPECT_FALSE(EFTPParsPResp(&store, &body.pos, &body.left, nullptr)) << cut;
  }
}

TEST(EFTPPars, InformationPrintLineAndRefusal) {
  // layout: information, line or refusal; result: a flag, or the work id of an information message
  typedef std::tuple<char, std::string, int, const char*, std::string> Row;
  const std::string date(36, 'd');
  for (const auto& [layout, text, result, head, rest] :
       {Row{'i', "11" + date, eEFTPwidRespInfo, "11", date},
        Row{'i', "11" + date + "d", eEFTPwidNone, "11", "-"}, Row{'i', "11", eEFTPwidRespInfo, "11", "-"},
        Row{'i', "12abc", eEFTPwidMsgInfo, "12", "abc"}, Row{'i', "1", eEFTPwidNone, "-", "-"},
        Row{'l', "1Total", true, "1", "Total"}, Row{'l', "0", true, "0", "-"}, Row{'l', "", false, "-", "-"},
        Row{'r', "09No connection", true, "09", "No connection"}, Row{'r', "09", true, "09", "-"},
        Row{'r', "0", false, "-", "-"}}) {
    SqueezeT store;
    Body body(text);
    char out = '?';
    const bool info = layout == 'i', line = layout == 'l';
    EXPECT_EQ(info   ? int{EFTPParsPInfo(&store, &body.pos, &body.left)}
              : line ? EFTPParsPPrLine(&store, &body.pos, &body.left, &out)
                     : EFTPParsPRubad(&store, &body.pos, &body.left),
              result)
        << text;
    EXPECT_EQ(Value(store, info ? abisEFitp : line ? abisEFsln : abisEFecd), head) << text;
    EXPECT_EQ(Value(store, info ? abisEFidt : line ? abisEFpln : abisEFmsg), rest) << text;
    EXPECT_EQ(out, !line ? '?' : result ? text[0] : '\0');
  }
}

// A store that cannot grow any more: what does not fit is refused, and never counts as taken.
TEST(EFTPPars, AFullStoreRefuses) {
  for (int part = 0; part < 3; ++part) {
    SqueezeT full(32, 0);
    Body body(part == 0 ? "1Total" : part == 1 ? "11" + std::string(36, 'd') : "0042");
    char out = '?';
    EXPECT_FALSE(part == 0   ? EFTPParsPPrLine(&full, &body.pos, &body.left, &out)
                 : part == 1 ? EFTPParsPInfo(&full, &body.pos, &body.left) != eEFTPwidNone
                             : EFTPParsP(&full, &body.pos, &body.left, abisTRchq, 4, eEFTPppMlng));
    EXPECT_EQ(out, part == 0 ? '\0' : '?');
  }
  SqueezeT store;
  Body line("1Total");
  EXPECT_TRUE(EFTPParsPPrLine(&store, &line.pos, &line.left, nullptr));
}

TEST(EFTPPars, PairValues) {
  typedef std::tuple<const char*, long, tTypeFmtSource, const char*> Row;
  for (const auto& [tag, value, source, text] :
       {Row{abisTRtyp, 1, eTFSinternal, "0"}, Row{abisTRtyp, 5, eTFSa7, "304000"},
        Row{abisTRtyp, 27, eTFSinternal, "N"}, Row{abisTRtyp, 0x105, eTFSinternal, "L"},
        Row{abisTRtyp, 0, eTFSa7, ""}, Row{abisTRtyp, 28, eTFSa7, ""}, Row{abisTRtyp, -1, eTFSa7, ""},
        Row{abisTRtyp, 1, eTFSnone, ""}, Row{abisTRenm, 10, eTFSa7, "9010"},
        Row{abisTRenm, 2, eTFSa7, "9000"}, Row{abisTRenm, 1, eTFSa7, "0100"},
        Row{abisTRenm, 1, eTFSinternal, ""}, Row{abisTRcnd, 4, eTFSa7, "59"}, Row{abisTRcnd, 0, eTFSa7, "00"},
        Row{abisTRcnd, 5, eTFSa7, ""}, Row{abisTRamt, 1, eTFSa7, ""}})
    EXPECT_STREQ(GetPairValue(tag, &value, source), text) << tag << value;
  EXPECT_STREQ(GetPairValue(abisTRtyp, nullptr, eTFSa7), "");
}

} // namespace
