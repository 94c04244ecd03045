#include "python/convert.h"

#include <string>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "elf/debug_fields.h"

namespace zelk_elf {
namespace python {
namespace {

// The package's record classes live in its Python half, so that they are
// ordinary named tuples with annotations and docstrings.
py::object recordClass(const char* name) {
  return py::module_::import("zelk_elf").attr(name);
}

const char* typeName(py::handle value) { return Py_TYPE(value.ptr())->tp_name; }

bool isText(py::handle value) {
  PyObject* p = value.ptr();
  return PyUnicode_Check(p) || PyBytes_Check(p) || PyByteArray_Check(p);
}

// The fields of a record given as its named tuple or as any sequence of the
// same length, so plain tuples work as well.
std::vector<py::object> recordFields(py::handle value, size_t count,
                                     const char* record) {
  if (!PySequence_Check(value.ptr()) || isText(value)) {
    throwError(PyExc_TypeError, absl::StrCat("expected a ", record, " or a tuple of ",
                                        count, " fields, got ", typeName(value)));
  }
  auto sequence = py::reinterpret_borrow<py::sequence>(value);
  if (sequence.size() != count) {
    throwError(PyExc_TypeError, absl::StrCat("expected a ", record, " of ", count,
                                        " fields, got ", sequence.size()));
  }
  std::vector<py::object> fields;
  fields.reserve(count);
  for (size_t i = 0; i < count; ++i) fields.push_back(sequence[i]);
  return fields;
}

// Calls `add` for each element of a list-valued field: any iterable except a
// string, whose characters or bytes are never meant as elements.
template <typename Add>
void forEachItem(py::handle value, const char* what, Add&& add) {
  if (isText(value)) {
    throwError(PyExc_TypeError, absl::StrCat(what, " must be a list, not ",
                                        typeName(value)));
  }
  for (py::handle item : py::iter(value)) add(item);
}

// Calls `add` for each (key, value) of a dict-valued field.
template <typename Add>
void forEachEntry(py::handle value, const char* what, Add&& add) {
  py::object mapping = py::module_::import("collections.abc").attr("Mapping");
  if (!py::isinstance(value, mapping)) {
    throwError(PyExc_TypeError, absl::StrCat(what, " must be a dict, not ",
                                        typeName(value)));
  }
  for (py::handle key : py::iter(value)) {
    py::object item = value[key];
    add(key, item);
  }
}

}  // namespace

void throwError(PyObject* type, const std::string& message) {
  PyErr_SetString(type, message.c_str());
  throw py::error_already_set();
}

void throwPackageError(const char* name, absl::string_view message) {
  py::object cls = recordClass(name);
  // Reasons may quote section names, which are bytes of any value.
  py::object text = py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
      message.data(), static_cast<Py_ssize_t>(message.size()), "backslashreplace"));
  if (!text) throw py::error_already_set();
  PyErr_SetObject(cls.ptr(), text.ptr());
  throw py::error_already_set();
}

uint64_t checkedUnsigned(py::handle value, uint64_t max, const char* what) {
  if (!PyLong_Check(value.ptr())) {
    throwError(PyExc_TypeError,
          absl::StrCat(what, " must be an int, not ", typeName(value)));
  }
  const unsigned long long v = PyLong_AsUnsignedLongLong(value.ptr());
  // Negative values and values beyond 64 bits fail the conversion itself.
  const bool unconvertible = v == static_cast<unsigned long long>(-1) && PyErr_Occurred();
  if (unconvertible) PyErr_Clear();
  if (unconvertible || v > max) {
    const std::string message =
        absl::StrCat(what, " must be between 0 and ", max, ", got ", std::string(py::str(value)));
    if (max <= 0xFF) throwPackageError("ByteRangeError", message);
    throwError(PyExc_OverflowError, message);
  }
  return v;
}

py::str toStr(absl::string_view bytes) {
  PyObject* s = PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()),
                                     "surrogateescape");
  if (s == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(s);
}

std::string fromStr(py::handle value, const char* what) {
  if (!PyUnicode_Check(value.ptr())) {
    throwError(PyExc_TypeError, absl::StrCat(what, " must be a str, not ", typeName(value)));
  }
  PyObject* encoded = PyUnicode_AsEncodedString(value.ptr(), "utf-8", "surrogateescape");
  if (encoded == nullptr) throw py::error_already_set();
  auto owner = py::reinterpret_steal<py::bytes>(encoded);
  return std::string(PyBytes_AS_STRING(encoded),
                     static_cast<size_t>(PyBytes_GET_SIZE(encoded)));
}

ByteBuffer::ByteBuffer(py::handle object, const char* what) {
  if (PyUnicode_Check(object.ptr())) {
    throwError(PyExc_TypeError, absl::StrCat(what, " must be bytes-like, not str"));
  }
  if (PyObject_GetBuffer(object.ptr(), &view_, PyBUF_SIMPLE) != 0) {
    throw py::error_already_set();
  }
}

ByteBuffer::~ByteBuffer() { PyBuffer_Release(&view_); }

