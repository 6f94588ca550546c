// Messages as they have always looked on the wire, written out by hand: what the codec is measured against.
#pragma once
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "EFTPMisc.h"

typedef std::vector<std::pair<const char*, std::string>> tValues;

struct Golden {
  const char* pccIds; // work ids, separated by blanks
  tValues oGiven;     // what a builder has
  std::string oData;  // the data part
  tValues oParsed;    // what a parser makes of it
  const char*
      pccLengths; // of the data cut short, the lengths that are well-formed: "24 36", or "12+" for any from 12
  int iVariant = 0; // bits 16 to 23 that the parser adds to the id
};

inline const std::string kEsc = "\x1B";

inline std::vector<Golden> GoldenMessages() {
  const std::string track = "4000001234567899=25121010000012345678";
  return {
      {"10 11 12 13 14 15 18 1D 1F 1I 1J 1K 1L 1M 1N 1O 1P 1Q",
       {{abisTRamt, "1000"}},
       "000000001000",
       {{abisTRamt, "000000001000"}},
       "12"},
      {"10 1Q",
       {{abisTRamt, "125000"}, {abisTRtr2, track}},
       "000000125000" + track,
       {{abisTRamt, "000000125000"}, {abisTRtr2, track}},
       "12+"},
      {"19 20 26", {{abisTRrfn, "123"}}, "123         ", {{abisTRrfn, "123         "}}, "12"},
      {"25", {{abisTMrtp, "2"}}, "2", {{abisTMrtp, "2"}}, "1"},
      {"1A 1B 1C 1G 1H",
       {{abisTRrfn, "R"}, {abisTRamt, "7"}},
       "R           000000000007",
       {{abisTRrfn, "R           "}, {abisTRamt, "000000000007"}},
       "24"},
      {"1A 1H",
       {{abisTRrfn, "R"}, {abisTRamt, "7"}, {abisTRram, "5"}},
       "R           000000000007000000000005",
       {{abisTRamt, "000000000007"}, {abisTRram, "000000000005"}},
       "24 36"},
      {"16 17 1E",
       {{abisTRamt, "7"}, {abisTRacd, "A1"}, {abisTRtr2, track}},
       "000000000007A1    " + track,
       {{abisTRamt, "000000000007"}, {abisTRacd, "A1    "}, {abisTRtr2, track}},
       "18+"},
      {"23",
       {{abisTRrfn, "R"}, {abisTRamt, "7"}},
       "R           000000000007",
       {{abisTRrfn, "R           "}},
       "24"},
      {"60",
       {{abisEFcod, "0"},
        {abisTRamt, "1000"},
        {abisTRccd, "643"},
        {abisTRdtt, "20261121120000"},
        {abisTMmid, "77"},
        {abisTRrfn, "900000000001"},
        {abisEFrcd, "00"},
        {abisTRpex, "4000001234567899=2512"},
        {abisEFctp, "VISA"},
        {abisEFmsg, "OK"}},
       "00000000010006432026112112000000000000000007790000000000100" + kEsc + "4000001234567899=2512" + kEsc +
           "VISA" + kEsc + "OK" + kEsc,
       {{abisEFcod, "0"},
        {abisTMmid, "000000000000077"},
        {abisTRpex, "4000001234567899=2512"},
        {abisTRpan, "4000001234567899"},
        {abisTRedt, "2512"},
        {abisEFctp, "VISA"},
        {abisEFmsg, "OK"}},
       "90"},
      {"60",
       {{abisEFcod, "1"},
        {abisTRamt, "1"},
        {abisTRccd, "643"},
        {abisTRdtt, "20261121120000"},
        {abisTMmid, "77"},
        {abisTRrfn, "R"},
        {abisEFrcd, "51"},
        {abisTRacd, "A1"},
        {abisEFrad, "more"}},
       "100000000000164320261121120000000000000000077R           51A1" + kEsc + kEsc + kEsc + kEsc + "more",
       {{abisTRacd, "A1"}, {abisEFrad, "more"}},
       "65+",
       0x020000},
      {"80 81 84 86",
       {{abisTRamt, "7"}, {abisTRacd, "A1"}, {abisTRrfn, "R"}, {abisEFctp, "VISA"}},
       "000000000007A1    R           VISA",
       {{abisTRacd, "A1    "}, {abisTRrfn, "R           "}, {abisEFctp, "VISA"}},
       "30+"},
      {"8A",
       {{abisTRrfn, "R"}, {abisTRamt, "7"}, {abisTRacd, "A1"}, {abisEFctp, "VISA"}, {abisTRram, "5"}},
       "R           000000000007A1    VISA" + kEsc + "000000000005",
       {{abisEFctp, "VISA"}, {abisTRram, "000000000005"}},
       "35 47"},
      {"8A",
       {{abisTRrfn, "R"}, {abisTRamt, "7"}, {abisTRacd, "A1"}},
       "R           000000000007A1    " + kEsc,
       {{abisTRacd, "A1    "}},
       "31"},
      {"5X", {{abisEFecd, "X1"}, {abisEFmsg, "why"}}, "X1why", {{abisEFecd, "X1"}, {abisEFmsg, "why"}}, "2+"},
      {"32",
       {{abisEFsln, "0"}, {abisEFpln, "TOTAL"}},
       "0TOTAL",
       {{abisEFsln, "0"}, {abisEFpln, "TOTAL"}},
       "1+"},
      {"32", {{abisEFsln, "1"}}, "1", {{abisEFsln, "1"}}, "1", 0x010000},
      {"34", {{abisEFsbr, "1"}}, "1", {{abisEFsbr, "1"}}, "1"},
      {"34", {{abisEFsbr, "0"}}, "0", {{abisEFsbr, "0"}}, "1", 0x040000},
      {"30 31", {}, "", {}, "0"},
      {"30 31",
       {{abisEFlet, "L"}, {abisEFled, "data"}},
       "Ldata",
       {{abisEFlet, "L"}, {abisEFled, "data"}},
       "0+"},
      {"36",
       {{abisEFitp, "01"}, {abisEFidt, "text"}},
       "01text",
       {{abisEFitp, "01"}, {abisEFidt, "text"}},
       "2+"},
      {"36",
       {{abisEFitp, "11"}, {abisEFidt, "123456789012345678"}},
       "11123456789012345678",
       {{abisEFitp, "11"}, {abisEFidt, "123456789012345678"}},
       "2 20",
       0x030000},
      {"22", {{abisEFfin, "fin"}}, "fin", {{abisEFfin, "fin"}}, "0+"},
      {"5M", {{abisEFmcn, "sure?"}}, "sure?", {{abisEFmcn, "sure?"}}, "0+"},
      {"70", {{abisFKuni, "fork"}}, "fork", {{abisFKuni, "fork"}}, "0+"},
      {"37",
       {{abisEFdtf, "0"}, {abisEFdtt, "MV01"}, {abisEFdtd, "d"}},
       "0MV01d",
       {{abisEFdtf, "0"}, {abisEFdtt, "MV01"}, {abisEFdtd, "d"}},
       "5+"},
      {"38", {{abisEFdtf, "0"}, {abisEFdtt, "T"}}, "0T   ", {{abisEFdtt, "T   "}}, "5"},
      {"37", {{abisEFdtf, "1"}, {abisEFdtt, "T"}}, "1T   ", {{abisEFdtf, "1"}}, "5", 0x050000},
      {"38", {{abisEFdtf, "1"}, {abisEFdtt, "T"}}, "1T   ", {{abisEFdtf, "1"}}, "5", 0x060000},
      {"#0 #1 21 24 33 50 51 52 53 54 55", {}, "", {}, "0"},
  };
}

// The ids of a list, two characters each, as numbers.
inline std::vector<int> WorkIds(const char* ids) {
  std::istringstream words(ids);
  std::vector<int> out;
  for (std::string word; words >> word;) out.push_back(EFTPWId(word[0], word[1]));
  return out;
}

inline void PutAll(SqueezeT& store, const tValues& values) {
  for (const auto& [tag, value] : values) store.PutData(tag, value.data(), value.size());
}

// The text of a tag; "(absent)" when there is none.
inline std::string Text(SqueezeT& store, const char* tag) {
  std::string value;
  return store.GetData(store.Find(tag), &value) == eDTpdata ? value : "(absent)";
}
