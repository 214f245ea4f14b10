// CParamSet: values of its parameters on the set's own time line, and the
// dump of the set to the trace.
#include <atomic>

#include "qdcore/log.h"
#include "qdparam/keyframe.h"
#include "qdparam/paramset.h"

namespace qdcore {

// ---------------------------------------------------------------------------
// Typed access
// ---------------------------------------------------------------------------

// The by-name and by-id forms find the parameter and hand it to the
// by-object form, which alone translates the time.

namespace {

// A time of the effect as the set's parameters see it.
mtime Relative(const mtime& time, const CParamSet& set) { return time - set.GetStartTime(); }

}  // namespace

// The parameter's own default is 0.0, not `def`: `def` answers only for a
// parameter that is not there.
double CParamSet::GetValueDouble(const CParam* param, const mtime& time, double def) const {
  if (!param) return def;
  return param->GetValueDouble(Relative(time, *this), GetDuration(), 0.0);
}
double CParamSet::GetValueDouble(const CZPoolString& name, const mtime& time, double def) const {
  return GetValueDouble(Get(name), time, def);
}
double CParamSet::GetValueDouble(unsigned long id, const mtime& time, double def) const {
  return GetValueDouble(Get(id), time, def);
}

long CParamSet::GetValueLong(const CParam* param, const mtime& time, long def) const {
  if (!param) return def;
  return param->GetValueLong(Relative(time, *this), GetDuration(), def);
}
long CParamSet::GetValueLong(const CZPoolString& name, const mtime& time, long def) const {
  return GetValueLong(Get(name), time, def);
}
long CParamSet::GetValueLong(unsigned long id, const mtime& time, long def) const {
  return GetValueLong(Get(id), time, def);
}

bool CParamSet::GetValueBool(const CParam* param, const mtime& time, bool def) const {
  if (!param) return def;
  return param->GetValueBool(Relative(time, *this), GetDuration(), def);
}
bool CParamSet::GetValueBool(const CZPoolString& name, const mtime& time, bool def) const {
  return GetValueBool(Get(name), time, def);
}
bool CParamSet::GetValueBool(unsigned long id, const mtime& time, bool def) const {
  return GetValueBool(Get(id), time, def);
}

CZPoolString CParamSet::GetValueString(const CParam* param, const mtime& time,
                                       const CZPoolString& def) const {
  if (!param) return def;
  return param->GetValueString(Relative(time, *this), GetDuration(), def);
}
CZPoolString CParamSet::GetValueString(const CZPoolString& name, const mtime& time,
                                       const CZPoolString& def) const {
  return GetValueString(Get(name), time, def);
}
CZPoolString CParamSet::GetValueString(unsigned long id, const mtime& time,
                                       const CZPoolString& def) const {
  return GetValueString(Get(id), time, def);
}

CZMemory CParamSet::GetValueBinary(const CParam* param, const mtime& time) const {
  if (!param) return CZMemory::pnull;
  return param->GetValueBinary(Relative(time, *this), GetDuration());
}
CZMemory CParamSet::GetValueBinary(const CZPoolString& name, const mtime& time) const {
  return GetValueBinary(Get(name), time);
}
CZMemory CParamSet::GetValueBinary(unsigned long id, const mtime& time) const {
  return GetValueBinary(Get(id), time);
}

unsigned int CParamSet::GetValueBinary(const CParam* param, const mtime& time,
                                       unsigned char* buffer, unsigned int size) const {
  if (!param) return 0;
  return param->GetValueBinary(Relative(time, *this), GetDuration(), buffer, size);
}
unsigned int CParamSet::GetValueBinary(const CZPoolString& name, const mtime& time,
                                       unsigned char* buffer, unsigned int size) const {
  return GetValueBinary(Get(name), time, buffer, size);
}
unsigned int CParamSet::GetValueBinary(unsigned long id, const mtime& time, unsigned char* buffer,
                                       unsigned int size) const {
  return GetValueBinary(Get(id), time, buffer, size);
}

double CParamSet::GetIntegralDouble(const CParam* param, const mtime& time) const {
  if (!param) return 0.0;
  return param->GetIntegralDouble(Relative(time, *this), GetDuration());
}
double CParamSet::GetIntegralDouble(const CZPoolString& name, const mtime& time) const {
  return GetIntegralDouble(Get(name), time);
}
double CParamSet::GetIntegralDouble(unsigned long id, const mtime& time) const {
  return GetIntegralDouble(Get(id), time);
}

double CParamSet::GetDerivativeDouble(const CParam* param, const mtime& time) const {
  if (!param) return 0.0;
  return param->GetDerivativeDouble(Relative(time, *this), GetDuration());
}
double CParamSet::GetDerivativeDouble(const CZPoolString& name, const mtime& time) const {
  return GetDerivativeDouble(Get(name), time);
}
double CParamSet::GetDerivativeDouble(unsigned long id, const mtime& time) const {
  return GetDerivativeDouble(Get(id), time);
}

// The search runs on the parameter's clip; the answer comes back to the set's.
bool CParamSet::GetPositionFromValueDouble(const CParam* param, double value, mtime& position,
                                           const mtime& from) const {
  if (!param) return false;
  mtime onClip;
  if (!param->GetPositionFromValueDouble(value, GetDuration(), onClip, Relative(from, *this))) {
    return false;
  }
  position = onClip + GetStartTime();
  return true;
}
bool CParamSet::GetPositionFromValueDouble(const CZPoolString& name, double value, mtime& position,
                                           const mtime& from) const {
  return GetPositionFromValueDouble(Get(name), value, position, from);
}
bool CParamSet::GetPositionFromValueDouble(unsigned long id, double value, mtime& position,
                                           const mtime& from) const {
  return GetPositionFromValueDouble(Get(id), value, position, from);
}

// ---------------------------------------------------------------------------
// Display
// ---------------------------------------------------------------------------

namespace {

// The lock that keeps dumps from several threads apart. It lives from the
// library's load to its unload. A dump asked for outside that span (from
// another library's static constructor or destructor) runs unlocked rather
// than touch a lock that is not there: at those times the process runs one
// thread, as far as anything running then can rely on.
class DisplayLock {
 public:
  DisplayLock() noexcept { s_alive.store(true, std::memory_order_release); }
  ~DisplayLock() { s_alive.store(false, std::memory_order_release); }
  DisplayLock(const DisplayLock&) = delete;
  DisplayLock& operator=(const DisplayLock&) = delete;

