# ONNX Runtime as the imported target onnxruntime::onnxruntime. Looked for, in order:
#   1. KIV_ONNXRUNTIME_ROOT, a directory with include/ and lib/ (our cache layout or an ORT release);
#   2. the cache that scripts/fetch_onnxruntime.sh fills (third_party/cache/onnxruntime-<version>);
#   3. a system install.
# Sets KIV_ONNXRUNTIME_SOURCE (root, cache or system), KIV_ONNXRUNTIME_VERSION when the version is known,
# and KIV_ONNXRUNTIME_RUNTIME_FILES, the files to ship beside our libraries (empty for a system install).
# Always link the library that will be loaded at run time: its exported symbols are versioned
# (VERS_<version>), so a binary linked against one release does not load with another.

set(KIV_ONNXRUNTIME_ROOT "" CACHE PATH "ONNX Runtime to build against (a directory with include/ and lib/)")
# Kept in step with scripts/fetch_onnxruntime.sh.
set(KIV_ONNXRUNTIME_CACHE_VERSION 1.30.0)
set(KIV_ONNXRUNTIME_CACHE_DIR "${PROJECT_SOURCE_DIR}/third_party/cache/onnxruntime-${KIV_ONNXRUNTIME_CACHE_VERSION}")

# The cache holds x64 binaries only; the subdirectory names follow the platform being built for, so a
# MinGW cross build (CMAKE_SYSTEM_NAME Windows) picks bin/win-x64 from the same cache.
set(_kiv_ort_x64 FALSE)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|x64)$")
  set(_kiv_ort_x64 TRUE)
endif()
if(WIN32)
  set(_kiv_ort_platform win-x64)
else()
  set(_kiv_ort_platform linux-x64)
endif()

# _kiv_ort_search(<root>): looks in <root> only; leaves _kiv_ort_include and _kiv_ort_library.
function(_kiv_ort_search root)
  find_path(_kiv_ort_include_found onnxruntime_c_api.h
    HINTS "${root}" PATH_SUFFIXES include include/onnxruntime NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH NO_CACHE)
  if(WIN32)
    # The runtime DLL; how to link against it is settled below.
    find_file(_kiv_ort_library_found onnxruntime.dll
      HINTS "${root}" PATH_SUFFIXES "bin/${_kiv_ort_platform}" bin lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH NO_CACHE)
  else()
    find_library(_kiv_ort_library_found onnxruntime
      HINTS "${root}" PATH_SUFFIXES "lib/${_kiv_ort_platform}" lib lib64 NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH NO_CACHE)
  endif()
  set(_kiv_ort_include "${_kiv_ort_include_found}" PARENT_SCOPE)
  set(_kiv_ort_library "${_kiv_ort_library_found}" PARENT_SCOPE)
endfunction()

set(_kiv_ort_include "")
set(_kiv_ort_library "")
set(KIV_ONNXRUNTIME_VERSION "")
if(KIV_ONNXRUNTIME_ROOT)
  _kiv_ort_search("${KIV_ONNXRUNTIME_ROOT}")
  if(NOT _kiv_ort_include OR NOT _kiv_ort_library)
    message(FATAL_ERROR
      "KIV_ONNXRUNTIME_ROOT=${KIV_ONNXRUNTIME_ROOT} has no ONNX Runtime: expected include/onnxruntime_c_api.h "
      "and lib/ (or lib/${_kiv_ort_platform}/) with the onnxruntime library.")
  endif()
  set(KIV_ONNXRUNTIME_SOURCE root)
  # ORT release archives carry VERSION_NUMBER, and so does our cache; failing that, a versioned file name.
  file(REAL_PATH "${_kiv_ort_library}" _kiv_ort_library_file)
  if(EXISTS "${KIV_ONNXRUNTIME_ROOT}/VERSION_NUMBER")
    file(STRINGS "${KIV_ONNXRUNTIME_ROOT}/VERSION_NUMBER" KIV_ONNXRUNTIME_VERSION LIMIT_COUNT 1)
  elseif(_kiv_ort_library_file MATCHES "\\.so\\.([0-9]+\\.[0-9]+\\.[0-9]+)$")
    set(KIV_ONNXRUNTIME_VERSION "${CMAKE_MATCH_1}")
  endif()