py::bytes toBytes(absl::Span<const uint8_t> bytes) {
  if (bytes.empty()) return py::bytes();
  return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

namespace {

// What each C++ type becomes in Python, derived from the records' field
// lists: unsigned integers are int, byte strings str, a record its named
// tuple (a record of one integer, a SWP location, is that int), a tuple a
// tuple, a vector or a list record a list, a map a dict in key order.
// `what` names the value in messages: "swp_info", "SpillLoc.addr".

template <typename Record>
constexpr size_t fieldCount() {
  return std::tuple_size<decltype(Fields<Record>::kList)>::value;
}
template <typename Record>
using FirstType =
    typename std::decay_t<decltype(std::get<0>(Fields<Record>::kList))>::Type;
// A record that stands for its one field: a list record is its list, a
// record of one integer is that integer.
template <typename Record>
constexpr bool isWrapper() {
  return fieldCount<Record>() == 1 &&
         (IsVector<FirstType<Record>>::value || std::is_integral<FirstType<Record>>::value);
}

template <typename T>
py::object toPython(const T& value);

template <typename T>
py::object recordToPython(const T& record) {
  if constexpr (isWrapper<T>()) {
    return toPython(record.*(std::get<0>(Fields<T>::kList).member));
  } else {
    py::tuple args(fieldCount<T>());
    size_t i = 0;
    visitFields([&](const char*, const auto& field) { args[i++] = toPython(field); }, record);
    return recordClass(Fields<T>::kName)(*args);
  }
}

template <typename T>
py::object toPython(const T& value) {
  if constexpr (std::is_integral<T>::value) {
    return py::int_(value);
  } else if constexpr (std::is_same<T, std::string>::value) {
    return toStr(value);
  } else if constexpr (IsRecord<T>::value) {
    return recordToPython(value);
  } else if constexpr (IsTuple<T>::value) {
    return std::apply([](const auto&... e) { return py::make_tuple(toPython(e)...); }, value);
  } else if constexpr (IsVector<T>::value) {
    py::list out;
    for (const auto& element : value) out.append(toPython(element));
    return std::move(out);
  } else {
    static_assert(IsMap<T>::value, "no Python form for this type");
    // In key order, so what a script prints is the same from run to run.
    py::dict out;
    for (const auto* entry : sortedEntries(value)) out[toStr(entry->first)] = toPython(entry->second);
    return std::move(out);
  }
}

// A tuple's name in messages: the one tuple is a CFG edge.
constexpr char kTupleName[] = "CFG edge";

template <typename T>
T fromPython(py::handle value, const std::string& what);

template <typename T>
T recordFromPython(py::handle value, const std::string& what) {
  T record;
  if constexpr (isWrapper<T>()) {
    using Field = FirstType<T>;
    const std::string element =
        IsVector<Field>::value ? what : what + " " + writtenOut(std::get<0>(Fields<T>::kList).name);
    record.*(std::get<0>(Fields<T>::kList).member) = fromPython<Field>(value, element);
  } else {
    const std::vector<py::object> f = recordFields(value, fieldCount<T>(), Fields<T>::kName);
    size_t i = 0;
    visitFields(
        [&](const char* name, auto& field) {
          field = fromPython<std::decay_t<decltype(field)>>(
              f[i++], absl::StrCat(Fields<T>::kName, ".", name));
        },
        record);
  }
  return record;
}

template <typename T>
T fromPython(py::handle value, const std::string& what) {
  if constexpr (std::is_integral<T>::value) {
    return checkedUint<T>(value, what.c_str());
  } else if constexpr (std::is_same<T, std::string>::value) {
    return fromStr(value, what.c_str());
  } else if constexpr (IsRecord<T>::value) {
    return recordFromPython<T>(value, what);
  } else if constexpr (IsTuple<T>::value) {
    const std::vector<py::object> f =
        recordFields(value, std::tuple_size<T>::value, kTupleName);
    T out;
    size_t i = 0;
    std::apply(
        [&](auto&... e) { ((e = fromPython<std::decay_t<decltype(e)>>(f[i++], what)), ...); },
        out);
    return out;
  } else if constexpr (IsVector<T>::value) {
    T out;
    // Strings in a source map's list are named for themselves.
    const std::string element =
        std::is_same<typename T::value_type, std::string>::value ? what + " string" : what;
    forEachItem(value, what.c_str(), [&](py::handle item) {
      out.push_back(fromPython<typename T::value_type>(item, element));
    });
    return out;
  } else {
    static_assert(IsMap<T>::value, "no Python form for this type");
    T out;
    forEachEntry(value, what.c_str(), [&](py::handle key, py::handle item) {
      out[fromStr(key, (what + " key").c_str())] =
          fromPython<typename T::mapped_type>(item, what + " value");
    });
    return out;
  }
}

}  // namespace

py::object getDebugField(const ELF& elf, size_t index) {
  py::object out = py::none();
  forEachDebugField([&](size_t i, const auto& field) {
    const auto& value = elf.*field.member;
    if (i == index && value) out = toPython(*value);
  });
  return out;
}

void setDebugField(ELF& elf, size_t index, py::handle value) {
  forEachDebugField([&](size_t i, const auto& field) {
    using T = typename std::decay_t<decltype(field)>::Type;
    if (i != index) return;
    if (value.is_none()) {
      (elf.*field.member).reset();
    } else {
      elf.*field.member = fromPython<T>(value, field.python_name);
    }
  });
}

}  // namespace python
}  // namespace zelk_elf
