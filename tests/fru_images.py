"""Inventory devices, built of fields, records and areas."""

import itertools

from harness import fresh, write


def serve(device=b"", size=0, **values):
    """A fresh server with this FRU device 0, which has at least this size."""
    fresh("plain", **values)
    write("../state", f"fru.00 {device.ljust(size, bytes(1)).hex()}\n")


def summed(data):
    """The bytes, and one that makes their sum 0."""
    return data + bytes([-sum(data) & 0xFF])


def header(internal=0, chassis=0, board=0, product=0, records=0, pad=0, form=1):
    """A common header: offsets in units of 8 bytes, 0 where there is no such area."""
    return summed(bytes([form, internal, chassis, board, product, records, pad]))


def closed(body, units=0, form=1):
    """An area of these bytes after its format and length; zeros and the checksum follow."""
    units = max(units, (len(body) + 10) // 8)
    return summed((bytes([form, units]) + body).ljust(units * 8 - 1, b"\0"))


def area(fixed, fields, codes=(3,), units=0):
    """An area of these bytes after its length, fields that have the type codes by turns, and the end mark."""
    texts = (bytes([code << 6 | len(text)]) + text for text, code in zip(fields, itertools.cycle(codes)))
    return closed(fixed + b"".join(texts) + b"\xC1", units)


def record(kind, form, data):
    """A record of the multi-record area; bit 7 of its format says that it is the last."""
    return summed(bytes([kind, form, len(data), -sum(data) & 0xFF])) + data


def image_of(internal=b"", chassis=b"", board=b"", product=b"", records=b""):
    """A device with these areas one after the other; an empty one is absent."""
    areas = [internal, chassis, board, product, records]
    starts = itertools.accumulate(map(len, areas), initial=8)
    return header(*(start // 8 if part else 0 for start, part in zip(starts, areas))) + b"".join(areas)
