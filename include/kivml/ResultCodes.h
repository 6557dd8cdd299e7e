#pragma once
// Every result code a host can meet from this library, with where it comes from. 32-bit signed, negative
// for failure. The library's own errors are the facility base with the sign bit set and a small index in
// the low 16 bits (0x80000000 | eKIVML | index). Exceptions carry them (kivcore::kiv_exception::GetResult),
// and so do the futures they fail.

namespace kivml {

inline constexpr int eKIVML = 0x6D6C0000;  // the facility base; not itself an error

constexpr int MakeKIVMLError(unsigned index) noexcept {
  return static_cast<int>(0x80000000u | static_cast<unsigned>(eKIVML) | (index & 0xFFFFu));
}

// Request and model failures (0xED6C0001 to 0xED6C0005).
inline constexpr int eNoInputFeatures = MakeKIVMLError(1);         // a request carried no input features
inline constexpr int eBadFeatureDescriptions = MakeKIVMLError(2);  // the model's descriptions are unusable,
                                                                   // or an element type has no ONNX match
inline constexpr int eBadFeature = MakeKIVMLError(3);              // an input does not fit its description
inline constexpr int eInferenceFailure = MakeKIVMLError(4);        // the backend failed to run the model
inline constexpr int eModelExecutionTerminated =
    MakeKIVMLError(5);  // dropped: the evaluator's queue was cleared, or it went away

// The evaluator has no model session (0xED6C0007): no model or an empty payload at load, a second load, or
// a prediction or metadata call on an evaluator whose load failed.
inline constexpr int eNoSession = MakeKIVMLError(7);

// ONNX Runtime refused the GPU execution provider: this base plus ONNX Runtime's OrtErrorCode (0xED6C0100
// and up). The model then runs on the CPU; the code shows in traces and in the set-up failure.
inline constexpr int eGpuProviderRejected = MakeKIVMLError(0x100);
constexpr int MakeGpuProviderRejected(unsigned ortErrorCode) noexcept {
  return MakeKIVMLError(0x100u + ortErrorCode);
}

// No GPU adapter suits the GPU execution provider (0xF865001E); the model then runs on the CPU. Other GPU
// set-up failures carry the failing platform call's code (an HRESULT on Windows).
inline constexpr int eNoSuitableAdapter = static_cast<int>(0xF865001Eu);

// CreatePreferredEvaluator could make no evaluator: no evaluator class is registered, or it lacks the
// private interface (0xA00F0001).
inline constexpr int eNoEvaluator = static_cast<int>(0xA00F0001u);

// Codes of kivcore (kivcore/config/ResultCodes.h) that the library passes on as they are:
// - eNullPtrException (0xF8650002): CreatePreferredEvaluator was given no model;
// - eInvalidArgument (0xF8650005): an evaluator was started twice;
// - eBadAllocException (0xF8650032): memory ran out, or a GPU buffer or heap pool could not allocate;
// - the futures' own failures (0xF3610001 to 0xF3610004: broken promise, not ready, executor terminated,
//   cancelled);
// - eUnexpectedException (0xF8650001): a failure that carried no code of its own.

}  // namespace kivml
