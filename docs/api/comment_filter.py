#!/usr/bin/env python3
"""Doxygen input filter. The headers are documented with plain // comments, as the code base
writes them: a // comment on lines of its own becomes a /// documentation comment for the
declaration after it, and the comment that opens a header, right after #pragma once, describes
the file. Comments after code on a line stay as they are."""
import re
import sys


def doc(text):
    """Qualified names (std::char_traits<char>::eof()) become code spans; other angle brackets
    in prose (<cstdio>, a -> b) are text, not HTML tags."""
    text = re.sub(r"(?<!`)\b([\w:<>]*::[\w:<>()]*)", r"`\1`", text)
    parts = text.split("`")
    for i in range(0, len(parts), 2):
        parts[i] = parts[i].replace("<", "\\<").replace(">", "\\>")
    return "`".join(parts)


out = []
opening = False  # inside the comment that opens the header
for line in open(sys.argv[1], encoding="utf-8").read().split("\n"):
    comment = re.match(r"^(\s*)//(?!/)(.*)$", line)
    if line.startswith("#pragma once"):
        opening = True
        out.append(line)
        continue
    if comment and opening:
        if not out[-1].startswith("///"):
            out.append("/// \\file")
        out.append("///" + doc(comment.group(2)))
        continue
    opening = False
    out.append(f"{comment.group(1)}///{doc(comment.group(2))}" if comment else line)
sys.stdout.write("\n".join(out))
