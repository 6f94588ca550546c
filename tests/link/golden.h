// Messages as they have always looked on the wire, written out by hand: what the codec is measured against.
#pragma once
#include <sstream>
#include <string>
#include <vector>

#include "EFTPMisc.h"

// Values are written "TAG=value;TAG=value". A comma in a data part stands for ESC.
struct Golden {
  const char* pccIds;     // work ids, separated by blanks
  const char* pccGiven;   // what a builder has
  const char* pccData;    // the data part
  const char* pccParsed;  // what a parser makes of it
  const char* pccLengths; // of the data cut short, those that are well-formed: "24 36", "12+" for any from 12
  int iVariant = 0;       // bits 16 to 23 that the parser adds to the id

  std::string Data() const {
    std::string data = pccData;
    for (char& c : data)
      if (c == ',') c = '\x1B';
    return data;
  }
};

#define TRACK "4000001234567899=25121010000012345678"

// clang-format off
inline const Golden kGolden[] = {
    {"10 11 12 13 14 15 18 1D 1F 1I 1J 1K 1L 1M 1N 1O 1P 1Q",
     "TR.AMT=1000", "000000001000", "TR.AMT=000000001000", "12"},
    {"10 1Q", "TR.AMT=125000;TR.S.TR2=" TRACK, "000000125000" TRACK, "TR.AMT=000000125000;TR.S.TR2=" TRACK, "12+"},
    {"19 20 26", "TR.RFN=123", "123         ", "TR.RFN=123         ", "12"},
    {"25", "TM.RTP=2", "2", "TM.RTP=2", "1"},
    {"1A 1B 1C 1G 1H", "TR.RFN=R;TR.AMT=7", "R           000000000007", "TR.RFN=R           ;TR.AMT=000000000007", "24"},
    {"1A 1H", "TR.RFN=R;TR.AMT=7;TR.RAM=5", "R           000000000007000000000005", "TR.RAM=000000000005", "24 36"},
    {"16 17 1E", "TR.AMT=7;TR.ACD=A1;TR.S.TR2=" TRACK, "000000000007A1    " TRACK, "TR.ACD=A1    ;TR.S.TR2=" TRACK, "18+"},
    {"23", "TR.RFN=R;TR.AMT=7", "R           000000000007", "TR.RFN=R           ;TR.AMT=000000000007", "24"},
    {"60", "EF.COD=0;TR.AMT=1000;TR.CCD=643;TR.DTT=20261121120000;TM.MID=77;TR.RFN=900000000001;EF.RCD=00;"
           "TR.PEX=4000001234567899=2512;EF.CTP=VISA;EF.MSG=OK",
     "00000000010006432026112112000000000000000007790000000000100,4000001234567899=2512,VISA,OK,",
     "TM.MID=000000000000077;TR.PEX=4000001234567899=2512;TR.S.PAN=4000001234567899;TR.EDT=2512;EF.CTP=VISA", "90"},
    {"60", "EF.COD=1;TR.AMT=1;TR.CCD=643;TR.DTT=20261121120000;TM.MID=77;TR.RFN=R;EF.RCD=51;TR.ACD=A1;EF.RAD=more",
     "100000000000164320261121120000000000000000077R           51A1,,,,more", "TR.ACD=A1;EF.RAD=more", "65+", 0x020000},
    {"80 81 84 86", "TR.AMT=7;TR.ACD=A1;TR.RFN=R;EF.CTP=VISA",
     "000000000007A1    R           VISA", "TR.ACD=A1    ;TR.RFN=R           ;EF.CTP=VISA", "30+"},
    {"8A", "TR.RFN=R;TR.AMT=7;TR.ACD=A1;EF.CTP=VISA;TR.RAM=5",
     "R           000000000007A1    VISA,000000000005", "EF.CTP=VISA;TR.RAM=000000000005", "35 47"},
    {"8A", "TR.RFN=R;TR.AMT=7;TR.ACD=A1", "R           000000000007A1    ,", "TR.ACD=A1    ", "31"},
    {"5X", "EF.ECD=X1;EF.MSG=why", "X1why", "EF.ECD=X1;EF.MSG=why", "2+"},
    {"32", "EF.SLN=0;EF.PLN=TOTAL", "0TOTAL", "EF.SLN=0;EF.PLN=TOTAL", "1+"},
    {"32", "EF.SLN=1", "1", "EF.SLN=1", "1", 0x010000},
    {"34", "EF.SBR=1", "1", "EF.SBR=1", "1"},
    {"34", "EF.SBR=0", "0", "EF.SBR=0", "1", 0x040000},
    {"30 31", "EF.LED=not sent without EF.LET", "", "", "0"},
    {"30 31", "EF.LET=L;EF.LED=data", "Ldata", "EF.LET=L;EF.LED=data", "0+"},
    {"36", "EF.ITP=01;EF.IDT=text", "01text", "EF.ITP=01;EF.IDT=text", "2+"},
    {"36", "EF.ITP=11;EF.IDT=123456789012345678", "11123456789012345678", "EF.IDT=123456789012345678", "2 20", 0x030000},
    {"22", "EF.FIN=fin", "fin", "EF.FIN=fin", "0+"},
    {"5M", "EF.MCN=sure?", "sure?", "EF.MCN=sure?", "0+"},
    {"70", "FK.UNI=fork", "fork", "FK.UNI=fork", "0+"},
    {"37", "EF.DTF=0;EF.DTT=MV01;EF.DTD=d", "0MV01d", "EF.DTF=0;EF.DTT=MV01;EF.DTD=d", "5+"},
    {"38", "EF.DTF=0;EF.DTT=T", "0T   ", "EF.DTT=T   ", "5"},
    {"37", "EF.DTF=1;EF.DTT=T", "1T   ", "EF.DTF=1", "5", 0x050000},
    {"38", "EF.DTF=1;EF.DTT=T", "1T   ", "EF.DTF=1", "5", 0x060000},
    {"#0 #1 21 24 33 50 51 52 53 54 55", "", "", "", "0"},
};
// clang-format on

// The ids of a list, two characters each, as numbers.
inline std::vector<int> WorkIds(const char* ids) {
  std::istringstream words(ids);
  std::vector<int> out;
  for (std::string word; words >> word;) out.push_back(EFTPWId(word[0], word[1]));
  return out;
}

// The pairs of a text, each tag as the dictionary's pointer.
inline std::vector<std::pair<const char*, std::string>> Pairs(const std::string& values) {
  std::istringstream pairs(values);
  std::vector<std::pair<const char*, std::string>> out;
  for (std::string pair; std::getline(pairs, pair, ';');)
    out.emplace_back(zat::TagFromText(pair.substr(0, pair.find('='))), pair.substr(pair.find('=') + 1));
  return out;
}

inline SqueezeT Store(const std::string& values) {
  SqueezeT store;
  for (const auto& [tag, value] : Pairs(values)) store.PutData(tag, value.data(), value.size());
  return store;
}

// The text of a tag; "(absent)" when there is none.
inline std::string Text(SqueezeT& store, const char* tag) {
  std::string value;
  return store.GetData(store.Find(tag), &value) == eDTpdata ? value : "(absent)";
}
