#pragma once
// A directory named by a wide path. An immutable value: copies are independent and const use from any
// number of threads is safe. Nothing is checked on construction; the directory need not exist.

#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::filesupport {

class KIVCORE_EXPORT Dir {
 public:
  Dir() = default;
  explicit Dir(const wstring& path);
  // `subdir` under `parent` (joined with the platform's separator; an absolute `subdir` stands alone).
  Dir(const Dir& parent, const wstring& subdir);

  const wstring& FullPath() const noexcept { return mPath; }
  bool Exists() const;

  friend bool operator==(const Dir&, const Dir&) = default;

 private:
  wstring mPath;
};

}  // namespace kivcore::filesupport
