#pragma once
// CLI11 for the files that declare options. GCC 12 reports a possible null dereference inside CLI11's
// inlined string splitting (a false positive in the library's code). The report is made where the code is
// inlined, in the including file, so the warning stays off for the rest of each file that includes this.

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wnull-dereference"
#endif

#include <CLI/CLI.hpp>
