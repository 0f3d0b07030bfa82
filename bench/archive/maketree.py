"""Writes a deterministic, product-like tree: a few large binaries, medium
libraries, many small headers and text files. The same seed and scale always
give the same bytes.

    python3 maketree.py FOLDER [SCALE] [product|toolchain]

SCALE 1.0 (the default) gives about 30,000 files and 600 MB for the product
tree; the toolchain tree is 24,000 small files (headers, sources, docs and
target files of 200 B to 30 KB, about 5 KB on average) in 300 folders two
and three levels deep, plus 8 binaries of 2 to 6 MB: about 150 MB.
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
    shape = sys.argv[3] if len(sys.argv) > 3 else "product"
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

    if shape == "toolchain":
        toolchain(root, scale, rng, text)
        return

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


def toolchain(root, scale, rng, text):
    """Many small files in a few hundred folders, as a compiler's tree has."""
    # (top folder, subfolders, files, suffixes, mode)
    kinds = [
        ("include", 120, 11000, (".h", ".hpp", ""), 0o644),
        ("source", 80, 6000, (".c", ".cpp", ".S"), 0o644),
        ("html", 40, 4000, (".html", ".txt"), 0o444),
        ("targets", 40, 3000, (".xml", ".ld", ".cfg"), 0o644),
    ]
    files = size_total = 0
    for top, folders, count, suffixes, mode in kinds:
        folders = max(1, int(folders * scale))
        count = max(1, int(count * scale))
        for index in range(count):
            # Two or three levels: top/libNNN/ and, for half of them, a subfolder.
            group = index % folders
            parts = [root, top, "lib%03d" % group]
            if group % 2:
                parts.append("detail")
            sub = os.path.join(*parts)
            os.makedirs(sub, exist_ok=True)
            # Mostly small, a few larger: about 5 KB on average.
            size = int(min(30_000, max(200, rng.lognormvariate(8.0, 0.9))))
            path = os.path.join(sub, "f%05d%s" % (index, suffixes[index % len(suffixes)]))
            write(path, text(size), mode, rng)
            files += 1
            size_total += size
    for index in range(max(1, int(8 * scale))):
        sub = os.path.join(root, "bin" if index % 2 else "gcc")
        os.makedirs(sub, exist_ok=True)
        size = rng.randrange(2_000_000, 6_000_000)
        write(os.path.join(sub, "tool%02d" % index), binary(rng, size), 0o755, rng)
        files += 1
        size_total += size
    print("%d files, %.1f MB" % (files, size_total / 1e6))


def write(path, data, mode, rng):
    with open(path, "wb") as f:
        f.write(data)
    os.chmod(path, mode)
    stamp = 1_700_000_000 + rng.randrange(0, 10_000_000)
    os.utime(path, (stamp, stamp))


if __name__ == "__main__":
    main()