elseif(_kiv_ort_x64 AND EXISTS "${KIV_ONNXRUNTIME_CACHE_DIR}/.fetched")
  _kiv_ort_search("${KIV_ONNXRUNTIME_CACHE_DIR}")
  if(_kiv_ort_include AND _kiv_ort_library)
    set(KIV_ONNXRUNTIME_SOURCE cache)
    set(KIV_ONNXRUNTIME_VERSION "${KIV_ONNXRUNTIME_CACHE_VERSION}")
  endif()
endif()
if(NOT _kiv_ort_include OR NOT _kiv_ort_library)
  find_path(_kiv_ort_system_include onnxruntime_c_api.h PATH_SUFFIXES onnxruntime NO_CACHE)
  find_library(_kiv_ort_system_library onnxruntime NO_CACHE)
  if(NOT _kiv_ort_system_include OR NOT _kiv_ort_system_library)
    message(FATAL_ERROR
      "ONNX Runtime not found. Run scripts/bootstrap.sh to fetch ONNX Runtime ${KIV_ONNXRUNTIME_CACHE_VERSION} "
      "into ${KIV_ONNXRUNTIME_CACHE_DIR}, or point -DKIV_ONNXRUNTIME_ROOT=<dir> at an ONNX Runtime with "
      "include/ and lib/.")
  endif()
  set(_kiv_ort_include "${_kiv_ort_system_include}")
  set(_kiv_ort_library "${_kiv_ort_system_library}")
  set(KIV_ONNXRUNTIME_SOURCE system)
endif()

file(REAL_PATH "${_kiv_ort_library}" _kiv_ort_library_file)
add_library(onnxruntime::onnxruntime SHARED IMPORTED GLOBAL)
set_target_properties(onnxruntime::onnxruntime PROPERTIES
  IMPORTED_LOCATION "${_kiv_ort_library_file}"
  INTERFACE_INCLUDE_DIRECTORIES "${_kiv_ort_include}")
if(WIN32)
  # MSVC needs the onnxruntime.lib import library of an ORT release (set KIV_ONNXRUNTIME_IMPLIB); GNU ld
  # (MinGW) links against the DLL itself, so that is the default there.
  set(KIV_ONNXRUNTIME_IMPLIB "" CACHE FILEPATH "Import library for onnxruntime.dll (MinGW can use the DLL)")
  if(KIV_ONNXRUNTIME_IMPLIB)
    set_target_properties(onnxruntime::onnxruntime PROPERTIES IMPORTED_IMPLIB "${KIV_ONNXRUNTIME_IMPLIB}")
  elseif(MINGW)
    set_target_properties(onnxruntime::onnxruntime PROPERTIES IMPORTED_IMPLIB "${_kiv_ort_library_file}")
  else()
    message(FATAL_ERROR "Set KIV_ONNXRUNTIME_IMPLIB to the onnxruntime.lib matching ${_kiv_ort_library_file}.")
  endif()
  # Everything in the DLL's folder ships with it (DirectML.dll and the shader compiler DLLs).
  get_filename_component(_kiv_ort_bin_dir "${_kiv_ort_library_file}" DIRECTORY)
  file(GLOB KIV_ONNXRUNTIME_RUNTIME_FILES "${_kiv_ort_bin_dir}/*.dll")
else()
  # The soname is what binaries record and what the installed copy must be called.
  get_filename_component(_kiv_ort_file_name "${_kiv_ort_library_file}" NAME)
  if(_kiv_ort_file_name MATCHES "^(libonnxruntime\\.so\\.[0-9]+)")
    set_target_properties(onnxruntime::onnxruntime PROPERTIES IMPORTED_SONAME "${CMAKE_MATCH_1}")
    set(KIV_ONNXRUNTIME_SONAME "${CMAKE_MATCH_1}")
  else()
    set(KIV_ONNXRUNTIME_SONAME "${_kiv_ort_file_name}")
  endif()
  set(KIV_ONNXRUNTIME_RUNTIME_FILES "${_kiv_ort_library_file}")
endif()
if(KIV_ONNXRUNTIME_SOURCE STREQUAL "system")
  set(KIV_ONNXRUNTIME_RUNTIME_FILES "")
endif()

if(KIV_ONNXRUNTIME_VERSION)
  message(STATUS "ONNX Runtime ${KIV_ONNXRUNTIME_VERSION} (${KIV_ONNXRUNTIME_SOURCE}): ${_kiv_ort_library_file}")
else()
  message(STATUS "ONNX Runtime, version unknown (${KIV_ONNXRUNTIME_SOURCE}): ${_kiv_ort_library_file}")
endif()
