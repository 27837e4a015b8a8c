"""A state in parts in a folder: a file for each part, and a manifest that tells what they are."""

from __future__ import annotations

import hashlib
import json
import os
from pathlib import Path
from typing import Any

import numpy as np

from ..core import extension
from .ranks import Ranks

_MANIFEST = "manifest.json"
_FORMAT = "velacamplix state in parts"
# Bytes that are read, written and hashed at a time.
_PIECE = 2**24


def save(ranks: Ranks, folder: Path, part: np.ndarray, n: int, precision: str, numbers: list[int]) -> None:
    """Write a rank's part; rank 0 the manifest, when all others are done."""
    number = numbers[ranks.rank]
    error: OSError | None = None
    digest = ""
    try:
        if ranks.rank == 0:
            folder.mkdir(parents=True, exist_ok=True)
            (folder / _MANIFEST).unlink(missing_ok=True)  # parts of two states are none
    except OSError as raised:
        error = raised
    ranks.raise_together(error)
    try:
        digest = _write(folder / _name(number), part)
    except OSError as raised:
        error = raised
    ranks.raise_together(error)
    digests = [digest for _, digest in sorted(zip(numbers, ranks.gathered(digest)))]
    try:
        if ranks.rank == 0:
            manifest = {
                "format": _FORMAT,
                "version": extension.version(),
                "n_qubits": n,
                "precision": precision,
                "parts": [{"file": _name(place), "sha256": digest} for place, digest in enumerate(digests)],
            }
            made = folder / f"{_MANIFEST}.new"
            made.write_text(json.dumps(manifest, indent=1) + "\n", encoding="utf-8")
            os.replace(made, folder / _MANIFEST)
    except OSError as raised:
        error = raised
    ranks.raise_together(error)


def manifest_of(folder: Path) -> dict[str, Any] | str:
    """Return a checked manifest, or what is wrong with it."""
    path = folder / _MANIFEST
    try:
        found = json.loads(path.read_text(encoding="utf-8"))
    except OSError as error:
        return f"{path} cannot be read: {error.strerror}; a state in parts is saved by DistributedState.save"
    except ValueError:
        return f"{path} is no JSON"
    try:
        n, precision, parts = found["n_qubits"], found["precision"], found["parts"]
        sizes = {"single": 8, "double": 16}
        names = [part["file"] for part in parts]
        digests = [part["sha256"] for part in parts]
        sound = (
            found["format"] == _FORMAT
            and type(n) is int
            and 0 < n < 64
            and precision in sizes
            and 0 < len(parts) < 2**n
            and len(parts) & (len(parts) - 1) == 0
            and names == [_name(place) for place in range(len(parts))]
            and all([type(digest) is str for digest in digests])
        )
    except (KeyError, TypeError):
        sound = False
    if not sound:
        return f"{path} is no manifest of a state in parts"
    wanted = (sizes[precision] << n) // len(parts)
    for name in names:
        try:
            size = (folder / name).stat().st_size
        except OSError as error:
            return f"{folder / name} cannot be read: {error.strerror}; {_MANIFEST} names it"
        if size != wanted:
            return f"{folder / name} must have {wanted} bytes by {_MANIFEST}, got {size}"
    return found  # type: ignore[no-any-return]


def fill(ranks: Ranks, folder: Path, manifest: dict[str, Any], part: np.ndarray) -> None:
    """Read part number `rank` of a state from the files that have it, each of which is compared with its hash."""
    parts = manifest["parts"]
    mine = part.view(np.uint8)
    error: Exception | None = None
    try:
        if len(parts) >= ranks.size:  # several files for a rank
            each = len(parts) // ranks.size
            size = len(mine) // each
            for place in range(each):
                _read(folder, parts[ranks.rank * each + place], mine[place * size : (place + 1) * size], 0)
        else:  # several ranks for a file
            each = ranks.size // len(parts)
            _read(folder, parts[ranks.rank // each], mine, (ranks.rank % each) * len(mine))
    except (OSError, ValueError) as raised:
        error = raised
    ranks.raise_together(error)


def _read(folder: Path, part: dict[str, str], to: np.ndarray, offset: int) -> None:
    """Read bytes from a file, and all of it for its hash."""
    digest, place = hashlib.sha256(), 0
    with open(folder / part["file"], "rb") as file:
        while data := file.read(_PIECE):
            digest.update(data)
            begin, end = max(place, offset), min(place + len(data), offset + len(to))
            if begin < end:
                to[begin - offset : end - offset] = np.frombuffer(data, dtype=np.uint8)[begin - place : end - place]
            place += len(data)
    if digest.hexdigest() != part["sha256"]:
        raise ValueError(f"{folder / part['file']} is not the file that {_MANIFEST} names: its SHA-256 is another")


def _write(path: Path, part: np.ndarray) -> str:
    digest = hashlib.sha256()
    mine = part.view(np.uint8)
    with open(path, "wb") as file:
        for start in range(0, len(mine), _PIECE):
            piece = memoryview(mine[start : start + _PIECE])  # type: ignore[arg-type]
            digest.update(piece)
            file.write(piece)
        file.flush()
        os.fsync(file.fileno())
    return digest.hexdigest()


def _name(number: int) -> str:
    return f"part-{number:05}.bin"
