// zelk_elf._zelk_elf: the extension half of the Python package. It binds
// zelk_elf::ELF as zelk_elf.ELF; the package's __init__.py holds the record
// types, the section view and the exceptions that this half builds and raises.
#include <pybind11/pybind11.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "absl/container/flat_hash_set.h"
#include "absl/status/statusor.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/string_view.h"
#include "absl/types/optional.h"
#include "elf/debug_fields.h"
#include "elf/internal.h"
#include "engine/image.h"
#include "python/convert.h"
#include "zelk_elf/elf.h"

namespace zelk_elf {
namespace python {
namespace {

// Objects whose library call runs without the GIL, so that other threads
// go on meanwhile. The library lets one thread at a time use an object, so
// every other use of a busy object raises. Only touched with the GIL held.
absl::flat_hash_set<const ELF*>& busyObjects() {
  static absl::flat_hash_set<const ELF*> busy;
  return busy;
}

// Runs `work` without the GIL, the object marked busy meanwhile.
template <typename Work>
auto withoutGil(const ELF& elf, Work work) {
  busyObjects().insert(&elf);
  struct Unmark {
    const ELF* elf;
    ~Unmark() { busyObjects().erase(elf); }  // after the GIL is back
  } unmark{&elf};
  py::gil_scoped_release release;
  return work();
}

// The object behind `self`. One made with ELF.__new__ and no __init__ holds
// no ELF yet (pybind11 would hand out unconstructed memory): using it raises
// TypeError, as does a method called on something that is not an ELF.
ELF& live(py::handle self) {
  if (!py::isinstance<ELF>(self)) {
    throwError(PyExc_TypeError, "expected a zelk_elf.ELF");
  }
  auto* instance = reinterpret_cast<py::detail::instance*>(self.ptr());
  const py::detail::value_and_holder held =
      instance->get_value_and_holder(py::detail::get_type_info(typeid(ELF)));
  if (!held.holder_constructed()) {
    throwError(PyExc_TypeError,
               "this zelk_elf.ELF was never initialized; make one with ELF() or zelk_elf.load()");
  }
  ELF& elf = *held.value_ptr<ELF>();
  if (busyObjects().contains(&elf)) {
    throwError(PyExc_RuntimeError,
               "this zelk_elf.ELF is in use by another thread; use one object from one "
               "thread at a time");
  }
  return elf;
}

// A bytes object holding a copy of `bytes`, copied without the GIL: the
// object is nobody else's until it is returned.
py::bytes bytesWithoutGil(const ELF& elf, absl::Span<const uint8_t> bytes) {
  PyObject* out = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(bytes.size()));
  if (out == nullptr) throw py::error_already_set();
  auto owned = py::reinterpret_steal<py::bytes>(out);
  if (!bytes.empty()) {
    withoutGil(elf, [&] { std::memcpy(PyBytes_AS_STRING(out), bytes.data(), bytes.size()); });
  }
  return owned;
}

// The fields of one of the engine's records, named as its field list names
// them, for a named tuple: the type is made once at import from a blank
// record, and each record becomes an instance of it.
class RecordFields {
 public:
  void half(const char* name, uint16_t v) { add(name, py::int_(v)); }
  void word(const char* name, uint32_t v) { add(name, py::int_(v)); }
  void addr(const char* name, uint64_t v) { add(name, py::int_(v)); }
  void add(const char* name, py::object value) {
    names_.append(name);
    values_.append(std::move(value));
  }
  py::object type(const char* name) const {
    py::object type = py::module_::import("collections").attr("namedtuple")(name, names_);
    type.attr("__module__") = "zelk_elf";
    return type;
  }
  // An instance of the package's type `type`, made from these fields.
  py::object instanceOf(py::handle type) const { return type(*py::tuple(values_)); }
  static py::object typeNamed(const char* type) {
    return py::module_::import("zelk_elf._zelk_elf").attr(type);
  }

