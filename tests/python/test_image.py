"""Loading, saving, sections, text and comment through the Python package."""

import os
import threading

import pytest

import zelk_elf
from conftest import FIELDS, ROOT, corpus_files


def test_new_image():
    elf = zelk_elf.ELF()
    assert (elf.machine, elf.type, elf.entry, elf.text_addr) == (0, 0, 0, 0)
    assert elf.section_names == ["", ".shstrtab"]
    assert dict(elf.sections) == {"": b"", ".shstrtab": b"\0.shstrtab\0"}
    assert (elf.text, elf.comment) == (None, None)
    assert [getattr(elf, f) for f in FIELDS] == [None] * 9


@pytest.mark.parametrize("path", corpus_files(), ids=lambda p: p.name)
def test_corpus_round_trip(path):
    data = path.read_bytes()
    if path.name == "null_endianess_convertor":  # refused by the library too
        with pytest.raises(zelk_elf.LoadError):
            zelk_elf.load(data)
        return
    elf = zelk_elf.load(data)
    again = zelk_elf.load(elf.save())
    for name in ["machine", "type", "entry", "section_names", "text_addr",
                 "text", "comment"] + FIELDS:
        assert getattr(again, name) == getattr(elf, name), name
    assert dict(again.sections) == dict(elf.sections)
    assert [again.section_size(n) for n in again.sections] == [
        elf.section_size(n) for n in elf.sections]


def test_sections_of_a_loaded_image(hello_64):
    elf = zelk_elf.load(hello_64)
    assert list(elf.sections) == elf.section_names  # names here are unique
    assert len(elf.sections) == 29
    # A NOBITS section holds no bytes but records its size.
    assert (elf.sections[".bss"], elf.section_size(".bss")) == (b"", 16)
    assert len(elf.text) == elf.section_size(".text") == 0x1C8
    assert elf.text == elf.sections[".text"]
    assert elf.text_addr == 0x4003C0
    for lookup in (elf.sections.__getitem__, elf.section_size):
        with pytest.raises(KeyError):
            lookup(".nope")
    assert ".nope" not in elf.sections and 3 not in elf.sections


def test_set_section_takes_any_buffer_and_the_view_is_live():
    elf = zelk_elf.ELF()
    view = elf.sections
    for data in (b"ab", bytearray(b"cd"), memoryview(b"xef")[1:]):
        elf.set_section(".x", data)
        assert view[".x"] == bytes(data)
    assert elf.section_names == ["", ".shstrtab", ".x"]
    assert elf.section_size(".x") == 2
    with pytest.raises(TypeError):
        elf.set_section(".x", "text")


def test_text_and_section_contents_are_copies():
    elf = edited("set_text", b"\1" * 8, 4)
    text, section = elf.text, elf.sections[".text"]
    elf.set_text(b"\2" * 16, 4)  # frees the bytes a view would point into
    elf.save()
    assert (text, section) == (b"\1" * 8, b"\1" * 8)
    assert elf.text == b"\2" * 16
    elf.set_section(".text", b"\3")
    assert elf.text == b"\3"
    assert elf.section_names == ["", ".shstrtab", ".text"]
    with pytest.raises(OverflowError, match="^align must be between 0 and 4294967295, got 4294967296$"):
        elf.set_text(b"", 2**32)


# lines given, lines read back, bytes of .comment (None: no section)
COMMENTS = [
    (["a", "", "b"], ["a", "b", ""], b"a\0b\0"),
    ([""], [], b""),
    ([], None, None),
    (["\udcff"], ["\udcff", ""], b"\xff\0"),  # not UTF-8: kept as is
]


@pytest.mark.parametrize("lines,read,stored", COMMENTS)
def test_set_comment(lines, read, stored):
    elf = edited("set_comment", lines)
    assert elf.comment == read
    assert elf.sections.get(".comment") == stored
    assert zelk_elf.load(elf.save()).comment == (read or None)


def edited(method, *args):
    elf = zelk_elf.ELF()
    getattr(elf, method)(*args)
    return elf


