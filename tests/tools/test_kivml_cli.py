#!/usr/bin/python3
"""Drives the kivml command-line tool on small models and checks what it prints and writes, the .npy files with
NumPy. The environment names the tool (KIVML_TOOL) and the model folders (KIVML_TEST_MODELS, written by
tests/models/make_test_models.py, and KIVML_TOOL_MODELS, by make_tool_models.py)."""

import fcntl
import json
import os
import pty
import shutil
import shlex
import signal
import stat
import struct
import subprocess
import tempfile
import termios
import threading
import unittest

import numpy as np

KIVML = os.path.abspath(os.environ.get("KIVML_TOOL", ""))
# What runs the tool when it is not a program of this machine (Wine, for the Windows build); empty otherwise.
RUNNER = shlex.split(os.environ.get("KIVML_TOOL_RUNNER", ""))
TOOL = [*RUNNER, KIVML]
TEST_MODELS = os.environ.get("KIVML_TEST_MODELS", "")
TOOL_MODELS = os.environ.get("KIVML_TOOL_MODELS", "")


def model(name):
    folder = TOOL_MODELS if name in ("mixed", "fixed_reshape", "escapes") else TEST_MODELS
    return os.path.join(folder, name + ".onnx")


class ToolTestCase(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.dir = scratch.name

    def kivml(self, *args, timeout=60):
        """Runs the tool in the scratch folder with stderr piped, as under ctest or in a log."""
        return subprocess.run([*TOOL, *args], cwd=self.dir, capture_output=True, text=True, timeout=timeout)

    def succeed(self, *args):
        result = self.kivml(*args)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result

    def fail_with(self, args, *fragments, quiet=True):
        """The tool must exit non-zero with one error line holding every fragment (and, when quiet, print nothing
        on stdout: the check came before any work)."""
        result = self.kivml(*args)
        self.assertNotEqual(result.returncode, 0, result.stdout)
        errors = [line for line in result.stderr.splitlines() if line.startswith("kivml: error: ")]
        self.assertEqual(len(errors), 1, result.stderr)
        for fragment in fragments:
            self.assertIn(fragment, errors[0])
        if quiet:
            self.assertEqual(result.stdout, "")
        return errors[0]

    def usage_error(self, args, *fragments):
        """The tool must refuse the command line (status 2) with every fragment on stderr, before any work."""
        result = self.kivml(*args, timeout=30)
        self.assertEqual(result.returncode, 2, result.stderr)
        for fragment in fragments:
            self.assertIn(fragment, result.stderr)
        self.assertEqual(result.stdout, "")

    def save(self, name, array):
        path = os.path.join(self.dir, name)
        np.save(path, array)
        return path

    def load(self, name):
        return np.load(os.path.join(self.dir, name))


class InfoTest(ToolTestCase):
    def test_lists_features_batching_and_metadata(self):
        out = self.succeed("info", model("add_metadata")).stdout
        self.assertRegex(out, r"input1\s+float32\s+\[N, 3\]\s+one request: \[1, 3\]")
        self.assertRegex(out, r"input2\s+float32\s+\[N, 3\]")
        self.assertRegex(out, r"output1\s+float32\s+\[N, 3\]")
        self.assertIn("batching: supported", out)
        self.assertRegex(out, r"author\s+= kivml tests")
        self.assertRegex(out, r"labels\s+= cat,dog")

    def test_the_library_says_whether_its_pools_spin(self):
        traced = ("info", model("add"), "--trace", "kivmachinelearning=5")
        self.assertRegex(self.succeed(*traced).stderr, r"shared thread pools: \d+ threads each, idle ones sleep")
        self.assertIn(" idle ones spin", self.succeed(*traced, "--set", "kivml.AllowSpinning=true").stderr)

    def test_batching_needs_every_output_to_follow_the_batch(self):
        for name in ("sum_rows", "nonzero", "twice_rows"):
            self.assertIn("batching: not supported", self.succeed("info", model(name)).stdout, name)
        self.assertIn("batching: supported", self.succeed("info", model("renamed_batch")).stdout)

    def test_shows_symbolic_dims_and_every_element_type(self):
        self.assertRegex(self.succeed("info", model("free_hw")).stdout, r"image\s+float32\s+\[N, 1, H, W\]")
        out = self.succeed("info", model("logical_and")).stdout
        self.assertRegex(out, r"input1\s+bool\s+\[1, 4\]")
        self.assertIn("batching: not supported", out)
        out = self.succeed("info", model("mixed")).stdout
        for pattern in (r"x\s+float64", r"k\s+int64", r"n\s+int32", r"count:int32\s+int32"):
            self.assertRegex(out, pattern)
        self.assertRegex(self.succeed("info", model("fixed_reshape")).stdout, r"x\s+float32\s+\[2, L\]\s+one request: \[2, \?\]")

    def test_marks_types_the_library_cannot_carry(self):
        self.assertRegex(self.succeed("info", model("half")).stdout, r"x\s+float16\s+\[1, 2\]\s+\(not supported by kivml\)")

    def test_control_characters_from_the_model_are_escaped(self):
        out = self.succeed("info", model("escapes")).stdout
        self.assertNotRegex(out, "[\x00-\x09\x0b-\x1f\x7f-\x9f]")  # nothing raw but the line ends
        self.assertRegex(out, r"in\\x1b\[1mput\s+float32\s+\[N, W\\x1b\[0m\]")
        self.assertRegex(out, r"out\\x09put\s+float32")
        self.assertRegex(out, r"bell\\x07\s+= c1 \\u009b31m here")
        self.assertRegex(out, r"note\s+= \\x1b\[2J\\x1b\[31mred")
        self.assertIn(r"= one\x0atwo\x7f", out)
        self.fail_with(["run", model("escapes")], r"input 'in\x1b[1mput' is required")


class RunTest(ToolTestCase):
    def test_float32_outputs_match_numpy_across_repeats(self):
        rng = np.random.default_rng(7)
        a, b = rng.random((1, 3), dtype=np.float32), rng.random((1, 3), dtype=np.float32)
        result = self.succeed("run", model("add"), "--input", "input1=" + self.save("a.npy", a),
                              "-i", "input2=" + self.save("b.npy", b), "--output-dir", "out", "--repeat", "3")
        self.assertRegex(result.stdout, r"^output1\s+float32\s+\[1, 3\]\s+out[/\\]output1\.npy\n$")
        self.assertIn("answers agree", result.stderr)
        output = self.load("out/output1.npy")
        self.assertEqual((output.dtype, output.shape), (np.float32, (1, 3)))
        np.testing.assert_allclose(output, a + b, rtol=1e-6)

    def test_lanes_in_use_are_reported(self):
        a = self.save("a.npy", np.ones((1, 3), np.float32))
        args = ["run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a, "--repeat", "8"]
        self.assertIn("with 2 lanes: ran 8 requests, answers agree", self.succeed(*args, "--lanes", "2").stderr)
        self.assertIn("with 1 lane:", self.succeed(*args, "--set", "kivml.PredictionLanes=1").stderr)
        self.assertRegex(self.succeed(*args, "--lanes", "0").stderr, r"with [1-9]\d* lanes?:")
        self.usage_error(args + ["--lanes", "-1"], "--lanes", "'-1' is not a whole number")

    def test_stats_after_the_run(self):
        a = self.save("a.npy", np.ones((1, 3), np.float32))
        errors = self.succeed("run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a, "--repeat", "5",
                              "--batched", "--lanes", "2", "--stats").stderr
        self.assertIn(": 5 queued, 5 answered, 0 failed, 0 terminated, 0 abandoned", errors)
        self.assertRegex(errors, r"queue wait\s+5\s")
        self.assertRegex(errors, r"completion\s+5\s")
        self.assertRegex(errors, r"5 batches, 1\.00 rows per batch \(5 of 1\), \d+ dummy rows")
        self.assertIn("lane 2: predicting", errors)
        plain = self.succeed("run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a).stderr
        self.assertNotIn("queued", plain)

    def test_bool_outputs(self):
        a, b = np.array([[True, False, True, False]]), np.array([[True, True, False, False]])
        self.succeed("run", model("logical_and"), "-i", "input1=" + self.save("a.npy", a), "-i", "input2=" + self.save("b.npy", b))
        output = self.load("output1.npy")
        self.assertEqual(output.dtype, np.bool_)
        np.testing.assert_array_equal(output, a & b)

    def test_integer_and_double_outputs_with_unsafe_names(self):
        x = np.array([[1.5, 2.25, -3.0]])
        k = np.array([[1, 2, 1 << 40]], dtype=np.int64)
        n = np.array([[3, -40000]], dtype=np.int32)
        out = self.succeed("run", model("mixed"), "-i", "x=" + self.save("x.npy", x), "-i", "k=" + self.save("k.npy", k),
                           "-i", "n=" + self.save("n.npy", n)).stdout
        self.assertRegex(out, r"total/int64\s+int64\s+\[1, 3\]\s+\.[/\\]total_int64\.npy")
        self.assertRegex(out, r"total:int64\s+int64\s+\[1, 3\]\s+\.[/\\]total_int64_2\.npy")
        self.assertRegex(out, r"count:int32\s+int32\s+\[1, 3\]\s+\.[/\\]count_int32\.npy")
        expected = {"doubled.npy": x + x, "total_int64.npy": k + x.astype(np.int64), "total_int64_2.npy": k,
                    "count_int32.npy": k.astype(np.int32), "n_squared.npy": n * n}
        for name, values in expected.items():
            output = self.load(name)
            self.assertEqual((output.dtype, output.shape), (values.dtype, values.shape), name)
            np.testing.assert_array_equal(output, values, name)

    def test_batched_and_gpu_requests_give_the_same_answer(self):
        a = self.save("a.npy", np.array([[1, 2, 3]], np.float32))
        for flag in ("--batched", "--gpu"):
            result = self.succeed("run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a, flag, "-o", flag[2:])
            self.assertRegex(result.stdout, r"output1\s+float32\s+\[1, 3\]")
            np.testing.assert_array_equal(self.load(flag[2:] + "/output1.npy"), [[2, 4, 6]])
        # Where the machine offers no hardware adapter the tool says why it ran on the CPU.
        self.assertRegex(result.stderr, r"asked for the GPU|on GPU \(")

    def test_free_dimensions_take_the_array_shape(self):
        image = np.arange(20, dtype=np.float32).reshape(1, 1, 4, 5)
        self.succeed("run", model("free_hw"), "-i", "image=" + self.save("image.npy", image))
        np.testing.assert_allclose(self.load("sum.npy"), image.sum(axis=(2, 3)))


class RunErrorTest(ToolTestCase):
    def add_args(self, input1, input2=None):
        args = ["run", model("add"), "-i", "input1=" + input1]
        return args + ["-i", "input2=" + (input2 or self.save("b.npy", np.ones((1, 3), np.float32)))]

    def test_missing_files(self):
        self.fail_with(["run", model("nothing_here")], "model file", "nothing_here.onnx", "does not exist")
        self.fail_with(self.add_args("missing.npy"), "input file 'missing.npy' does not exist")

    def test_paths_that_are_not_files_say_what_they_are(self):
        os.mkdir(os.path.join(self.dir, "folder"))
        self.fail_with(["info", "folder"], "model file 'folder' is a directory, not a file")
        self.fail_with(self.add_args("folder"), "input file 'folder' is a directory, not a file")
        self.fail_with(["info", model("add"), "--settings", "folder"], "settings file 'folder': it is a directory")
        if not RUNNER:
            self.fail_with(["info", os.devnull], "model file '%s' is a character device, not a regular file" % os.devnull)

    def test_input_names(self):
        a = self.save("a.npy", np.ones((1, 3), np.float32))
        self.fail_with(["run", model("add"), "-i", "inputX=" + a], "no input 'inputX'", "input1, input2")
        self.fail_with(["run", model("add"), "-i", "input1=" + a], "'input2' is required", "float32", "[1, 3]")
        self.fail_with(["run", model("add"), "-i", "input1=" + a, "-i", "input1=" + a], "'input1' is given twice")
        self.fail_with(["run", model("add"), "-i", a], "expected NAME=FILE.npy")

    def test_wrong_dtype_names_both(self):
        self.fail_with(self.add_args(self.save("a.npy", np.ones((1, 3), np.int64))), "takes float32", "holds int64")
        self.fail_with(self.add_args(self.save("a.npy", np.ones((1, 3), np.float16))), "unsupported dtype '<f2'")

    def test_wrong_shape_names_both(self):
        self.fail_with(self.add_args(self.save("a.npy", np.ones(3, np.float32))), "takes shape [1, 3]", "holds [3]", "rank 1 instead of 2")
        self.fail_with(self.add_args(self.save("a.npy", np.ones((2, 3), np.float32))), "holds [2, 3]", "axis 0 must be 1", "one row")
        self.fail_with(self.add_args(self.save("a.npy", np.ones((1, 4), np.float32))), "holds [1, 4]", "axis 1 must be 3")

    def test_malformed_npy_gives_the_readers_reason(self):
        truncated = self.save("t.npy", np.ones((1, 3), np.float32))
        with open(truncated, "r+b") as file:
            file.truncate(os.path.getsize(truncated) - 4)
        self.fail_with(self.add_args(truncated), "t.npy", "needs 12")
        garbage = os.path.join(self.dir, "g.npy")
        with open(garbage, "wb") as file:
            file.write(b"not numpy at all")
        self.fail_with(self.add_args(garbage), "g.npy", "not a .npy image")

    def test_control_characters_in_a_dtype_are_shown_escaped(self):
        def npy(descr):
            header = ("{'descr': '%s', 'fortran_order': False, 'shape': (1, 3), }" % descr).encode("latin-1")
            header += b" " * (-(10 + len(header) + 1) % 64) + b"\n"
            path = os.path.join(self.dir, "odd.npy")
            with open(path, "wb") as file:
                file.write(b"\x93NUMPY\x01\x00" + struct.pack("<H", len(header)) + header + bytes(12))
            return path

        # The library's message ends at a NUL: the tool shows the whole header.
        self.fail_with(self.add_args(npy("<f\x004")), "odd.npy", "NUL byte", r"{'descr': '<f\x004', 'fortran_order'")
        error = self.fail_with(self.add_args(npy("\x1b[31m<f4")), r"unsupported dtype '\x1b[31m<f4'")
        self.assertNotIn("\x1b", error)

    @unittest.skipIf(RUNNER or not hasattr(signal, "SIGXFSZ"), "needs POSIX resource limits")
    def test_a_file_too_large_for_memory_names_the_input_and_the_bytes(self):
        import resource

        def small_address_space():  # so that 40 GB cannot be allocated on any machine
            resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))

        def run(*args):
            return subprocess.run([*TOOL, *args], cwd=self.dir, capture_output=True, text=True, timeout=60,
                                  preexec_fn=small_address_space)

        if run("info", model("add")).returncode != 0:
            self.skipTest("the tool does not run in 4 GiB of address space (a sanitizer's shadow memory)")
        big = self.save("big.npy", np.ones((1, 3), np.float32))
        with open(big, "r+b") as file:
            file.truncate(40_000_000_128)  # sparse: takes no room on disk
        result = run(*self.add_args(big))
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("input 'input1': cannot allocate 40000000128 bytes to read '%s'" % big, result.stderr)

    def test_models_the_tool_cannot_serve(self):
        garbage = os.path.join(self.dir, "garbage.onnx")
        with open(garbage, "w") as file:
            file.write("not a model")
        self.fail_with(["info", garbage], "cannot load the model: 0xED6C0002", "garbage")
        self.fail_with(["run", model("half")], "float16", "cannot exchange")
        x = self.save("x.npy", np.ones((2, 3), np.float32))
        self.fail_with(["run", model("fixed_reshape"), "-i", "x=" + x, "--batched"], "cannot run batched")

    def test_unwritable_outputs_give_the_reason(self):
        a = self.save("a.npy", np.ones((1, 3), np.float32))
        args = ["run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a, "-o", "out"]
        os.makedirs(os.path.join(self.dir, "out", "output1.npy"))  # a directory where the output goes
        self.fail_with(args, "cannot write 'out", "output1.npy': ")  # the tool's separator, / or \\
        if not RUNNER:
            self.fail_with(args, "Is a directory")
        if hasattr(os, "geteuid") and os.geteuid() != 0:  # root writes anywhere
            os.rmdir(os.path.join(self.dir, "out", "output1.npy"))
            os.chmod(os.path.join(self.dir, "out"), 0o500)
            self.addCleanup(os.chmod, os.path.join(self.dir, "out"), 0o700)
            self.fail_with(args, "Permission denied")

    @unittest.skipIf(RUNNER or not hasattr(signal, "SIGXFSZ"), "needs a POSIX file-size limit")
    def test_a_full_disk_leaves_no_truncated_output(self):
        import resource

        def small_files():
            # Writes past 100 bytes fail with EFBIG as on a full disk, rather than killing the tool.
            resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)

        a = self.save("a.npy", np.ones((1, 3), np.float32))  # 140 bytes as an output
        os.mkdir(os.path.join(self.dir, "out"))
        result = subprocess.run([*TOOL, "run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a, "-o", "out"],
                                cwd=self.dir, capture_output=True, text=True, timeout=60, preexec_fn=small_files)
        self.assertNotEqual(result.returncode, 0)
        self.assertEqual(os.listdir(os.path.join(self.dir, "out")), [])
        self.assertIn("cannot write 'out/output1.npy': File too large", result.stderr)

    def test_failed_request_shows_the_result_code(self):
        x = self.save("x.npy", np.ones((2, 4), np.float32))
        self.fail_with(["run", model("fixed_reshape"), "-i", "x=" + x], "request failed: 0xED6C0004", "Reshape")
        # Batched, the fixed text comes with ONNX Runtime's reason.
        zero = self.save("zero.npy", np.array([[5, 0]], np.int32))
        self.fail_with(["run", model("int_div"), "-i", "pair=" + zero, "--batched"], "request failed: 0xED6C0004",
                       "PredictError", "Integer division by zero", quiet=False)
        # A valid request is not failed by the zero-filled rows that pad its batch.
        valid = self.save("valid.npy", np.array([[5, 4]], np.int32))
        self.succeed("run", model("int_div"), "-i", "pair=" + valid, "--batched", "--output-dir", self.dir)
        self.assertEqual(np.load(os.path.join(self.dir, "quotient.npy")).tolist(), [1])


class BenchTest(ToolTestCase):
    def test_json_holds_every_configuration_and_concurrency(self):
        result = self.succeed("bench", model("add"), "--requests", "20", "--concurrency", "1,2", "--both", "--warmup", "4",
                              "--lanes", "1,auto", "--json", "bench.json")
        self.assertNotIn("\r", result.stderr)  # no progress bar when stderr is piped
        self.assertIn("kivml req/s", result.stdout)
        self.assertRegex(result.stdout, r"queue p50 ms\s+queue p99 ms\s+rows/batch\s+dummy rows")
        self.assertIn("targets", result.stdout)
        with open(os.path.join(self.dir, "bench.json")) as file:
            report = json.load(file)
        self.assertEqual((report["requests"], report["warmup"], report["lanes"], report["spinning"]),
                         (20, 4, [1, "auto"], ["off"]))
        self.assertGreater(report["hardware_concurrency"], 0)
        self.assertEqual([(i["name"], i["dtype"], i["shape"]) for i in report["inputs"]],
                         [("input1", "float32", [1, 3]), ("input2", "float32", [1, 3])])
        configurations = report["configurations"]
        self.assertEqual([(c["mode"], c["lanes_asked"], c["spinning"]) for c in configurations],
                         [("batched", 1, False), ("batched", "auto", False), ("unbatched", 1, False),
                          ("unbatched", "auto", False)])
        for configuration in configurations:
            self.assertEqual(configuration["lanes"], 1 if configuration["lanes_asked"] == 1 else
                             configurations[1]["lanes"])  # the machine's fit, the same for both modes
            self.assertGreaterEqual(configuration["lanes"], 1)
            self.assertEqual([row["concurrency"] for row in configuration["results"]], [1, 2])
            rows_per_run = configuration["batch_size"] if configuration["mode"] == "batched" else 1
            for row in configuration["results"]:
                self.assertGreater(row["throughput_ratio"], 0)
                self.assertEqual(row["raw"]["rows_per_call"], rows_per_run)
                self.check_measurement(row["kivml"], 20)
                self.check_measurement(row["raw"], 20)
                self.check_statistics(row, configuration)
        references = {(r["name"], r["session_options"], r["client_threads"]): r for r in report["references"]}
        self.assertEqual(set(references), {("raw one-row", "library", "concurrency"),
                                           ("raw batches", "library", "concurrency"),
                                           ("hand-written one-row", "default", "concurrency"),
                                           ("hand-written batches", "default", "one")})
        self.assertEqual(references[("hand-written batches", "default", "one")]["rows_per_call"],
                         configurations[0]["batch_size"])
        for reference in references.values():
            self.assertEqual([row["concurrency"] for row in reference["results"]], [1, 2])
            for row in reference["results"]:
                self.check_measurement(row, 20)
        targets = report["targets"]
        self.assertEqual(list(targets), ["clients_1", "clients_2", "clients_8", "clients_32", "batched_alone",
                                         "unbatched_overhead"])
        for key in ("clients_8", "clients_32"):  # no such concurrency
            self.assertEqual((targets[key]["measured"], "passed" in targets[key]), (False, False))
        for key in ("clients_1", "clients_2", "batched_alone", "unbatched_overhead"):
            self.assertTrue(targets[key]["measured"], key)
            self.assertIsInstance(targets[key]["passed"], bool)
            self.assertIn(targets[key]["configuration"].split(",")[0], ("batched", "unbatched"))
        self.assertEqual(os.listdir(self.dir), ["bench.json"])  # no temporary file left beside it

    def check_statistics(self, row, configuration):
        """The evaluator's statistics cover exactly the measured requests of that load."""
        statistics = row["statistics"]
        requests = row["kivml"]["requests"]
        self.assertEqual((statistics["queued"], statistics["answered"]), (requests, requests))
        self.assertEqual(statistics["queue_wait"]["count"], requests)
        self.assertLessEqual(statistics["queue_wait"]["p50_ms"], statistics["queue_wait"]["p99_ms"])
        self.assertEqual(len(statistics["lanes"]), configuration["lanes"])
        if configuration["mode"] == "batched":
            self.assertEqual(sum(size["rows"] * size["batches"] for size in statistics["rows_per_batch"]), requests)
            self.assertGreaterEqual(statistics["mean_rows_per_batch"], 1)
        else:
            self.assertEqual(statistics["batches"], 0)

    def check_measurement(self, side, requests):
        self.assertGreaterEqual(side["requests"], requests)
        for key in ("wall_seconds", "requests_per_second", "mean_ms", "p50_ms", "p95_ms", "p99_ms"):
            self.assertGreater(side[key], 0, key)
        self.assertLessEqual(side["p50_ms"], side["p99_ms"])

    def test_both_spinning_settings_in_one_report(self):
        # The setting the process does not have is measured by a child process of the tool, whose
        # measurements come back through a temporary file; the library's settings go along.
        environment = {**os.environ, "TMPDIR": self.dir, "TMP": self.dir, "TEMP": self.dir}
        result = subprocess.run([*TOOL, "bench", model("free_hw"), "--dim", "H=3", "--requests", "6", "--concurrency", "2",
                                 "--lanes", "1", "--unbatched", "--warmup", "1", "--spinning", "both",
                                 "--set", "kivml.BatchSizeMultiplier=2", "--json", "bench.json"],
                                cwd=self.dir, capture_output=True, text=True, timeout=120, env=environment)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout.count("kivml req/s"), 1, result.stdout)  # one report, from the parent
        self.assertRegex(result.stdout, r"spinning\s+off, on")
        with open(os.path.join(self.dir, "bench.json")) as file:
            report = json.load(file)
        self.assertEqual(report["spinning"], ["off", "on"])
        self.assertEqual([(c["mode"], c["spinning"]) for c in report["configurations"]],
                         [("unbatched", False), ("unbatched", True)])
        for configuration in report["configurations"]:
            self.assertEqual([row["concurrency"] for row in configuration["results"]], [2])
            self.check_measurement(configuration["results"][0]["kivml"], 6)
            self.check_statistics(configuration["results"][0], configuration)  # the child's came along
        self.assertEqual(sorted((r["name"], r["spinning"]) for r in report["references"]),
                         [("hand-written batches", False), ("hand-written batches", True),
                          ("hand-written one-row", False), ("hand-written one-row", True),
                          ("raw one-row", False), ("raw one-row", True)])
        self.assertEqual(report["inputs"][0]["shape"], [1, 1, 3, 32])  # the child got the --dim too
        # Wine leaves a folder of its own where one program starts another.
        self.assertEqual(sorted(name for name in os.listdir(self.dir) if not name.startswith("wine-")), ["bench.json"])

    def test_spinning_set_by_hand_is_what_the_process_measures(self):
        # The library reads kivml.AllowSpinning as it initialises: a process started with it on measures
        # spinning itself, and the other setting in a child that is told to turn it off.
        out = self.succeed("bench", model("add"), "--requests", "2", "--concurrency", "1", "--lanes", "1",
                           "--unbatched", "--warmup", "0", "--spinning", "both", "--set", "kivml.AllowSpinning=true",
                           "--json", "bench.json").stdout
        with open(os.path.join(self.dir, "bench.json")) as file:
            report = json.load(file)
        self.assertEqual([c["spinning"] for c in report["configurations"]], [False, True])
        self.assertRegex(out, r"unbatched\s+1\s+on\s+1\s+\|")

    def test_table_columns_line_up(self):
        out = self.succeed("bench", model("add"), "--requests", "4", "--concurrency", "1,16", "--unbatched", "--warmup", "0",
                           "--lanes", "1,2").stdout
        for bars, rows in ((3, 4), (2, 2)):  # kivml: each lane count at each concurrency; hand-written
            table = [line for line in out.splitlines() if line.count("|") == bars]
            self.assertEqual(len(table), rows + 1, out)  # and the header
            self.assertEqual(len({tuple(i for i, c in enumerate(line) if c == "|") for line in table}), 1, out)

    def test_every_element_type_and_a_model_that_cannot_batch(self):
        for name in ("mixed", "logical_and"):
            result = self.succeed("bench", model(name), "--requests", "3", "--concurrency", "1", "--warmup", "0",
                                  "--lanes", "1", "--json", name + ".json")
            with open(os.path.join(self.dir, name + ".json")) as file:
                modes = [configuration["mode"] for configuration in json.load(file)["configurations"]]
            self.assertEqual(modes, ["batched", "unbatched"] if name == "mixed" else ["unbatched"])
        self.assertIn("batched mode skipped", result.stdout)

    def test_failed_requests_stop_the_bench(self):
        # The free axis defaults to 32, which the model's Reshape cannot take.
        self.fail_with(["bench", model("fixed_reshape"), "--requests", "2", "--concurrency", "2", "--warmup", "0"],
                       "request failed: 0xED6C0004", "Reshape", quiet=False)

    def draw_on_a_terminal(self, *args, columns=None):
        """Runs a bench with stderr on a pseudo-terminal (`columns` wide, or of no stated size); returns what it drew."""
        controller, terminal = pty.openpty()
        self.addCleanup(os.close, controller)
        if columns:
            fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        with open(os.devnull, "w") as devnull:
            process = subprocess.Popen([*TOOL, "bench", model("add"), "--requests", "2000", "--warmup", "0", *args],
                                       cwd=self.dir, stdout=devnull, stderr=terminal)
        os.close(terminal)
        drawn = b""
        while True:
            try:
                chunk = os.read(controller, 4096)
            except OSError:  # the terminal closes with the process
                break
            if not chunk:
                break
            drawn += chunk
        self.assertEqual(process.wait(timeout=60), 0)
        return drawn

    @unittest.skipIf(RUNNER, "Wine gives Windows programs a console of its own, not the Unix terminal")
    def test_progress_bar_only_on_a_terminal(self):
        drawn = self.draw_on_a_terminal("--concurrency", "1", "--unbatched", "--lanes", "1")
        self.assertIn(b"unbatched lanes 1 conc 1 kivml 1/4 [", drawn)
        self.assertIn(b"hand-written one-row conc 1 4/4 [", drawn)
        self.assertTrue(drawn.endswith(b"\r"), drawn[-80:])  # the line is cleared at the end

    @unittest.skipIf(RUNNER, "Wine gives Windows programs a console of its own, not the Unix terminal")
    def test_progress_bar_fits_a_narrow_terminal(self):
        # A line as wide as the terminal would wrap, and every redraw would scroll it.
        drawn = self.draw_on_a_terminal("--concurrency", "16", "--batched", "--lanes", "1", columns=40)
        lines = [line for line in drawn.split(b"\r") if line.strip()]
        self.assertTrue(any(line.startswith(b"batched lanes 1 conc 16") for line in lines), drawn[-200:])
        for line in lines:
            self.assertLess(len(line), 40, line)

    @unittest.skipIf(RUNNER, "gnuplot is a program of this machine, which the Windows tool does not run")
    @unittest.skipUnless(shutil.which("gnuplot"), "needs gnuplot")
    def test_plot(self):
        self.succeed("bench", model("add"), "--requests", "4", "--concurrency", "1,2", "--warmup", "0", "--plot", "p.png")
        with open(os.path.join(self.dir, "p.png"), "rb") as file:
            self.assertEqual(file.read(8), b"\x89PNG\r\n\x1a\n")

    @unittest.skipIf(RUNNER, "the runner needs PATH, which this test empties")
    def test_plot_without_gnuplot(self):
        result = subprocess.run([*TOOL, "bench", model("add"), "--requests", "2", "--concurrency", "1", "--unbatched",
                                 "--warmup", "0", "--plot", "p.png"], cwd=self.dir, capture_output=True, text=True,
                                env={**os.environ, "PATH": self.dir}, timeout=60)
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("--plot needs gnuplot", result.stderr)
        self.assertEqual(result.stdout, "")  # refused before the model loads

    @unittest.skipIf(RUNNER or not hasattr(os, "mkfifo"), "needs a POSIX FIFO")
    def test_a_report_to_a_fifo_is_written_into_it(self):
        # Renaming into place would replace the FIFO, as it would /dev/stdout or /dev/null.
        fifo = os.path.join(self.dir, "report")
        os.mkfifo(fifo)
        received = []
        reader = threading.Thread(target=lambda: received.append(open(fifo).read()), daemon=True)
        reader.start()
        self.succeed("bench", model("add"), "--requests", "2", "--concurrency", "1", "--unbatched", "--warmup", "0",
                     "--json", fifo)
        reader.join(timeout=10)
        self.assertEqual(json.loads(received[0])["requests"], 2)
        self.assertTrue(stat.S_ISFIFO(os.stat(fifo).st_mode))
        self.assertEqual(os.listdir(self.dir), ["report"])

    def test_unwritable_report_files_stop_the_bench_before_it_runs(self):
        args = ["bench", model("add"), "--requests", "2", "--concurrency", "1", "--unbatched", "--warmup", "0"]
        os.mkdir(os.path.join(self.dir, "folder"))
        missing = os.path.join("no_such_dir", "b.json")
        self.fail_with(args + ["--json", missing], "--json '" + missing + "': cannot write there: No such file")
        self.fail_with(args + ["--json", "folder"], "--json 'folder': that is a directory")
        if not RUNNER and shutil.which("gnuplot"):
            self.fail_with(args + ["--plot", os.path.join("folder", "none", "p.png")], "--plot", "No such file")
        self.assertEqual(os.listdir(self.dir), ["folder"])

    def test_dims_by_name_and_by_axis(self):
        self.succeed("bench", model("free_hw"), "--dim", "H=5", "--dim", "image:3=7", "--unbatched", "--requests", "4",
                     "--concurrency", "1", "--warmup", "0", "--json", "bench.json")
        with open(os.path.join(self.dir, "bench.json")) as file:
            image = json.load(file)["inputs"][0]
        self.assertEqual(image["shape"], [1, 1, 5, 7])
        self.assertEqual([(d["name"], d["size"], d["source"]) for d in image["free_dims"]],
                         [("H", 5, "--dim H"), ("W", 7, "--dim image:3")])

    def test_free_dims_default(self):
        self.succeed("bench", model("free_hw"), "--unbatched", "--requests", "2", "--concurrency", "1", "--warmup", "0",
                     "--json", "bench.json")
        with open(os.path.join(self.dir, "bench.json")) as file:
            image = json.load(file)["inputs"][0]
        self.assertEqual(image["shape"], [1, 1, 32, 32])
        self.assertEqual({d["source"] for d in image["free_dims"]}, {"default"})

    def test_bad_dims(self):
        args = ["bench", model("free_hw"), "--requests", "1", "--dim"]
        self.fail_with(args + ["Q=3"], "no free dimension has that name", "H, W")
        self.fail_with(args + ["image:1=2"], "fixes that dimension at 1")
        self.fail_with(args + ["N=2"], "batch dimension")
        self.fail_with(args + ["H=0"], "positive SIZE")

    def test_dims_too_large_for_memory_name_the_input_and_the_bytes(self):
        args = ["bench", model("free_hw"), "--unbatched", "--requests", "1", "--concurrency", "1", "--warmup", "0"]
        # 2^82 wraps to nothing in 64 bits; 2^50 bytes is beyond any machine's address space.
        self.fail_with(args + ["--dim", "H=1099511627776", "--dim", "W=1099511627776"],
                       "input 'image': [1, 1, 1099511627776, 1099511627776] of float32 needs more bytes than 64 bits")
        huge = args + ["--dim", "H=16777216", "--dim", "W=16777216"]
        if "Sanitizer" in self.kivml(*huge).stderr:
            self.skipTest("a sanitizer's allocator aborts on an impossible size instead of throwing")
        self.fail_with(huge, "input 'image': [1, 1, 16777216, 16777216] of float32 needs 1125899906842624 bytes",
                       quiet=False)

    def test_counts_that_are_not_whole_numbers_or_repeat(self):
        args = ["bench", model("add"), "--requests", "1", "--unbatched"]
        # -1 once wrapped to 2^64 warm-up requests; -18446744073709551615 wraps to 1.
        for option, value, fragment in (("--warmup", "-1", "'-1' is not a whole number"),
                                         ("--seed", "-5", "'-5' is not a whole number"),
                                         ("--warmup", "-18446744073709551615", "is not a whole number"),
                                         ("--seed", "18446744073709551616", "is too large"),
                                         ("--concurrency", "1,,4", "'1,,4' has an empty item"),
                                         ("--concurrency", "4,", "'4,' has an empty item"),
                                         ("--concurrency", "1,4,4", "4 is given twice"),
                                         ("--concurrency", "0x10", "'0x10' is not a whole number"),
                                         ("--concurrency", "4097", "4097"),
                                         ("--lanes", "auto,0", "auto is given twice"),
                                         ("--lanes", "1,two", "'two' is not a whole number"),
                                         ("--spinning", "sometimes", "sometimes")):
            with self.subTest(option=option, value=value):
                self.usage_error(args + [option, value], option, fragment)
        self.usage_error(args + ["-c", "2", "-c", "1,2"], "--concurrency", "2 is given twice")


class SettingsTest(ToolTestCase):
    def test_version_help_and_usage_errors(self):
        self.assertRegex(self.succeed("--version").stdout, r"^kivml \d+\.\d+\.\d+ \(ONNX Runtime ")
        for command in ("info", "run", "bench"):
            self.assertIn("--settings FILE", self.succeed(command, "--help").stdout)
        for args in ([], ["frobnicate"], ["run"], ["bench", model("add"), "--concurrency", "0"], ["bench", model("add"), "--batched", "--both"]):
            self.assertEqual(self.kivml(*args).returncode, 2, args)

    def test_trace_goes_to_stderr(self):
        result = self.succeed("info", model("add"), "--trace", "*=9")
        self.assertIn("[kivmachinelearning:", result.stderr)
        self.assertNotIn("[kivmachinelearning:", result.stdout)
        # The GPU set-up's messages end their own line: one line each, no blank lines between.
        a = self.save("a.npy", np.ones((1, 3), np.float32))
        gpu = self.succeed("run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a, "--gpu",
                           "--output-dir", self.dir, "--trace", "kivmachinelearning=7")
        self.assertIn("[kivmachinelearning:", gpu.stderr)
        self.assertNotIn("\n\n", gpu.stderr.replace("\r", ""))

    def test_profile_and_settings_file(self):
        settings = os.path.join(self.dir, "settings.txt")
        with open(settings, "w") as file:
            file.write("# profiled through the file\nKIVSE.ORT.ProfileModels = true\n")
        a = self.save("a.npy", np.ones((1, 3), np.float32))
        self.succeed("run", model("add"), "-i", "input1=" + a, "-i", "input2=" + a, "--settings", settings)
        self.assertTrue(any(name.startswith("profile_add") for name in os.listdir(self.dir)), os.listdir(self.dir))

    def test_malformed_settings(self):
        self.fail_with(["info", model("add"), "--set", "novalue"], "expected KEY=VALUE")
        self.fail_with(["info", model("add"), "--settings", "absent.txt"], "cannot read the settings file")
        self.fail_with(["info", model("add"), "--trace", "nonsense"], "--trace")

    def test_values_the_library_would_misread(self):
        info = ["info", model("add")]
        for entry, fragment in (("kivml.BatchSizeMultiplier=abc", "BatchSizeMultiplier takes a whole number, not 'abc'"),
                                ("kivml.PredictionLanes=auto", "PredictionLanes takes a whole number, not 'auto'"),
                                ("kivml.AllowSpinning=1", "AllowSpinning takes true or false, not '1'"),
                                ("kivml.RetryFailedBatchRows=no", "RetryFailedBatchRows takes true, false, 1 or 0, not 'no'"),
                                ("kivml.IdleSpinMicroseconds=-5", "IdleSpinMicroseconds takes a whole number, not '-5'"),
                                ("KIVSE.ORT.ProfileModels=yes", "ProfileModels takes true or false, not 'yes'"),
                                ("=4", "expected KEY=VALUE")):
            with self.subTest(entry=entry):
                self.fail_with(info + ["--set", entry], "--set '" + entry + "'", fragment)

    def test_settings_file_lines_are_checked(self):
        settings = os.path.join(self.dir, "settings.txt")
        info = ["info", model("add"), "--settings", settings]
        for text, line, fragment in (("# comment\n\ngarbage\n", 3, "expected 'key = value', not 'garbage'"),
                                     ("kivml.BatchSizeMultiplier = 4\n = 3\n", 2, "the key before '=' is empty"),
                                     ("\ufeffkivml.IdleSpinMicroseconds = 1O0\r\n", 1,
                                      "kivml.IdleSpinMicroseconds takes a whole number, not '1O0'")):
            with self.subTest(text=text):
                with open(settings, "w", encoding="utf-8", newline="") as file:
                    file.write(text)
                self.fail_with(info, "--settings '%s' line %d: %s" % (settings, line, fragment))
        self.fail_with(["info", model("add"), "--settings", "absent.txt"], "'absent.txt': it does not exist")

    def test_unknown_keys_are_kept_with_a_warning(self):
        settings = os.path.join(self.dir, "settings.txt")
        with open(settings, "w") as file:
            file.write("  kivml.IdleSpinMicroseconds =  0 \nKIVSE.ORT.ProfileModels=false\nkivml.RetryFailedBatchRows = 0\n"
                       "kivml.PredictionLanes = 0\nkivml.AllowSpinning = true\n")
        result = self.succeed("info", model("add"), "--settings", settings, "--set", "kivml.BatchSizeMultiplier=4")
        self.assertNotIn("warning", result.stderr)
        result = self.succeed("info", model("add"), "--set", "kivml.BatchSizeMultipler=4")
        self.assertIn("kivml: warning: --set 'kivml.BatchSizeMultipler=4': kivml reads no setting", result.stderr)


if __name__ == "__main__":
    if not (os.environ.get("KIVML_TOOL") and TEST_MODELS and TOOL_MODELS):
        raise SystemExit("set KIVML_TOOL, KIVML_TEST_MODELS and KIVML_TOOL_MODELS")
    unittest.main()
