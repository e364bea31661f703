# SPDX-License-Identifier: MIT
"""plinth_wire against the vectors of docs/formats.md, against the library, and against programs in
C++: the line server and the file service of examples/. The environment names the program through
which the library talks (PLINTH_PARTNER), the folder of the examples (PLINTH_EXAMPLES), and the words
of an emulator that they take (PLINTH_EMULATOR).
"""

from __future__ import annotations

import ast
import fcntl
import functools
import io
import os
import pathlib
import random
import socket
import struct
import subprocess
import tempfile
import unittest
from typing import Any

import plinth_wire as wire

PAGE = pathlib.Path(__file__).resolve().parents[1] / "docs" / "formats.md"
PARTNER = os.environ.get("PLINTH_PARTNER", "")
PROGRAMS = os.environ.get("PLINTH_EXAMPLES", "")
EMULATOR = os.environ.get("PLINTH_EMULATOR", "").split()


def vectors(name: str) -> list[tuple[str, str]]:
    """The cases of one block of the page."""
    block = PAGE.read_text("utf-8").split(f"\n```vectors {name}\n")[1].split("\n```")[0]
    cases = [line.partition(" | ") for line in block.split("\n")]
    assert cases and all(bar for _, bar, _ in cases), name
    return [(left, right) for left, _, right in cases]


def value_of(kind: str, told: str) -> Any:
    """A value as the page writes it."""
    if kind == "block":
        return bytes.fromhex(told)
    if kind == "character":
        return chr(int(told))
    return None if told == "null" else ast.literal_eval(told)


def characters(told: str) -> str:
    return "".join(chr(int(point[2:], 16)) for point in told.split())


def quoted(data: bytes) -> str:
    """The quoted form of a text."""

    def one(byte: int) -> str:
        if 0x20 <= byte <= 0x7E:
            return ("\\" if byte in b'"\\' else "") + chr(byte)
        return f"\\{byte:03o}" if byte < 0x80 else f"\\{byte - 0x100 & 0xFFFFFFFF:o}"

    return '"' + "".join(map(one, data)) + '"'


