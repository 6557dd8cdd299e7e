// Checks that the ONNX Runtime this build links is the one loaded at run time and that its function table
// matches the headers we compile against. No OrtEnv is created: that starts ORT's telemetry and logging.

#include <onnxruntime_c_api.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

namespace {

// The API version the library code requests.
constexpr uint32_t kUsedApiVersion = 16;

TEST(OrtLink, ServesTheApiVersionsWeCompileFor) {
  const OrtApiBase* base = OrtGetApiBase();
  ASSERT_NE(base, nullptr);
  EXPECT_NE(base->GetApi(kUsedApiVersion), nullptr);
  // Headers newer than the library would hand out a table with entries the library does not have.
  EXPECT_NE(base->GetApi(ORT_API_VERSION), nullptr)
      << "headers declare API " << ORT_API_VERSION << ", library is " << base->GetVersionString();
}

TEST(OrtLink, LoadedVersionIsTheOneBuiltAgainst) {
  const std::string_view version = OrtGetApiBase()->GetVersionString();
#ifdef KIV_EXPECTED_ORT_VERSION_PREFIX
  EXPECT_TRUE(version.starts_with(KIV_EXPECTED_ORT_VERSION_PREFIX))
      << "loaded " << version << ", built against " << KIV_EXPECTED_ORT_VERSION_PREFIX;
#else
  GTEST_SKIP() << "ONNX Runtime of unknown version (a system install); loaded " << version;
#endif
}

TEST(OrtLink, StatusRoundTripsThroughTheFunctionTable) {
  // Calls through three table slots: a shifted table layout shows up as wrong codes or text, or a crash.
  const OrtApi* api = OrtGetApiBase()->GetApi(kUsedApiVersion);
  ASSERT_NE(api, nullptr);
  OrtStatus* status = api->CreateStatus(ORT_INVALID_GRAPH, "link check");
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(api->GetErrorCode(status), ORT_INVALID_GRAPH);
  EXPECT_STREQ(api->GetErrorMessage(status), "link check");
  api->ReleaseStatus(status);
}

}  // namespace
