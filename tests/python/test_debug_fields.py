"""The nine debug fields: what Python assigns is what the saved payload
holds, what a reload reads, and what a refused value leaves behind."""

import re

import pytest

import zelk_elf
from conftest import FIELDS
from zelk_elf import BasicBlockRange, DebugInfoID, LatencyInfoLoc, SpillLoc, SymbolAddr


# field, value (with the extremes of every width), its section. The payload
# bytes themselves are the C++ codec tests' to check.
VALUES = [
    ("dbg_id", DebugInfoID(255, 0x0203, 0xFFFF), ".zelk.dbg.id"),
    ("spill_info", [SpillLoc(16, 2, 1, "x"), SpillLoc(0xFFFFFFFF, 255, 7, "")],
     ".zelk.dbg.spill"),
    ("swp_info", [1, 0xFFFFFFFF], ".zelk.dbg.swp"),
    ("cfg_info", [(BasicBlockRange(1, 2), BasicBlockRange(3, 0xFFFFFFFF))], ".zelk.dbg.cfg"),
    ("src_info", {"a": ["x", ""]}, ".zelk.dbg.src"),
    ("sym_info", {"main": SymbolAddr(2, 256)}, ".zelk.dbg.sym"),
    ("pm_size", 0xFFFFFFFF, ".zelk.dbg.pmsize"),
    # Bytes that are not UTF-8 cross as lone surrogates and come back intact.
    ("verify_info", "\u00e9\udcff", ".zelk.dbg.verifyinfo"),
    ("latency_info", [LatencyInfoLoc(0x01020304, 1, 2, 3, 4, 255)], ".zelk.dbg.latency"),
    # Empty values are present, not absent.
    ("spill_info", [], ".zelk.dbg.spill"),
    ("swp_info", [], ".zelk.dbg.swp"),
    ("cfg_info", [], ".zelk.dbg.cfg"),
    ("src_info", {}, ".zelk.dbg.src"),
    ("sym_info", {}, ".zelk.dbg.sym"),
    ("verify_info", "", ".zelk.dbg.verifyinfo"),
    ("latency_info", [], ".zelk.dbg.latency"),
]


@pytest.mark.parametrize(
    "field,value,section", VALUES,
    ids=[f"{row[0]}-{'empty' if row[1] in ([], {}, '') else 'values'}" for row in VALUES])
def test_field_saves_its_section_and_reloads(field, value, section):
    elf = zelk_elf.Elf()
    setattr(elf, field, value)
    saved = zelk_elf.load(elf.save())
    # repr also tells a named record from a plain tuple.
    assert repr(getattr(saved, field)) == repr(value)
    assert [f for f in FIELDS if getattr(saved, f) is not None] == [field]
    assert [name for name in saved.sections if name.startswith(".zelk.dbg.")] == [section]


# field, value given (plain tuples, any iterable, None), value read back
GIVEN = [
    ("dbg_id", (1, 2, 3), DebugInfoID(1, 2, 3)),
    ("cfg_info", (((1, 2), (3, 4)) for _ in range(2)),
     [(BasicBlockRange(1, 2), BasicBlockRange(3, 4))] * 2),
    ("sym_info", {"s": (1, 2)}, {"s": SymbolAddr(1, 2)}),
    ("swp_info", None, None),
]


@pytest.mark.parametrize("field,given,read", GIVEN, ids=[row[0] for row in GIVEN])
def test_given_values_are_converted_and_reads_are_copies(field, given, read):
    elf = zelk_elf.Elf()
    elf.swp_info = [1]
    elf.swp_info.append(2)  # a fresh list: the field is unchanged
    assert elf.swp_info == [1]
    setattr(elf, field, given)
    assert repr(getattr(elf, field)) == repr(read)


# field, good value, refused value, exception, message
REFUSALS = [
    ("dbg_id", (1, 2, 3), (256, 0, 0), ValueError,
     "DebugInfoID.kind must be between 0 and 255, got 256"),
    ("dbg_id", (1, 2, 3), (0, 65536, 0), OverflowError,
     "DebugInfoID.id0 must be between 0 and 65535, got 65536"),
    ("dbg_id", (1, 2, 3), (0, 0), TypeError,
     "expected a DebugInfoID of 3 fields, got 2"),
    ("spill_info", [], [(2**32, 0, 0, "r")], OverflowError,
     "SpillLoc.addr must be between 0 and 4294967295, got 4294967296"),
    ("spill_info", [], [(0, 256, 0, "r")], ValueError,
     "SpillLoc.index must be between 0 and 255, got 256"),
    ("spill_info", [], [(0, 0, -1, "r")], ValueError,
     "SpillLoc.kind must be between 0 and 255, got -1"),
    ("spill_info", [], [(0, 0, 0, b"r")], TypeError,
     "SpillLoc.name must be a str, not bytes"),
    ("swp_info", [7], [1, 2**32], OverflowError,
     "swp_info address must be between 0 and 4294967295, got 4294967296"),
    ("swp_info", [7], b"\x01", TypeError, "swp_info must be a list, not bytes"),
    ("cfg_info", [], [((0, 0), (0, 2**32))], OverflowError,
     "BasicBlockRange.end must be between 0 and 4294967295, got 4294967296"),
    ("src_info", {}, {"a.c": "xy"}, TypeError,
     "src_info value must be a list, not str"),
    ("src_info", {}, [("a.c", [])], TypeError, "src_info must be a dict, not list"),
    ("sym_info", {}, {"m": (0, 2**32)}, OverflowError,
     "SymbolAddr.addr must be between 0 and 4294967295, got 4294967296"),
    ("pm_size", 64, 2**32, OverflowError,
     "pm_size must be between 0 and 4294967295, got 4294967296"),
    ("pm_size", 64, -1, OverflowError,
     "pm_size must be between 0 and 4294967295, got -1"),
    ("pm_size", 64, 1.0, TypeError, "pm_size must be an int, not float"),
    ("verify_info", "v", b"v", TypeError, "verify_info must be a str, not bytes"),
    ("latency_info", [], [(0, 0, 0, 0, 0, 256)], ValueError,
     "LatencyInfoLoc.value3 must be between 0 and 255, got 256"),
    ("machine", 3, -1, OverflowError,
     "machine must be between 0 and 65535, got -1"),
    ("entry", 0xFFFFFFFF, 2**32, OverflowError,  # a 32-bit image
     "entry must be between 0 and 4294967295, got 4294967296"),
]


@pytest.mark.parametrize("field,good,bad,error,message", REFUSALS,
                         ids=[f"{row[0]}-{row[3].__name__}" for row in REFUSALS])
def test_refused_value_leaves_the_field_as_it_was(field, good, bad, error, message):
    elf = zelk_elf.Elf()
    setattr(elf, field, good)
    before = getattr(elf, field)
    with pytest.raises(error, match="^" + re.escape(message) + "$"):
        setattr(elf, field, bad)
    assert getattr(elf, field) == before


@pytest.mark.parametrize("wide,entry", [(False, 2**32 - 1), (True, 2**64 - 1)])
def test_header_fields_keep_their_full_width(hello_64, wide, entry):
    # The entry is as wide as the image's class: hello_64 is a 64-bit image.
    elf = zelk_elf.load(hello_64) if wide else zelk_elf.Elf()
    elf.machine, elf.type, elf.entry = 0xFFFF, 0xFFFF, entry
    reloaded = zelk_elf.load(elf.save())
    assert (reloaded.machine, reloaded.type, reloaded.entry) == (0xFFFF, 0xFFFF, entry)
