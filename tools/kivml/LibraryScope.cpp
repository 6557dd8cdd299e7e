#include "LibraryScope.h"

#include "ToolError.h"
#include "kivcore/config/InitializerRegistrar.h"

namespace kivml::cli {

LibraryScope::LibraryScope() {
  if (!kivcore::config::RunInitializers()) {
    kivcore::config::RunShutdown();  // the ones that did run
    throw ToolError("the kivml library failed to initialise (its log above says why)");
  }
}

LibraryScope::~LibraryScope() {
  kivcore::config::RunShutdown();
}

}  // namespace kivml::cli
