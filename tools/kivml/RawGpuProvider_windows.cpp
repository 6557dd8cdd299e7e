#include "RawOrtSession.h"

#include "ToolError.h"

namespace kivml::cli {

void AppendRawGpuProvider(Ort::SessionOptions& /*options*/) {
  throw ToolError("the raw GPU reference is not available on Windows yet");
}

}  // namespace kivml::cli
