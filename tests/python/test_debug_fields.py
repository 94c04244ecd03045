"""The nine debug fields: what Python assigns is what the saved payload
holds, what a reload reads, and what a refused value leaves behind."""

import re

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import zelk_elf
from conftest import FIELDS
from zelk_elf import BasicBlockRange, DebugInfoID, LatencyInfoLoc, SpillLoc, SymbolAddr


u8, u16, u32 = (st.integers(0, 2**bits - 1) for bits in (8, 16, 32))
# Any bytes: those that are not UTF-8 cross as lone surrogates.
names = st.binary(max_size=12).map(lambda b: b.decode("utf-8", "surrogateescape"))
ranges = st.builds(BasicBlockRange, u32, u32)
# Every value a field can hold, with its section.
FIELD_VALUES = {
    "dbg_id": (st.builds(DebugInfoID, u8, u16, u16), ".zelk.dbg.id"),
    "spill_info": (st.lists(st.builds(SpillLoc, u32, u8, u8, names)), ".zelk.dbg.spill"),
    "swp_info": (st.lists(u32), ".zelk.dbg.swp"),
    "cfg_info": (st.lists(st.tuples(ranges, ranges)), ".zelk.dbg.cfg"),
    "src_info": (st.dictionaries(names, st.lists(names)), ".zelk.dbg.src"),
    "sym_info": (st.dictionaries(names, st.builds(SymbolAddr, u8, u32)), ".zelk.dbg.sym"),
    "pm_size": (u32, ".zelk.dbg.pmsize"),
    "verify_info": (names, ".zelk.dbg.verifyinfo"),
    "latency_info": (st.lists(st.builds(LatencyInfoLoc, u32, u8, u8, u8, u8, u8)),
                     ".zelk.dbg.latency"),
}


# The payload bytes themselves are the C++ codec tests' to check.
@pytest.mark.parametrize("field", FIELDS)
@settings(max_examples=50, deadline=None)
@given(data=st.data())
def test_any_value_saves_its_section_and_reloads(field, data):
    values, section = FIELD_VALUES[field]
    value = data.draw(values)
    elf = zelk_elf.ELF()
    setattr(elf, field, value)
    saved = zelk_elf.load(elf.save())
    # repr also tells a named record from a plain tuple, and maps come back
    # in key order.
    expected = value
    if isinstance(value, dict):  # sorted by the bytes of the keys
        expected = dict(sorted(value.items(), key=lambda e: e[0].encode("utf-8", "surrogateescape")))
    assert repr(getattr(saved, field)) == repr(expected)
    assert [f for f in FIELDS if getattr(saved, f) is not None] == [field]
    assert [name for name in saved.sections if name.startswith(".zelk.dbg.")] == [section]


# Each integer field of each record: a value past its width is refused,
# naming the field, and the field keeps what it held.
RECORD_WIDTHS = [
    (DebugInfoID, [8, 16, 16]), (SpillLoc, [32, 8, 8, None]), (SymbolAddr, [8, 32]),
    (LatencyInfoLoc, [32, 8, 8, 8, 8, 8]), (BasicBlockRange, [32, 32]),
]
HOLDERS = {DebugInfoID: ("dbg_id", lambda r: r), SpillLoc: ("spill_info", lambda r: [r]),
           SymbolAddr: ("sym_info", lambda r: {"s": r}),
           LatencyInfoLoc: ("latency_info", lambda r: [r]),
           BasicBlockRange: ("cfg_info", lambda r: [(r, r)])}


@pytest.mark.parametrize("record,widths", RECORD_WIDTHS, ids=lambda r: getattr(r, "__name__", ""))
@settings(max_examples=30, deadline=None)
@given(data=st.data())
def test_out_of_range_integers_are_refused_naming_the_field(record, widths, data):
    index = data.draw(st.sampled_from([i for i, w in enumerate(widths) if w]))
    bits = widths[index]
    bad = data.draw(st.one_of(st.integers(2**bits, 2**70), st.integers(-2**70, -1)))
    fields = [0 if w else "" for w in widths]
    fields[index] = bad
    field, hold = HOLDERS[record]
    elf = zelk_elf.ELF()
    with pytest.raises(OverflowError,
                       match=f"^{record.__name__}.{record._fields[index]} must be between 0 "
                             f"and {2**bits - 1}, got {bad}$") as raised:
        setattr(elf, field, hold(record(*fields)))
    assert isinstance(raised.value, ValueError) == (bits == 8)
    assert getattr(elf, field) is None


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
    elf = zelk_elf.ELF()
    elf.swp_info = [1]
    elf.swp_info.append(2)  # a fresh list: the field is unchanged
    assert elf.swp_info == [1]
    setattr(elf, field, given)
    assert repr(getattr(elf, field)) == repr(read)


# field, good value, refused value, exception, message
REFUSALS = [
    ("dbg_id", (1, 2, 3), (0, 0), TypeError,
     "expected a DebugInfoID of 3 fields, got 2"),
    ("spill_info", [], [(0, 0, 0, b"r")], TypeError,
     "SpillLoc.name must be a str, not bytes"),
    ("swp_info", [7], [1, 2**32], OverflowError,
     "swp_info address must be between 0 and 4294967295, got 4294967296"),
    ("swp_info", [7], b"\x01", TypeError, "swp_info must be a list, not bytes"),
    ("src_info", {}, {"a.c": "xy"}, TypeError,
     "src_info value must be a list, not str"),
    ("src_info", {}, [("a.c", [])], TypeError, "src_info must be a dict, not list"),
    ("pm_size", 64, 2**32, OverflowError,
     "pm_size must be between 0 and 4294967295, got 4294967296"),
    ("pm_size", 64, -1, OverflowError,
     "pm_size must be between 0 and 4294967295, got -1"),
    ("pm_size", 64, 1.0, TypeError, "pm_size must be an int, not float"),
    ("verify_info", "v", b"v", TypeError, "verify_info must be a str, not bytes"),
    ("dbg_id", (1, 2, 3), (-1, 0, 0), zelk_elf.ByteRangeError,
     "DebugInfoID.kind must be between 0 and 255, got -1"),
    ("machine", 3, -1, OverflowError,
     "machine must be between 0 and 65535, got -1"),
    ("entry", 0xFFFFFFFF, 2**32, OverflowError,  # a 32-bit image
     "entry must be between 0 and 4294967295, got 4294967296"),
]


@pytest.mark.parametrize("field,good,bad,error,message", REFUSALS,
                         ids=[f"{row[0]}-{row[3].__name__}" for row in REFUSALS])
def test_refused_value_leaves_the_field_as_it_was(field, good, bad, error, message):
    elf = zelk_elf.ELF()
    setattr(elf, field, good)
    before = getattr(elf, field)
    with pytest.raises(error, match="^" + re.escape(message) + "$"):
        setattr(elf, field, bad)
    assert getattr(elf, field) == before


@pytest.mark.parametrize("wide,entry", [(False, 2**32 - 1), (True, 2**64 - 1)])
def test_header_fields_keep_their_full_width(hello_64, wide, entry):
    # The entry is as wide as the image's class: hello_64 is a 64-bit image.
    elf = zelk_elf.load(hello_64) if wide else zelk_elf.ELF()
    elf.machine, elf.type, elf.entry = 0xFFFF, 0xFFFF, entry
    reloaded = zelk_elf.load(elf.save())
    assert (reloaded.machine, reloaded.type, reloaded.entry) == (0xFFFF, 0xFFFF, entry)
