"""The text of a macro's use, into which the syntax tree does not look."""


def arguments_of(text):
    """The arguments of a macro's use, as ranges of the text."""
    depth, start, quoted, ranges = 0, text.index("(") + 1, False, []
    i = start
    while i < len(text):
        letter = text[i]
        if quoted:
            if letter == "\\":
                i += 1
            elif letter == '"':
                quoted = False
        elif letter == '"':
            quoted = True
        elif letter in "([{":
            depth += 1
        elif letter in ")]}":
            if depth == 0:
                ranges.append((start, i))
                return ranges
            depth -= 1
        elif letter == "," and depth == 0:
            ranges.append((start, i))
            start = i + 1
        i += 1
    raise ValueError(f"not a macro's use: {text}")
