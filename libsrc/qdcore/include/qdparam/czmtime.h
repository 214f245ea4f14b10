// CZMTime: one mtime kept in a host memory block, so that an object holding
// it stays relocatable byte by byte.
#pragma once

#include "qdcore/core.h"
#include "qdparam/export.h"

namespace qdcore {

/// One mtime kept in a host memory block, so that an object holding it stays
/// relocatable byte by byte.
///
/// A block that never held a time, or whose block was released, reads as
/// mtime::unassigned: nothing is known.
class QDPARAM_API CZMTime : public CZMemory {
 public:
  /// A block holding mtime::unassigned.
  CZMTime();
  /// Copies the other's time.
  CZMTime(const CZMTime& other);
  /// Copies the other's time.
  CZMTime& operator=(const CZMTime& other);
  /// Releases the block.
  ~CZMTime() override;

  /// The time, allocating the block first if it was released. Throws
  /// std::bad_alloc when it cannot.
  mtime& operator*();
  /// The time; never allocates.
  const mtime& operator*() const noexcept;
};

}  // namespace qdcore
