"""Arrays in NumPy's .npz files: written whole or not at all, and read as if a stranger had written them.

A file that is read may hold anything. Nothing in it is executed, unpickled or unpacked, and nothing is allocated before
the file has been found to hold as much and the memory to be there.
"""

from __future__ import annotations

import contextlib
import errno
import math
import os
import re
import secrets
import stat
import struct
import zipfile
from collections.abc import Callable, Iterator, Mapping
from typing import Any, NoReturn

import numpy as np

from ..basics import checks
from . import memory

# Bytes between two looks at signals.
_PIECE = 2**22
# What numpy.save writes for arrays of plain numbers and of texts.
_HEADER = re.compile(
    r"\{'descr': '(<U[0-9]{1,9}|\|u1|<[iufc][0-9]{1,2})', 'fortran_order': False, "
    r"'shape': \(((?:[0-9]{1,19}, ?)*(?:[0-9]{1,19})?)\), ?\} *\n"
)
# What zipfile raises where a file is not what it should be; not what a handler of signals may raise meanwhile.
_FOUND_BY_ZIPFILE = (
    zipfile.BadZipFile, struct.error, EOFError, IndexError, KeyError, NotImplementedError, OSError, OverflowError,
    RuntimeError, ValueError,
)  # fmt: skip
_MAGIC = b"\x93NUMPY\x01\x00"

#: Called with a number of bytes that have been written or read.
Told = Callable[[int], Any]


def write(path: Any, arrays: Mapping[str, np.ndarray], told: Told) -> None:
    """Write contiguous arrays of numbers or texts, each under its name, to a file that `numpy.load` reads.

    They go to a new file beside it first, which takes the path's place when it is complete: whatever happens, there is
    either what was there before, or all of the new. The same arrays make the same bytes.

    Raises
    ------
    TypeError, ValueError
        If `path` is none, or that of something that is no file.
    OSError
        If the file cannot be written. What was there before is left.
    """
    target = os.path.realpath(_checked(path))
    with contextlib.suppress(FileNotFoundError):
        _require_regular(target, os.stat(target).st_mode)
    folder = os.path.dirname(target)
    if not os.path.isdir(folder):
        raise FileNotFoundError(errno.ENOENT, "there is no such folder to write into", folder)
    beside = os.path.join(folder, f".velacamplix-{secrets.token_hex(8)}.part")
    # Not the private mode of a temporary file: the file's own, once it has taken its place.
    descriptor = os.open(beside, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o666)
    try:
        with os.fdopen(descriptor, "wb") as file:
            with zipfile.ZipFile(file, "w", zipfile.ZIP_STORED) as archive:
                for name, array in arrays.items():
                    _write_entry(archive, name, array, told)
            file.flush()
            os.fsync(file.fileno())
        os.replace(beside, target)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(beside)
        raise


def _write_entry(archive: zipfile.ZipFile, name: str, array: np.ndarray, told: Told) -> None:
    shape = ", ".join(map(str, array.shape)) + ("," if array.ndim == 1 else "")
    header = f"{{'descr': '{array.dtype.str}', 'fortran_order': False, 'shape': ({shape}), }}"
    header += " " * (-(len(header) + 11) % 64) + "\n"
    entry = zipfile.ZipInfo(f"{name}.npy")  # of 1980, whatever the time
    entry.external_attr = 0o644 << 16
    with archive.open(entry, "w", force_zip64=array.nbytes >= 2**31) as stream:
        stream.write(_MAGIC + struct.pack("<H", len(header)) + header.encode("ascii"))
        octets = array.reshape(-1).view(np.uint8)
        for start in range(0, len(octets), _PIECE):
            piece = octets[start : start + _PIECE]
            stream.write(piece.data)
            told(len(piece))


