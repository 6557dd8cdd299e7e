#!/usr/bin/env python3
"""Turns ONNX backend test cases into a manifest and raw tensor files for ConformanceTest.cpp.

Usage: make_conformance_manifest.py <test data dir> <output dir>

The C++ test reads no protobuf, so every input and expected output is written as raw little-endian
elements (numpy tofile) and described by one manifest line:

  case <name> <rtol> <atol> <abs path to model.onnx>
  set <index>
  input <name> <type> <rank> <dims...> <data file relative to the manifest>
  output <name> <type> <rank> <dims...> <data file relative to the manifest>
  end

Only cases whose fed inputs and outputs are all tensors of the five element types the library knows are
written; the summary on stdout says why the others were left out.
"""

import collections
import glob
import json
import os
import sys

import numpy as np
import onnx
from onnx import numpy_helper

GROUPS = ("node", "simple", "pytorch-converted", "pytorch-operator", "real")
TYPE_WORDS = {
    onnx.TensorProto.FLOAT: "float32",
    onnx.TensorProto.DOUBLE: "float64",
    onnx.TensorProto.INT32: "int32",
    onnx.TensorProto.INT64: "int64",
    onnx.TensorProto.BOOL: "bool",
}
NUMPY_TYPES = {
    "float32": np.dtype("<f4"),
    "float64": np.dtype("<f8"),
    "int32": np.dtype("<i4"),
    "int64": np.dtype("<i8"),
    "bool": np.dtype("?"),
}
# ONNX's own runner compares with these unless the case says otherwise in data.json.
DEFAULT_RTOL = 1e-3
DEFAULT_ATOL = 1e-7
# Exact zeros of DFT/STFT outputs come out of float32 sums of magnitude up to ~2000, so they carry that
# sum's rounding (~1e-4), not a relative error of their own.
ATOL_BY_PREFIX = {"node/test_dft": 1e-3, "node/test_stft": 1e-3}


class OutOfScope(Exception):
    pass


def type_word(value_info, role):
    kind = value_info.type.WhichOneof("value")
    if kind != "tensor_type":
        raise OutOfScope(f"{role} is {kind or 'untyped'}")
    elem = value_info.type.tensor_type.elem_type
    if elem not in TYPE_WORDS:
        raise OutOfScope(f"{role} element type {onnx.TensorProto.DataType.Name(elem)}")
    return TYPE_WORDS[elem]


def plain_name(name, role):
    # The manifest is split on whitespace, and ONNX allows an empty name only for omitted optionals.
    if not name or any(c.isspace() for c in name):
        raise OutOfScope(f"{role} name not a single word")
    return name


def load_array(path, word):
    tensor = onnx.TensorProto()
    with open(path, "rb") as f:
        tensor.ParseFromString(f.read())
    if tensor.data_type not in TYPE_WORDS:
        raise OutOfScope("test data not a tensor of a supported type")
    array = numpy_helper.to_array(tensor)
    if TYPE_WORDS[tensor.data_type] != word:
        raise OutOfScope("test data type differs from the graph's")
    # tofile writes C order whatever the layout; ascontiguousarray would turn scalars into 1-d arrays.
    return array.astype(NUMPY_TYPES[word], copy=False)


def tensor_line(kind, name, word, array, rel_path):
    dims = " ".join(str(d) for d in array.shape)
    return f"{kind} {name} {word} {array.ndim}{' ' + dims if dims else ''} {rel_path}"


