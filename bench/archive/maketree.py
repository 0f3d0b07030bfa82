"""Writes a deterministic, product-like tree: a few large binaries, medium
libraries, many small headers and text files. The same seed and scale always
give the same bytes.

    python3 maketree.py FOLDER [SCALE]

SCALE 1.0 (the default) gives about 30,000 files and 600 MB.
"""
import os
import random
import sys

WORDS = ("int void return struct const static unsigned char define include if else for while "
         "register peripheral clock config buffer length offset status error debug probe target "
         "flash memory interrupt handler timer uart spi i2c gpio device driver module value").split()


def binary(rng, size):
    """Machine-code-like bytes: random runs, zero padding and repeats."""
    out = bytearray()
    while len(out) < size:
        pick = rng.random()
        block = rng.randrange(256, 4096)
        if pick < 0.45:
            out += rng.randbytes(block)
        elif pick < 0.6:
            out += bytes(block)
        elif len(out) > 8192:
            start = rng.randrange(len(out) - 8192, len(out) - block)
            out += out[start:start + block]
        else:
            out += rng.randbytes(block)
    return bytes(out[:size])


def main():
    root = sys.argv[1]
    scale = float(sys.argv[2]) if len(sys.argv) > 2 else 1.0
    rng = random.Random(20261121)
    lines = []
    for _ in range(20000):
        words = rng.choices(WORDS, k=rng.randrange(3, 12))
        lines.append(("    " * rng.randrange(0, 3) + " ".join(words) + ";\n").encode())

    def text(size):
        out = []
        total = 0
        while total < size:
            line = lines[rng.randrange(len(lines))]
            out.append(line)
            total += len(line)
        return b"".join(out)[:size]

    # (folder, count, size range, maker, mode)
    kinds = [
        ("bin", 60, (4_000_000, 8_000_000), binary, 0o755),
        ("lib", 1500, (50_000, 150_000), binary, 0o644),
        ("include", 20000, (1_000, 5_000), None, 0o644),
        ("html", 8500, (1_000, 7_000), None, 0o444),
    ]
    files = size_total = 0
    for folder, count, (low, high), maker, mode in kinds:
        count = max(1, int(count * scale))
        for index in range(count):
            sub = os.path.join(root, folder, "group%03d" % (index % 97))
            os.makedirs(sub, exist_ok=True)
            size = rng.randrange(low, high)
            data = maker(rng, size) if maker else text(size)
            suffix = {"bin": "", "lib": ".so", "include": ".h", "html": ".txt"}[folder]
            path = os.path.join(sub, "%s%05d%s" % (folder, index, suffix))
            with open(path, "wb") as f:
                f.write(data)
            os.chmod(path, mode)
            stamp = 1_700_000_000 + rng.randrange(0, 10_000_000)
            os.utime(path, (stamp, stamp))
            files += 1
            size_total += size
    print("%d files, %.1f MB" % (files, size_total / 1e6))


if __name__ == "__main__":
    main()
