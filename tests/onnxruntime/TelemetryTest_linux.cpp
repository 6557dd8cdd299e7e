// ONNX Runtime's telemetry client keeps an event database under the user's cache folder and files in the
// temp folder. Running a model through the library must leave neither behind. (Telemetry on Windows
// takes other paths.)

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "onnxruntime/ORTEnvironment.h"
#include "onnxruntime/OrtTestSupport.h"

namespace kivml::testing {
namespace {

// Everything under `folder`, as text for a failure message; empty when there is nothing.
std::string ListFiles(const std::filesystem::path& folder) {
  std::string files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    files += entry.path().string() + "\n";
  }
  return files;
}

TEST(Telemetry, RunningAModelLeavesNoTelemetryFiles) {
  if (ort::ORTEnvironment::Get() != nullptr || std::getenv("ORT_DISABLE_TELEMETRY") != nullptr) {
    GTEST_SKIP() << "needs a process of its own without ORT_DISABLE_TELEMETRY (ctest runs it so)";
  }
  // Fresh home and temp folders, in place before ONNX Runtime's environment reads them.
  std::string pattern = (std::filesystem::temp_directory_path() / "kivml-telemetry-XXXXXX").string();
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  const std::filesystem::path scratch(pattern);
  const auto home = scratch / "home";
  const auto temp = scratch / "tmp";
  std::filesystem::create_directories(home);
  std::filesystem::create_directories(temp);
  setenv("HOME", home.c_str(), 1);
  setenv("TMPDIR", temp.c_str(), 1);
  unsetenv("XDG_CACHE_HOME");

  ASSERT_TRUE(kivcore::config::RunInitializers());
  auto future = CreatePreferredEvaluator(CreateONNXModelFromFile(TestModelPath("add")), kUnbatchedInference);
  ASSERT_EQ(ResultOf(future), 0) << MessageOf(future);
  auto outputs = future.Get()->QueueFeatures(MakeInputs(
      {{"input1", MakeTensor<float>({1, 3}, {1, 2, 3})}, {"input2", MakeTensor<float>({1, 3}, {1, 2, 3})}}));
  ASSERT_EQ(ResultOf(outputs), 0) << MessageOf(outputs);

  const std::string homeFiles = ListFiles(home);
  const std::string tempFiles = ListFiles(temp);
  std::filesystem::remove_all(scratch);
  EXPECT_STREQ(std::getenv("ORT_DISABLE_TELEMETRY"), "1");
  EXPECT_EQ(homeFiles, "");
  EXPECT_EQ(tempFiles, "");
}

}  // namespace
}  // namespace kivml::testing
