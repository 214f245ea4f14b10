// CKeyFrameList: the keyframes of a parameter, back to back in one host
// memory block.
#pragma once

#include "qdcore/core.h"
#include "qdparam/export.h"

namespace qdcore {

class CKeyFrame;  // qdparam/keyframe.h; the list stores it, it does not embed it

/// The keyframes of a parameter, stored by value in one growable block.
///
/// Keeps the order it is given; the parameter decides where a keyframe goes.
/// Pointers into the list stay valid until it changes.
class QDPARAM_API CKeyFrameList : public CZMemory {
 public:
  /// An empty list.
  CKeyFrameList() noexcept = default;
  /// Copies every keyframe of `other`.
  CKeyFrameList(const CKeyFrameList& other);
  /// Releases this list's keyframes and copies `other`'s.
  CKeyFrameList& operator=(const CKeyFrameList& other);
  /// Releases every keyframe.
  ~CKeyFrameList() override;

  /// Appends a copy; false only when the block cannot grow.
  bool Add(const CKeyFrame& kf);
  /// Appends copies of all of `other`'s keyframes.
  bool Add(const CKeyFrameList& other);
  /// Inserts a copy before `index`; an index past the end appends.
  bool Insert(const CKeyFrame& kf, unsigned int index);
  /// Releases and removes the keyframe at `index`; false when out of range.
  bool Delete(unsigned int index);

  /// The first keyframe and the count; null (and 0) when empty.
  CKeyFrame* GetArray(unsigned int& count) noexcept;
  /// The first keyframe and the count; null (and 0) when empty.
  const CKeyFrame* GetArray(unsigned int& count) const noexcept;

  /// Makes the storage private at its current size.
  bool Realloc();

 protected:
  /// Moves or copies keyframes between blocks (mode as CZMemory's).
  void RelocateMemory(void* from, std::uint64_t fromSize, void* to, std::uint64_t toSize,
                      int mode) override;
  /// Releases every keyframe before the block goes; always true.
  bool ClearForRelease() override;
};

}  // namespace qdcore
