"""Read, edit and write ELF images of the zelk processor, including the
compiler's debug information in the nine ".zelk.dbg." sections.

    import zelk_elf
    elf = zelk_elf.load(open("a.elf", "rb").read())
    elf.pm_size = 4096
    open("b.elf", "wb").write(elf.save())

The records below are plain named tuples: reading a debug field of an Elf
gives fresh values, and assigning a field replaces it whole.
"""

from collections.abc import Iterator, Mapping
from typing import NamedTuple


class Error(Exception):
    """Base of the errors raised for images that cannot be read or written."""


class LoadError(Error, ValueError):
    """The bytes are not an image the library can load; str() gives why."""


class SaveError(Error):
    """The image cannot be laid out and written; str() gives why."""


class DebugInfoID(NamedTuple):
    """Identifier of the debug information (.zelk.dbg.id)."""

    kind: int  # 8 bits; 0 and 1 are defined
    id0: int  # 16 bits
    id1: int  # 16 bits


class SpillLoc(NamedTuple):
    """One spill record (.zelk.dbg.spill)."""

    addr: int  # 32 bits
    index: int  # type: ignore[assignment]  # 8 bits; shadows tuple.index
    kind: int  # 8 bits; 0 to 5 are defined
    name: str


class BasicBlockRange(NamedTuple):
    """Bounds of one basic block; a CFG edge is a pair of them."""

    start: int  # 32 bits
    end: int  # 32 bits


class SymbolAddr(NamedTuple):
    """Address entry of one symbol (.zelk.dbg.sym)."""

    kind: int  # 8 bits
    addr: int  # 32 bits


class LatencyInfoLoc(NamedTuple):
    """Latency information for one location (.zelk.dbg.latency)."""

    addr: int  # 32 bits
    kind: int  # 8 bits
    value0: int  # 8 bits
    value1: int  # 8 bits
    value2: int  # 8 bits
    value3: int  # 8 bits


class Sections(Mapping[str, bytes]):
    """Live, read-only view of an image's sections: name -> contents.

    Keys come in section-table order; a name that several sections share
    stands for the first of them, as every lookup by name does. Values are
    copies of the bytes a section holds, so they stay valid whatever happens
    to the image later. Change sections with Elf.set_section().
    """

    __slots__ = ("_elf",)

    def __init__(self, elf: "Elf") -> None:
        self._elf = elf

    def __getitem__(self, name: str) -> bytes:
        data = self._elf._section(name) if isinstance(name, str) else None
        if data is None:
            raise KeyError(name)
        return data

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and self._elf._has_section(name)

    def __iter__(self) -> Iterator[str]:
        return iter(self._elf._distinct_section_names())

    def __len__(self) -> int:
        return len(self._elf._distinct_section_names())

    def __repr__(self) -> str:
        return f"<zelk_elf.Sections {list(self)!r}>"


# The extension builds the records and raises the errors defined above, so it
# comes last.
from ._zelk_elf import Elf, __version__, load  # noqa: E402

__all__ = [
    "BasicBlockRange",
    "DebugInfoID",
    "Elf",
    "Error",
    "LatencyInfoLoc",
    "LoadError",
    "SaveError",
    "Sections",
    "SpillLoc",
    "SymbolAddr",
    "load",
]
