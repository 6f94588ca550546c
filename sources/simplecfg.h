// The INI document: every configuration file and the version list are read and written through it.
#pragma once
// Header only, and compiled in simplecfg.cpp alone: the library's own shared object would bring all of ICU into the
// till's process.
#ifndef SI_NO_CONVERSION
#define SI_NO_CONVERSION
#endif
#include <SimpleIni.h>
#include <cstddef>
#include <string>

typedef CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>> tIniDocument;

// Sections and keys are matched without regard to case. Loading, reading and listing are the library's own; see
// SimpleIni.h for LoadFile's results (SI_OK, or negative: SI_FILE, SI_NOMEM, SI_FAIL), SetValue's (SI_UPDATED,
// SI_INSERTED or negative), GetValue, GetBoolValue, GetAllSections, GetAllKeys, GetAllValues. Texts handed out
// belong to the document and live until the next load, Reset or change of that value.
//
// What differs: a value that is *copied* into the document loses one enclosing pair of double quotes when it has
// three or more characters. Copied are the value of every SetValue, and every value of a file that is loaded over
// what an earlier load has left (no Reset between). The values of a first load stand in the file's own text and
// keep their quotes. Callers rely on both: paths are quoted in files, and a saved list must not gain or lose
// quotes by being loaded again.
class SimpleCfg : public tIniDocument {
public:
  SimpleCfg() : tIniDocument(false, false, false) {} // 8-bit text, one value of one line for a key

  // Loads a regular file of at most 64 MiB; anything else under that name (a directory, a pipe) is SI_FILE and is
  // never waited for. An empty file is SI_OK. errno tells more about SI_FILE.
  SI_Error LoadFile(const char* pccName);
  // The same from memory; null is SI_OK and loads nothing.
  SI_Error LoadData(const char* pccData, size_t lLen);
  SI_Error LoadData(const std::string& oData) { return LoadData(oData.data(), oData.size()); }
  void Reset(); // forgets everything; the next load is a first one again

  // A null pccKey makes an empty section, a null pccValue an empty value.
  SI_Error SetValue(const char* pccSection, const char* pccKey, const char* pccValue,
                    const char* pccComment = nullptr, bool fForceReplace = false);

  // A decimal number with an optional sign, or a hexadecimal one after "0x"; the default when the key is missing
  // or its value is anything else. A number beyond long gives the nearest long. The host's locale plays no part.
  long GetLongValue(const char* pccSection, const char* pccKey, long lDefault = 0,
                    bool* pfHasMultiple = nullptr) const;

  // SI_FILE also when the text could not be written whole, which the library would not notice.
  SI_Error SaveFile(const char* pccName, bool fAddSignature = false) const;

private:
  SI_Error Merge(const char* pccData, size_t lLen);

  bool fLoaded = false; // a first load has left its text in the document
};
