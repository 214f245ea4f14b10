// The Python module's shared pieces: the handles Python holds, the guard that
// keeps edits away from evaluations running without the GIL, and the
// conversions between Python's values and the host API's.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <memory>
#include <shared_mutex>
#include <string>

#include "qdparam/qdparam.hpp"

namespace qdpy {

namespace py = pybind11;

// Evaluations that release the GIL hold the set's guard shared; edits hold it
// alone. Edits also hold the GIL, so two edits never meet either way.
using Guard = std::shared_ptr<std::shared_mutex>;

struct SetHandle {
  qd::Set set;
  Guard guard = std::make_shared<std::shared_mutex>();
};

// A parameter and the guard of the set it belongs to.
struct ParamHandle {
  qd::Param param;
  Guard guard;

  // The parameter; raises ReferenceError when its set no longer has it.
  const qd::Param& live() const;
  qd::Param& live();
};

// The most samples one call fills: beyond it a request is surely a mistake.
inline constexpr long long kMaxSamples = 1'000'000'000;

// Raises qdparam.LoadError carrying the error's message, line, column, file.
[[noreturn]] void RaiseLoadError(const qd::Error& error);
// Raises ValueError with the error's description when `status` failed.
void Check(const qd::Status& status);
// A sample count from Python: ValueError when negative or above kMaxSamples.
std::size_t SampleCount(long long count);
// Any array-like of numbers as a contiguous 1-D float64 array; TypeError or
// ValueError for anything else.
using Times = py::array_t<double, py::array::c_style | py::array::forcecast>;
Times TimesOf(const py::handle& times);
// A finite number, or ValueError naming `what`.
double Finite(double value, const char* what);

// An interpolation kind or ease from its enum value or its name (either the
// enum's or the format's spelling, any case); ValueError for an unknown name,
// TypeError for anything else.
qd::Interpolation ToInterpolation(const py::handle& value);
qd::Ease ToEase(const py::handle& value);
qd::Extrapolation ToExtrapolation(const py::handle& value);

void BindEnums(py::module_& m);
void BindSet(py::module_& m);
void BindParam(py::module_& m);
// Keyframes and the editing methods of the parameter class.
void BindKeys(py::module_& m, py::class_<ParamHandle>& param);

}  // namespace qdpy