# call, exception, message ("": any but an empty one); the reasons are the
# engine's to check, the way they reach Python is checked here.
@pytest.mark.parametrize("call,error,message", [
    (lambda: zelk_elf.load(b""), zelk_elf.LoadError, ""),
    (lambda: zelk_elf.load(b"\x7fELF"), zelk_elf.LoadError, ""),
    (lambda: zelk_elf.load(b"not an ELF image at all"), zelk_elf.LoadError, ""),
    (lambda: zelk_elf.load(edited("set_section", ".zelk.dbg.swp", bytes(6)).save()),
     zelk_elf.LoadError, ".zelk.dbg.swp: payload of 6 bytes ends inside an element at offset 4"),
    # The code would end past 4 GiB - 1.
    (lambda: edited("set_text", b"x", 0xFFFFFFFF).save(), zelk_elf.SaveError, ""),
    (lambda: zelk_elf.load("an image"), TypeError, ""),
    (lambda: zelk_elf.ELF().set_comment("one line"), TypeError, ""),
])
def test_errors(call, error, message):
    assert issubclass(zelk_elf.LoadError, ValueError)
    assert issubclass(zelk_elf.SaveError, zelk_elf.Error)
    with pytest.raises(error) as raised:
        call()
    assert str(raised.value) == message if message else str(raised.value)


def test_repeated_names_cost_one_string():
    # A fuzz finding: 1,024 sections named through one 4 KiB entry of the name table.
    finding = ROOT / "fuzz" / "findings" / "capi_fuzz" / "sections-sharing-one-long-name"
    elf = zelk_elf.load(finding.read_bytes())
    names = elf.section_names
    assert len(names) == 1024 and len(names[2]) == 4096
    assert all(n is names[2] for n in names[3:])
    assert list(elf.sections) == ["", ".shstrtab", names[2]] and len(elf.sections) == 3
    assert repr(elf) == "<zelk_elf.ELF machine=0 type=2 sections=1024>"


@pytest.mark.parametrize("use", [
    *[lambda e, f=f: getattr(e, f) for f in FIELDS + [
        "machine", "type", "entry", "section_names", "text_addr", "text", "comment"]],
    lambda e: setattr(e, "pm_size", 1), lambda e: setattr(e, "machine", 1),
    lambda e: list(e.sections), lambda e: e.section_size(""), lambda e: e.set_section("x", b""),
    lambda e: e.set_text(b"", 4), lambda e: e.set_comment(["x"]), lambda e: e.save(), repr,
    lambda e: zelk_elf.ELF.save(object()),
])
def test_an_elf_never_initialized_raises(use):
    elf = zelk_elf.ELF.__new__(zelk_elf.ELF)
    with pytest.raises(TypeError, match="never initialized|expected a zelk_elf.ELF"):
        use(elf)


def test_structure_of_a_loaded_image(hello_64):
    elf = zelk_elf.load(hello_64)
    assert elf.header == zelk_elf.Header(
        elf_class=64, byte_order="little", osabi=0, abiversion=0, type=2, machine=62, version=1,
        entry=0x4003C0, phoff=64, shoff=2656, flags=0, ehsize=64, phentsize=56, phnum=8,
        shentsize=64, shnum=29, shstrndx=26)
    headers = elf.section_headers
    assert [h.name for h in headers] == elf.section_names
    assert headers[1] == zelk_elf.SectionHeader(
        name=".interp", name_offset=27, type=1, flags=2, addr=0x400200, offset=0x200, size=28,
        link=0, info=0, addralign=1, entsize=0, data=elf.sections[".interp"])
    assert elf.segments[1] == zelk_elf.Segment(
        type=3, flags=4, offset=0x200, vaddr=0x400200, paddr=0x400200, filesz=28, memsz=28,
        align=1, sections=(1,))
    assert len({elf.header, *headers, *elf.segments}) == 1 + len(headers) + len(elf.segments)
    assert (zelk_elf.Elf, zelk_elf.ELF().segments) == (zelk_elf.ELF, ())


def test_save_file_replaces_the_file_whole(tmp_path):
    path = tmp_path / "a.elf"
    path.write_bytes(b"old")
    path.chmod(0o751)
    elf = zelk_elf.ELF()
    elf.pm_size = 7
    elf.save_file(path)
    assert zelk_elf.load_file(path).pm_size == 7
    assert path.stat().st_mode & 0o777 == 0o751
    broken = edited("set_text", b"x", 0xFFFFFFFF)  # cannot be saved
    with pytest.raises(zelk_elf.SaveError):
        broken.save_file(path)
    assert os.listdir(tmp_path) == ["a.elf"]
    assert zelk_elf.load_file(str(path)).pm_size == 7


def test_an_object_busy_in_one_thread_refuses_the_others():
    elf = edited("set_section", ".big", bytes(64 << 20))
    refused, saved = [], []
    worker = threading.Thread(target=lambda: saved.extend(elf.save() for _ in range(5)))
    worker.start()
    while worker.is_alive():
        try:
            elf.machine
        except RuntimeError as error:
            refused.append(str(error))
    worker.join()
    assert len(saved) == 5 and refused
    assert set(refused) == {"this zelk_elf.ELF is in use by another thread; use one object "
                            "from one thread at a time"}
