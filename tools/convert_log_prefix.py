#!/usr/bin/env python3
"""Rewrites log statements of the daemon from the old macros, whose callers wrote the
"%s() %d: " prefix into every format and named the tag at every call, to the macros of
core/tarn_log.h that add the prefix themselves and take the file's tag from TARN_LOG_TAG.

    old: TLOGW(TAG_POWER, "%s() %d: text %d", x);       new: TLOGW("text %d", x);
    old: TLOGD_FN(TAG_POWER, "step", "%s() %d: ...");    new: TLOGD_FN("step", "...");
    old: TLOGE(TAG_HELP, ...) in a TAG_POWER file        new: TLOGE_AT(TAG_HELP, __func__, ...);

Each file's most used tag becomes its TARN_LOG_TAG, defined before its first #include. The
script checks, per file, that every statement keeps its class, tag, routine name, whole format
(prefix included) and arguments, and refuses to write a file otherwise. A format that is not a
string literal beginning with the prefix is listed and the file is left alone.

usage: convert_log_prefix.py FILE...          convert in place (run clang-format afterwards)
       convert_log_prefix.py --verify OLD NEW compare the statements of two versions of a file
"""
import collections
import re
import sys

PREFIX = "%s() %d: "
OLD_CALL = re.compile(r"\b(TLOG[EWD])(_FN)?\s*\(")
NEW_CALL = re.compile(r"\b(TLOG[EWD])(_FN|_AT)?\s*\(")
STRING_LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
# A file's own one-routine wrapper: #define NAME(fmt, ...) TLOGD_FN(TAG, "routine", fmt, ...)
OLD_WRAPPER = re.compile(r'^#define (\w+)\(fmt, \.\.\.\)\s+(TLOG[EWD])_FN\((\w+), ("[^"]*"|\w+), '
                         r'fmt, ##__VA_ARGS__\)$', re.M)
NEW_WRAPPER = re.compile(r'^#define (\w+)\(fmt, \.\.\.\)\s+(TLOG[EWD])_(?:FN\(|AT\((\w+), )'
                         r'("[^"]*"|\w+), fmt, ##__VA_ARGS__\)$', re.M)


def wrapper_call(names):
    return re.compile(r"\b(%s)\s*\(" % "|".join(names)) if names else None


def skip_literal(text, i):
    """Index just past the string or character literal starting at text[i]."""
    quote = text[i]
    i += 1
    while text[i] != quote:
        i += 2 if text[i] == "\\" else 1
    return i + 1


def split_args(text, open_paren):
    """Top-level arguments of the call whose '(' is at open_paren, and the index past ')'."""
    depth, i, start, args = 0, open_paren, open_paren + 1, []
    while True:
        c = text[i]
        if c in "\"'":
            i = skip_literal(text, i)
            continue
        if c == "/" and text[i + 1] == "/":
            i = text.index("\n", i)
            continue
        if c in "([{":
            depth += 1
        elif c in ")]}":
            depth -= 1
            if depth == 0:
                args.append(text[start:i])
                return args, i + 1
        elif c == "," and depth == 1:
            args.append(text[start:i])
            start = i + 1
        i += 1


def code_positions(text, pattern):
    """Matches of pattern outside comments, string literals and preprocessor #define lines."""
    out, i = [], 0
    while i < len(text):
        c = text[i]
        if text.startswith("//", i):
            i = text.find("\n", i)
            i = len(text) if i < 0 else i
        elif text.startswith("/*", i):
            i = text.index("*/", i) + 2
        elif c in "\"'":
            i = skip_literal(text, i)
        elif c == "#" and (i == 0 or text[i - 1] == "\n"):
            while True:  # a preprocessor line with its continuation lines
                j = text.find("\n", i)
                if j < 0 or text[j - 1] != "\\":
                    i = len(text) if j < 0 else j
                    break
                i = j + 1
        else:
            word_start = i == 0 or not (text[i - 1].isalnum() or text[i - 1] == "_")
            m = pattern.match(text, i) if word_start else None
            if m:
                out.append(m)
                i = m.end()
            else:
                i += 1
    return out


def literal_value(expr):
    """The value of a format made of adjacent string literals only, else None."""
    expr = expr.strip()
    pieces = STRING_LITERAL.findall(expr)
    if not pieces or STRING_LITERAL.sub("", expr).strip():
        return None
    return "".join(pieces)


def norm(arg):
    return re.sub(r"\s+", " ", arg.strip())


def old_calls(text):
    """(match, class, tag, routine, format and arguments) of every old-style statement, in order,
    a use of one of the file's wrappers included."""
    wrappers = {m.group(1): (m.group(2), m.group(3), m.group(4)) for m in OLD_WRAPPER.finditer(text)}
    found = []
    for m in code_positions(text, OLD_CALL):
        args, end = split_args(text, m.end() - 1)
        fn, rest = (args[1].strip(), args[2:]) if m.group(2) else (None, args[1:])
        found.append((m, end, m.group(1), norm(args[0]), fn, rest))
    pattern = wrapper_call(wrappers)
    for m in code_positions(text, pattern) if pattern else []:
        args, end = split_args(text, m.end() - 1)
        cls, tag, fn = wrappers[m.group(1)]
        found.append((m, end, cls, tag, fn, args))
    return sorted(found, key=lambda c: c[0].start()), wrappers


