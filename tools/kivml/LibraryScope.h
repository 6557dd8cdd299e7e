#pragma once
// The library's initializers, run once the settings are in place, and their shutdown when the scope ends.
// Everything the command made through the library (models, evaluators) must be gone by then.

namespace kivml::cli {

class LibraryScope {
 public:
  // Throws ToolError when an initializer fails.
  LibraryScope();
  ~LibraryScope();
  LibraryScope(const LibraryScope&) = delete;
  LibraryScope& operator=(const LibraryScope&) = delete;
};

}  // namespace kivml::cli
