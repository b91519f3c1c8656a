#!/usr/bin/env python3
"""Generate python/ka_api/_lowlevel.py from the public C headers.

Parses include/ka_api.h (which pulls in ka_algo.h and ka_compat.h) with
libclang and writes one ctypes binding per exported function, one
ctypes.Structure per public record (fields in declaration order, arrays with
their declared sizes), the enumerations and integer/string constants, and the
callback types.

    /usr/bin/python3 python/tools/generate.py            # rewrite the module
    /usr/bin/python3 python/tools/generate.py -o FILE    # write elsewhere

Needs Debian's python3-clang-14 (clang.cindex) and libclang 14.
"""

from __future__ import annotations

import argparse
import glob
import os
import re
import sys
from typing import Dict, List, Optional, Tuple

import clang.cindex as ci

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.normpath(os.path.join(HERE, "..", ".."))
INCLUDE = os.path.join(ROOT, "include")
MAIN_HEADER = os.path.join(INCLUDE, "ka_api.h")
DEFAULT_OUTPUT = os.path.join(ROOT, "python", "ka_api", "_lowlevel.py")
COMMAND = "/usr/bin/python3 python/tools/generate.py"

# Fixed-width typedefs keep their width whatever the host's int sizes are.
FIXED_WIDTH = {
    "int8_t": "ctypes.c_int8",
    "uint8_t": "ctypes.c_uint8",
    "int16_t": "ctypes.c_int16",
    "uint16_t": "ctypes.c_uint16",
    "int32_t": "ctypes.c_int32",
    "uint32_t": "ctypes.c_uint32",
    "int64_t": "ctypes.c_int64",
    "uint64_t": "ctypes.c_uint64",
    "size_t": "ctypes.c_size_t",
    "va_list": "ctypes.c_void_p",
}

BUILTIN = {
    ci.TypeKind.BOOL: "ctypes.c_bool",
    ci.TypeKind.CHAR_S: "ctypes.c_char",
    ci.TypeKind.CHAR_U: "ctypes.c_char",
    ci.TypeKind.SCHAR: "ctypes.c_byte",
    ci.TypeKind.UCHAR: "ctypes.c_ubyte",
    ci.TypeKind.SHORT: "ctypes.c_short",
    ci.TypeKind.USHORT: "ctypes.c_ushort",
    ci.TypeKind.INT: "ctypes.c_int",
    ci.TypeKind.UINT: "ctypes.c_uint",
    ci.TypeKind.LONG: "ctypes.c_long",
    ci.TypeKind.ULONG: "ctypes.c_ulong",
    ci.TypeKind.LONGLONG: "ctypes.c_longlong",
    ci.TypeKind.ULONGLONG: "ctypes.c_ulonglong",
    ci.TypeKind.FLOAT: "ctypes.c_float",
    ci.TypeKind.DOUBLE: "ctypes.c_double",
}


def find_libclang() -> str:
    preferred = "/usr/lib/llvm-14/lib/libclang.so.1"
    if os.path.exists(preferred):
        return preferred
    found = sorted(glob.glob("/usr/lib/llvm-*/lib/libclang.so*")) + sorted(
        glob.glob("/usr/lib/*/libclang-*.so*")
    )
    if not found:
        raise SystemExit("libclang not found; install python3-clang-14 and libclang1-14")
    return found[-1]


def parse(header: str = MAIN_HEADER) -> ci.TranslationUnit:
    if not ci.Config.loaded:
        ci.Config.set_library_file(find_libclang())
    index = ci.Index.create()
    unit = index.parse(
        header,
        args=["-x", "c", "-std=c99", "-I" + os.path.dirname(header)],
        options=ci.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
        | ci.TranslationUnit.PARSE_SKIP_FUNCTION_BODIES,
    )
    errors = [d for d in unit.diagnostics if d.severity >= ci.Diagnostic.Error]
    if errors:
        raise SystemExit("cannot parse %s: %s" % (header, errors[0]))
    return unit


def in_public_headers(cursor: ci.Cursor) -> bool:
    location = cursor.location.file
    return location is not None and os.path.dirname(os.path.abspath(location.name)) == os.path.abspath(
        INCLUDE
    )


class Model:
    """What the headers declare, in declaration order."""

    def __init__(self) -> None:
        self.constants: List[Tuple[str, str]] = []  # name, python literal
        self.enums: List[Tuple[str, str, List[Tuple[str, int]]]] = []  # typedef, ctype, values
        self.records: List[Tuple[str, List[Tuple[str, str]]]] = []  # name, fields
        self.aliases: List[Tuple[str, str]] = []  # typedef name, target
        self.callbacks: List[Tuple[str, str, List[str]]] = []  # name, restype, argtypes
        self.functions: List[Tuple[str, str, List[Tuple[str, str]], bool, str]] = []
        self.record_names: Dict[str, str] = {}  # clang canonical spelling -> python name
        self.callback_names: set = set()


