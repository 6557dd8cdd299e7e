#!/usr/bin/python3
"""Writes the small ONNX models the library's tests run into the folder given as the only argument."""

import os
import sys

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper


def tensor(name, elem_type, dims, batch=False):
    """A graph input or output; with `batch` the first dimension is the free, "DATA_BATCH"-denoted batch."""
    info = helper.make_tensor_value_info(name, elem_type, dims)
    if batch:
        first = info.type.tensor_type.shape.dim[0]
        first.dim_param = "N"
        first.denotation = "DATA_BATCH"
    return info


def save(folder, name, nodes, inputs, outputs, metadata=None, opset=13):
    graph = helper.make_graph(nodes, name, inputs, outputs)
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", opset)])
    model.ir_version = 8
    for key, value in (metadata or {}).items():
        entry = model.metadata_props.add()
        entry.key, entry.value = key, value
    onnx.checker.check_model(model)
    onnx.save(model, os.path.join(folder, name + ".onnx"))


def main(folder):
    os.makedirs(folder, exist_ok=True)
    add_inputs = [tensor("input1", TensorProto.FLOAT, ["N", 3], True), tensor("input2", TensorProto.FLOAT, ["N", 3], True)]
    add_output = [tensor("output1", TensorProto.FLOAT, ["N", 3], True)]
    save(folder, "add", [helper.make_node("Add", ["input1", "input2"], ["output1"])], add_inputs, add_output)
    save(folder, "add_metadata", [helper.make_node("Add", ["input1", "input2"], ["output1"])], add_inputs, add_output,
         metadata={"author": "kivml tests", "labels": "cat,dog"})
    save(folder, "logical_and", [helper.make_node("And", ["input1", "input2"], ["output1"])],
         [tensor("input1", TensorProto.BOOL, [1, 4]), tensor("input2", TensorProto.BOOL, [1, 4])],
         [tensor("output1", TensorProto.BOOL, [1, 4])])
    # Image height and width are free: a request brings its own.
    axes = helper.make_tensor("axes", TensorProto.INT64, [2], [2, 3])
    save(folder, "free_hw",
         [helper.make_node("Constant", [], ["axes"], value=axes),
          helper.make_node("ReduceSum", ["image", "axes"], ["sum"], keepdims=0)],
         [tensor("image", TensorProto.FLOAT, ["N", 1, "H", "W"], True)],
         [tensor("sum", TensorProto.FLOAT, ["N", 1], True)])
    # Runs only for inputs of six elements: anything else fails inside ONNX Runtime.
    shape = helper.make_tensor("shape", TensorProto.INT64, [2], [2, 3])
    save(folder, "reshape",
         [helper.make_node("Constant", [], ["shape"], value=shape), helper.make_node("Reshape", ["x", "shape"], ["y"])],
         [tensor("x", TensorProto.FLOAT, ["L"])], [tensor("y", TensorProto.FLOAT, [2, 3])])
    save(folder, "half", [helper.make_node("Identity", ["x"], ["y"])],
         [tensor("x", TensorProto.FLOAT16, [1, 2])], [tensor("y", TensorProto.FLOAT16, [1, 2])])
    save_batch_axis_models(folder)
    save_classifier(folder)


def save_batch_axis_models(folder):
    """Models whose outputs do or do not carry the inputs' batch dimension."""
    rows = [tensor("x", TensorProto.FLOAT, ["N", 3])]
    # Sums over the batch: one output for all rows together.
    axes = helper.make_tensor("axes", TensorProto.INT64, [1], [0])
    save(folder, "sum_rows",
         [helper.make_node("Constant", [], ["axes"], value=axes),
          helper.make_node("ReduceSum", ["x", "axes"], ["sum"], keepdims=0)],
         rows, [tensor("sum", TensorProto.FLOAT, [3])])
    # Indices of the non-zero elements of all rows together: [2, count].
    save(folder, "nonzero", [helper.make_node("NonZero", ["x"], ["indices"])], rows,
         [tensor("indices", TensorProto.INT64, [2, "count"])])
    # Each row twice: the output's leading dimension is free, but counts twice the rows.
    save(folder, "twice_rows", [helper.make_node("Concat", ["x", "x"], ["twice"], axis=0)], rows,
         [tensor("twice", TensorProto.FLOAT, ["M", 3])])
    # The batch under another name in the output, as exporters often write it: still one row per row.
    save(folder, "renamed_batch", [helper.make_node("Relu", ["x"], ["y"])], rows,
         [tensor("y", TensorProto.FLOAT, ["B", 3])])
    # The first column divided by the second, in integers: a zero divisor fails the run.
    first = helper.make_tensor("first", TensorProto.INT64, [], [0])
    second = helper.make_tensor("second", TensorProto.INT64, [], [1])
    save(folder, "int_div",
         [helper.make_node("Constant", [], ["first"], value=first),
          helper.make_node("Constant", [], ["second"], value=second),
          helper.make_node("Gather", ["pair", "first"], ["dividend"], axis=1),
          helper.make_node("Gather", ["pair", "second"], ["divisor"], axis=1),
          helper.make_node("Div", ["dividend", "divisor"], ["quotient"])],
         [tensor("pair", TensorProto.INT32, ["N", 2], True)], [tensor("quotient", TensorProto.INT32, ["N"], True)])


def save_classifier(folder):
    """A small image classifier with real arithmetic (convolution, matrix product, softmax), so that a GPU
    provider's results can be compared with the CPU's. Fixed weights keep the model identical across builds."""
    rng = numpy.random.default_rng(7)

    def weights(name, *shape):
        return numpy_helper.from_array(rng.standard_normal(shape).astype(numpy.float32) * 0.2, name)

    graph = helper.make_graph(
        [helper.make_node("Conv", ["image", "conv_w", "conv_b"], ["conv"], pads=[1, 1, 1, 1]),
         helper.make_node("Relu", ["conv"], ["relu"]),
         helper.make_node("Flatten", ["relu"], ["flat"], axis=1),
         helper.make_node("Gemm", ["flat", "fc_w", "fc_b"], ["logits"]),
         helper.make_node("Softmax", ["logits"], ["probs"], axis=1)],
        "conv",
        [tensor("image", TensorProto.FLOAT, ["N", 3, 8, 8], True)],
        [tensor("probs", TensorProto.FLOAT, ["N", 5], True)],
        [weights("conv_w", 4, 3, 3, 3), weights("conv_b", 4), weights("fc_w", 256, 5), weights("fc_b", 5)])
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 8
    onnx.checker.check_model(model)
    onnx.save(model, os.path.join(folder, "conv.onnx"))


if __name__ == "__main__":
    main(sys.argv[1])
