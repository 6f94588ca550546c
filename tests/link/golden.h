// The messages of golden.txt, and what turns texts into stores and stores into texts.
#pragma once
#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "EFTPMisc.h"

// One line of golden.txt, which says what each column means. Values are written "TAG=value;TAG=value".
struct Golden {
  std::vector<int> oIds;
  std::string oGiven, oData, oParsed, oLengths;
  int iVariant;
};

// The ids of a list, two characters each, as numbers.
inline std::vector<int> WorkIds(const std::string& ids) {
  std::istringstream words(ids);
  std::vector<int> out;
  for (std::string word; words >> word;) out.push_back(EFTPWId(word[0], word[1]));
  return out;
}

// The lines of messages, or those that no message is made of.
inline std::vector<Golden> ReadGolden(bool refused) {
  std::ifstream in(ZAT_SOURCE_DIR "/tests/link/golden.txt");
  std::vector<Golden> out;
  for (std::string line; std::getline(in, line);) {
    std::istringstream columns(line);
    std::string at[6];
    for (std::string& one : at) std::getline(columns, one, '|');
    std::ranges::replace(at[2], ',', '\x1B');
    if (!line.empty() && line[0] != ';' && (at[2] == "(refused)") == refused)
      out.push_back({WorkIds(at[0]), at[1], at[2], at[3], at[4], std::stoi("0" + at[5], nullptr, 16) << 16});
  }
  return out;
}
inline const std::vector<Golden> kGolden = ReadGolden(false), kRefused = ReadGolden(true);

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