def typedef_name(t: ci.Type) -> Optional[str]:
    while t.kind == ci.TypeKind.ELABORATED:
        t = t.get_named_type()
    if t.kind == ci.TypeKind.TYPEDEF:
        return t.get_declaration().spelling
    return None


def ctype_of(t: ci.Type, model: Model, as_argument: bool = False) -> str:
    name = typedef_name(t)
    if name in FIXED_WIDTH:
        return FIXED_WIDTH[name]
    if name in model.callback_names:
        return name
    if name is not None and name in dict(model.aliases):
        return name
    canonical = t.get_canonical()
    if canonical.kind in BUILTIN:
        return BUILTIN[canonical.kind]
    if canonical.kind == ci.TypeKind.ENUM:
        return "ctypes.c_int" if canonical.get_size() == 4 else "ctypes.c_int64"
    if canonical.kind == ci.TypeKind.RECORD:
        key = canonical.get_declaration().get_usr()
        if key not in model.record_names:
            raise SystemExit("record without a typedef name: %s" % t.spelling)
        return model.record_names[key]
    if canonical.kind == ci.TypeKind.CONSTANTARRAY:
        element = ctype_of(t_element(t), model)
        if as_argument:
            return "ctypes.POINTER(%s)" % element
        return "(%s * %d)" % (element, canonical.get_array_size())
    if canonical.kind == ci.TypeKind.POINTER:
        pointee = t_pointee(t)
        pointee_name = typedef_name(pointee)
        if pointee_name in model.callback_names:
            return pointee_name
        pc = pointee.get_canonical()
        if pc.kind in (ci.TypeKind.CHAR_S, ci.TypeKind.CHAR_U):
            return "ctypes.c_char_p"
        if pc.kind == ci.TypeKind.VOID:
            return "ctypes.c_void_p"
        if pc.kind == ci.TypeKind.RECORD and pc.spelling.startswith("struct __va_list"):
            return "ctypes.c_void_p"
        if pc.kind == ci.TypeKind.FUNCTIONPROTO:
            return "ctypes.c_void_p"
        return "ctypes.POINTER(%s)" % ctype_of(pointee, model)
    if canonical.kind == ci.TypeKind.VOID:
        return "None"
    raise SystemExit("unmapped C type %s (%s)" % (t.spelling, canonical.kind))


def t_element(t: ci.Type) -> ci.Type:
    # Keep the element's typedef (int32_t) rather than its canonical form.
    while t.kind in (ci.TypeKind.ELABORATED, ci.TypeKind.TYPEDEF):
        t = t.get_named_type() if t.kind == ci.TypeKind.ELABORATED else t.get_declaration().underlying_typedef_type
    return t.element_type


def t_pointee(t: ci.Type) -> ci.Type:
    while t.kind in (ci.TypeKind.ELABORATED, ci.TypeKind.TYPEDEF):
        t = t.get_named_type() if t.kind == ci.TypeKind.ELABORATED else t.get_declaration().underlying_typedef_type
    return t.get_pointee()


def macro_value(cursor: ci.Cursor, known: Dict[str, str]) -> Optional[str]:
    tokens = [tok.spelling for tok in cursor.get_tokens()][1:]
    if not tokens:
        return None
    if len(tokens) == 1 and tokens[0].startswith('"'):
        return tokens[0]
    text = " ".join(known.get(tok, tok) for tok in tokens)
    if not re.fullmatch(r"[0-9()+\-*/ ]+", text):
        return None
    return str(eval(text.replace("/", "//"), {"__builtins__": {}}))


