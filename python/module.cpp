// The qdparam Python module: its exceptions, enums and the conversions every
// binding shares.
#include <pybind11/pybind11.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>
#include <string_view>

#include "binding.h"

namespace qdpy {

namespace {

PyObject* g_loadError = nullptr;  // qdparam.LoadError, owned by the module

constexpr const char* kLoadErrorDoc =
    "A set could not be read.\n\n"
    "str() gives 'file:line:column: message', leaving out what is not known.\n"
    "Attributes: message (str), line and column (1-based, 0 when the failure\n"
    "has no place in a text), file (the path read, or '').";

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

// The enum value named `name`, by the enum's own names or the format's.
template <typename Enum>
bool FindByName(const py::handle& enumType, std::string_view name, Enum& out) {
  for (const auto& item : py::dict(enumType.attr("__members__"))) {
    const Enum value = item.second.cast<Enum>();
    if (SameName(name, item.first.cast<std::string>()) || SameName(name, qd::name_of(value))) {
      out = value;
      return true;
    }
  }
  return false;
}

template <typename Enum>
Enum ToEnum(const py::handle& value, const char* enumName) {
  const py::object enumType = py::module_::import("qdparam").attr(enumName);
  if (py::isinstance(value, enumType)) return value.cast<Enum>();
  if (!py::isinstance<py::str>(value)) {
    throw py::type_error(std::string("expected qdparam.") + enumName + " or its name as str");
  }
  Enum found{};
  const std::string name = value.cast<std::string>();
  if (!FindByName(enumType, name, found)) {
    throw py::value_error("no " + std::string(enumName) + " is called '" + name + "'");
  }
  return found;
}

}  // namespace

void RaiseLoadError(const qd::Error& error) {
  py::object instance = py::reinterpret_borrow<py::object>(g_loadError)(error.describe());
  instance.attr("message") = error.message;
  instance.attr("line") = error.line;
  instance.attr("column") = error.column;
  instance.attr("file") = error.file;
  PyErr_SetObject(g_loadError, instance.ptr());
  throw py::error_already_set();
}

void Check(const qd::Status& status) {
  if (!status) throw py::value_error(status.error().describe());
}

std::size_t SampleCount(long long count) {
  if (count < 0) throw py::value_error("count must not be negative");
  if (count > kMaxSamples) {
    throw py::value_error("count " + std::to_string(count) + " is more than " +
                          std::to_string(kMaxSamples) + " samples");
  }
  return static_cast<std::size_t>(count);
}

double Finite(double value, const char* what) {
  if (!std::isfinite(value)) throw py::value_error(std::string(what) + " must be a finite number");
  return value;
}

Times TimesOf(const py::handle& times) {
  Times array = Times::ensure(times);
  if (!array) throw py::type_error("times must be a 1-D array-like of numbers");
  if (array.ndim() != 1) {
    throw py::value_error("times must be 1-D, not " + std::to_string(array.ndim()) + "-D");
  }
  return array;
}

qd::Interpolation ToInterpolation(const py::handle& value) {
  return ToEnum<qd::Interpolation>(value, "Interpolation");
}

qd::Extrapolation ToExtrapolation(const py::handle& value) {
  return ToEnum<qd::Extrapolation>(value, "Extrapolation");
}

// Eases also combine: Ease.In | Ease.Out (an int), or "In|Out".
qd::Ease ToEase(const py::handle& value) {
  if (py::isinstance<py::int_>(value) && !py::isinstance<py::bool_>(value)) {
    const long long bits = value.cast<long long>();
    if (bits < 0 || bits > 15)
      throw py::value_error("no ease has the bits " + std::to_string(bits));
    return static_cast<qd::Ease>(bits);
  }
  if (!py::isinstance<py::str>(value)) return ToEnum<qd::Ease>(value, "Ease");
  const std::string text = value.cast<std::string>();
  unsigned int bits = 0;
  std::size_t from = 0;
  while (from <= text.size()) {
    const std::size_t bar = std::min(text.find('|', from), text.size());
    bits |=
        static_cast<unsigned int>(ToEnum<qd::Ease>(py::str(text.substr(from, bar - from)), "Ease"));
    from = bar + 1;
  }
  return static_cast<qd::Ease>(bits);
}

const qd::Param& ParamHandle::live() const {
  if (!param.valid()) {
    PyErr_SetString(PyExc_ReferenceError,
                    "the parameter is no longer in its set (look it up again)");
    throw py::error_already_set();
  }
  return param;
}

qd::Param& ParamHandle::live() {
  static_cast<const ParamHandle&>(*this).live();
  return param;
}

void BindEnums(py::module_& m) {
  py::enum_<qd::Type>(m, "Type", "A parameter's type.")
      .value("Double", qd::Type::Double)
      .value("Long", qd::Type::Long)
      .value("String", qd::Type::String)
      .value("Binary", qd::Type::Binary)
      .value("Bool", qd::Type::Bool)
      .value("Group", qd::Type::Group)
      .value("Undefined", qd::Type::Undefined);
  py::enum_<qd::Interpolation>(m, "Interpolation",
                               "How a keyframe's value blends into the next one's.")
      .value("Hold", qd::Interpolation::Hold)
      .value("Linear", qd::Interpolation::Linear)
      .value("Bezier", qd::Interpolation::Bezier)
      .value("LinLog", qd::Interpolation::LinLog)
      .value("Spline", qd::Interpolation::Spline)
      .value("Custom", qd::Interpolation::Custom);
  py::enum_<qd::Extrapolation>(
      m, "Extrapolation",
      "What a keyframed value does before its first or after its last keyframe.")
      .value("Hold", qd::Extrapolation::Hold)
      .value("Linear", qd::Extrapolation::Linear)
      .value("Cycle", qd::Extrapolation::Cycle)
      .value("CycleWithOffset", qd::Extrapolation::CycleWithOffset)
      .value("Oscillate", qd::Extrapolation::Oscillate);
  py::enum_<qd::Ease>(
      m, "Ease",
      "A keyframe's easing of time; Linear is none. In and Out combine: Ease.In | Ease.Out.",
      py::arithmetic())
      .value("Linear", qd::Ease::None)  // time passes evenly: no easing
      .value("InOut", qd::Ease::InOut)
      .value("AnchorInOut", qd::Ease::AnchorInOut)
      .value("In", qd::Ease::In)
      .value("Out", qd::Ease::Out)
      .def(
          "__or__", [](qd::Ease a, qd::Ease b) { return a | b; }, py::is_operator(),
          "Both eases: Ease.In | Ease.Out.");
}

}  // namespace qdpy