  // Holds the lock, when there is one, for the holder's lifetime.
  class Hold {
   public:
    explicit Hold(DisplayLock& lock) : m_lock(Alive() ? &lock.m_section : nullptr) {
      if (m_lock) m_lock->Enter();
    }
    ~Hold() {
      if (m_lock) m_lock->Leave();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    COSCriticalSection* m_lock;
  };

 private:
  static bool Alive() noexcept { return s_alive.load(std::memory_order_acquire); }

  // Constant-initialised and trivially destroyed: readable at any time.
  static constinit std::atomic<bool> s_alive;
  COSCriticalSection m_section;
};

constinit std::atomic<bool> DisplayLock::s_alive{false};
DisplayLock g_displayLock;

const wchar* const kHeader = u"Display ParamSet **********************************\n";
const wchar* const kParameters = u"Parameter: \n";
const wchar* const kFooter = u"***************************************************\n";
const wchar* const kElementFormat = u"%s%s\n";
const wchar* const kSetPrefix = u"";
const wchar* const kParamPrefix = u"  Param: ";
const wchar* const kKeyFramePrefix = u"    KeyFrame: ";

// One element as compact XML text on one trace line.
void PrintElement(int category, int level, const wchar* prefix, const CXMLObject& element) {
  CXMLMemOut out;
  out.Open();
  out.Write(element);
  out.Close();
  wPrintf(category, level, kElementFormat, prefix, static_cast<const wchar*>(out));
}

}  // namespace

void CParamSet::Display(int category, int level) const {
  const DisplayLock::Hold hold(g_displayLock);
  if (!wPrintf_IsUserLevelActive(category, level)) return;
  wPrintf(category, level, kHeader);
  PrintElement(category, level, kSetPrefix, *this);
  wPrintf(category, level, kParameters);
  for (const CParam* param = FindNextParam(nullptr); param; param = FindNextParam(param)) {
    PrintElement(category, level, kParamPrefix, *param);
    for (const CKeyFrame* kf = param->FindNextKeyFrame(nullptr); kf;
         kf = param->FindNextKeyFrame(kf)) {
      PrintElement(category, level, kKeyFramePrefix, *kf);
    }
  }
  wPrintf(category, level, kFooter);
}

}  // namespace qdcore
