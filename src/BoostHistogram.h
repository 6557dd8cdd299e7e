#pragma once
// Boost.Histogram, as the library's statistics use it. Include it rather than Boost's headers: GCC 12
// with the sanitizers' instrumentation takes Boost.Histogram's index arrays for uninitialised, a false
// positive inside Boost's own code, which is compiled where its headers are first read.

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <boost/histogram/axis/integer.hpp>
#include <boost/histogram/axis/regular.hpp>
#include <boost/histogram/histogram.hpp>
#include <boost/histogram/indexed.hpp>
#include <boost/histogram/make_histogram.hpp>
#include <boost/histogram/multi_index.hpp>
#include <boost/histogram/storage_adaptor.hpp>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
