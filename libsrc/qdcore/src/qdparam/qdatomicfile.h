// Writing a whole file so that no reader ever sees a part of it.
#pragma once

#include <string>
#include <string_view>

namespace qdcore {

// Writes `bytes` to a new file beside `path`, flushes it to the disk and
// renames it over `path`: a reader sees the old file or the new one. On
// failure the old file stays as it was and `error` says why. Anything at
// `path` that is not a regular file is refused.
bool WriteFileAtomically(const std::string& path, std::string_view bytes, std::string& error);

}  // namespace qdcore
