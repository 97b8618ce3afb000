#!/usr/bin/env python3
"""Checks the device build's files against what the device build knows (tools/device_build_known.txt).

  check_device_build.py ROOT BP...          Android.bp files, the .rc files they install and
                                            sepolicy/property_contexts under ROOT
  check_device_build.py --neverallows CONF LOG
                                            names the policy line behind each neverallow failure
                                            that checkpolicy wrote to LOG for the policy CONF

Every finding is printed as "FILE:LINE: what is wrong"; the exit status is 1 when there is one.
"""
import glob
import os
import re
import sys

KNOWN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "device_build_known.txt")
VENDOR_FLAGS = ("vendor", "proprietary", "soc_specific", "device_specific")


def load_known():
    known = {}
    for line in open(KNOWN, encoding="utf-8"):
        line = line.split("<-")[0].strip()
        if line and not line.startswith("#"):
            kind, *args = line.split()
            known.setdefault(kind, []).append(args)
    return known


class Findings:
    def __init__(self):
        self.items = []

    def add(self, path, line, text):
        self.items.append(f"{path}:{line}: {text}")


# ---- Blueprint ----------------------------------------------------------------------------

TOKEN = re.compile(r'\s+|//[^\n]*|/\*.*?\*/|"(?:[^"\\]|\\.)*"|[A-Za-z_][A-Za-z0-9_.]*|-?\d+|[{}\[\]:,=+()]',
                   re.S)


class BpSyntaxError(Exception):
    pass


def tokens(text):
    pos, line, out = 0, 1, []
    while pos < len(text):
        m = TOKEN.match(text, pos)
        if not m:
            raise BpSyntaxError(f"{line}: unexpected {text[pos]!r}")
        tok = m.group(0)
        if not (tok[0].isspace() or tok.startswith("//") or tok.startswith("/*")):
            out.append((tok, line))
        line += tok.count("\n")
        pos = m.end()
    return out


class Value:
    """A property value with the line it starts on; maps hold (key, key line, Value) triples."""

    def __init__(self, kind, data, line):
        self.kind, self.data, self.line = kind, data, line


def parse_bp(text):
    toks = tokens(text) + [("", 0)]
    i = 0

    def take(expected=None):
        nonlocal i
        tok, line = toks[i]
        if expected is not None and tok != expected:
            raise BpSyntaxError(f"{line}: expected {expected!r}, found {tok!r}")
        i += 1
        return tok, line

    def value():
        tok, line = take()
        if tok.startswith('"'):
            v = Value("str", tok[1:-1], line)
        elif tok in ("true", "false"):
            v = Value("bool", tok == "true", line)
        elif tok == "[":
            items = []
            while toks[i][0] != "]":
                items.append(value())
                if toks[i][0] == ",":
                    take()
            take("]")
            v = Value("list", items, line)
        elif tok == "{":
            v = Value("map", members("}"), line)
        elif re.fullmatch(r"-?\d+", tok):
            v = Value("int", int(tok), line)
        else:
            v = Value("var", tok, line)
        if toks[i][0] == "+":
            take()
            rest = value()
            if v.kind == "list" and rest.kind == "list":
                v = Value("list", v.data + rest.data, line)
        return v

    def members(close):
        out = []
        while toks[i][0] != close:
            key, line = take()
            take(":" if close == "}" else "=")
            out.append((key, line, value()))
            if toks[i][0] == ",":
                take()
        take(close)
        return out

    modules = []
    while toks[i][0]:
        name, line = take()
        if toks[i][0] in ("=", "+="):
            take()
            value()
        elif toks[i][0] in ("{", "("):
            opener = take()[0]
            modules.append({"type": name, "line": line, "props": members("}" if opener == "{" else ")")})
        else:
            raise BpSyntaxError(f"{line}: unexpected {toks[i][0]!r}")
    return modules


def prop(module, key):
    for k, _, v in module["props"]:
        if k == key:
            return v
    return None


def strings(v):
    return [(item.data, item.line) for item in v.data if item.kind == "str"] if v and v.kind == "list" else []


def check_props(members, prefix, allowed, path, findings, mtype):
    for key, line, v in members:
        name = prefix + key
        if name in allowed or name + ".*" in allowed:
            continue
        if v.kind == "map" and any(a.startswith(name + ".") for a in allowed):
            check_props(v.data, name + ".", allowed, path, findings, mtype)
        else:
            findings.add(path, line, f"{mtype} has no property {name!r}")


def effective(module, by_name, key, seen=()):
    """The values of list property `key` of the module and of its defaults, with their lines."""
    out = strings(prop(module, key))
    for dname, _ in strings(prop(module, "defaults")):
        d = by_name.get(dname)
        if d is not None and dname not in seen:
            out += effective(d, by_name, key, seen + (dname,))
    return out


def effective_scalar(module, by_name, path, default=None):
    v = module
    for part in path[:-1]:
        v = prop(v, part) if isinstance(v, dict) else None
        v = {"props": v.data} if v is not None and v.kind == "map" else None
        if v is None:
            break
    if v is not None:
        leaf = prop(v, path[-1])
        if leaf is not None:
            return leaf.data
    for dname, _ in strings(prop(module, "defaults")):
        if dname in by_name:
            found = effective_scalar(by_name[dname], by_name, path, None)
            if found is not None:
                return found
    return default


