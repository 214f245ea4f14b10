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

/// The parameters of one effect: an XML element "Property" with a start time
/// and a duration that place absolute times on its own time line.
///
/// Every parameter held has XML content and an id that is not negative. Ids
/// need not be unique: lookups compare attribute texts ("7" is not "07") and
/// answer the first match in list order. Pointers into the set stay valid
/// until it changes.
class QDPARAM_API CParamSet : public CXMLObject {
 public:
  // ---- construction and lifetime
  CParamSet();  ///< an empty "Property", start time 0.0, duration 1.0
  /// Load(xml); a failed load leaves an empty, reset set.
  explicit CParamSet(const CXMLObject& xml);
  /// Load(property); a property that cannot be loaded leaves the element
  /// unnamed and the times unassigned.
  explicit CParamSet(const CZProperty& property);
  /// Shares the other's element and copies its parameters and times.
  CParamSet(const CParamSet& other) = default;
  /// Becomes a copy of `other`: element, parameters and times.
  CParamSet& operator=(const CParamSet& other) = default;
  /// Releases the element, the parameters and the times.
  ~CParamSet();

  void Reset();    ///< no parameters, an empty "Property", the default times
  void Free();     ///< no parameters, no element, released times (unassigned)
  bool Realloc();  ///< private storage for the element, the list and the times; false on failure

  // ---- time line
  mtime GetStartTime() const;               ///< where the clip starts on the set's time line
  void SetStartTime(const mtime& start);    ///< moves the clip's start
  mtime GetDuration() const;                ///< the clip's length in seconds
  void SetDuration(const mtime& duration);  ///< sets the clip's length

  // ---- lookup: the first match in list order, or null
  /// The first parameter whose `attribute` has the text `value`; null when none.
  CParam* Get(const CZPoolString& attribute, const CZPoolString& value);
  /// The first parameter whose `attribute` has the text `value`; null when none.
  const CParam* Get(const CZPoolString& attribute, const CZPoolString& value) const;
  CParam* Get(const CZPoolString& name);              ///< by "name"; null when none
  const CParam* Get(const CZPoolString& name) const;  ///< by "name"; null when none
  /// By "id" text: the decimal text of `id` taken as a signed 32-bit number; null when none.
  CParam* Get(unsigned long id);
  /// By "id" text, as the non-const form; null when none.
  const CParam* Get(unsigned long id) const;
  /// The first parameter for null, else the one after `previous`; null at the
  /// end or when `previous` is not in this set.
  CParam* FindNextParam(CParam* previous);
  /// The first parameter for null, else the one after `previous`; null at the
  /// end or when `previous` is not in this set.
  const CParam* FindNextParam(const CParam* previous) const;
  unsigned int GetSize() const;  ///< the number of parameters

  // ---- editing: a parameter without content or with a negative id is refused
  /// Appends a copy of `param`; false when refused or the list cannot grow.
  bool Add(const CParam& param);
  /// Inserts a copy before `index` (past the end appends); false when refused.
  bool Insert(const CParam& param, unsigned int index);
  /// Inserts behind `after`; first when `after` is null or not in this set. False when refused.
  bool Insert(const CParam& param, const CParam* after);
  /// Removes the parameter at `index`; false (reported) when out of range.
  bool Remove(unsigned int index);
  /// Removes the parameter `param` points to; false when it is not in this set.
  bool Remove(const CParam* param);

  // ---- alpha handling (ALPHA_*), the "alpha" attribute
  /// Writes "alpha"; an unknown code is reported and clears it.
  bool SetAlphaHandling(unsigned int type);
  unsigned int GetAlphaHandling() const;  ///< ALPHA_*; ALPHA_NONE when absent or unknown

  // ---- XML: the "Property" element with one "Parameter" child per parameter
  /// Replaces the set by a "Property" element; false (and an empty, reset set)
  /// for another element or a parameter that cannot be taken.
  bool Load(const CXMLObject& xml);
  /// The first "Property" inside the property's XML; false when there is none or it fails.
  bool Load(const CZProperty& property);
  bool Store(CXMLObject& out) const;  ///< `out` becomes the "Property" document; always true
  /// Merges `other`'s parameters by id; new ones are added. `flag` is not
  /// passed on: parameters are always merged, never replaced. False when one fails.
  bool Update(const CParamSet& other, bool flag);
  /// Merges "Parameter" and "Value" children by id, passing `flag` on as the
  /// parameters' replace flag. A failed update leaves an empty, reset set.
  bool Update(const CXMLObject& xml, bool flag);
  bool Update(const CParam& param, bool flag);  ///< does nothing; always true
  bool CreatePreset(CXMLObject& out) const;     ///< a "Preset" of "Value" entries; always true
  /// Does nothing; always true.
  bool CreatePreset(CXMLObject& out, const CParamSet& reference) const;

