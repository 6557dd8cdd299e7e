#pragma once
// A file named by a directory and a wide name. An immutable value: copies are independent and const use
// from any number of threads is safe. Nothing is checked on construction; the file need not exist.

#include "kivcore/filesupport/Dir.h"
#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::filesupport {

class KIVCORE_EXPORT File {
 public:
  File() = default;
  File(const Dir& dir, const wstring& name);

  wstring FullPath() const { return mPath; }
  // Whether a regular file exists at the path.
  bool Exists() const;

  friend bool operator==(const File&, const File&) = default;

 private:
  wstring mPath;
};

}  // namespace kivcore::filesupport