def statements_old(text):
    """(class, tag, routine, whole format, arguments) of every old-style statement."""
    out = []
    for _, _, cls, tag, fn, rest in old_calls(text)[0]:
        out.append((cls, tag, norm(fn) if fn else "__func__",
                    literal_value(rest[0]) or norm(rest[0]), tuple(norm(a) for a in rest[1:])))
    return out


def default_tag(text):
    m = re.search(r"^#define TARN_LOG_TAG (\S+)", text, re.M)
    return m.group(1) if m else None


def statements_new(text):
    out, tag = [], default_tag(text)
    wrappers = {m.group(1): (m.group(2), m.group(3) or tag, m.group(4))
                for m in NEW_WRAPPER.finditer(text)}
    calls = [(m, None) for m in code_positions(text, NEW_CALL)]
    pattern = wrapper_call(wrappers)
    if pattern:
        calls += [(m, wrappers[m.group(1)]) for m in code_positions(text, pattern)]
    for m, wrapper in sorted(calls, key=lambda c: c[0].start()):
        args, _ = split_args(text, m.end() - 1)
        if wrapper:
            t, fn, rest = wrapper[1], wrapper[2], args
            value = literal_value(rest[0])
            out.append((wrapper[0], t, fn, PREFIX + value if value is not None else norm(rest[0]),
                        tuple(norm(a) for a in rest[1:])))
            continue
        kind = m.group(2)
        if kind == "_AT":
            t, fn, rest = norm(args[0]), norm(args[1]), args[2:]
        elif kind == "_FN":
            t, fn, rest = tag, norm(args[0]), args[1:]
        else:
            t, fn, rest = tag, "__func__", args
        value = literal_value(rest[0])
        out.append((m.group(1), t, fn, PREFIX + value if value is not None else norm(rest[0]),
                    tuple(norm(a) for a in rest[1:])))
    return out


def strip_prefix(fmt_expr):
    """fmt_expr with the prefix taken off its first literal; None when it does not start so."""
    m = STRING_LITERAL.search(fmt_expr)
    if m is None or fmt_expr[:m.start()].strip() or not m.group(1).startswith(PREFIX):
        return None
    first = m.group(1)[len(PREFIX):]
    tail = fmt_expr[m.end():].strip()
    if not first and tail:
        return tail
    return ('"%s"' % first) + (" " + tail if tail else "")


def convert(text, path):
    if default_tag(text) is not None:
        return text, []  # already converted
    calls, wrappers = old_calls(text)
    if not calls:
        return text, []
    tags = collections.Counter(c[3] for c in calls)
    file_tag = tags.most_common(1)[0][0]
    problems, out, pos = [], [], 0
    for m, end, cls, tag, fn, rest in calls:
        fmt = strip_prefix(rest[0])
        if fmt is None:
            line = text.count("\n", 0, m.start()) + 1
            problems.append("%s:%d: format is not a literal starting with the prefix: %s"
                            % (path, line, norm(rest[0])))
            continue
        new_args = [a.strip() for a in rest[1:]]
        if m.group(1) in wrappers:
            head = "%s(" % m.group(1)
            new_args = [fmt] + new_args
        elif tag != file_tag:
            head = "%s_AT(" % m.group(1)
            new_args = [tag, fn or "__func__", fmt] + new_args
        elif fn is not None:
            head = "%s_FN(" % m.group(1)
            new_args = [fn, fmt] + new_args
        else:
            head = "%s(" % m.group(1)
            new_args = [fmt] + new_args
        out.append(text[pos:m.start()])
        out.append(head + ", ".join(new_args) + ")")
        pos = end
    out.append(text[pos:])
    new = "".join(out)
    if problems:
        return text, problems
    for name, (cls, tag, fn) in wrappers.items():
        head = "%s_FN(" % cls if tag == file_tag else "%s_AT(%s, " % (cls, tag)
        new = re.sub(r"^(#define %s\(fmt, \.\.\.\)\s+)%s_FN\(\w+, " % (name, cls),
                     lambda d: d.group(1) + head, new, flags=re.M)
    inc = re.search(r"^#include ", new, re.M)
    new = new[:inc.start()] + "#define TARN_LOG_TAG %s\n\n" % file_tag + new[inc.start():]
    if statements_new(new) != statements_old(text):
        return text, ["%s: statements differ after conversion" % path]
    return new, []


def verify(old_path, new_path):
    with open(old_path) as f:
        old = statements_old(f.read())
    with open(new_path) as f:
        new = statements_new(f.read())
    if old == new:
        print("%s: %d statements identical" % (new_path, len(new)))
        return 0
    for a, b in zip(old, new):
        if a != b:
            print("%s: differs:\n  old %r\n  new %r" % (new_path, a, b))
    if len(old) != len(new):
        print("%s: %d statements before, %d after" % (new_path, len(old), len(new)))
    return 1


def main(argv):
    if argv[:1] == ["--verify"]:
        return verify(argv[1], argv[2])
    status = 0
    for path in argv:
        with open(path) as f:
            text = f.read()
        new, problems = convert(text, path)
        for p in problems:
            print(p, file=sys.stderr)
            status = 1
        if new != text:
            with open(path, "w") as f:
                f.write(new)
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
