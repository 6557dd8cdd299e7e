#include "InfoCommand.h"

#include <algorithm>
#include <iostream>

#include "CLI11Include.h"
#include "Formatting.h"
#include "ModelSignature.h"
#include "ToolError.h"
#include "kivml/IMLEvaluatorMetadata.h"

namespace kivml::cli {

namespace {

void PrintFeatures(const char* title, const std::vector<FeatureSignature>& features) {
  std::cout << title << '\n';
  std::vector<std::vector<std::string>> rows;
  for (const FeatureSignature& feature : features) {
    rows.push_back({feature.name, feature.typeName, feature.DeclaredShapeText(),
                    feature.IsSupported() ? "one request: " + FormatShape(feature.requestShape)
                                          : "(not supported by kivml)"});
  }
  if (rows.empty()) {
    rows.push_back({"(none)"});
  }
  PrintColumns(std::cout, rows, "  ");
}

std::string BatchingText(const ModelSignature& signature) {
  if (!signature.SupportsBatching()) {
    return "not supported (not every input has a leading free dimension that every output follows)";
  }
  const FeatureSignature& first = signature.Inputs().front();
  const std::string& symbol = first.symbols.front();
  return "supported: the leading dimension" + (symbol.empty() ? std::string() : " " + symbol) +
         " is the batch; one request is one row";
}

std::vector<std::vector<std::string>> ReadMetadata(const ModelSignature& signature) {
  // One lane: the evaluator only answers questions about the model.
  const auto evaluator = signature.StartEvaluator(EvaluatorOptions(kUnbatchedInference, 1));
  const auto metadata = evaluator.Query<IMLEvaluatorMetadata>();
  std::vector<std::vector<std::string>> rows;
  if (!metadata) {
    return rows;
  }
  for (const auto& [key, value] : metadata->GetMetdata()) {
    rows.push_back({std::string(key.begin(), key.end()), "= " + std::string(value.begin(), value.end())});
  }
  std::sort(rows.begin(), rows.end());
  return rows;
}

}  // namespace

CLI::App* InfoCommand::Register(CLI::App& app) {
  CLI::App* command = app.add_subcommand("info", "Show a model's inputs, outputs, batching and metadata");
  command->add_option("model", mModel, "The ONNX model")->required()->type_name("MODEL.onnx");
  return command;
}

int InfoCommand::Execute() const {
  const ModelSignature signature = ModelSignature::Load(mModel, false);
  std::cout << "model: " << EscapeControlCharacters(signature.Path().string()) << '\n';
  PrintFeatures("inputs", signature.Inputs());
  PrintFeatures("outputs", signature.Outputs());
  std::cout << "batching: " << EscapeControlCharacters(BatchingText(signature)) << '\n';
  std::cout << "metadata\n";
  try {
    auto rows = ReadMetadata(signature);
    if (rows.empty()) {
      rows.push_back({"(none)"});
    }
    PrintColumns(std::cout, rows, "  ");
  } catch (const ToolError& error) {
    // The interface above is still worth having when the library cannot run the model.
    std::cout << "  (unavailable: " << EscapeControlCharacters(error.what()) << ")\n";
  }
  return 0;
}

}  // namespace kivml::cli
