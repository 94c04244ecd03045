# Types of the compiled half of the package; zelk_elf re-exports all of it.
import os
from collections.abc import Iterable, Mapping, Sequence
from typing import NamedTuple, Optional, Tuple, Union

from _typeshed import ReadableBuffer

from . import (
    BasicBlockRange,
    DebugInfoID,
    LatencyInfoLoc,
    Sections,
    SpillLoc,
    SymbolAddr,
)

__version__: str

# Assigning accepts the named tuples or plain tuples of the same fields, and
# any iterable or mapping for the containers; reading gives the types below.
_Edge = Tuple[BasicBlockRange, BasicBlockRange]

# The structure records, made from the library's field lists.
class Header(NamedTuple):
    elf_class: int  # 32 or 64
    byte_order: str  # "little" or "big"
    osabi: int
    abiversion: int
    type: int
    machine: int
    version: int
    entry: int
    phoff: int
    shoff: int
    flags: int
    ehsize: int
    phentsize: int
    phnum: int
    shentsize: int
    shnum: int
    shstrndx: int

class SectionHeader(NamedTuple):
    name: str
    name_offset: int
    type: int
    flags: int
    addr: int
    offset: int
    size: int
    link: int
    info: int
    addralign: int
    entsize: int
    data: bytes

class Segment(NamedTuple):
    type: int
    flags: int
    offset: int
    vaddr: int
    paddr: int
    filesz: int
    memsz: int
    align: int
    sections: Tuple[int, ...]

class ELF:
    def __init__(self) -> None: ...
    machine: int
    type: int
    entry: int
    @property
    def header(self) -> Header: ...
    @property
    def section_headers(self) -> Tuple[SectionHeader, ...]: ...
    @property
    def segments(self) -> Tuple[Segment, ...]: ...
    @property
    def section_names(self) -> list[str]: ...
    @property
    def sections(self) -> Sections: ...
    def section_size(self, name: str) -> int: ...
    def set_section(self, name: str, data: ReadableBuffer) -> None: ...
    def set_text(self, code: ReadableBuffer, align: int) -> None: ...
    @property
    def text_addr(self) -> int: ...
    @property
    def text(self) -> Optional[bytes]: ...
    @property
    def comment(self) -> Optional[list[str]]: ...
    def set_comment(self, lines: Iterable[str]) -> None: ...
    @property
    def dbg_id(self) -> Optional[DebugInfoID]: ...
    @dbg_id.setter
    def dbg_id(self, value: Optional[Sequence[int]]) -> None: ...
    @property
    def spill_info(self) -> Optional[list[SpillLoc]]: ...
    @spill_info.setter
    def spill_info(self, value: Optional[Iterable[SpillLoc]]) -> None: ...
    @property
    def swp_info(self) -> Optional[list[int]]: ...
    @swp_info.setter
    def swp_info(self, value: Optional[Iterable[int]]) -> None: ...
    @property
    def cfg_info(self) -> Optional[list[_Edge]]: ...
    @cfg_info.setter
    def cfg_info(self, value: Optional[Iterable[_Edge]]) -> None: ...
    @property
    def src_info(self) -> Optional[dict[str, list[str]]]: ...
    @src_info.setter
    def src_info(self, value: Optional[Mapping[str, Iterable[str]]]) -> None: ...
    @property
    def sym_info(self) -> Optional[dict[str, SymbolAddr]]: ...
    @sym_info.setter
    def sym_info(self, value: Optional[Mapping[str, SymbolAddr]]) -> None: ...
    pm_size: Optional[int]
    verify_info: Optional[str]
    @property
    def latency_info(self) -> Optional[list[LatencyInfoLoc]]: ...
    @latency_info.setter
    def latency_info(self, value: Optional[Iterable[LatencyInfoLoc]]) -> None: ...
    def save(self) -> bytes: ...
    def save_file(self, path: Union[str, os.PathLike[str]]) -> None: ...
    # What Sections is made of.
    def _has_section(self, name: str) -> bool: ...
    def _section(self, name: str) -> Optional[bytes]: ...
    def _distinct_section_names(self) -> list[str]: ...

Elf = ELF  # the name before 1.2

def load(data: ReadableBuffer) -> ELF: ...
