// The host's levelled trace output and the wide formatter it shares with the
// XML attribute writer.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

#include "qdcore/core.h"

namespace qdcore {

/// A level is active when it is at most its category's level. Levels start at
/// 0 for every category and are read once from QD_TRACE ("398:10,835:1").
QDHOST_API bool wPrintf_IsUserLevelActive(int category, int level) noexcept;
/// Sets the level up to which `category` traces.
QDHOST_API void wPrintf_SetUserLevel(int category, int level) noexcept;
/// The level up to which `category` traces; 0 unless set.
QDHOST_API int wPrintf_GetUserLevel(int category) noexcept;

/// Formats and hands the text to the sink, whatever the level: callers guard
/// each call with wPrintf_IsUserLevelActive.
QDHOST_API void wPrintf(int category, int level, const wchar* format, ...);

/// Receives every trace text. The default sink writes UTF-8 to stderr.
using TraceSink = void (*)(int category, int level, std::u16string_view text, void* context);
/// Installs a sink (null restores the default) and returns the previous one.
QDHOST_API TraceSink wPrintf_SetSink(TraceSink sink, void* context = nullptr);

/// The printf subset the library uses, producing UTF-16: %d %i %u %x %X %c
/// %f %e %g with flags (- + space 0 #), width and precision (also *), the
/// length modifiers l, ll, z, %s with wide strings (null prints "(null)"),
/// and %%. Anything else is copied as it stands.
QDHOST_API void AppendFormatV(std::u16string& out, const wchar* format, std::va_list args);
/// The text AppendFormatV makes of `format` and the arguments.
QDHOST_API std::u16string FormatString(const wchar* format, ...);
/// Bounded form: writes at most count - 1 characters and a terminator; returns
/// the length the whole text needs (like snprintf).
QDHOST_API int FormatBuffer(wchar* buffer, std::size_t count, const wchar* format, ...);

}  // namespace qdcore
