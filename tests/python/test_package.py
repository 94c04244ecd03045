"""Reference counting over many load/save cycles, and the package's names
against its stubs and docs."""

import ast
import os
import sys
from pathlib import Path

import zelk_elf
from conftest import FIELDS, ROOT
from zelk_elf import LatencyInfoLoc, SpillLoc

CYCLES = 10_000


def resident_bytes():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def sample_image():
    elf = zelk_elf.ELF()
    elf.set_text(bytes(range(256)), 4)
    elf.set_comment(["one", "two"])
    elf.dbg_id = (1, 2, 3)
    elf.spill_info = [SpillLoc(i, 1, 2, f"r{i}") for i in range(20)]
    elf.swp_info = list(range(20))
    elf.cfg_info = [((i, i + 1), (i + 1, i + 2)) for i in range(20)]
    elf.src_info = {f"f{i}.c": ["a", "b"] for i in range(5)}
    elf.sym_info = {f"s{i}": (1, i) for i in range(5)}
    elf.pm_size = 4096
    elf.verify_info = "verified"
    elf.latency_info = [LatencyInfoLoc(i, 1, 2, 3, 4, 5) for i in range(20)]
    return elf.save()


def cycle(data):
    elf = zelk_elf.load(data)
    for name in FIELDS:
        setattr(elf, name, getattr(elf, name))
    elf.sections[".text"], elf.text, elf.comment
    try:
        zelk_elf.load(data[:100])
    except zelk_elf.LoadError:
        pass
    return elf.save()


def test_no_leak_over_many_load_save_cycles():
    data = sample_image()
    for _ in range(500):  # let the allocator and caches settle
        cycle(data)
    refs = sys.getrefcount(data)
    before = resident_bytes()
    for _ in range(CYCLES):
        cycle(data)
    grown = resident_bytes() - before
    print(f"resident growth over {CYCLES} cycles: {grown} bytes")
    assert sys.getrefcount(data) == refs
    # A leaked image, result or record list per cycle would cost megabytes.
    assert grown < 512 * 1024
    assert cycle(data) == data


def stub_names(node):
    return {n.name if isinstance(n, (ast.FunctionDef, ast.ClassDef)) else n.target.id
            for n in node.body
            if isinstance(n, (ast.FunctionDef, ast.ClassDef, ast.AnnAssign))}


def test_stubs_and_docs_name_everything():
    stub = ast.parse(Path(zelk_elf._zelk_elf.__file__).with_name("_zelk_elf.pyi").read_text())
    elf_stub = next(n for n in stub.body if isinstance(n, ast.ClassDef) and n.name == "ELF")
    members = {n for n in dir(zelk_elf.ELF) if not n.startswith("_")}
    assert {n for n in stub_names(elf_stub) if not n.startswith("_")} == members
    assert stub_names(stub) == {"ELF", "Header", "SectionHeader", "Segment", "load", "__version__"}
    for record in (zelk_elf.Header, zelk_elf.SectionHeader, zelk_elf.Segment):
        stubbed = next(n for n in stub.body if isinstance(n, ast.ClassDef) and n.name == record.__name__)
        assert [n.target.id for n in stubbed.body] == list(record._fields)
    docs = (ROOT / "docs" / "python.md").read_text()
    missing = [n for n in sorted(members) + zelk_elf.__all__ if f"`{n}" not in docs]
    assert missing == []
