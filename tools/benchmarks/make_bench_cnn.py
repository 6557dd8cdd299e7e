#!/usr/bin/env python3
"""Writes the small CNN that kivml_ort_benchmarks runs: x float32 [N, 3, 32, 32] -> y float32 [N, 10].

Three Conv+Relu stages (32, 64, 64 channels; max pooling after the first two), global average pooling,
Flatten and Gemm. About 16 MFLOP per row, so a batch of 8 takes on the order of a millisecond on a 2-core
CPU (about 0.6 ms here): long enough that the ratios measure the evaluator rather than timer noise, short
enough that its overhead would show. N is a free dimension denoted DATA_BATCH, which is what lets the
library pad and batch requests. Weights are random with a fixed seed: the file is the same on every build.

Usage: make_bench_cnn.py OUTPUT.onnx
"""

import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

BATCH_DIM = "N"


def batched_value_info(name, features):
    info = helper.make_tensor_value_info(name, TensorProto.FLOAT, [BATCH_DIM] + features)
    info.type.tensor_type.shape.dim[0].denotation = "DATA_BATCH"
    return info


def build_model():
    rng = np.random.default_rng(20240607)
    initializers = []
    nodes = []

    def weight(name, shape, fan_in):
        values = rng.normal(0.0, np.sqrt(2.0 / fan_in), size=shape).astype(np.float32)
        initializers.append(numpy_helper.from_array(values, name))
        return name

    def conv_relu(source, index, in_channels, out_channels):
        w = weight(f"conv{index}.w", [out_channels, in_channels, 3, 3], in_channels * 9)
        b = weight(f"conv{index}.b", [out_channels], in_channels * 9)
        nodes.append(helper.make_node("Conv", [source, w, b], [f"conv{index}"], kernel_shape=[3, 3],
                                      pads=[1, 1, 1, 1]))
        nodes.append(helper.make_node("Relu", [f"conv{index}"], [f"relu{index}"]))
        return f"relu{index}"

    def max_pool(source, index):
        nodes.append(helper.make_node("MaxPool", [source], [f"pool{index}"], kernel_shape=[2, 2],
                                      strides=[2, 2]))
        return f"pool{index}"

    current = max_pool(conv_relu("x", 1, 3, 32), 1)  # [N, 32, 16, 16]
    current = max_pool(conv_relu(current, 2, 32, 64), 2)  # [N, 64, 8, 8]
    current = conv_relu(current, 3, 64, 64)  # [N, 64, 8, 8]
    nodes.append(helper.make_node("GlobalAveragePool", [current], ["gap"]))
    nodes.append(helper.make_node("Flatten", ["gap"], ["flat"], axis=1))
    fc_w = weight("fc.w", [64, 10], 64)
    fc_b = weight("fc.b", [10], 64)
    nodes.append(helper.make_node("Gemm", ["flat", fc_w, fc_b], ["y"]))

    graph = helper.make_graph(nodes, "bench_cnn", [batched_value_info("x", [3, 32, 32])],
                              [batched_value_info("y", [10])], initializers)
    model = helper.make_model(graph, producer_name="kivml make_bench_cnn",
                              opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 8
    return model


def main(argv):
    if len(argv) != 2:
        sys.stderr.write(__doc__)
        return 2
    model = build_model()
    onnx.checker.check_model(model, full_check=True)
    onnx.save(model, argv[1])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
