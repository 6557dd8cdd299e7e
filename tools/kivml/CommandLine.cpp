#include "CommandLine.h"

#include <iostream>

#include "BenchCommand.h"
#include "CLI11Include.h"
#include "Formatting.h"
#include "InfoCommand.h"
#include "LibraryScope.h"
#include "RunCommand.h"
#include "Settings.h"
#include "ToolError.h"

#include <onnxruntime_c_api.h>

namespace kivml::cli {

namespace {

constexpr int kFailure = 1;
constexpr int kUsageError = 2;

std::string VersionText() {
  return std::string("kivml ") + KIVML_TOOL_VERSION + " (ONNX Runtime " +
         OrtGetApiBase()->GetVersionString() + ")";
}

}  // namespace

int CommandLine::Run(int argc, char** argv) const {
  CLI::App app("Runs, describes and benchmarks ONNX models through the kivml library.", "kivml");
  app.set_version_flag("--version", VersionText());
  app.require_subcommand(1);
  // On Windows CLI11 would take "/path/model.onnx" for a "/option"; every option here is spelled "--".
  app.allow_windows_style_options(false);

  Settings settings;
  InfoCommand info;
  RunCommand run;
  BenchCommand bench;
  CLI::App* infoCommand = info.Register(app);
  CLI::App* runCommand = run.Register(app);
  CLI::App* benchCommand = bench.Register(app);
  for (CLI::App* command : {infoCommand, runCommand, benchCommand}) {
    settings.AddOptions(*command);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsageError;
  }

  try {
    settings.Apply();
    const LibraryScope library;
    try {
      if (infoCommand->parsed()) {
        return info.Execute();
      }
      if (runCommand->parsed()) {
        return run.Execute();
      }
      return bench.Execute(settings.Arguments());
    } catch (const ToolError&) {
      throw;
    } catch (...) {
      // Described before the library shuts down: its result-code translators go with it.
      throw ToolError(DescribeFailure(std::current_exception()));
    }
  } catch (const ToolError& error) {
    // Messages carry names from models and files.
    std::cerr << "kivml: error: " << EscapeControlCharacters(error.what()) << '\n';
  }
  return kFailure;
}

}  // namespace kivml::cli
