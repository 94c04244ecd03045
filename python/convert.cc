#include "python/convert.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"

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

// A dict in key order. The maps have no order of their own; sorted keys make
// what a script prints the same from one run to the next.
template <typename Map, typename Convert>
py::dict sortedDict(const Map& map, Convert&& convert) {
  std::vector<const typename Map::value_type*> entries;
  entries.reserve(map.size());
  for (const auto& entry : map) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });
  py::dict out;
  for (const auto* entry : entries) out[toStr(entry->first)] = convert(entry->second);
  return out;
}

py::object toPython(const BasicBlockRange& range, const py::object& cls) {
  return cls(range.start, range.end);
}

BasicBlockRange rangeFromPython(py::handle value) {
  std::vector<py::object> f = recordFields(value, 2, "BasicBlockRange");
  BasicBlockRange range;
  range.start = checkedUint<uint32_t>(f[0], "BasicBlockRange.start");
  range.end = checkedUint<uint32_t>(f[1], "BasicBlockRange.end");
  return range;
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
    throwError(max <= 0xFF ? PyExc_ValueError : PyExc_OverflowError,
          absl::StrCat(what, " must be between 0 and ", max, ", got ",
                       std::string(py::str(value))));
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

py::object toPython(const DebugInfoID& id) {
  return recordClass("DebugInfoID")(id.kind, id.id0, id.id1);
}

DebugInfoID dbgIdFromPython(py::handle value) {
  std::vector<py::object> f = recordFields(value, 3, "DebugInfoID");
  DebugInfoID id;
  id.kind = checkedUint<uint8_t>(f[0], "DebugInfoID.kind");
  id.id0 = checkedUint<uint16_t>(f[1], "DebugInfoID.id0");
  id.id1 = checkedUint<uint16_t>(f[2], "DebugInfoID.id1");
  return id;
}

py::object toPython(const SpillInfo& info) {
  py::object cls = recordClass("SpillLoc");
  py::list out;
  for (const SpillLoc& loc : info.locs) {
    out.append(cls(loc.addr, loc.index, loc.kind, toStr(loc.name)));
  }
  return out;
}

SpillInfo spillInfoFromPython(py::handle value) {
  SpillInfo info;
  forEachItem(value, "spill_info", [&](py::handle item) {
    std::vector<py::object> f = recordFields(item, 4, "SpillLoc");
    SpillLoc loc;
    loc.addr = checkedUint<uint32_t>(f[0], "SpillLoc.addr");
    loc.index = checkedUint<uint8_t>(f[1], "SpillLoc.index");
    loc.kind = checkedUint<uint8_t>(f[2], "SpillLoc.kind");
    loc.name = fromStr(f[3], "SpillLoc.name");
    info.locs.push_back(std::move(loc));
  });
  return info;
}

// A SWP location holds nothing but its address, so the list is of ints.
py::object toPython(const SWPInfo& info) {
  py::list out;
  for (const SWPLoc& loc : info.locs) out.append(loc.addr);
  return out;
}

SWPInfo swpInfoFromPython(py::handle value) {
  SWPInfo info;
  forEachItem(value, "swp_info", [&](py::handle item) {
    info.locs.push_back(SWPLoc{checkedUint<uint32_t>(item, "swp_info address")});
  });
  return info;
}

py::object toPython(const ControlFlowGraph& cfg) {
  py::object cls = recordClass("BasicBlockRange");
  py::list out;
  for (const auto& edge : cfg.edges) {
    out.append(py::make_tuple(toPython(std::get<0>(edge), cls),
                              toPython(std::get<1>(edge), cls)));
  }
  return out;
}

ControlFlowGraph cfgFromPython(py::handle value) {
  ControlFlowGraph cfg;
  forEachItem(value, "cfg_info", [&](py::handle item) {
    std::vector<py::object> pair = recordFields(item, 2, "CFG edge");
    cfg.edges.emplace_back(rangeFromPython(pair[0]), rangeFromPython(pair[1]));
  });
  return cfg;
}

py::object toPython(const SourceMap& sources) {
  return sortedDict(sources, [](const std::vector<std::string>& lines) {
    py::list out;
    for (const std::string& line : lines) out.append(toStr(line));
    return out;
  });
}

SourceMap sourceMapFromPython(py::handle value) {
  SourceMap sources;
  forEachEntry(value, "src_info", [&](py::handle key, py::handle lines) {
    std::vector<std::string> converted;
    forEachItem(lines, "src_info value", [&](py::handle line) {
      converted.push_back(fromStr(line, "src_info string"));
    });
    sources[fromStr(key, "src_info key")] = std::move(converted);
  });
  return sources;
}

py::object toPython(const SymbolMap& symbols) {
  py::object cls = recordClass("SymbolAddr");
  return sortedDict(symbols, [&cls](const SymbolAddr& symbol) {
    return cls(symbol.kind, symbol.addr);
  });
}

SymbolMap symbolMapFromPython(py::handle value) {
  SymbolMap symbols;
  forEachEntry(value, "sym_info", [&](py::handle key, py::handle entry) {
    std::vector<py::object> f = recordFields(entry, 2, "SymbolAddr");
    SymbolAddr symbol;
    symbol.kind = checkedUint<uint8_t>(f[0], "SymbolAddr.kind");
    symbol.addr = checkedUint<uint32_t>(f[1], "SymbolAddr.addr");
    symbols[fromStr(key, "sym_info key")] = symbol;
  });
  return symbols;
}

py::object toPython(const LatencyInfo& info) {
  py::object cls = recordClass("LatencyInfoLoc");
  py::list out;
  for (const LatencyInfoLoc& loc : info.locs) {
    out.append(cls(loc.addr, loc.kind, loc.value0, loc.value1, loc.value2, loc.value3));
  }
  return out;
}

LatencyInfo latencyInfoFromPython(py::handle value) {
  LatencyInfo info;
  forEachItem(value, "latency_info", [&](py::handle item) {
    std::vector<py::object> f = recordFields(item, 6, "LatencyInfoLoc");
    LatencyInfoLoc loc;
    loc.addr = checkedUint<uint32_t>(f[0], "LatencyInfoLoc.addr");
    loc.kind = checkedUint<uint8_t>(f[1], "LatencyInfoLoc.kind");
    loc.value0 = checkedUint<uint8_t>(f[2], "LatencyInfoLoc.value0");
    loc.value1 = checkedUint<uint8_t>(f[3], "LatencyInfoLoc.value1");
    loc.value2 = checkedUint<uint8_t>(f[4], "LatencyInfoLoc.value2");
    loc.value3 = checkedUint<uint8_t>(f[5], "LatencyInfoLoc.value3");
    info.locs.push_back(loc);
  });
  return info;
}

}  // namespace python
}  // namespace zelk_elf