def collect(unit: ci.TranslationUnit) -> Model:
    model = Model()
    known: Dict[str, str] = {}
    for cursor in unit.cursor.get_children():
        if not in_public_headers(cursor):
            continue
        kind = cursor.kind
        if kind == ci.CursorKind.MACRO_DEFINITION:
            name = cursor.spelling
            if cursor.is_macro_function_like() if hasattr(cursor, "is_macro_function_like") else False:
                continue
            if not re.match(r"KA_[A-Z0-9_]+$", name) or name in ("KA_API", "KA_API_H", "KA_ALGO_H", "KA_COMPAT_H"):
                continue
            value = macro_value(cursor, known)
            if value is not None:
                known[name] = value
                model.constants.append((name, value))
        elif kind == ci.CursorKind.TYPEDEF_DECL:
            name = cursor.spelling
            if name.startswith("ka_layout_check_"):
                continue
            underlying = cursor.underlying_typedef_type
            canonical = underlying.get_canonical()
            decl = underlying.get_declaration()
            if canonical.kind == ci.TypeKind.ENUM and typedef_name(underlying) is None:
                values = [(c.spelling, c.enum_value) for c in decl.get_children() if c.kind == ci.CursorKind.ENUM_CONSTANT_DECL]
                model.enums.append((name, ctype_of(underlying, model), values))
            elif canonical.kind == ci.TypeKind.RECORD and typedef_name(underlying) is None:
                model.record_names[decl.get_usr()] = name
                fields = [(f.spelling, ctype_of(f.type, model)) for f in decl.get_children() if f.kind == ci.CursorKind.FIELD_DECL]
                model.records.append((name, fields))
            elif canonical.kind == ci.TypeKind.RECORD:
                model.aliases.append((name, typedef_name(underlying) or ""))
            elif canonical.kind == ci.TypeKind.POINTER and canonical.get_pointee().kind == ci.TypeKind.FUNCTIONPROTO:
                proto = canonical.get_pointee()
                restype = ctype_of(proto.get_result(), model)
                argtypes = [ctype_of(a, model, as_argument=True) for a in t_pointee(underlying).argument_types()]
                model.callbacks.append((name, restype, argtypes))
                model.callback_names.add(name)
        elif kind == ci.CursorKind.FUNCTION_DECL:
            params = [(a.spelling or "arg%d" % i, ctype_of(a.type, model, as_argument=True)) for i, a in enumerate(cursor.get_arguments())]
            restype = ctype_of(cursor.result_type, model)
            variadic = cursor.type.is_function_variadic()
            header = os.path.basename(cursor.location.file.name)
            model.functions.append((cursor.spelling, restype, params, variadic, header))
    return model


def render(model: Model) -> str:
    out: List[str] = []
    emit = out.append
    emit("# Generated by `%s` from include/ka_api.h, include/ka_algo.h and include/ka_compat.h." % COMMAND)
    emit("# Do not edit: change the headers and run the command again.")
    emit('"""Raw ctypes bindings of every exported C function, record, enumeration and constant."""')
    emit("")
    emit("# fmt: off")
    emit("import ctypes")
    emit("from typing import Any, Callable, Dict, List, Tuple, Type")
    emit("")
    emit("from ._library import bind as _bind, load as _load")
    emit("")
    emit("# ---- constants")
    for name, value in model.constants:
        emit("%s = %s" % (name, value))
    emit("")
    emit("# ---- enumerations")
    for name, ctype, values in model.enums:
        emit("%s = %s" % (name, ctype))
        for value_name, value in values:
            emit("%s = %d" % (value_name, value))
        emit("")
    emit("# ---- records")
    for name, fields in model.records:
        emit("")
        emit("")
        emit("class %s(ctypes.Structure):" % name)
        emit("    _fields_ = [")
        for field, ctype in fields:
            emit("        (%r, %s)," % (field, ctype))
        emit("    ]")
    emit("")
    emit("")
    for name, target in model.aliases:
        emit("%s = %s" % (name, target))
    emit("")
    emit("# ---- callback types")
    for name, restype, argtypes in model.callbacks:
        emit("%s = ctypes.CFUNCTYPE(%s)" % (name, ", ".join([restype] + argtypes)))
    emit("")
    emit("RECORDS: Dict[str, Type[ctypes.Structure]] = {")
    for name, _ in model.records:
        emit("    %r: %s," % (name, name))
    emit("}")
    emit("")
    emit("# ---- functions: name -> (restype, [(parameter, argtype)], variadic, header)")
    emit("SIGNATURES: Dict[str, Tuple[Any, List[Tuple[str, Any]], bool, str]] = {")
    for name, restype, params, variadic, header in model.functions:
        emit("    %r: (%s, [%s], %s, %r)," % (name, restype, ", ".join("(%r, %s)" % p for p in params), variadic, header))
    emit("}")
    emit("")
    emit("_lib = _load()")
    emit("")
    for name, _, _, _, _ in model.functions:
        emit("%s: Callable[..., Any] = _bind(_lib, %r, SIGNATURES[%r])" % (name, name, name))
    emit("")
    emit("FUNCTIONS: Dict[str, Callable[..., Any]] = {")
    for name, _, _, _, _ in model.functions:
        emit("    %r: %s," % (name, name))
    emit("}")
    emit("# fmt: on")
    return "\n".join(out) + "\n"


def generate() -> str:
    return render(collect(parse()))


def main(argv: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-o", "--output", default=DEFAULT_OUTPUT, help="file to write (default: %(default)s)")
    args = parser.parse_args(argv)
    text = generate()
    with open(args.output, "w", encoding="utf-8", newline="\n") as f:
        f.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
