# SPDX-License-Identifier: MIT
"""The formats that programs exchange with Plinth: portable records, framed messages, packed bit
sets, file checksums. One file without dependencies, to be copied to wherever it is needed.

    >>> encode("int text", 42, "forty-two").hex(" ")
    '00 00 00 2a 00 00 00 09 66 6f 72 74 79 2d 74 77 6f'
    >>> decode("int text", encode("int text", 42, "forty-two"))
    [42, 'forty-two']

What is read may come from anybody: bytes that are cut off or make no sense raise WireError and
nothing else, and no memory is taken for what a length only promises. What is written is written
right or not at all: a value that does not fit raises ValueError.
"""

from __future__ import annotations

import codecs
import functools
import operator
import struct
from collections.abc import Callable, Iterable
from typing import Any, Protocol

LARGEST = 0x7FFFFFFF
"""The largest length that a prefix can hold."""

PIECE = 64 * 1024
"""The number of bytes that are asked for at once, whatever a length promises."""


class WireError(Exception):
    """Bytes that are torn or are not what they should be."""


# Neutral text. Each byte, or character, that is none becomes one U+FFFD, and what is behind it is
# looked at afresh. The handler "replace" of the standard library takes several bytes for one.


def _replace_one(error: UnicodeError) -> tuple[str | bytes, int]:
    assert isinstance(error, (UnicodeDecodeError, UnicodeEncodeError))
    character = "\N{REPLACEMENT CHARACTER}"
    writing = isinstance(error, UnicodeEncodeError)
    return character.encode() if writing else character, error.start + 1


codecs.register_error("plinth_wire.replace_one", _replace_one)


def to_neutral(text: str) -> bytes:
    """The neutral form of a text, for any host. A text holds no NUL."""
    if "\0" in text:
        raise ValueError("a text holds no NUL")
    return text.encode("utf-8", "plinth_wire.replace_one")


def from_neutral(data: bytes) -> str:
    """The text of any bytes, up to their first NUL."""
    return data.partition(b"\0")[0].decode("utf-8", "plinth_wire.replace_one")


# Portable records.

_NUMBERS = {
    "char": "b",
    "uchar": "B",
    "short": ">i",
    "ushort": ">I",
    "int": ">i",
    "uint": ">I",
    "long": ">i",
    "ulong": ">I",
    "float": ">f",
    "double": ">d",
}
_SHORT = {"short": range(-0x8000, 0x8000), "ushort": range(0x10000)}


def _prefixed(data: bytes) -> bytes:
    if len(data) > LARGEST:
        raise ValueError("more bytes than a prefix can count")
    return struct.pack(">i", len(data)) + data


def encode_value(kind: str, value: Any) -> bytes:
    """One value in the portable encoding. The kinds are those of the table of values:

    char uchar short ushort int uint long ulong    an int
    float double                                   a float
    character                                      a str of one character
    text wide                                      a str, or None for the null string
    block                                          bytes
    """
    if kind in _NUMBERS:
        if kind in _SHORT and value not in _SHORT[kind]:
            raise ValueError(f"{value} is no {kind}")
        try:
            return struct.pack(_NUMBERS[kind], value)
        except (struct.error, OverflowError) as error:
            raise ValueError(f"{value!r} is no {kind}") from error
    if kind == "character":
        # The bytes are those of the writer's locale. This writer's is UTF-8.
        if not isinstance(value, str) or len(value) != 1 or ord(value) > 0xFFFF:
            raise ValueError(f"{value!r} is no {kind}")
        return _prefixed(value.encode("utf-8"))
    if kind in ("text", "wide"):
        if value is None:
            return struct.pack(">i", -1)
        if not isinstance(value, str):
            raise ValueError(f"{value!r} is no {kind}")
        return _prefixed(to_neutral(value) + (b"\0" if kind == "wide" else b""))
    if kind == "block":
        if not isinstance(value, (bytes, bytearray, memoryview)):
            raise ValueError(f"{value!r} is no {kind}")  # of a number, bytes() makes zeros
        return _prefixed(bytes(value))
    raise ValueError(f"no kind of value: {kind!r}")


def encode(kinds: str, *values: Any) -> bytes:
    """Values one behind the other: encode("int text", 1, "one")."""
    names = kinds.split()
    if len(names) != len(values):
        raise ValueError(f"{len(values)} values for {len(names)} kinds")
    return b"".join(map(encode_value, names, values))


class Reader:
    """Takes values off the front of some bytes."""

    def __init__(self, data: bytes) -> None:
        self._data = bytes(data)
        self._at = 0

    def take(self, kind: str) -> Any:
        """The next value. See encode_value for the kinds; text and wide read both forms of text."""
        if kind in _NUMBERS:
            layout = _NUMBERS[kind]
            value = struct.unpack(layout, self._bytes(struct.calcsize(layout)))[0]
            if kind == "short" and value not in _SHORT[kind]:
                raise WireError(f"{value} is no short")
            return value & 0xFFFF if kind == "ushort" else value
        if kind not in ("character", "text", "wide", "block"):
            raise ValueError(f"no kind of value: {kind!r}")
        length = self.take("int")
        if length < 0:
            if kind in ("text", "wide"):
                return None
            raise WireError(f"a {kind} of {length} bytes")
        data = self._bytes(length)
        if kind == "block":
            return data
        if kind != "character":
            return from_neutral(data)
        try:
            character = data.decode("utf-8")
        except UnicodeDecodeError as error:
            raise WireError("no character") from error
        if len(character) != 1 or ord(character) > 0xFFFF:
            raise WireError("no character")
        return character

    def rest(self) -> bytes:
        """All that is left."""
        return self._bytes(len(self._data) - self._at)

    def at_end(self) -> bool:
        """Whether nothing is left."""
        return self._at == len(self._data)

    def _bytes(self, count: int) -> bytes:
        if count > len(self._data) - self._at:
            raise WireError(f"{count} bytes needed, {len(self._data) - self._at} left")
        self._at += count
        return self._data[self._at - count : self._at]


