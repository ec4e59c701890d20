"""The figures of a run, as rows of the tables in Documentation/RELIABILITY.md."""


def row(*cells):
    print("|", " | ".join(number(cell) if isinstance(cell, int) else cell for cell in cells), "|",
          flush=True)


def number(count):
    return f"{count:,}" if count else "none"


def each(counts):
    return ", ".join(map(number, counts))


def memory(size):
    """The text for so many bytes."""
    if size < 1 << 10:
        return "none"
    return f"{size >> 10:,} KiB" if size < 1 << 20 else f"{size / (1 << 20):.1f} MiB"
