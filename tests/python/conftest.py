import os
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SHARED = Path(os.environ.get("ZELK_ELF_SHARED_DIR", ROOT.parent / "shared"))
CORPUS = SHARED / "corpus" / "real"
FIELDS = ["dbg_id", "spill_info", "swp_info", "cfg_info", "src_info",
          "sym_info", "pm_size", "verify_info", "latency_info"]


def corpus_files():
    return sorted(p for p in CORPUS.iterdir() if p.is_file())


@pytest.fixture
def hello_64():
    return (CORPUS / "hello_64").read_bytes()
