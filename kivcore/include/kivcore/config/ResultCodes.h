#pragma once
// Result codes of the core runtime. A result code is a 32-bit signed int: negative is failure,
// zero and positive are success. Error codes are 0x80000000 | facility << 16 | index.

namespace kivcore {

constexpr bool ResultSucceeded(int result) noexcept {
  return result >= 0;
}

constexpr int MakeErrorCode(unsigned facility, unsigned index) noexcept {
  return static_cast<int>(0x80000000u | (facility << 16) | (index & 0xFFFFu));
}

namespace config {
inline constexpr unsigned kCoreFacility = 0x7865;

// Given to exceptions that carry no result code of their own (anything that is not a kiv_exception
// and has no registered translation, see ExtractResultFromException).
inline constexpr int eUnexpectedException = MakeErrorCode(kCoreFacility, 0x01);   // 0xF8650001
inline constexpr int eNullPtrException = MakeErrorCode(kCoreFacility, 0x02);      // 0xF8650002
inline constexpr int eLockTimeoutException = MakeErrorCode(kCoreFacility, 0x03);  // 0xF8650003
inline constexpr int eClassAlreadyRegistered = MakeErrorCode(kCoreFacility, 0x04);
inline constexpr int eInvalidArgument = MakeErrorCode(kCoreFacility, 0x05);
inline constexpr int eInitializerFailed = MakeErrorCode(kCoreFacility, 0x06);
inline constexpr int eBadAllocException = MakeErrorCode(kCoreFacility, 0x32);  // 0xF8650032
}  // namespace config

namespace async {
inline constexpr unsigned kFutureFacility = 0x7361;
inline constexpr int eBrokenPromise = MakeErrorCode(kFutureFacility, 0x01);         // 0xF3610001
inline constexpr int eFutureNotReady = MakeErrorCode(kFutureFacility, 0x02);        // 0xF3610002
inline constexpr int eExecutorIsTerminated = MakeErrorCode(kFutureFacility, 0x03);  // 0xF3610003
inline constexpr int eFutureIsCancelled = MakeErrorCode(kFutureFacility, 0x04);     // 0xF3610004
}  // namespace async

}  // namespace kivcore