PYBIND11_MODULE(qdparam, m) {
  using namespace qdpy;
  m.doc() =
      "Animated parameters of video effects: load a parameter set, evaluate its\n"
      "parameters at any time (one value, or NumPy arrays in one call), edit\n"
      "keyframes, apply presets, validate and store.\n\n"
      "    import numpy as np, qdparam\n"
      "    pip = qdparam.load('examples/pip.xml')\n"
      "    pip.clip = (0.0, 10.0)              # start and duration in seconds\n"
      "    pip['opacity'].value(0.5)           # 50.0\n"
      "    pip['size'].values(np.linspace(0, 10, 1001))\n\n"
      "Times are seconds on the set's time line. Failures raise LoadError\n"
      "(reading), ValueError (refused edits and bad arguments), TypeError\n"
      "(wrong types) and ReferenceError (a parameter handle whose parameter\n"
      "left its set). Evaluating arrays, loading and storing release the GIL.";
  m.attr("__version__") = QDPARAM_PY_VERSION;

  py::dict defaults;
  defaults["message"] = "";
  defaults["line"] = 0;
  defaults["column"] = 0;
  defaults["file"] = "";
  PyObject* loadError = PyErr_NewExceptionWithDoc("qdparam.LoadError", kLoadErrorDoc,
                                                  PyExc_Exception, defaults.ptr());
  if (!loadError) throw py::error_already_set();
  m.add_object("LoadError", py::reinterpret_steal<py::object>(loadError));
  g_loadError = loadError;

  BindEnums(m);
  BindParam(m);
  BindSet(m);
}
