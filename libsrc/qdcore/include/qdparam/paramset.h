// CParamSet: the parameters of one effect, an XML element "Property" with a
// start time and a duration that place absolute times on its own time line.
#pragma once

#include "qdcore/core.h"
#include "qdcore/xml.h"
#include "qdparam/czmtime.h"
#include "qdparam/export.h"
#include "qdparam/param.h"
#include "qdparam/paramlist.h"

namespace qdcore {

// Every parameter held has XML content and an id that is not negative. Ids
// need not be unique: lookups compare attribute texts ("7" is not "07") and
// answer the first match in list order. Pointers into the set stay valid
// until it changes.
class QDPARAM_API CParamSet : public CXMLObject {
 public:
  // ---- construction and lifetime
  CParamSet();  // an empty "Property", start time 0.0, duration 1.0
  // Load(xml) or Load(property); a property that cannot be loaded leaves the
  // element unnamed and the times unassigned.
  explicit CParamSet(const CXMLObject& xml);
  explicit CParamSet(const CZProperty& property);
  CParamSet(const CParamSet& other) = default;
  CParamSet& operator=(const CParamSet& other) = default;
  ~CParamSet();

  void Reset();    // no parameters, an empty "Property", the default times
  void Free();     // no parameters, no element, released times (unassigned)
  bool Realloc();  // private storage for the element, the list and the times

  // ---- time line
  mtime GetStartTime() const;
  void SetStartTime(const mtime& start);
  mtime GetDuration() const;
  void SetDuration(const mtime& duration);

  // ---- lookup: the first match in list order, or null
  CParam* Get(const CZPoolString& attribute, const CZPoolString& value);
  const CParam* Get(const CZPoolString& attribute, const CZPoolString& value) const;
  CParam* Get(const CZPoolString& name);  // by "name"
  const CParam* Get(const CZPoolString& name) const;
  // By "id" text: the decimal text of `id` taken as a signed 32-bit number.
  CParam* Get(unsigned long id);
  const CParam* Get(unsigned long id) const;
  // The first parameter for null, else the one after `previous`; null at the
  // end or when `previous` is not in this set.
  CParam* FindNextParam(CParam* previous);
  const CParam* FindNextParam(const CParam* previous) const;
  unsigned int GetSize() const;

  // ---- editing: a parameter without content or with a negative id is refused
  bool Add(const CParam& param);
  bool Insert(const CParam& param, unsigned int index);  // past the end appends
  // Inserts behind `after`; first when `after` is null or not in this set.
  bool Insert(const CParam& param, const CParam* after);
  bool Remove(unsigned int index);  // an index out of range is reported
  bool Remove(const CParam* param);

  // ---- alpha handling (ALPHA_*), the "alpha" attribute
  bool SetAlphaHandling(unsigned int type);  // an unknown code is reported and clears it
  unsigned int GetAlphaHandling() const;

  // ---- XML: the "Property" element with one "Parameter" child per parameter
  // A failed load leaves an empty, reset set.
  bool Load(const CXMLObject& xml);
  // The first "Property" inside the property's XML.
  bool Load(const CZProperty& property);
  bool Store(CXMLObject& out) const;  // always true
  // Merges `other`'s parameters by id; new ones are added. `flag` is not
  // passed on: parameters are always merged, never replaced.
  bool Update(const CParamSet& other, bool flag);
  // Merges "Parameter" and "Value" children by id, passing `flag` on as the
  // parameters' replace flag. A failed update leaves an empty, reset set.
  bool Update(const CXMLObject& xml, bool flag);
  bool Update(const CParam& param, bool flag);  // does nothing
  bool CreatePreset(CXMLObject& out) const;     // a "Preset" of "Value" entries
  bool CreatePreset(CXMLObject& out, const CParamSet& reference) const;  // does nothing

  // ---- values on the set's time line: a parameter is asked at
  // time - start time with the set's duration. A parameter that is not found
  // (or a null one) gives the default, or an empty result.
  double GetValueDouble(const CZPoolString& name, const mtime& time, double def) const;
  double GetValueDouble(unsigned long id, const mtime& time, double def) const;
  double GetValueDouble(const CParam* param, const mtime& time, double def) const;
  long GetValueLong(const CZPoolString& name, const mtime& time, long def) const;
  long GetValueLong(unsigned long id, const mtime& time, long def) const;
  long GetValueLong(const CParam* param, const mtime& time, long def) const;
  bool GetValueBool(const CZPoolString& name, const mtime& time, bool def) const;
  bool GetValueBool(unsigned long id, const mtime& time, bool def) const;
  bool GetValueBool(const CParam* param, const mtime& time, bool def) const;
  CZPoolString GetValueString(const CZPoolString& name, const mtime& time,
                              const CZPoolString& def) const;
  CZPoolString GetValueString(unsigned long id, const mtime& time, const CZPoolString& def) const;
  CZPoolString GetValueString(const CParam* param, const mtime& time,
                              const CZPoolString& def) const;
  CZMemory GetValueBinary(const CZPoolString& name, const mtime& time) const;
  CZMemory GetValueBinary(unsigned long id, const mtime& time) const;
  CZMemory GetValueBinary(const CParam* param, const mtime& time) const;
  unsigned int GetValueBinary(const CZPoolString& name, const mtime& time, unsigned char* buffer,
                              unsigned int size) const;
  unsigned int GetValueBinary(unsigned long id, const mtime& time, unsigned char* buffer,
                              unsigned int size) const;
  unsigned int GetValueBinary(const CParam* param, const mtime& time, unsigned char* buffer,
                              unsigned int size) const;
  double GetIntegralDouble(const CZPoolString& name, const mtime& time) const;
  double GetIntegralDouble(unsigned long id, const mtime& time) const;
  double GetIntegralDouble(const CParam* param, const mtime& time) const;
  // The earliest time at or after `from` (set times) at which the
  // parameter's value reaches `value` (CParam::GetPositionFromValueDouble);
  // false, `position` untouched, when it never does or the parameter is not found.
  bool GetPositionFromValueDouble(const CZPoolString& name, double value, mtime& position,
                                  const mtime& from = mtime::null) const;
  bool GetPositionFromValueDouble(unsigned long id, double value, mtime& position,
                                  const mtime& from = mtime::null) const;
  bool GetPositionFromValueDouble(const CParam* param, double value, mtime& position,
                                  const mtime& from = mtime::null) const;

  // Dumps the set, its parameters and their keyframes to the trace when the
  // level is active; dumps from several threads never interleave.
  void Display(int category, int level) const;

 private:
  int IndexOf(const CParam* param) const noexcept;  // -1 when not in this set

  CParamList m_Params;
  CZMTime m_Duration;
  CZMTime m_StartTime;
};

}  // namespace qdcore
