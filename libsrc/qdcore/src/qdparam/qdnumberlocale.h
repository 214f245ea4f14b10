// The library's number locale: made when the library is loaded, freed when it
// is unloaded, and used by every text-to-number conversion of the library so
// that the decimal point is "." whatever the process locale.
#pragma once

#include "qdcore/core.h"

namespace qdcore {

// Null before load and after unload; the conversions then use "C" anyway.
locale_t NumberLocale() noexcept;

// Prefix parse of a real number, like wcstod in the library's locale.
inline double ReadDouble(const wchar* text, const wchar** end = nullptr) noexcept {
  return ParseDoubleL(text, end, NumberLocale());
}

}  // namespace qdcore