class Vectors(unittest.TestCase):
    """What the page shows, and every cut of it."""

    def test_records(self) -> None:
        for left, right in vectors("portable"):
            kind, _, told = left.partition(" ")
            value, data = value_of(kind, told), bytes.fromhex(right)
            with self.subTest(left):
                if kind == "float":
                    self.assertEqual(struct.unpack(">f", data)[0], value)
                self.assertEqual(wire.encode(kind, value), data)
                self.assertEqual(wire.decode(kind, data), [value])
                for cut in range(len(data)):
                    self.assertRaises(wire.WireError, wire.decode, kind, data[:cut])
                self.assertRaises(wire.WireError, wire.decode, kind, data + b"\0")

    def test_neutral_text(self) -> None:
        for left, right in vectors("neutral"):
            self.assertEqual(wire.to_neutral(characters(left)).hex(" ").upper(), right)
            self.assertEqual(wire.from_neutral(bytes.fromhex(right)), characters(left))
        for left, right in vectors("neutral-invalid"):
            self.assertEqual(wire.from_neutral(bytes.fromhex(right)), characters(left), right)
        self.assertEqual(wire.to_neutral("a\ud800b"), b"a\xef\xbf\xbdb")

    def test_messages(self) -> None:
        cases = [(bytes.fromhex(left), bytes.fromhex(right)) for left, right in vectors("message")]
        stream = io.BytesIO()
        for payload, _ in cases:
            wire.write_message(stream, payload)
        whole = b"".join(data for _, data in cases)
        self.assertEqual(stream.getvalue(), whole)
        ends = [0]
        for payload, data in cases:
            ends.append(ends[-1] + len(data))
        for cut in range(len(whole) + 1):
            stream = io.BytesIO(whole[:cut])
            for payload, end in zip((payload for payload, _ in cases), ends[1:]):
                if end <= cut:
                    self.assertEqual(wire.read_message(stream), payload)
            if cut in ends:
                self.assertIsNone(wire.read_message(stream))
            else:
                self.assertRaises(wire.WireError, wire.read_message, stream)

    def test_packed_sets(self) -> None:
        for left, right in vectors("packed"):
            stored, packed = bytes.fromhex(left), bytes.fromhex(right)
            size = 8 * len(stored) - 1
            on = {i for i in range(size) if stored[i // 8] & 0x80 >> i % 8}
            self.assertEqual(wire.pack_bytes(stored), packed)
            self.assertEqual(wire.unpack_bits(size, packed), on)
        for left, right in vectors("packed-for-20-bits"):
            outcome, _, told = left.partition(" ")
            with self.subTest(right):
                if outcome == "set":
                    on = wire.unpack_bits(20, bytes.fromhex(right))
                    bits = f"{int(told.replace(' ', ''), 16):024b}"[:20]
                    self.assertEqual(on, {i for i in range(20) if bits[i] == "1"})
                else:
                    self.assertRaises(wire.WireError, wire.unpack_bits, 20, bytes.fromhex(right))

    def test_checksums(self) -> None:
        for left, right in vectors("checksum"):
            told, _, times = left.partition(" * ")
            data = bytes.fromhex(told) * int(times or 1)
            self.assertEqual(f"{wire.checksum(data):08X}", right)
            self.assertEqual(f"{wire.checksum_of(io.BytesIO(data).read):08X}", right)

    def test_quoting(self) -> None:
        for left, right in vectors("quoting"):
            self.assertEqual(quoted(bytes.fromhex(left)), right)


class Hostile(unittest.TestCase):
    """What nobody should send, and what nobody should be able to write."""

    def test_any_bytes(self) -> None:
        rng = random.Random(4711)
        kinds = "char ushort short character int text wide block double".split()
        for _ in range(20000):
            prefix = rng.choice((b"", b"\0\0\0\2", b"\x7f\xff\xff\xff"))
            data = prefix + rng.randbytes(rng.randrange(12))
            reader = wire.Reader(data)
            try:
                while not reader.at_end():
                    reader.take(rng.choice(kinds))
                wire.read_message(io.BytesIO(data))
                wire.unpack_bits(rng.randrange(64), b"3" + data)
            except wire.WireError:
                pass

    def test_bit_sets_come_back(self) -> None:
        rng = random.Random(4711)
        for size in (0, 1, 7, 8, 9, 64, 3000):
            for density in (0.0, 0.01, 0.5, 1.0):
                on = {i for i in range(size) if rng.random() < density}
                try:
                    packed = wire.pack_bits(size, on)
                except ValueError:
                    continue
                self.assertEqual(wire.unpack_bits(size, packed), on)
        self.assertRaises(ValueError, wire.pack_bits, 8, [2, 3])  # 30 would be lost
        self.assertRaises(ValueError, wire.pack_bits, 8, [8])

    def test_lengths_and_values(self) -> None:
        self.assertEqual(wire.decode("text wide", b"\xff\xff\xff\xfe\x80\0\0\0"), [None, None])
        self.assertEqual(wire.decode("text", b"\0\0\0\4a\0bc"), ["a"])
        self.assertEqual(wire.decode("ushort", b"\1\2\3\4"), [0x304])
        for kind, data in (
            ("short", b"\0\0\x80\0"),
            ("block", b"\xff\xff\xff\xff"),
            ("character", b"\0\0\0\0"),
            ("character", b"\0\0\0\2ab"),
            ("character", b"\0\0\0\4\xf0\x9f\x98\x80"),
        ):
            self.assertRaises(wire.WireError, wire.decode, kind, data)
        self.assertEqual(wire.read_message(io.BytesIO(b"\xff\xff\xff\xff")), b"")
        self.assertRaises(wire.WireError, wire.read_message, io.BytesIO(b"\0\0\0\5hello"), 4)
        for kind, value in (
            ("short", 32768),
            ("ushort", -1),
            ("int", 1 << 31),
            ("uint", -1),
            ("character", "\U0001f600"),
            ("text", "a\0b"),
            ("float", 1e39),
            ("block", 5),
            ("text", b"a"),
            ("nothing", 1),
        ):
            self.assertRaises(ValueError, wire.encode, kind, value)
        self.assertRaises(ValueError, wire.pack_bits, -1, [])


@unittest.skipUnless(PARTNER, "PLINTH_PARTNER does not name the program")
class Library(unittest.TestCase):
    """The module and the library agree on what any bytes mean, and write the same."""

    INTEGERS = {
        "char": (-0x80, 0x7F),
        "uchar": (0, 0xFF),
        "short": (-0x8000, 0x7FFF),
        "ushort": (0, 0xFFFF),
        "int": (-0x80000000, 0x7FFFFFFF),
        "uint": (0, 0xFFFFFFFF),
        "long": (-0x80000000, 0x7FFFFFFF),
        "ulong": (0, 0xFFFFFFFF),
    }
    OTHERS = ("character", "text", "wide", "block")
    CHARACTERS = (
        "\x01\x7f\x80\u07ff\u0800\ud7ff\ud800\udfff\ue000\ufffd\uffff\U00010000\U0010ffff"
    )

    def setUp(self) -> None:
        self.rng = random.Random(4711)
        # pylint: disable=consider-using-with
        self.process = subprocess.Popen(
            [*EMULATOR, PARTNER], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        self.addCleanup(self.stop)

    def stop(self) -> None:
        self.process.communicate()
        self.assertEqual(self.process.returncode, 0)

    def ask(self, what: str, size: int, data: bytes) -> tuple[bool, bytes]:
        assert self.process.stdin is not None and self.process.stdout is not None
        self.process.stdin.write(wire.encode("text int block", what, size, data))
        self.process.stdin.flush()
        good, length = struct.unpack(">ii", self.process.stdout.read(8))
        return bool(good), self.process.stdout.read(length)

    def value(self, kind: str) -> Any:
        rng = self.rng
        if kind in self.INTEGERS:
            smallest, largest = self.INTEGERS[kind]
            return rng.choice((smallest, 0, largest, rng.randint(smallest, largest)))
        if kind == "float":
            return struct.unpack(">f", struct.pack(">f", rng.uniform(-1e38, 1e38)))[0]
        if kind == "double":
            return rng.choice((rng.uniform(-1e308, 1e308), float("inf"), -0.0, 5e-324))
        if kind == "character":
            return chr(rng.choice((rng.randrange(0xD800), rng.randrange(0xE000, 0x10000))))
        if kind == "block":
            return rng.randbytes(rng.choice((0, 1, rng.randrange(9000), 70000)))
        if rng.random() < 0.1:
            return None
        return "".join(
            rng.choice((rng.choice(self.CHARACTERS), chr(rng.randrange(1, 0x110000))))
            for _ in range(rng.choice((0, 1, rng.randrange(300))))
        )

    def damaged(self, data: bytes, pieces: tuple[bytes, ...]) -> bytes:
        """The bytes with some of them cut off, overwritten, put in or added."""
        rng = self.rng
        at = rng.randrange(len(data) + 1)
        near = rng.randrange(min(9, len(data) + 1))
        piece = rng.choice((*pieces, rng.randbytes(rng.randrange(4))))
        return rng.choice(
            (
                data[:at],
                data[:at] + piece + data[at + len(piece) :],
                data[:near] + piece + data[near + len(piece) :],
                data[:near] + piece + data[near:],
                data + piece,
            )
        )

    def test_records(self) -> None:
        exact = (*self.INTEGERS, *self.OTHERS)
        seen = set()
        for _ in range(2000):
            damaging = self.rng.random() < 0.5  # not to bits that are no number
            choice = exact if damaging else (*exact, "float", "double")
            names = self.rng.choices(choice, k=self.rng.randrange(1, 6))
            kinds = " ".join(names)
            data = wire.encode(kinds, *map(self.value, names))
            if damaging:
                lengths = (b"\x7f\xff\xff\xff", b"\xff\xff\xff\xff", b"\x80\0\0\0", b"\0\0\0\1")
                data = self.damaged(data, lengths)
            good, written = self.ask(kinds, 0, data)
            seen.add((damaging, good))
            with self.subTest(kinds=kinds, data=data[:100]):
                if not good:
                    self.assertRaises(wire.WireError, wire.decode, kinds, data)
                    continue
                values = wire.decode(kinds, data)
                # For the library a null string is an empty one, once it is read.
                texts = ("" if value is None else value for value in values)
                self.assertEqual(wire.encode(kinds, *texts), written)
        self.assertEqual(seen, {(False, True), (True, True), (True, False)})

    def test_bit_sets(self) -> None:
        seen = set()
        for _ in range(2000):
            size = self.rng.choice((0, 7, 8, 9, 255, 2039, 2040, 2041, self.rng.randrange(5000)))
            density = self.rng.choice((0, 0.001, 0.1, 1))
            on = {0, *(i for i in range(1, size) if self.rng.random() < density)}
            data = wire.pack_bits(size, on) if size else b"1\0\1"
            if self.rng.random() < 0.5:
                data = self.damaged(data, (b"\0", b"\0\0", b"\0\1", b"4294967296", b"9"))
            if data[:1] in (b" ", b"\t", b"\n", b"\v", b"\f", b"\r"):
                continue  # which the library skips, and nobody writes
            good, written = self.ask("bits", size, data)
            seen.add(good)
            with self.subTest(size=size, data=data[:100]):
                if not good:
                    self.assertRaises(wire.WireError, wire.unpack_bits, size, data)
                    continue
                indices = wire.unpack_bits(size, data)
                text, _, packed = written.partition(b"\n")
                self.assertEqual(text.decode(), str(sorted(indices)))
                self.assertEqual(wire.unpack_bits(size, packed), indices)
        self.assertEqual(seen, {True, False})

    def test_checksums(self) -> None:
        with tempfile.NamedTemporaryFile() as file:
            for size in (0, 1, 255, 65536, 200001):
                data = self.rng.randbytes(size)
                file.seek(0)
                file.truncate()
                file.write(data)
                file.flush()
                good, written = self.ask("sum", 0, file.name.encode())
                self.assertTrue(good)
                self.assertEqual(wire.decode("uint", written), [wire.checksum(data)])


class Server:
    """A program of examples/ that tells its port, and one connection to it."""

    def __init__(self, *words: str) -> None:
        environment = dict(os.environ, LC_ALL="C.UTF-8")
        self.process = subprocess.Popen([*EMULATOR, *words], stdout=subprocess.PIPE, env=environment)
        assert self.process.stdout is not None
        self.said = self.process.stdout
        port = int(self.said.readline().split()[-1])
        self.connection = socket.create_connection(("127.0.0.1", port), 30)
        self.stream = self.connection.makefile("rwb")

    def ask(self, request: bytes) -> bytes:
        wire.write_message(self.stream, request)
        return self.answer()

    def answer(self) -> bytes:
        answer = wire.read_message(self.stream)
        assert answer is not None, "the server has closed the connection"
        return answer

    def stop(self) -> int:
        self.stream.close()
        self.connection.close()
        self.process.terminate()
        with self.said:
            self.said.read()
        return self.process.wait(30)


@unittest.skipUnless(PROGRAMS, "PLINTH_EXAMPLES does not name the programs of the examples")
class LineServer(unittest.TestCase):
    def test_every_line_is_answered(self) -> None:
        server = Server(f"{PROGRAMS}/lines_server")
        lines = PAGE.read_text("utf-8").split("\n") + ["Grüße €\t\x01", "😀" * 100000, ""]
        for number, line in enumerate(lines, 1):
            data = wire.to_neutral(line)
            told = wire.decode(
                "int text uint", server.ask(wire.encode("int int text", number, len(data), line))
            )
            fnv = functools.reduce(
                lambda value, byte: (value ^ byte) * 16777619 & 0xFFFFFFFF, data, 2166136261
            )
            self.assertEqual(told, [number, quoted(data), fnv])
        self.assertEqual(server.stop(), 0)


@unittest.skipUnless(PROGRAMS, "PLINTH_EXAMPLES does not name the programs of the examples")
class FileService(unittest.TestCase):
    OK, INVALID, NOT_FOUND, SHARED = 1, 4, 5, 10
    LIST, STAT, SUM, FETCH, PUT, MKDIR, RMDIR, RMTREE, LOCK, UNLOCK = range(1, 11)
    ENTRY = "int text uint uint uint uint"  # kind, name, size and time, upper halves first

    def setUp(self) -> None:
        # pylint: disable=consider-using-with
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.server = self.serve()

    def serve(self) -> Server:
        server = Server(f"{PROGRAMS}/fileserv/fileserv_server", str(self.folder), "0", "20")
        self.addCleanup(lambda: self.assertEqual(server.stop(), 0))
        return server

    def ask(self, operation: int, path: str = "", argument: str = "") -> wire.Reader:
        """The fields of an answer that says that all went well."""
        request = wire.encode("int text text", operation, path, argument)
        answer = wire.Reader(self.server.ask(request))
        self.assertEqual(answer.take("int"), self.OK)
        return answer

    def refused(self, operation: int, path: str) -> int:
        answer = self.server.ask(wire.encode("int text text", operation, path, ""))
        return int(wire.decode("int", answer)[0])

    def put(self, path: str, data: bytes) -> None:
        self.ask(self.PUT, path)
        for at in range(0, len(data), 1 << 20):
            block = wire.encode("int", self.OK) + data[at : at + (1 << 20)]
            wire.write_message(self.server.stream, block)
        self.assertEqual(self.server.ask(wire.encode("int", self.OK)), wire.encode("int", self.OK))

    def fetch(self, path: str) -> bytes:
        self.ask(self.FETCH, path)
        data = b""
        while True:
            block = wire.Reader(self.server.answer())
            self.assertEqual(block.take("int"), self.OK)
            if block.at_end():
                return data
            data += block.rest()

    def test_files_go_both_ways(self) -> None:
        self.ask(self.MKDIR, "Grüße")
        contents = {
            "empty": b"",
            "text": b"abc",
            "large": random.Random(4711).randbytes(5 << 20),
        }
        for name, data in contents.items():
            path = f"Grüße|{name}"
            self.put(path, data)
            self.assertEqual((self.folder / "Grüße" / name).read_bytes(), data)
            self.assertEqual(self.fetch(path), data)
            with open(self.folder / "Grüße" / name, "rb") as file:
                told = [0, len(data), wire.checksum_of(file.read)]
            answer = self.ask(self.SUM, path)
            self.assertEqual([answer.take("uint") for _ in range(3)], told)
        answer = self.ask(self.LIST, "Grüße", "*e*")
        entries = {}
        for _ in range(answer.take("int")):
            kind, name, upper, lower, _, _ = (answer.take(kind) for kind in self.ENTRY.split())
            entries[name] = (kind, upper << 32 | lower)
        self.assertTrue(answer.at_end())
        self.assertEqual(entries, {name: (1, len(data)) for name, data in contents.items()})
        answer = self.ask(self.STAT, "Grüße")
        self.assertEqual([answer.take("int"), answer.take("text")], [2, "Grüße"])
        self.ask(self.RMTREE, "Grüße")
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_refusals(self) -> None:
        self.assertEqual(self.refused(self.STAT, "nothing"), self.NOT_FOUND)
        outside = self.refused(self.FETCH, "..|secret")
        self.assertNotEqual(outside, self.OK)
        whole = wire.encode("int text text", self.STAT, "", "")
        for bad in (whole[:-1], whole + b"\0", b"", wire.encode("int text text", 2, None, "")):
            self.assertEqual(wire.decode("int", self.server.ask(bad)), [self.INVALID])
        self.ask(self.STAT)

    def test_locks_are_shared_by_servers(self) -> None:
        first, second = self.server, self.serve()
        self.ask(self.LOCK, "name")
        self.server = second
        self.assertEqual(self.refused(self.LOCK, "name"), self.SHARED)
        self.assertEqual(self.refused(self.UNLOCK, "name"), self.NOT_FOUND)
        self.server = first
        self.ask(self.UNLOCK, "name")
        self.server = second
        self.ask(self.LOCK, "name")

    def test_locks_are_those_of_lock_files(self) -> None:
        self.ask(self.LOCK, "name")
        with open(self.folder / ".fileserv" / "lock-name", "ab") as file:
            with self.assertRaises(BlockingIOError):
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            self.ask(self.UNLOCK, "name")
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            self.assertEqual(self.refused(self.LOCK, "name"), self.SHARED)
        self.ask(self.LOCK, "name")


if __name__ == "__main__":
    unittest.main()