 private:
  py::list names_, values_;
};

RecordFields headerFields(const engine::Image& image) {
  RecordFields record;
  const engine::FileHeader& h = image.header();
  record.add("elf_class", py::int_(image.wide() ? 64 : 32));
  record.add("byte_order", py::str(image.encoding() == engine::kDataMsb ? "big" : "little"));
  record.add("osabi", py::int_(h.ident[7]));
  record.add("abiversion", py::int_(h.ident[8]));
  engine::visitFileHeader(h, record);
  return record;
}

RecordFields sectionFields(const engine::Section& section) {
  RecordFields record;
  record.add("name", toStr(section.name));
  engine::visitSectionHeader(section.header, record);
  record.add("data", toBytes(section.bytes()));
  return record;
}

RecordFields segmentFields(const engine::Segment& segment) {
  RecordFields record;
  engine::visitSegmentHeader<true>(segment.header, record);
  py::tuple members(segment.sections.size());
  size_t k = 0;
  for (uint16_t index : segment.sections) members[k++] = py::int_(index);
  record.add("sections", std::move(members));
  return record;
}

template <typename Item, typename Fields>
py::tuple recordsOf(absl::Span<const Item> items, const char* type, Fields fields) {
  const py::object record_type = RecordFields::typeNamed(type);  // once, not per record
  py::tuple out(items.size());
  for (size_t i = 0; i < items.size(); ++i) out[i] = fields(items[i]).instanceOf(record_type);
  return out;
}

// Turns `f(ELF&, args...)` into a method `(self, args...)` that reaches the
// ELF through live().
template <typename Call>
struct OnLive;
template <typename F, typename R, typename Self, typename... Args>
struct OnLive<R (F::*)(Self, Args...) const> {
  static auto wrap(F f) {
    return [f](py::handle self, Args... args) -> R {
      return f(live(self), std::forward<Args>(args)...);
    };
  }
};
template <typename F>
auto onLive(F f) {
  return OnLive<decltype(&F::operator())>::wrap(std::move(f));
}

// Each debug field as a property.
void defDebugFields(py::class_<ELF>& cls) {
  forEachDebugField([&cls](size_t index, const auto& field) {
    cls.def_property(
        field.python_name, onLive([index](const ELF& elf) { return getDebugField(elf, index); }),
        onLive([index](ELF& elf, py::handle value) { setDebugField(elf, index, value); }),
        absl::StrCat("The value of ", field.section, ", or None when the image has none.")
            .c_str());
  });
}

[[noreturn]] void throwKeyError(py::handle key) {
  PyErr_SetObject(PyExc_KeyError, key.ptr());
  throw py::error_already_set();
}

std::string sectionName(py::handle name) { return fromStr(name, "section name"); }

// The section names in table order, or only the first of each when
// `distinct`. Sections that share a name share one str, so memory follows
// the distinct names, however often an image repeats them.
py::list sectionNames(const ELF& elf, bool distinct) {
  absl::flat_hash_map<absl::string_view, py::object> made;
  py::list names;
  for (const engine::Section& section : imageOf(elf).sections()) {
    auto [it, fresh] = made.try_emplace(section.name);
    if (fresh) {
      it->second = toStr(section.name);
    } else if (distinct) {
      continue;
    }
    names.append(it->second);
  }
  return names;
}

void bindElf(py::module_& m) {
  py::class_<ELF> cls(m, "ELF", R"(One ELF image in memory with its decoded debug information.

ELF() is a new, empty 32-bit little-endian image; zelk_elf.load() reads one.)");
  cls.def(py::init<>());

  // Header fields.
  cls.def_property(
      "machine", onLive([](const ELF& elf) { return elf.getMachine(); }),
      onLive([](ELF& elf, py::handle v) { elf.setMachine(checkedUint<uint16_t>(v, "machine")); }),
      "e_machine (16 bits).");
  cls.def_property(
      "type", onLive([](const ELF& elf) { return elf.getType(); }),
      onLive([](ELF& elf, py::handle v) { elf.setType(checkedUint<uint16_t>(v, "type")); }),
      "e_type (16 bits).");
  cls.def_property(
      "entry", onLive([](const ELF& elf) { return elf.getEntry(); }),
      onLive([](ELF& elf, py::handle v) {
        // The header keeps the entry in the class's address width; refuse
        // what a 32-bit image would silently cut to its low half.
        const bool wide = imageOf(elf).wide();
        elf.setEntry(checkedUnsigned(
            v, wide ? std::numeric_limits<uint64_t>::max()
                    : std::numeric_limits<uint32_t>::max(),
            "entry"));
      }),
      "e_entry (32 or 64 bits, by the image's class).");

  // The image's structure, as the header records hold it now.
  cls.def_property_readonly(
      "header", onLive([](const ELF& elf) {
        return headerFields(imageOf(elf)).instanceOf(RecordFields::typeNamed("Header"));
      }),
      "The ELF header's fields, with the class (32 or 64) and byte order (\"little\", \"big\").");
  cls.def_property_readonly(
      "section_headers",
      onLive([](const ELF& elf) {
        return recordsOf(imageOf(elf).sections(), "SectionHeader", sectionFields);
      }),
      "Every section header in table order, with its name and the bytes it holds.");
  cls.def_property_readonly(
      "segments",
      onLive([](const ELF& elf) { return recordsOf(imageOf(elf).segments(), "Segment", segmentFields); }),
      "Every program header in table order, with the indexes of the sections it carries.");

  // Raw sections. Contents leave as bytes copies: a later set_section,
  // set_text or save may free the storage a view would point into.
  cls.def_property_readonly(
      "section_names",
      onLive([](const ELF& elf) { return sectionNames(elf, false); }),
      "Names of all sections in table order, the null section's \"\" first.");
  cls.def("_distinct_section_names",
          onLive([](const ELF& elf) { return sectionNames(elf, true); }));
  cls.def_property_readonly(
      "sections",
      [](py::object self) { return py::module_::import("zelk_elf").attr("Sections")(self); },
      "Read-only mapping of section names to their contents (bytes).");
  cls.def(
      "section_size",
      onLive([](const ELF& elf, py::handle name) {
        const std::string key = sectionName(name);
        if (!elf.hasSection(key)) throwKeyError(name);
        return elf.getSectionSize(key);
      }),
      py::arg("name"), "The section's recorded size (sh_size); KeyError when missing.");
  cls.def(
      "set_section",
      onLive([](ELF& elf, py::handle name, py::handle data) {
        const std::string key = sectionName(name);
        ByteBuffer buffer(data, "data");
        withoutGil(elf, [&] { elf.setSection(key, buffer.span()); });
      }),
      py::arg("name"), py::arg("data"),
      "Replaces the section's contents, creating it when missing.");
  // What the Sections view is made of.
  cls.def("_has_section", onLive([](const ELF& elf, py::handle name) {
    return elf.hasSection(sectionName(name));
  }));
  cls.def("_section", onLive([](const ELF& elf, py::handle name) -> py::object {
    const std::string key = sectionName(name);
    if (!elf.hasSection(key)) return py::none();
    return toBytes(elf.getSection(key));
  }));

  // Text and comment.
  cls.def(
      "set_text",
      onLive([](ELF& elf, py::handle code, py::handle align) {
        const auto alignment = checkedUint<unsigned int>(align, "align");
        ByteBuffer buffer(code, "code");
        withoutGil(elf, [&] { elf.setText(buffer.span(), alignment); });
      }),
      py::arg("code"), py::arg("align"),
      "Installs code as .text with that alignment, in a loadable segment.");
  cls.def_property_readonly("text_addr", onLive([](const ELF& elf) { return elf.getTextAddr(); }),
                            "Address of .text (low 32 bits); 0 without one.");
  cls.def_property_readonly(
      "text",
      onLive([](const ELF& elf) -> py::object {
        if (!elf.text) return py::none();
        return toBytes(*elf.text);
      }),
      "Contents of .text as bytes; None when the image has no .text.");
  cls.def_property_readonly(
      "comment",
      onLive([](const ELF& elf) -> py::object {
        if (!elf.commentInfo) return py::none();
        py::list lines;
        for (absl::string_view line : *elf.commentInfo) lines.append(toStr(line));
        return lines;
      }),
      "Lines of .comment; None when it is missing or empty.");
  cls.def(
      "set_comment",
      onLive([](ELF& elf, py::handle lines) {
        std::vector<std::string> owned;
        if (PyUnicode_Check(lines.ptr())) {
          throwError(PyExc_TypeError, "lines must be a list of str, not str");
        }
        for (py::handle line : py::iter(lines)) owned.push_back(fromStr(line, "comment line"));
        const std::vector<absl::string_view> views(owned.begin(), owned.end());
        elf.setCommentInfo(views);
      }),
      py::arg("lines"),
      "Rewrites .comment: each non-empty line and a NUL. [] changes nothing.");

  defDebugFields(cls);

  cls.def(
      "save",
      onLive([](ELF& elf) {
        absl::StatusOr<ELF::Image> image = withoutGil(elf, [&] { return saveWithReason(elf); });
        if (!image.ok()) throwPackageError("SaveError", image.status().message());
        return bytesWithoutGil(elf, {image->data(), image->size()});
      }),
      "Writes the debug fields into their sections and returns the image.");
  cls.def("__repr__", onLive([](const ELF& elf) {
    return absl::StrCat("<zelk_elf.ELF machine=", elf.getMachine(),
                        " type=", elf.getType(),
                        " sections=", imageOf(elf).sections().size(), ">");
  }));
}

void bindModule(py::module_& m) {
  m.doc() = "The compiled half of the zelk_elf package; import zelk_elf instead.";
  m.attr("__version__") = ZELK_ELF_VERSION;
  bindElf(m);
  m.attr("Elf") = m.attr("ELF");  // the name before 1.2; goes in the next release
  // The structure records' types, from their field lists.
  const engine::Image blank;
  m.attr("Header") = headerFields(blank).type("Header");
  m.attr("SectionHeader") = sectionFields(blank.sections()[0]).type("SectionHeader");
  m.attr("Segment") = segmentFields(engine::Segment()).type("Segment");
  m.def(
      "load",
      [](py::handle data) {
        ByteBuffer buffer(data, "data");
        absl::StatusOr<ELF> elf = [&] {
          py::gil_scoped_release release;  // the new object is nobody else's yet
          return loadWithReason(buffer.span());
        }();
        if (!elf.ok()) throwPackageError("LoadError", elf.status().message());
        return std::move(*elf);
      },
      py::arg("data"), "Reads an image from bytes; raises LoadError with the reason.");
}

}  // namespace
}  // namespace python
}  // namespace zelk_elf

PYBIND11_MODULE(_zelk_elf, m) { zelk_elf::python::bindModule(m); }