class Reader:
    """A file of arrays, for use in ``with``.

    Parameters
    ----------
    path : str or os.PathLike
    kind : str
        What the file is said to hold, for messages.

    Raises
    ------
    TypeError, ValueError
        If `path` is none, or the file is nothing that `write` makes. So do all methods.
    OSError
        If the file cannot be read.
    """

    def __init__(self, path: Any, kind: str) -> None:
        self._name, self._kind = _checked(path), kind
        # Some files never end, or keep whoever opens them waiting.
        _require_regular(self._name, os.stat(self._name).st_mode)
        self._file = open(self._name, "rb")  # noqa: SIM115
        try:
            with self._understood():
                self._archive = zipfile.ZipFile(self._file)
            self._entries = {entry.filename.removesuffix(".npy"): entry for entry in self._archive.infolist()}
            if len(self._entries) < len(self._archive.infolist()):
                self.refuse("it holds two arrays of one name")
        except BaseException:
            self._file.close()
            raise

    @property
    def size(self) -> int:
        """Bytes of the file, its arrays and a little more."""
        return os.fstat(self._file.fileno()).st_size

    def __enter__(self) -> Reader:
        return self

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        self._file.close()

    def refuse(self, reason: str) -> NoReturn:
        """Raise ValueError."""
        raise ValueError(f"path must be that of a {self._kind} that was saved, got {checks.show(self._name)}: {reason}")

    def require_names(self, names: set[str]) -> None:
        """Refuse a file that lacks one of the names or has others."""
        for name in sorted(names - set(self._entries)):
            self.refuse(f"it has no array {name!r}")
        for name in sorted(set(self._entries) - names):
            self.refuse(f"it has an array {checks.show(name)}, which this version does not know")

    def __contains__(self, name: str) -> bool:
        return name in self._entries

    def text(self, name: str) -> str:
        """Return a text."""
        with self._opened(name) as (stream, descr, shape):
            length = int(descr[2:]) if descr.startswith("<U") else -1
            if shape != () or length < 0:
                self.refuse(f"{name} must be a text")
            memory.require_bytes(8 * length, f"the text {name!r} in {checks.show(self._name)}")
            octets = bytearray(4 * length)
            self._fill(stream, name, memoryview(octets), lambda size: None)
        with self._understood(), memoryview(octets) as view:
            return str(view, "utf-32-le").rstrip("\0")

    def integer(self, name: str, least: int, most: int) -> int:
        """Return an integer within bounds."""
        number = int(self.array(name, "<i8", ()))
        if not least <= number <= most:
            self.refuse(f"{name} must be from {least} to {most}, got {number}")
        return number

    def array(self, name: str, dtype: str, shape: tuple[int, ...], told: Told = lambda size: None) -> np.ndarray:
        """Return a new array of a type and shape."""
        self.require(name, dtype, shape)
        size = np.dtype(dtype).itemsize * math.prod(shape)
        memory.require_bytes(size, f"the array {name!r} in {checks.show(self._name)}")
        array = np.empty(shape, dtype=dtype)
        self.fill(name, array, told)
        return array

    def layout(self, name: str) -> tuple[str, tuple[int, ...]]:
        """Return what type and shape an array is said to have; the file holds as many bytes."""
        with self._opened(name) as (_, descr, shape):
            return descr, shape

    def require(self, name: str, dtype: str, shape: tuple[int, ...]) -> None:
        """Refuse an array of another type or shape."""
        found = self.layout(name)
        if found != (dtype, shape):
            self.refuse(f"{name} must have the type {dtype} and the shape {shape}, has {found[0]} and {found[1]}")

    def fill(self, name: str, array: np.ndarray, told: Told) -> None:
        """Read an array into a contiguous one of its type and size."""
        with self._opened(name) as (stream, _, shape):
            if math.prod(shape) != array.size:
                self.refuse(f"{name} has the shape {shape}")
            self._fill(stream, name, array.reshape(-1).view(np.uint8).data, told)

    def _fill(self, stream: Any, name: str, target: memoryview, told: Told) -> None:
        start = 0
        while start < len(target):
            with self._understood():
                count = stream.readinto(target[start : start + _PIECE])
            if not count:
                self.refuse(f"{name} ends too early")
            start += count
            told(count)
        with self._understood():
            stream.read(1)  # at the end the checksum is compared

    @contextlib.contextmanager
    def _opened(self, name: str) -> Iterator[tuple[Any, str, tuple[int, ...]]]:
        """Open an array behind its header, which is returned; no more is said to follow than the file can hold."""
        entry = self._entries.get(name)
        if entry is None:
            self.refuse(f"it has no array {name!r}")
        if entry.compress_type != zipfile.ZIP_STORED or entry.flag_bits & 1:
            self.refuse(f"{name} is compressed or encrypted")
        if entry.file_size > self.size:
            self.refuse(f"{name} is said to be larger than the file")
        with self._understood():
            stream = self._archive.open(entry)
        with stream:
            with self._understood():
                start = stream.read(10)
                length = struct.unpack("<H", start[8:])[0] if start[:8] == _MAGIC and len(start) == 10 else 0
                header = _HEADER.fullmatch(stream.read(length).decode("latin-1"))
            if header is None:
                self.refuse(f"{name} is no array of numbers or text")
            shape = tuple(int(number) for number in header[2].replace(" ", "").split(",") if number)
            width = 4 * int(header[1][2:]) if header[1].startswith("<U") else int(header[1][2:])
            if width * math.prod(shape) != entry.file_size - 10 - length:
                self.refuse(f"{name} has not as many bytes as its shape {shape} says")
            yield stream, header[1], shape

    @contextlib.contextmanager
    def _understood(self) -> Iterator[None]:
        try:
            yield
        except _FOUND_BY_ZIPFILE as error:
            if isinstance(error, OSError) and error.errno != errno.EINVAL:  # which a senseless offset gives
                raise
            self.refuse(f"it is damaged ({checks.show(error)})")


def _checked(path: Any) -> str:
    name = os.fspath(path) if isinstance(path, os.PathLike) else path
    if not isinstance(name, str):
        raise TypeError(f"path must be a str or a path, got {checks.show(path)}")
    return checks.plain(name)


def _require_regular(path: str, mode: int) -> None:
    if not stat.S_ISREG(mode):
        raise ValueError(f"path must be that of a file, got {checks.show(path)}, which is a folder, device or pipe")