def read_case(name, case_dir):
    model = onnx.load(os.path.join(case_dir, "model.onnx"), load_external_data=False)
    graph = model.graph
    initializers = {t.name for t in graph.initializer} | {t.name for t in graph.sparse_initializer}
    rtol, atol = DEFAULT_RTOL, DEFAULT_ATOL
    json_path = os.path.join(case_dir, "data.json")
    if os.path.exists(json_path):
        with open(json_path) as f:
            data = json.load(f)
        rtol, atol = data.get("rtol", rtol), data.get("atol", atol)
    for prefix, looser in ATOL_BY_PREFIX.items():
        if name.startswith(prefix):
            atol = max(atol, looser)

    set_dirs = sorted(glob.glob(os.path.join(case_dir, "test_data_set_*")),
                      key=lambda d: int(d.rsplit("_", 1)[1]))
    if not set_dirs:
        raise OutOfScope("no test data sets")

    sets = []
    for set_dir in set_dirs:
        n_in = len(glob.glob(os.path.join(set_dir, "input_*.pb")))
        n_out = len(glob.glob(os.path.join(set_dir, "output_*.pb")))
        # As ONNX's runner does: input_i feeds graph.input[i], output_i is graph.output[i].
        if n_in > len(graph.input) or n_out != len(graph.output):
            raise OutOfScope("test data count differs from the graph's")
        fed = [graph.input[i] for i in range(n_in)]
        unfed = [vi.name for vi in graph.input[n_in:] if vi.name not in initializers]
        if unfed:
            raise OutOfScope("test data leaves a graph input unfed")
        inputs = []
        for i, vi in enumerate(fed):
            if vi.name in initializers:
                raise OutOfScope("test data overrides an initializer")
            word = type_word(vi, "input")
            array = load_array(os.path.join(set_dir, f"input_{i}.pb"), word)
            inputs.append((plain_name(vi.name, "input"), word, array))
        outputs = []
        for i, vi in enumerate(graph.output):
            word = type_word(vi, "output")
            array = load_array(os.path.join(set_dir, f"output_{i}.pb"), word)
            outputs.append((plain_name(vi.name, "output"), word, array))
        sets.append((int(set_dir.rsplit("_", 1)[1]), inputs, outputs))
    return rtol, atol, sets


def main(argv):
    if len(argv) != 3:
        sys.exit(__doc__)
    data_root, out_dir = os.path.abspath(argv[1]), os.path.abspath(argv[2])
    os.makedirs(out_dir, exist_ok=True)
    lines = []
    in_scope = 0
    left_out = collections.Counter()
    for group in GROUPS:
        group_dir = os.path.join(data_root, group)
        if not os.path.isdir(group_dir):
            continue
        for case in sorted(os.listdir(group_dir)):
            case_dir = os.path.join(group_dir, case)
            if not os.path.isfile(os.path.join(case_dir, "model.onnx")):
                left_out["no model.onnx (downloadable model)"] += 1
                continue
            name = f"{group}/{case}"
            try:
                rtol, atol, sets = read_case(name, case_dir)
            except OutOfScope as reason:
                left_out[str(reason)] += 1
                continue
            in_scope += 1
            lines.append(f"case {name} {rtol!r} {atol!r} {os.path.join(case_dir, 'model.onnx')}")
            for index, inputs, outputs in sets:
                lines.append(f"set {index}")
                for kind, tensors in (("input", inputs), ("output", outputs)):
                    for i, (tname, word, array) in enumerate(tensors):
                        rel = f"{group}/{case}/{index}_{kind}_{i}.bin"
                        os.makedirs(os.path.dirname(os.path.join(out_dir, rel)), exist_ok=True)
                        array.tofile(os.path.join(out_dir, rel))
                        lines.append(tensor_line(kind, tname, word, array, rel))
            lines.append("end")

    # Written last and whole, so a build interrupted halfway leaves no manifest that looks complete.
    manifest = os.path.join(out_dir, "manifest.txt")
    with open(manifest + ".tmp", "w", newline="\n") as f:
        f.write("\n".join(lines) + "\n")
    os.replace(manifest + ".tmp", manifest)

    print(f"conformance manifest: {in_scope} cases in scope, {sum(left_out.values())} left out")
    for reason, count in sorted(left_out.items(), key=lambda item: (-item[1], item[0])):
        print(f"  {count:4d}  {reason}")


if __name__ == "__main__":
    main(sys.argv)
