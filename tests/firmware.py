"""What tests of the card share: its flash, images as text, requests by their names."""

from harness import fresh, held, write

NAMES = {"20 01": "information", "20 02": "enter", "20 03": "read", "20 04": "chunk", "20 05": "end",
         "18 01": "identity", "18 02": "cold_reset", "18 03": "warm_reset"}
# The requests and pauses of the way out of the downloader.
RESET = "cold_reset sleep 4000000 sleep 2000000 identity sleep 2000000 identity "


def in_words(traffic):
    """Each request by its name, without its data; a pause as it is."""
    return "".join(NAMES.get(line[:5], line) + " " for line in traffic.splitlines())


def noise(count):
    """Bytes that differ from place to place."""
    return bytes(i * 40503 >> 8 & 0xFF for i in range(count))


def padded(data, size):
    """The bytes, then erased ones up to this size."""
    return data.ljust(size, b"\xFF")


def srecords(address, data):
    """S3 records of 16 data bytes at most, with a checksum that is wrong."""
    parts = [(address + i, data[i:i + 16]) for i in range(0, len(data), 16)]
    return "".join(f"S3{len(part) + 5:02X}{place:08X}{part.hex()}00\r\n" for place, part in parts)


def serve_card(base=0xFFFFFFF0, size=16, start=0xFFFFFFF8, block=4, chunk=1, flash=b""):
    """A fresh card: its flash holds these bytes, else a "." in each. By itself: two blocks after eight other bytes."""
    fresh(CARD_BASE=f"{base:x}", CARD_SIZE=f"{size:x}", CARD_START=f"{start:x}", CARD_BLOCK=block, CARD_CHUNK=chunk)
    write("../state", f"card.flash {(flash or size * b'.').hex()}\n")


def flash():
    """The bytes of the flash."""
    return held()["card.flash"]
