#pragma once
// Every debug-database key that the library and the kivml tool read, with its default and meaning.
// Hosts set them without recompiling through KIVCORE_DEBUG_SETTINGS or KIVCORE_DEBUG_FILE, or in code
// through kivcore::debug::DebugDatabase before the evaluator (or, where noted, the library) starts.
// The README's settings table is checked against this one.

#include <array>
#include <string_view>

namespace kivml::settings {

enum class SettingKind {
  kWholeNumber,  // decimal digits, blanks around them allowed
  kTrueOrFalse,  // on for exactly "true"
  kOnUnlessOff,  // off for "false" or "0", on otherwise
};

struct Setting {
  std::string_view key;
  std::string_view defaultValue;
  SettingKind kind;
  std::string_view meaning;
};

inline constexpr Setting kBatchSizeMultiplier{
    "kivml.BatchSizeMultiplier", "16", SettingKind::kWholeNumber,
    "Caps the batch size at 8 times this many rows; 0 keeps the default"};
inline constexpr Setting kProfileModels{
    "KIVSE.ORT.ProfileModels", "false", SettingKind::kTrueOrFalse,
    "Each model loaded afterwards writes an ONNX Runtime profile when its evaluator is destroyed"};
inline constexpr Setting kIdleSpinMicroseconds{
    "kivml.IdleSpinMicroseconds", "200", SettingKind::kWholeNumber,
    "How long an unbatched worker watches an empty queue before it sleeps; 0 sleeps at once"};
inline constexpr Setting kRetryFailedBatchRows{
    "kivml.RetryFailedBatchRows", "true", SettingKind::kOnUnlessOff,
    "The requests of a failed batch run again one by one, so only those that fail alone fail"};
inline constexpr Setting kPredictionLanes{
    "kivml.PredictionLanes", "1", SettingKind::kWholeNumber,
    "Predictions an evaluator may run at once when its host does not choose; 0 fits the machine"};
inline constexpr Setting kAllowSpinning{
    "kivml.AllowSpinning", "false", SettingKind::kTrueOrFalse,
    "ONNX Runtime's shared thread pools spin while idle, trading processor time for latency; read when "
    "the library initialises"};

inline constexpr std::array<Setting, 6> kAllSettings{kBatchSizeMultiplier,  kProfileModels,
                                                     kIdleSpinMicroseconds, kRetryFailedBatchRows,
                                                     kPredictionLanes,      kAllowSpinning};

}  // namespace kivml::settings
