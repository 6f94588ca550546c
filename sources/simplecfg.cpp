#define SI_IMPLEMENTATION
#include "simplecfg.h"

#include <cstring>
#include <memory>
#include <string>

template class CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>>;

namespace {

constexpr size_t kQuotedMin = 3; // "" stays: stripped it would be no value at all

// A stream that no program started meanwhile by another thread of the host inherits, unlike the document's own.
std::unique_ptr<FILE, int (*)(FILE*)> Stream(const char* name, const char* mode) {
  return {fopen(name, mode), fclose};
}

// Copies everything of one document into another, in the order of the file.
SI_Error Merge(const tIniDocument& from, SimpleCfg* into) {
  SI_Error result = SI_OK;
  tIniDocument::TNamesDepend sections;
  from.GetAllSections(sections);
  sections.sort(tIniDocument::Entry::LoadOrder());
  for (const tIniDocument::Entry& section : sections) {
    tIniDocument::TNamesDepend keys;
    from.GetAllKeys(section.pItem, keys);
    keys.sort(tIniDocument::Entry::LoadOrder());
    result = into->SetValue(section.pItem, nullptr, nullptr, section.pComment);
    for (const tIniDocument::Entry& key : keys)
      if (result >= 0)
        result = into->SetValue(section.pItem, key.pItem, from.GetValue(section.pItem, key.pItem, ""),
                                key.pComment);
    if (result < 0) break;
  }
  return result;
}

} // namespace

SI_Error SimpleCfg::LoadFile(const char* pccFName) {
  auto stream = Stream(pccFName, "rbe");
  if (!stream) return SI_FILE;
  SI_Error result;
  if (!fLoaded) {
    result = tIniDocument::LoadFile(stream.get());
    fLoaded = result >= 0 && !IsEmpty();
  } else {
    tIniDocument second(false, false, false);
    result = second.LoadFile(stream.get());
    if (result >= 0) result = Merge(second, this);
  }
  return result;
}

SI_Error SimpleCfg::SetValue(const char* pccSection, const char* pccKey, const char* pccValue,
                             const char* pccComment, bool fForceReplace) {
  size_t length = pccValue ? strlen(pccValue) : 0;
  bool quoted = length >= kQuotedMin && pccValue[0] == '"' && pccValue[length - 1] == '"';
  if (!quoted) return tIniDocument::SetValue(pccSection, pccKey, pccValue, pccComment, fForceReplace);
  const std::string bare(pccValue + 1, length - 2);
  return tIniDocument::SetValue(pccSection, pccKey, bare.c_str(), pccComment, fForceReplace);
}

SI_Error SimpleCfg::SaveFile(const char* pccFName, bool fAddSignature) const {
  auto stream = Stream(pccFName, "wbe");
  if (!stream) return SI_FILE;
  SI_Error result = tIniDocument::SaveFile(stream.get(), fAddSignature);
  bool written = fclose(stream.release()) == 0; // a full disk shows only here
  return result >= 0 && !written ? SI_FILE : result;
}

void SimpleCfg::Reset() {
  tIniDocument::Reset();
  fLoaded = false;
}
