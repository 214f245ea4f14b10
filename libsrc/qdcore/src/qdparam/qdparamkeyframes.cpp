// CParam keyframe editing: appending, inserting, finding and removing
// keyframes in the order the caller chooses, and the minimum duration.
#include <cstdint>

#include "qdassert.h"
#include "qdminduration.h"
#include "qdnumbers.h"
#include "qdparam/keyframe.h"
#include "qdparam/param.h"
#include "qdparam/processing.h"

namespace qdcore {

namespace {

constexpr const char* kAddKeySignature =
    "bool __cdecl qdcore::CParam::AddKey(class qdcore::CKeyFrame &,const class qdcore::mtime "
    "&,bool)";
constexpr const char* kInsertSignature =
    "int __cdecl qdcore::CParam::Insert(const class qdcore::CKeyFrame &,unsigned int,const class "
    "qdcore::mtime &,bool)";

// The index of `kf` in the array of `count` keyframes from `first`, or -1.
// Compared as addresses so that a foreign pointer is never subtracted.
int IndexIn(const CKeyFrame* first, unsigned int count, const CKeyFrame* kf) {
  if (!first || !kf || count == 0) return -1;
  const auto begin = reinterpret_cast<std::uintptr_t>(first);
  const auto at = reinterpret_cast<std::uintptr_t>(kf);
  if (at < begin) return -1;
  const std::uintptr_t index = (at - begin) / sizeof(CKeyFrame);
  if (index >= count || index == 0xFFFFFFFFu) return -1;
  return static_cast<int>(index);
}

// A value taken from the neighbours of an inserted keyframe, by type.
struct NewValue {
  double real = 0.0;
  long whole = 0;
  bool flag = false;
  CZPoolString text;
};

void TakeValueOf(const CKeyFrame& kf, unsigned int type, NewValue& value) {
  switch (type) {
    case PARAM_DOUBLE:
      value.real = kf.GetValueDouble();
      break;
    case PARAM_LONG:
      value.whole = kf.GetValueLong();
      break;
    case PARAM_STRING:
      value.text = kf.GetValueString();
      break;
    case PARAM_BOOL:
      value.flag = kf.GetValueBool();
      break;
    default:
      break;  // Binary and SubProp keyframes get no value
  }
}

void WriteValue(CKeyFrame& kf, unsigned int type, const NewValue& value) {
  switch (type) {
    case PARAM_DOUBLE:
      kf.SetValueDouble(value.real);
      break;
    case PARAM_LONG:
      kf.SetValueLong(value.whole);
      break;
    case PARAM_STRING:
      kf.SetValueString(value.text);
      break;
    case PARAM_BOOL:
      kf.SetValueBool(value.flag);
      break;
    default:
      break;
  }
}

}  // namespace

// ---------------------------------------------------------------------------
// Appending
// ---------------------------------------------------------------------------

bool CParam::Add(const CKeyFrame& kf, const mtime& duration, bool setValue) {
  CKeyFrame own(*this, kf);
  return AddKey(own, duration, setValue);
}

bool CParam::AddKey(CKeyFrame& kf, const mtime& duration, bool setValue) {
  if (!kf) return false;
  if (!QD_VERIFY_TEXT(kf.m_Type == GetType(), "keyFrame.m_Type == GetType()", kAddKeySignature)) {
    return false;
  }
  if (setValue) {
    // A relative keyframe's time follows the clip; an absolute one is taken
    // at the start.
    double position = 0.0;
    const mtime time = kf.GetType() == KEYFRAME_RELATIVE && kf.GetPosition(position)
                           ? position * duration
                           : mtime();
    switch (GetType()) {
      case PARAM_DOUBLE:
        kf.SetValueDouble(GetValueDouble(time, duration, 0.0));
        break;
      case PARAM_LONG:
        kf.SetValueLong(GetValueLong(time, duration, 0));
        break;
      case PARAM_BOOL:
        kf.SetValueBool(GetValueBool(time, duration, false));
        break;
      case PARAM_STRING:
        kf.SetValueString(CZPoolString());
        break;
      case PARAM_SUBPROP:
        return true;
      default:
        QD_ASSUMPTION_FAILED(
            "(GetType() == PARAM_DOUBLE) || (GetType() == PARAM_LONG) || (GetType() == PARAM_LONG)",
            kAddKeySignature);
        break;
    }
  }
  NoteKeyInserted(GetSize());
  return m_KeyFrameList.Add(kf);
}

// ---------------------------------------------------------------------------
// Inserting
// ---------------------------------------------------------------------------

int CParam::Insert(const CKeyFrame& kf, unsigned int index, const mtime& duration, bool setValue) {
  if (!kf) return -1;
  unsigned int count = 0;
  const CKeyFrame* keys = m_KeyFrameList.GetArray(count);
  const unsigned int type = GetType();
  NewValue value;
  if (setValue) {
    const mtime minDuration = GetMinDuration();
    const mtime time = kf.GetTime(duration, minDuration);
    if (index >= count) {
      // Past the end: a re-typed copy is appended and no value computed.
      const CKeyFrame own(*this, kf);
      if (!own ||
          !QD_VERIFY_TEXT(own.m_Type == type, "keyFrame.m_Type == GetType()", kInsertSignature)) {
        return -1;
      }
      NoteKeyInserted(count);
      return m_KeyFrameList.Add(own) ? static_cast<int>(count) : -1;
    }
    if (index == 0) {
      TakeValueOf(keys[0], type, value);
    } else {
      const CKeyFrame& prev = keys[index - 1];
      const CKeyFrame& next = keys[index];
      if (type == PARAM_DOUBLE || type == PARAM_LONG) {
        const double blended =
            InterpolateDouble(time, duration, &prev, prev.GetTime(duration, minDuration), &next,
                              next.GetTime(duration, minDuration), 0.0);
        value.real = blended;
        value.whole = RoundHalfAwayFromZero(blended);
      } else {
        TakeValueOf(prev, type, value);
      }
    }
  }
  // An absolute or fixed time may lengthen the span the keyframes need.
  if (kf.GetType() != KEYFRAME_RELATIVE) *m_MinDuration = mtime::unassigned;
  NoteKeyInserted(index < count ? index : count);
  if (!m_KeyFrameList.Insert(kf, index)) return -1;
  if (!setValue) return static_cast<int>(index);
  WriteValue(m_KeyFrameList.GetArray(count)[index], type, value);
  return static_cast<int>(index);
}

int CParam::Insert(const CKeyFrame& kf, CKeyFrame* before, const mtime& duration, bool setValue) {
  const int index = GetIndex(before);
  if (index < 0) return 0;
  return Insert(kf, static_cast<unsigned int>(index), duration, setValue);
}

// ---------------------------------------------------------------------------
// Finding and removing
// ---------------------------------------------------------------------------

bool CParam::Remove(unsigned int index) {
  if (index < GetSize()) NoteKeyRemoved(index);
  return m_KeyFrameList.Delete(index);
}

bool CParam::Remove(CKeyFrame* kf) {
  const int index = GetIndex(kf);
  return index >= 0 && Remove(static_cast<unsigned int>(index));
}

CKeyFrame* CParam::Get(unsigned int index) {
  unsigned int count = 0;
  CKeyFrame* keys = m_KeyFrameList.GetArray(count);
  return index < count ? keys + index : nullptr;
}

const CKeyFrame* CParam::Get(unsigned int index) const {
  unsigned int count = 0;
  const CKeyFrame* keys = m_KeyFrameList.GetArray(count);
  return index < count ? keys + index : nullptr;
}

int CParam::GetIndex(const CKeyFrame* kf) const {
  unsigned int count = 0;
  const CKeyFrame* keys = m_KeyFrameList.GetArray(count);
  return IndexIn(keys, count, kf);
}

unsigned int CParam::GetSize() const {
  unsigned int count = 0;
  m_KeyFrameList.GetArray(count);
  return count;
}

CKeyFrame* CParam::FindNextKeyFrame(CKeyFrame* kf) {
  return const_cast<CKeyFrame*>(static_cast<const CParam&>(*this).FindNextKeyFrame(kf));
}

const CKeyFrame* CParam::FindNextKeyFrame(const CKeyFrame* kf) const {
  unsigned int count = 0;
  const CKeyFrame* keys = m_KeyFrameList.GetArray(count);
  if (count == 0) return nullptr;
  if (!kf) return keys;
  const int index = IndexIn(keys, count, kf);
  if (index < 0 || static_cast<unsigned int>(index) + 1 >= count) return nullptr;
  return keys + index + 1;
}

// ---------------------------------------------------------------------------
// Minimum duration
// ---------------------------------------------------------------------------

// Keyframes counted from the start need the clip to reach their time, those
// counted back from the end need it to reach back as far: the clip must hold
// both without overlap.
mtime CParam::GetMinDuration() const {
  const mtime cached = CachedMinDuration(m_MinDuration);
  if (cached.isassigned()) return cached;
  mtime forward = mtime::null, backward = mtime::null;
  for (const CKeyFrame* kf = FindNextKeyFrame(nullptr); kf; kf = FindNextKeyFrame(kf)) {
    mtime t;
    if (kf->GetType() == KEYFRAME_RELATIVE || !kf->GetTime(t)) continue;
    if (t >= mtime::null) {
      if (t > forward) forward = t;
    } else if (-t > backward) {
      backward = -t;
    }
  }
  CacheMinDuration(m_MinDuration, forward + backward);
  return forward + backward;
}

}  // namespace qdcore
