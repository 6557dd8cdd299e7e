# cmake -P driver of the package test; see CMakeLists.txt beside it.
foreach(var BUILD_DIR WORK_DIR CONSUMER_SOURCE_DIR GENERATOR CXX_COMPILER)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()

set(prefix "${WORK_DIR}/prefix")
set(consumer_build "${WORK_DIR}/build")
file(REMOVE_RECURSE "${WORK_DIR}")

function(run step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${step} failed (${result}):\n${output}")
  endif()
  set(run_output "${output}" PARENT_SCOPE)
endfunction()

set(config_args "")
if(CONFIG)
  set(config_args --config "${CONFIG}")
endif()
run(install "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}" ${config_args})
if(BUNDLED_ONNXRUNTIME AND NOT EXISTS "${prefix}/${BUNDLED_ONNXRUNTIME}")
  message(FATAL_ERROR "the install did not put ONNX Runtime at ${prefix}/${BUNDLED_ONNXRUNTIME}")
endif()

# One source including every installed header: each must compile from the installed tree alone.
file(GLOB_RECURSE installed_headers RELATIVE "${prefix}/include"
  "${prefix}/include/kivcore/*.h" "${prefix}/include/kivml/*.h")
list(SORT installed_headers)
set(headers_source "${WORK_DIR}/installed_headers.cpp")
set(includes "")
foreach(header IN LISTS installed_headers)
  string(APPEND includes "#include \"${header}\"\n")
endforeach()
file(WRITE "${headers_source}" "${includes}")

set(configure_args
  -S "${CONSUMER_SOURCE_DIR}" -B "${consumer_build}" -G "${GENERATOR}"
  "-DCMAKE_BUILD_TYPE=${CONFIG}"
  "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
  "-DCMAKE_PREFIX_PATH=${prefix}"
  # Only the scratch prefix may satisfy find_package(kivml), never a registry entry for the build tree.
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
  "-DCMAKE_CXX_FLAGS=${SANITIZE_FLAGS}"
  "-DCMAKE_EXE_LINKER_FLAGS=${SANITIZE_FLAGS}"
  "-DKIV_INSTALLED_HEADERS_SOURCE=${headers_source}")
if(MAKE_PROGRAM)
  list(APPEND configure_args "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}")
endif()
run(configure "${CMAKE_COMMAND}" ${configure_args})
run(build "${CMAKE_COMMAND}" --build "${consumer_build}" ${config_args})

find_program(host NAMES kiv_package_host PATHS "${consumer_build}" "${consumer_build}/${CONFIG}" NO_DEFAULT_PATH NO_CACHE)
if(NOT host)
  message(FATAL_ERROR "the host program was not built in ${consumer_build}")
endif()
run(host "${host}")
message(STATUS "host output:\n${run_output}")

if(NOT run_output MATCHES "guid E3834F7C-735B-473D-A10E-70C3987A25D1\n")
  message(FATAL_ERROR "the host did not round-trip its Guid through the installed kivcore")
endif()
# Our libraries, and ONNX Runtime once libkivmachinelearning depends on it, must load from the installed
# tree: a run path left pointing into the build tree would hide a broken install.
if(NOT CMAKE_HOST_WIN32)
  file(REAL_PATH "${prefix}" real_prefix)
  foreach(library kivcore kivmachinelearning onnxruntime)
    if(NOT run_output MATCHES "loaded ([^\n]*/lib${library}\\.so[^\n]*)")
      if(library STREQUAL "onnxruntime")
        continue()  # not a dependency yet while no kivml code calls into it (linked --as-needed)
      endif()
      message(FATAL_ERROR "lib${library} was not loaded by the host")
    endif()
    file(REAL_PATH "${CMAKE_MATCH_1}" loaded)
    string(FIND "${loaded}" "${real_prefix}/" at)
    if(NOT at EQUAL 0)
      message(FATAL_ERROR "lib${library} was loaded from ${loaded}, outside the installed tree ${real_prefix}")
    endif()
  endforeach()
endif()
