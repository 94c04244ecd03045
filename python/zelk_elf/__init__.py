"""Read, edit and write ELF images of the zelk processor, including the
compiler's debug information in the nine ".zelk.dbg." sections.

    import zelk_elf
    elf = zelk_elf.load_file("a.elf")
    elf.pm_size = 4096
    elf.save_file("b.elf")

The records below are plain named tuples: reading a debug field of an ELF
gives fresh values, and assigning a field replaces it whole. The structure
records (Header, SectionHeader, Segment) come from the library's own field
lists and are named tuples too.
"""

import os
import secrets
from collections.abc import Iterator, Mapping
from typing import NamedTuple, Union


class Error(Exception):
    """Base of the errors raised for images that cannot be read or written."""


class LoadError(Error, ValueError):
    """The bytes are not an image the library can load; str() gives why."""


class SaveError(Error):
    """The image cannot be laid out and written; str() gives why."""


class ByteRangeError(OverflowError, ValueError):
    """An 8-bit field given an int outside 0..255: an OverflowError, as every
    integer out of its field's range raises, and a ValueError, as bytes() raises."""


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
    to the image later. Change sections with ELF.set_section().
    """

    __slots__ = ("_elf",)

    def __init__(self, elf: "ELF") -> None:
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
from ._zelk_elf import (  # noqa: E402
    ELF,
    Elf,
    Header,
    SectionHeader,
    Segment,
    __version__,
    load,
)

_Path = Union[str, "os.PathLike[str]"]


def load_file(path: _Path) -> ELF:
    """Reads the image in the file at `path`; raises LoadError with the reason."""
    with open(path, "rb") as f:
        return load(f.read())


def _save_file(self: ELF, path: _Path) -> None:
    """Saves the image to `path` through a temporary file renamed over it,
    so a failed save never leaves a half-written file. An existing file
    keeps its permission bits."""
    data = self.save()
    target = os.path.realpath(path)
    temp = os.path.join(os.path.dirname(target), f".zelk-elf-{secrets.token_hex(8)}")
    # Made as any new file is, under the umask, which changing would affect
    # every thread; an existing target's bits replace those below.
    fd = os.open(temp, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o666)
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(data)
            f.flush()
            os.fsync(f.fileno())
        try:
            os.chmod(temp, os.stat(target).st_mode & 0o7777)
        except FileNotFoundError:
            pass
        os.replace(temp, target)
    except BaseException:
        os.unlink(temp)
        raise


ELF.save_file = _save_file  # type: ignore[method-assign]

__all__ = [
    "BasicBlockRange",
    "ByteRangeError",
    "DebugInfoID",
    "ELF",
    "Elf",
    "Error",
    "Header",
    "LatencyInfoLoc",
    "LoadError",
    "SaveError",
    "SectionHeader",
    "Sections",
    "Segment",
    "SpillLoc",
    "SymbolAddr",
    "load",
    "load_file",
]
