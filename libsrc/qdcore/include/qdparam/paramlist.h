// CParamList: the parameters of a set, back to back in one host memory block.
#pragma once

#include <cstdint>

#include "qdcore/core.h"
#include "qdparam/export.h"

namespace qdcore {

class CParam;  // qdparam/param.h; the list stores it, it does not embed it

/// The parameters of a set, stored by value in one growable block.
///
/// Keeps the order it is given and knows nothing of names or ids: lookup is
/// the parameter set's business. Pointers into the list stay valid until it
/// changes.
class QDPARAM_API CParamList : public CZMemory {
 public:
  /// An empty list.
  CParamList() noexcept = default;
  /// Copies every parameter of `other`.
  CParamList(const CParamList& other);
  /// Releases this list's parameters and copies `other`'s.
  CParamList& operator=(const CParamList& other);
  /// Releases every parameter.
  ~CParamList() override;

  /// Appends a copy; false only when the block cannot grow.
  bool Add(const CParam& param);
  /// Appends copies of all of `other`'s parameters.
  bool Add(const CParamList& other);
  /// Inserts a copy before `index`; an index past the end appends.
  bool Insert(const CParam& param, unsigned int index);
  /// Releases and removes the parameter at `index`; false when out of range.
  bool Delete(unsigned int index);

  /// The first parameter and the count; null (and 0) when empty.
  CParam* GetArray(unsigned int& count) noexcept;
  /// The first parameter and the count; null (and 0) when empty.
  const CParam* GetArray(unsigned int& count) const noexcept;

  /// Makes the storage private at its current size.
  bool Realloc();

 protected:
  /// Moves or copies parameters between blocks (mode as CZMemory's).
  void RelocateMemory(void* from, std::uint64_t fromSize, void* to, std::uint64_t toSize,
                      int mode) override;
  /// Releases every parameter before the block goes; always true.
  bool ClearForRelease() override;
};

}  // namespace qdcore
