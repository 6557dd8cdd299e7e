#pragma once
// `kivml info MODEL.onnx`: the model's inputs and outputs (element type, shape with its free dimensions),
// whether it can run batched, and its metadata.

#include <string>

namespace CLI {
class App;
}

namespace kivml::cli {

class InfoCommand {
 public:
  CLI::App* Register(CLI::App& app);
  int Execute() const;

 private:
  std::string mModel;
};

}  // namespace kivml::cli
