#pragma once
// Result codes of the library: 32-bit signed, negative for failure. Each error is the facility base with
// the sign bit set and a small index in the low 16 bits (0x80000000 | eKIVML | index).

namespace kivml {

inline constexpr int eKIVML = 0x6D6C0000;

constexpr int MakeKIVMLError(unsigned index) noexcept {
  return static_cast<int>(0x80000000u | static_cast<unsigned>(eKIVML) | (index & 0xFFFFu));
}

inline constexpr int eNoInputFeatures = MakeKIVMLError(1);         // a request carried no input features
inline constexpr int eBadFeatureDescriptions = MakeKIVMLError(2);  // the model's descriptions are unusable
inline constexpr int eBadFeature = MakeKIVMLError(3);              // an input does not fit its description
inline constexpr int eInferenceFailure = MakeKIVMLError(4);        // the backend failed to run the model
inline constexpr int eModelExecutionTerminated =
    MakeKIVMLError(5);  // dropped: the evaluator's queue was cleared

}  // namespace kivml