def soong_glob(base, pattern):
    pattern = os.path.join(base, pattern)
    return sorted(p for p in glob.glob(pattern, recursive=True) if os.path.isfile(p))


def proto_headers(module, by_name, bp_dir):
    """The include names under which Soong generates the headers of the module's protos."""
    canonical = effective_scalar(module, by_name, ["proto", "canonical_path_from_root"], True)
    excluded = {p for pat, _ in effective(module, by_name, "exclude_srcs") for p in soong_glob(bp_dir, pat)}
    names = set()
    for src, _ in effective(module, by_name, "srcs"):
        base, files = bp_dir, []
        if src.startswith(":"):
            group = by_name.get(src[1:])
            if group is None:
                continue
            path = prop(group, "path")
            if path is not None and not canonical:
                base = os.path.join(group["dir"], path.data)
            files = [f for pat, _ in strings(prop(group, "srcs")) for f in soong_glob(group["dir"], pat)]
        else:
            files = [f for f in soong_glob(bp_dir, src) if f not in excluded]
        for f in files:
            if f.endswith(".proto"):
                names.add(os.path.relpath(f, base)[: -len(".proto")] + ".pb.h")
    return names


def check_proto_includes(module, by_name, bp_dir, root, findings):
    headers = proto_headers(module, by_name, bp_dir)
    if not headers:
        return
    files = set()
    for src, _ in effective(module, by_name, "srcs"):
        for f in soong_glob(bp_dir, src):
            if f.endswith((".cpp", ".cc", ".c")):
                files.add(f)
                files.update(glob.glob(os.path.join(os.path.dirname(f), "*.h")))
    for f in sorted(files):
        for n, text in enumerate(open(f, encoding="utf-8", errors="replace"), 1):
            m = re.match(r'\s*#\s*include\s+"([^"]+\.pb\.h)"', text)
            if m and m.group(1) not in headers:
                findings.add(os.path.relpath(f, root), n,
                             f'includes "{m.group(1)}", but the device build generates '
                             f'{" or ".join(sorted(headers))}')


def check_bp_files(root, bp_files, known, findings):
    groups = {}
    for group, name in known.get("prop", []):
        groups.setdefault(group, set()).add(name)
    types = {args[0]: set().union(*(groups[g] for g in args[1:])) for args in known.get("module", [])}
    vendor_libs = {args[0] for args in known.get("vendor_lib", [])}
    parsed = []
    for bp in bp_files:
        try:
            parsed.append((bp, parse_bp(open(os.path.join(root, bp), encoding="utf-8").read())))
        except BpSyntaxError as e:
            findings.add(bp, str(e).split(":")[0], "does not parse:" + str(e).split(":", 1)[1])
    by_name = {}
    for bp, modules in parsed:
        for m in modules:
            m["dir"] = os.path.join(root, os.path.dirname(bp))
            name = prop(m, "name")
            if name is not None:
                by_name[name.data] = m
    own_libs = {n for n, m in by_name.items() if m["type"] in ("cc_library", "cc_library_shared")}
    rc_files = []
    for bp, modules in parsed:
        bp_dir = os.path.join(root, os.path.dirname(bp))
        for m in modules:
            mtype = m["type"]
            if mtype not in types:
                findings.add(bp, m["line"], f"Soong has no module type {mtype!r}")
                continue
            check_props(m["props"], "", types[mtype], bp, findings, mtype)
            if mtype == "cc_fuzz" and prop(m, "fuzz_config") is None:
                findings.add(bp, m["line"], "cc_fuzz without fuzz_config (the fuzzing infrastructure "
                             "needs its contacts and component)")
            on_vendor = any(effective_scalar(m, by_name, [f], False) for f in VENDOR_FLAGS)
            if on_vendor and mtype != "cc_defaults":
                for lib, _ in effective(m, by_name, "shared_libs"):
                    if lib not in vendor_libs and lib not in own_libs:
                        line = next(ln for x, ln in effective(m, by_name, "shared_libs") if x == lib)
                        findings.add(bp, line, f"shared library {lib!r} is not on a vendor image")
            if mtype.startswith("cc_") and mtype != "cc_defaults":
                check_proto_includes(m, by_name, bp_dir, root, findings)
            rc_files += [os.path.normpath(os.path.join(os.path.dirname(bp), f))
                         for f, _ in strings(prop(m, "init_rc"))]
    return sorted(set(rc_files))


# ---- init .rc -----------------------------------------------------------------------------

def policy_domains(root):
    domains = set()
    for te in glob.glob(os.path.join(root, "sepolicy", "*.te")):
        for m in re.finditer(r"^\s*type\s+(\w+)\s*,([^;]*);", open(te, encoding="utf-8").read(), re.M):
            if "domain" in [a.strip() for a in m.group(2).split(",")]:
                domains.add(m.group(1))
    return domains