def decode(kinds: str, data: bytes) -> list[Any]:
    """The values of a record that has these and nothing else."""
    reader = Reader(data)
    values = [reader.take(kind) for kind in kinds.split()]
    if not reader.at_end():
        raise WireError(f"{len(reader.rest())} bytes behind the last value")
    return values


# Framed messages. A stream is whatever reads or writes like a binary file: an open file,
# sys.stdin.buffer, or socket.makefile("rwb").


class Source(Protocol):
    """What can be read from."""

    def read(self, count: int, /) -> bytes:
        """At most so many bytes; none at the end."""


class Sink(Protocol):
    """What can be written to."""

    def write(self, data: bytes, /) -> object:
        """Takes all of the bytes."""

    def flush(self) -> object:
        """Holds nothing back."""


def write_message(stream: Sink, payload: bytes) -> None:
    """Writes one message and flushes the stream."""
    stream.write(_prefixed(payload))
    stream.flush()


def read_message(stream: Source, largest: int = LARGEST) -> bytes | None:
    """The payload of the next message; None at the end of the stream."""
    prefix = _gather(stream, 4)
    if not prefix:
        return None
    length = max(0, Reader(prefix).take("int"))
    if length > largest:
        raise WireError(f"a message of {length} bytes")
    payload = _gather(stream, length)
    if len(payload) < length:
        raise WireError(f"the stream ends {length - len(payload)} bytes before the message")
    return payload


def _gather(stream: Source, count: int) -> bytes:
    """`count` bytes, or what there is before the end of the stream."""
    pieces = []
    while count > 0 and (piece := stream.read(min(count, PIECE))):
        pieces.append(piece)
        count -= len(piece)
    return b"".join(pieces)


# Packed bit sets. A set is its size and the indices that are on; str(sorted(indices)) is its text.


def _bytes_of_set(size: int) -> int:
    if not 0 <= size <= LARGEST:
        raise ValueError(f"no set has {size} bits")
    return size // 8 + 1


def pack_bits(size: int, indices: Iterable[int]) -> bytes:
    """The packed form of a set of `size` bits, of which those are on."""
    stored = bytearray(_bytes_of_set(size))
    for index in indices:
        if not 0 <= index < size:
            raise ValueError(f"no bit {index} in {size}")
        stored[index // 8] |= 0x80 >> index % 8
    if 0x30 <= stored[0] <= 0x39:
        raise ValueError("the first byte would be read as a digit of the count")
    return pack_bytes(stored)


def pack_bytes(stored: bytes) -> bytes:
    """The packed form of the bytes of a set."""
    packed = bytearray(str(len(stored)).encode("ascii"))
    run = 0
    for at, byte in enumerate(stored):
        if byte != 0:
            packed.append(byte)
            continue
        run += 1
        if run == 255 or at + 1 == len(stored) or stored[at + 1] != 0:
            packed += bytes((0, run))
            run = 0
    return bytes(packed)


def unpack_bits(size: int, packed: bytes) -> set[int]:
    """The indices that are on in a packed set of `size` bits."""
    items = packed.lstrip(b"0123456789")
    count = packed[: len(packed) - len(items)]
    if not count or len(count.lstrip(b"0")) > 10 or int(count[-10:]) > 0xFFFFFFFF:
        raise WireError("a block without a count")
    stored = bytearray()
    needed = _bytes_of_set(size)
    at = 0
    while at < len(items) and len(stored) <= needed:
        if items[at] != 0:
            stored.append(items[at])
        elif at + 1 == len(items):
            raise WireError("a run without its length")
        else:
            at += 1
            stored += bytes(items[at])
        at += 1
    if len(stored) != needed:
        raise WireError(f"not the {needed} bytes of a set of {size} bits")
    return {i for i in range(size) if stored[i // 8] & 0x80 >> i % 8}


# Checksums.


def checksum(data: bytes, before: int = 0) -> int:
    """The checksum of some bytes, or of those behind others whose checksum was `before`."""
    count = (before >> 16) + len(data)
    total = (before >> 8 & 0xFF) + sum(data)
    parity = functools.reduce(operator.xor, data, before & 0xFF)
    return (count & 0xFFFF) << 16 | (total & 0xFF) << 8 | parity


def checksum_of(read: Callable[[int], bytes]) -> int:
    """The checksum of all that a read function gives: checksum_of(open(name, "rb").read)."""
    value = 0
    while data := read(PIECE):
        value = checksum(data, value)
    return value
