# Dependencies of a cross build (MinGW for Windows on Linux) that the target sysroot lacks. The header-only
# ones (Boost, CLI11, nlohmann/json) are taken from the build machine through a folder that holds only
# them, so that the build machine's C library headers never shadow the target's. GoogleTest is built from
# the sources Debian ships. Google Benchmark is not built for the target.

set(KIV_HOST_INCLUDE_DIR /usr/include CACHE PATH "Build machine's header folder with boost/, CLI/ and nlohmann/")
set(KIV_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources to build for the target")

set(_kiv_host_headers "${PROJECT_BINARY_DIR}/host-headers")
file(MAKE_DIRECTORY "${_kiv_host_headers}")
foreach(dir boost CLI nlohmann)
  if(NOT EXISTS "${KIV_HOST_INCLUDE_DIR}/${dir}")
    message(FATAL_ERROR "Cross build: ${KIV_HOST_INCLUDE_DIR}/${dir} is missing (scripts/bootstrap.sh installs it)")
  endif()
  file(CREATE_LINK "${KIV_HOST_INCLUDE_DIR}/${dir}" "${_kiv_host_headers}/${dir}" SYMBOLIC)
endforeach()

add_library(Boost::headers INTERFACE IMPORTED GLOBAL)
target_include_directories(Boost::headers SYSTEM INTERFACE "${_kiv_host_headers}")
add_library(CLI11::CLI11 INTERFACE IMPORTED GLOBAL)
target_include_directories(CLI11::CLI11 SYSTEM INTERFACE "${_kiv_host_headers}")
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED GLOBAL)
target_include_directories(nlohmann_json::nlohmann_json SYSTEM INTERFACE "${_kiv_host_headers}")
set(Boost_FOUND TRUE)
set(CLI11_FOUND TRUE)
set(nlohmann_json_FOUND TRUE)

if(KIV_BUILD_TESTS)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  add_subdirectory("${KIV_GTEST_SOURCE_DIR}" "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  set(GTest_FOUND TRUE)
endif()
