// The INI document: every configuration file and the version list are read and written through it. Sections and keys
// are found without regard to the case of ASCII letters, a key has one value of one line, bytes are not converted.
#pragma once
// Header only, and compiled in simplecfg.cpp alone: the library's own shared object would bring all of ICU into the
// till's process.
#define SI_NO_CONVERSION
#include <SimpleIni.h>

typedef CSimpleIniTempl<char, SI_GenericNoCase<char>, SI_ConvertA<char>> tIniDocument;

class SimpleCfg : public tIniDocument {
public:
  SimpleCfg() : tIniDocument(false, false, false) {}

  // Reads a file into the document: the keys that it has replace those that are there. Negative (SI_FILE and others of
  // SI_Error) when it cannot be read; the document is unchanged then. Values read into an empty document stay as they
  // stand in the file; a second file's values are copied, and lose their quotes as in SetValue.
  SI_Error LoadFile(const char* pccFName);

  // Sets a value; null for key and value makes an empty section. A value of three or more characters that begins and
  // ends with a double quote is stored without that pair: callers hand over quoted paths and read them back bare.
  SI_Error SetValue(const char* pccSection, const char* pccKey, const char* pccValue,
                    const char* pccComment = nullptr, bool fForceReplace = false);

  // Writes the document, without a byte-order mark unless asked. Negative when it could not be written completely.
  SI_Error SaveFile(const char* pccFName, bool fAddSignature = false) const;

  // Empties the document. Every text that GetValue returned is gone with it.
  void Reset();

private:
  bool fLoaded = false; // a file has been read: the next one's values are copies
};
