"""The two files of a run: one for the state, one that tells how far the run has come."""

from __future__ import annotations

import contextlib
import errno
import fcntl
import json
import mmap
import os
import stat
import threading
import warnings
from collections.abc import Mapping
from typing import Any, NoReturn

import numpy as np

from ..basics import checks
from ..machine import memory
from .layout import runs

# Bytes between two looks at whether to stop.
_PIECE = 2**24
# Of the file that are asked for at a time.
_ASKED_FOR = 2**30


class Stopped(Exception):
    """The run has ended meanwhile."""


def buffer(size: int) -> np.ndarray:
    """Return memory that begins with a page, as direct access to files needs it."""
    pages = mmap.mmap(-1, size)
    if hasattr(mmap, "MADV_HUGEPAGE"):
        with contextlib.suppress(OSError):  # a kernel without them
            pages.madvise(mmap.MADV_HUGEPAGE)
    return np.frombuffer(pages, np.uint8)


class Files:
    """A state's file and its journal, for use in ``with``.

    Parameters
    ----------
    path : str
    size : int
        Bytes of the file. They are asked of the disk at once, so that it cannot be full later.
    about : mapping
        What the journal says the run is about; one that says something else is refused.
    resume : bool
        Whether files that are there are gone on with.

    Attributes
    ----------
    done : int
        Parts that have been written for good.
    direct : bool
        Whether the page cache is passed by.

    Raises
    ------
    FileExistsError
        If a file is there and `resume` is False.
    ValueError
        If the files are not those of such a run.
    OSError
        If the disk has not the room, or the files cannot be made or used.
    """

    _file = _journal = -1

    def __init__(self, path: str, size: int, about: Mapping[str, Any], resume: bool) -> None:
        self.path, self.journal_path = path, path + ".journal"
        self.stop = threading.Event()
        self.done, self.direct = 0, True
        self._size, self._about = size, json.dumps(about)
        there = [name for name in (self.path, self.journal_path) if os.path.lexists(name)]
        if there and not resume:
            raise FileExistsError(
                errno.EEXIST,
                f"storage needs a file that is not there yet; delete it, or go on with what a run has left there by "
                f"Storage({path!r}, resume=True)",
                there[0],
            )
        if there == [self.path]:
            raise ValueError(f"storage cannot be gone on with: {path!r} is there without the journal of a run")
        try:
            self._open(bool(there))
        except BaseException:
            self.close()
            if not there:
                self._unlink()
            raise

    def __enter__(self) -> Files:
        return self

    def __exit__(self, kind: Any, error: Any, traceback: Any) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def close(self) -> None:
        """Let go of the files. What is mapped of them stays."""
        for descriptor in (self._file, self._journal):
            if descriptor >= 0:
                os.close(descriptor)
        self._file = self._journal = -1

    @property
    def descriptor(self) -> int:
        """The state's file."""
        return self._file

    # Reading and writing

    def read(self, blocks: np.ndarray, block_bytes: int, into: np.ndarray) -> None:
        """Fill a buffer from blocks of the file."""
        self._move(blocks, block_bytes, into, os.preadv)

    def write(self, blocks: np.ndarray, block_bytes: int, source: np.ndarray) -> None:
        """Write a buffer to blocks of the file, for good, and note that one part more is done."""
        self._move(blocks, block_bytes, source, os.pwritev)
        os.fdatasync(self._file)
        self._note(str(self.done + 1))
        self.done += 1

    def _move(self, blocks: np.ndarray, block_bytes: int, octets: np.ndarray, call: Any) -> None:
        for place, block, count in runs(blocks):
            start, offset = place * block_bytes, block * block_bytes
            end = start + count * block_bytes
            while start < end:
                if self.stop.is_set():
                    raise Stopped
                moved = call(self._file, [octets[start : min(end, start + _PIECE)]], offset)
                if moved <= 0:
                    raise OSError(errno.EIO, "the file ends too early: somebody has shortened it", self.path)
                start, offset = start + moved, offset + moved

    # Making and finding

    def _open(self, is_there: bool) -> None:
        self._journal = os.open(self.journal_path, os.O_RDWR | os.O_CREAT | os.O_APPEND | os.O_CLOEXEC, 0o666)
        self._require_regular(self._journal, self.journal_path)
        try:
            fcntl.flock(self._journal, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise BlockingIOError(errno.EAGAIN, "another run is using this storage", self.path) from None
        goes_on = is_there and self._goes_on()
        if not goes_on:
            os.ftruncate(self._journal, 0)
            self._note(self._about)
        self._open_state()
        found = os.fstat(self._file).st_size
        if goes_on and found < self._size:
            raise ValueError(f"storage is damaged: {self.path!r} has {found} bytes, and {self._size} when it was made")
        if not goes_on:
            self._allocate()

    def _note(self, line: str) -> None:
        os.write(self._journal, line.encode() + b"\n")
        os.fdatasync(self._journal)

    def _open_state(self) -> None:
        flags = os.O_RDWR | os.O_CREAT | os.O_CLOEXEC
        try:
            self._file = os.open(self.path, flags | getattr(os, "O_DIRECT", 0), 0o666)
            self._require_regular(self._file, self.path)
            if os.fstat(self._file).st_size >= mmap.PAGESIZE:
                self._try_direct()
            self.direct = hasattr(os, "O_DIRECT")
        except OSError as error:
            if error.errno not in (errno.EINVAL, errno.EOPNOTSUPP):
                raise
            self._fall_back()

    def _try_direct(self) -> None:
        os.preadv(self._file, [buffer(mmap.PAGESIZE).data], 0)

    def _fall_back(self) -> None:
        if self._file >= 0:
            os.close(self._file)
        self._file = os.open(self.path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o666)
        self._require_regular(self._file, self.path)
        self.direct = False

    def _allocate(self) -> None:
        """Ask the disk for the whole file, and look whether it takes direct access after all."""
        about = os.fstatvfs(self._file)
        there = os.fstat(self._file).st_blocks * 512
        room = about.f_bavail * about.f_frsize + there
        if room < self._size:
            raise OSError(
                errno.ENOSPC,
                f"a state of {memory.human(self._size)} needs room on the disk, where {memory.human(room)} are free",
                self.path,
            )
        for start in range(0, self._size, _ASKED_FOR):
            os.posix_fallocate(self._file, start, min(_ASKED_FOR, self._size - start))
        if not self.direct:
            return
        try:
            self._try_direct()
        except OSError as error:
            if error.errno not in (errno.EINVAL, errno.EOPNOTSUPP):
                raise
            self._fall_back()

    def warn_if_cached(self, stacklevel: int) -> None:
        """Say so where the file system refuses direct access."""
        if not self.direct:
            warnings.warn(
                f"the file system of {self.path!r} refuses direct access (O_DIRECT): the run goes through the page cache, "
                "with equal results",
                RuntimeWarning,
                stacklevel=stacklevel + 1,
            )

    def _goes_on(self) -> bool:
        """Return whether there is something to go on with; refuse the journal of another run."""
        with open(self.journal_path, "rb") as file:
            header, *lines = file.read().split(b"\n")
        if header.decode("utf-8", "replace") != self._about:
            # Cut off while it was written, before the state's file was made.
            if not lines and self._about.encode().startswith(header) and not os.path.lexists(self.path):
                return False
            raise ValueError(f"storage cannot be gone on with: {self.path!r} is {self._difference(header)}")
        whole = lines[:-1]  # what follows the last end of line was cut off
        goes_on = self._noted(whole)
        os.ftruncate(self._journal, sum(len(line) + 1 for line in (header, *whole)))
        return goes_on

    def _noted(self, lines: list[bytes]) -> bool:
        """Take over what the journal tells behind its first line; return whether there is something to go on with."""
        for number, line in enumerate(lines):
            if line != str(number + 1).encode():
                self._refuse_line(number, line)
        self.done = len(lines)
        return self.done > 0

    def _refuse_line(self, number: int, line: bytes) -> NoReturn:
        raise ValueError(f"storage is damaged: line {number + 2} of {self.journal_path!r} is {line[:40]!r}")

    def _difference(self, header: bytes) -> str:
        try:
            found = json.loads(header)
            wanted = json.loads(self._about)
            name = next(name for name in wanted if found.get(name) != wanted[name])
            return f"of another run: {name} was {checks.show(found.get(name))}, is {checks.show(wanted[name])}"
        except (ValueError, AttributeError, StopIteration):
            return "not the storage of a run"

    def _require_regular(self, descriptor: int, path: str) -> None:
        if not stat.S_ISREG(os.fstat(descriptor).st_mode):
            raise ValueError(f"storage must be a file, got {checks.show(path)}, which is a folder, device or pipe")

    def _unlink(self) -> None:
        for name in (self.path, self.journal_path):
            with contextlib.suppress(OSError):
                os.unlink(name)
