#!/usr/bin/python3
"""Writes the models the kivml tool's tests need beyond tests/models into the folder given as the only argument:
`mixed`, whose inputs and outputs cover float64, int64 and int32 (with output names that are not file-safe, two
of which make the same file name), and
`fixed_reshape`, which passes the tool's checks for any length of its free axis but fails in ONNX Runtime unless
that length is 3, and
`escapes`, whose names and metadata hold terminal control sequences that the tool must not print raw."""

import os
import sys

from onnx import TensorProto, helper

# The library's test models share their helpers; importing them must leave no cache in the source tree.
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "models"))
from make_test_models import save, tensor  # noqa: E402


def main(folder):
    os.makedirs(folder, exist_ok=True)
    save(folder, "mixed",
         [helper.make_node("Add", ["x", "x"], ["doubled"]),
          helper.make_node("Cast", ["x"], ["x_int64"], to=TensorProto.INT64),
          helper.make_node("Add", ["k", "x_int64"], ["total/int64"]),
          helper.make_node("Identity", ["k"], ["total:int64"]),
          helper.make_node("Cast", ["k"], ["count:int32"], to=TensorProto.INT32),
          helper.make_node("Mul", ["n", "n"], ["n_squared"])],
         [tensor("x", TensorProto.DOUBLE, ["N", 3], True), tensor("k", TensorProto.INT64, ["N", 3], True),
          tensor("n", TensorProto.INT32, ["N", 2], True)],
         [tensor("doubled", TensorProto.DOUBLE, ["N", 3], True), tensor("total/int64", TensorProto.INT64, ["N", 3], True),
          tensor("total:int64", TensorProto.INT64, ["N", 3], True),
          tensor("count:int32", TensorProto.INT32, ["N", 3], True), tensor("n_squared", TensorProto.INT32, ["N", 2], True)])
    # The leading axis is fixed, so the model cannot batch and "L" stays free for a request.
    shape = helper.make_tensor("shape", TensorProto.INT64, [2], [2, 3])
    save(folder, "fixed_reshape",
         [helper.make_node("Constant", [], ["shape"], value=shape), helper.make_node("Reshape", ["x", "shape"], ["y"])],
         [tensor("x", TensorProto.FLOAT, [2, "L"])], [tensor("y", TensorProto.FLOAT, [2, 3])])
    save(folder, "escapes", [helper.make_node("Add", ["in\x1b[1mput", "input2"], ["out\tput"])],
         [tensor("in\x1b[1mput", TensorProto.FLOAT, ["N", "W\x1b[0m"], True),
          tensor("input2", TensorProto.FLOAT, ["N", "W\x1b[0m"], True)],
         [tensor("out\tput", TensorProto.FLOAT, ["N", "W\x1b[0m"], True)],
         metadata={"note": "\x1b[2J\x1b[31mred", "bell\x07": "c1 \u009b31m here", "lines": "one\ntwo\x7f"})


if __name__ == "__main__":
    main(sys.argv[1])