def check_rc(root, rc, known, findings):
    sections = {a[0] for a in known.get("rc_section", [])}
    options = {a[0] for a in known.get("rc_option", [])}
    commands = {a[0] for a in known.get("rc_command", [])}
    profiles = {a[0] for a in known.get("task_profile", [])}
    domains = policy_domains(root)
    section = None
    path = os.path.join(root, rc)
    if not os.path.exists(path):
        findings.add(rc, 0, "named by init_rc but missing")
        return
    for n, text in enumerate(open(path, encoding="utf-8"), 1):
        words = text.split()
        if not words or words[0].startswith("#"):
            continue
        word = words[0]
        if word in sections:
            section = word if word != "import" else None
        elif section == "service":
            if word not in options:
                findings.add(rc, n, f"init has no service option {word!r}")
            elif word == "task_profiles":
                for p in words[1:]:
                    if p not in profiles:
                        findings.add(rc, n, f"init knows no task profile {p!r}")
            elif word == "seclabel":
                label = words[1].split(":") if len(words) > 1 else []
                if len(label) < 4 or label[2] not in domains:
                    findings.add(rc, n, f"seclabel {' '.join(words[1:])} names no domain of sepolicy/")
        elif section == "on":
            if word not in commands:
                findings.add(rc, n, f"init has no command {word!r}")
        else:
            findings.add(rc, n, f"{word!r} outside a section")


def check_property_contexts(root, known, findings):
    rel = os.path.join("sepolicy", "property_contexts")
    names = tuple(a[0] for a in known.get("prop_prefix", []))
    types = tuple(a[0] for a in known.get("prop_context_prefix", []))
    for n, text in enumerate(open(os.path.join(root, rel), encoding="utf-8"), 1):
        words = text.split()
        if not words or words[0].startswith("#"):
            continue
        if not words[0].startswith(names):
            findings.add(rel, n, f"{words[0]} is outside the vendor property namespaces ({' '.join(names)})")
        ctx = words[1].split(":") if len(words) > 1 else []
        if len(ctx) < 3 or not ctx[2].startswith(types):
            findings.add(rel, n, f"the type of {words[1] if len(words) > 1 else '?'} does not start with "
                         f"{' or '.join(types)}")


# ---- neverallow failures ------------------------------------------------------------------

SET = r"(\{[^}]*\}|[^\s{}:]+)"
ALLOW = re.compile(rf"^\s*allow\s+{SET}\s+{SET}\s*:\s*{SET}\s+{SET}\s*;")


def words(text):
    return text.strip("{} ").split()


def explain_neverallows(conf, log, findings):
    attrs, where, rules, places = {}, ("?", 0), [], [None]
    for text in open(conf, encoding="utf-8"):
        places.append(where)  # a #line line: its next line is the one it names
        m = re.match(r'#line (\d+)(?: "([^"]+)")?', text)
        if m:
            where = (m.group(2) or where[0], int(m.group(1)) - 1)
            continue
        where = (where[0], where[1] + 1)
        places[-1] = where
        m = re.match(r"\s*type\s+(\w+)\s*,([^;]*);", text) or re.match(r"\s*typeattribute\s+(\w+)\s+([^;]*);", text)
        if m:
            for a in m.group(2).replace(",", " ").split():
                attrs.setdefault(a, set()).add(m.group(1))
        m = ALLOW.match(text)
        if m:
            rules.append((where, *(words(g) for g in m.groups())))

    def expand(names, src=None):
        out = set()
        for n in names:
            if n == "self":
                out.add(src)
            elif not n.startswith("-"):
                out |= attrs.get(n, {n})
        for n in names:
            if n.startswith("-"):
                out -= attrs.get(n[1:], {n[1:]})
        return out

    pattern = re.compile(r"neverallow on line \d+ of \S+ \(or line (\d+) of \S+\) "
                         r"violated by allow (\S+) (\S+):(\S+) \{([^}]*)\}")
    for text in open(log, encoding="utf-8"):
        m = pattern.search(text)
        if not m:
            continue
        conf_line, src, tgt, cls, perms = m.groups()
        rule_file, rule_line = places[int(conf_line)]
        hits = [w for w, s, t, c, p in rules
                if src in expand(s) and tgt in expand(t, src) and cls in c and set(p) & set(perms.split())
                and "/check/" not in w[0]]
        for path, line in sorted(set(hits)) or [("sepolicy", 0)]:
            findings.add(path, line, f"allow {src} {tgt}:{cls} {{{perms}}} breaks the platform's rule at "
                         f"{rule_file}:{rule_line}")


def main(argv):
    findings = Findings()
    if argv[1:2] == ["--neverallows"]:
        explain_neverallows(argv[2], argv[3], findings)
    else:
        root, known = argv[1], load_known()
        for rc in check_bp_files(root, argv[2:], known, findings):
            check_rc(root, rc, known, findings)
        check_property_contexts(root, known, findings)
    for item in dict.fromkeys(findings.items):
        print("check-device-files: " + item, file=sys.stderr)
    return 1 if findings.items else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
