// Russian texts stand readable in the source, in UTF-8, and become Windows-1251 bytes while the source is
// compiled: "Нет связи"_1251 is a const char* of static storage. A character that the code page lacks does not
// compile.
#pragma once
#include <cstddef>

namespace zat {

// A string literal as a template argument.
template<size_t N> struct FixedText {
  char mc[N];
  consteval FixedText(const char (&text)[N]) {
    for (size_t i = 0; i < N; ++i) mc[i] = text[i];
  }
};

// One code point as its Windows-1251 byte. Covers what this system's texts use: ASCII, the Russian letters and
// the number sign.
consteval char ToCp1251(unsigned code) {
  if (code < 0x80) return static_cast<char>(code);
  if (code >= 0x410 && code <= 0x44F) return static_cast<char>(code - 0x410 + 0xC0); // А to я
  if (code == 0x401) return static_cast<char>(0xA8);                                 // Ё
  if (code == 0x451) return static_cast<char>(0xB8);                                 // ё
  if (code == 0x2116) return static_cast<char>(0xB9);                                // №
  throw "a character outside Windows-1251 as this system uses it";
}

template<size_t N> struct Cp1251 {
  char mc[N] = {}; // Windows-1251 never needs more bytes than UTF-8
  consteval explicit Cp1251(const FixedText<N>& text) {
    size_t out = 0;
    for (size_t i = 0; i + 1 < N; ++out) {
      unsigned lead = static_cast<unsigned char>(text.mc[i]);
      size_t more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : 2;
      unsigned code = more == 0 ? lead : lead & (more == 1 ? 0x1Fu : 0x0Fu);
      for (size_t k = 1; k <= more; ++k) code = code << 6 | (static_cast<unsigned char>(text.mc[i + k]) & 0x3Fu);
      mc[out] = ToCp1251(code);
      i += more + 1;
    }
  }
};

template<FixedText text> inline constexpr Cp1251 kCp1251{text};

} // namespace zat

template<zat::FixedText text> consteval const char* operator""_1251() { return zat::kCp1251<text>.mc; }
