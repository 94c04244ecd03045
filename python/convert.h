// Conversions between the library's values and plain Python values. Every
// conversion from Python checks each integer against the width of the C++
// field it lands in, so nothing is silently truncated.
#ifndef ZELK_ELF_PYTHON_CONVERT_H_
#define ZELK_ELF_PYTHON_CONVERT_H_

#include <Python.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <limits>
#include <string>

#include "absl/strings/string_view.h"
#include "absl/types/span.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace python {

namespace py = pybind11;

// Sets a Python exception of `type` and unwinds to pybind11, which hands it
// to the interpreter unchanged.
[[noreturn]] void throwError(PyObject* type, const std::string& message);

// Raises the package's own exception class `name` (LoadError, SaveError).
[[noreturn]] void throwPackageError(const char* name, absl::string_view message);

// An int in [0, max]; any other raises OverflowError, as int.to_bytes()
// does, and for byte-wide fields a ByteRangeError, which is a ValueError too,
// as bytes() raises. Anything but an int raises TypeError. `what` names the
// field in messages.
uint64_t checkedUnsigned(py::handle value, uint64_t max, const char* what);

template <typename T>
T checkedUint(py::handle value, const char* what) {
  return static_cast<T>(
      checkedUnsigned(value, std::numeric_limits<T>::max(), what));
}

// The library's strings are byte strings without an encoding. They cross as
// str, decoded as UTF-8 with undecodable bytes kept as lone surrogates
// (surrogateescape), so every byte string survives the round trip.
py::str toStr(absl::string_view bytes);
std::string fromStr(py::handle value, const char* what);

// The bytes of any contiguous buffer (bytes, bytearray, memoryview), held
// exported for the lifetime of this object.
class ByteBuffer {
 public:
  ByteBuffer(py::handle object, const char* what);
  ~ByteBuffer();
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;

  absl::Span<const uint8_t> span() const {
    return {static_cast<const uint8_t*>(view_.buf),
            static_cast<size_t>(view_.len)};
  }

 private:
  Py_buffer view_{};
};

// A copy of `bytes` as a Python bytes object.
py::bytes toBytes(absl::Span<const uint8_t> bytes);

// The value of row `index` of the debug-field table as Python sees it (the
// package's named tuples, lists and dicts, see zelk_elf/__init__.py), None
// when absent; and its assignment, None making it absent. The new value is
// converted whole first, so a refused one leaves the field as it was.
py::object getDebugField(const ELF& elf, size_t index);
void setDebugField(ELF& elf, size_t index, py::handle value);

}  // namespace python
}  // namespace zelk_elf

#endif  // ZELK_ELF_PYTHON_CONVERT_H_