  // ---- values on the set's time line: a parameter is asked at
  // time - start time with the set's duration. A parameter that is not found
  // (or a null one) gives the default, or an empty result.
  /// The number of parameter `name` at `time`; `def` when it is not found or has none.
  double GetValueDouble(const CZPoolString& name, const mtime& time, double def) const;
  /// The number of parameter `id` at `time`; `def` when it is not found or has none.
  double GetValueDouble(unsigned long id, const mtime& time, double def) const;
  /// The number of `param` at `time`; `def` for null or when it has none.
  double GetValueDouble(const CParam* param, const mtime& time, double def) const;
  /// The whole number of parameter `name` at `time`; `def` when it is not found or has none.
  long GetValueLong(const CZPoolString& name, const mtime& time, long def) const;
  /// The whole number of parameter `id` at `time`; `def` when it is not found or has none.
  long GetValueLong(unsigned long id, const mtime& time, long def) const;
  /// The whole number of `param` at `time`; `def` for null or when it has none.
  long GetValueLong(const CParam* param, const mtime& time, long def) const;
  /// The boolean of parameter `name` at `time`; `def` when it is not found or has none.
  bool GetValueBool(const CZPoolString& name, const mtime& time, bool def) const;
  /// The boolean of parameter `id` at `time`; `def` when it is not found or has none.
  bool GetValueBool(unsigned long id, const mtime& time, bool def) const;
  /// The boolean of `param` at `time`; `def` for null or when it has none.
  bool GetValueBool(const CParam* param, const mtime& time, bool def) const;
  /// The text of parameter `name` at `time`; `def` when it is not found or has none.
  CZPoolString GetValueString(const CZPoolString& name, const mtime& time,
                              const CZPoolString& def) const;
  /// The text of parameter `id` at `time`; `def` when it is not found or has none.
  CZPoolString GetValueString(unsigned long id, const mtime& time, const CZPoolString& def) const;
  /// The text of `param` at `time`; `def` for null or when it has none.
  CZPoolString GetValueString(const CParam* param, const mtime& time,
                              const CZPoolString& def) const;
  /// The own binary value of parameter `name`; the empty block when it is not found.
  CZMemory GetValueBinary(const CZPoolString& name, const mtime& time) const;
  /// The own binary value of parameter `id`; the empty block when it is not found.
  CZMemory GetValueBinary(unsigned long id, const mtime& time) const;
  /// The own binary value of `param`; the empty block for null.
  CZMemory GetValueBinary(const CParam* param, const mtime& time) const;
  /// The blended payload of parameter `name` at `time` (its size for a null
  /// `buffer`); 0 when it is not found.
  unsigned int GetValueBinary(const CZPoolString& name, const mtime& time, unsigned char* buffer,
                              unsigned int size) const;
  /// The blended payload of parameter `id` at `time` (its size for a null
  /// `buffer`); 0 when it is not found.
  unsigned int GetValueBinary(unsigned long id, const mtime& time, unsigned char* buffer,
                              unsigned int size) const;
  /// The blended payload of `param` at `time` (its size for a null `buffer`); 0 for null.
  unsigned int GetValueBinary(const CParam* param, const mtime& time, unsigned char* buffer,
                              unsigned int size) const;
  /// The area under parameter `name` from the clip's start to `time`; 0 when it is not found.
  double GetIntegralDouble(const CZPoolString& name, const mtime& time) const;
  /// The area under parameter `id` from the clip's start to `time`; 0 when it is not found.
  double GetIntegralDouble(unsigned long id, const mtime& time) const;
  /// The area under `param` from the clip's start to `time`; 0 for null.
  double GetIntegralDouble(const CParam* param, const mtime& time) const;
  /// The slope of parameter `name` at `time` in units per second
  /// (CParam::GetDerivativeDouble); 0 when it is not found.
  double GetDerivativeDouble(const CZPoolString& name, const mtime& time) const;
  /// The slope of parameter `id` at `time`; 0 when it is not found.
  double GetDerivativeDouble(unsigned long id, const mtime& time) const;
  /// The slope of `param` at `time`; 0 for null.
  double GetDerivativeDouble(const CParam* param, const mtime& time) const;
  /// The earliest time at or after `from` (set times) at which the
  /// parameter's value reaches `value` (CParam::GetPositionFromValueDouble);
  /// false, `position` untouched, when it never does or the parameter is not found.
  bool GetPositionFromValueDouble(const CZPoolString& name, double value, mtime& position,
                                  const mtime& from = mtime::null) const;
  /// The same for the parameter of that id.
  bool GetPositionFromValueDouble(unsigned long id, double value, mtime& position,
                                  const mtime& from = mtime::null) const;
  /// The same for `param`; false for null.
  bool GetPositionFromValueDouble(const CParam* param, double value, mtime& position,
                                  const mtime& from = mtime::null) const;

  /// Dumps the set, its parameters and their keyframes to the trace when the
  /// level is active; dumps from several threads never interleave.
  void Display(int category, int level) const;

 private:
  int IndexOf(const CParam* param) const noexcept;  ///< -1 when not in this set

  CParamList m_Params;
  CZMTime m_Duration;
  CZMTime m_StartTime;
};

}  // namespace qdcore
