# Install rules and package config files, so that a host finds the libraries with
#   find_package(kivcore CONFIG)  ->  kivcore::kivcore
#   find_package(kivml CONFIG)    ->  kivml::kivmachinelearning (brings kivcore along)
# ONNX Runtime, when it came from the cache or KIV_ONNXRUNTIME_ROOT, is installed beside our libraries,
# which find it there through an $ORIGIN run path.
include(CMakePackageConfigHelpers)

set(KIV_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake")
# Kept in step with find_package(Boost) in the top CMakeLists.txt.
set(KIV_BOOST_MIN_VERSION 1.74)

if(NOT WIN32 AND NOT APPLE)
  set_target_properties(kivcore kivmachinelearning PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

# kiv_install_package(<package> <target> <source-include-dir> <generated-include-dir> [<more targets>...])
function(kiv_install_package package target source_include generated_include)
  install(TARGETS ${target} ${ARGN} EXPORT ${package}Targets
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
  install(DIRECTORY "${source_include}" "${generated_include}"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp" PATTERN "*.inl")
  install(EXPORT ${package}Targets NAMESPACE ${package}::
    DESTINATION "${KIV_INSTALL_CMAKEDIR}/${package}")

  set(config_dir "${PROJECT_BINARY_DIR}/package/${package}")
  configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/${package}Config.cmake.in"
    "${config_dir}/${package}Config.cmake"
    INSTALL_DESTINATION "${KIV_INSTALL_CMAKEDIR}/${package}")
  write_basic_package_version_file("${config_dir}/${package}ConfigVersion.cmake"
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
  install(FILES "${config_dir}/${package}Config.cmake" "${config_dir}/${package}ConfigVersion.cmake"
    DESTINATION "${KIV_INSTALL_CMAKEDIR}/${package}")
endfunction()

kiv_install_package(kivcore kivcore
  "${PROJECT_SOURCE_DIR}/kivcore/include/kivcore" "${PROJECT_BINARY_DIR}/kivcore/include/kivcore")
kiv_install_package(kivml kivmachinelearning
  "${PROJECT_SOURCE_DIR}/include/kivml" "${PROJECT_BINARY_DIR}/include/kivml" kiv_graphics)

if(KIV_ONNXRUNTIME_RUNTIME_FILES)
  set(_kiv_ort_permissions OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  if(WIN32)
    install(FILES ${KIV_ONNXRUNTIME_RUNTIME_FILES} DESTINATION "${CMAKE_INSTALL_BINDIR}"
      PERMISSIONS ${_kiv_ort_permissions})
  else()
    # Installed under its soname, the name our libraries record.
    install(FILES ${KIV_ONNXRUNTIME_RUNTIME_FILES} DESTINATION "${CMAKE_INSTALL_LIBDIR}"
      RENAME "${KIV_ONNXRUNTIME_SONAME}" PERMISSIONS ${_kiv_ort_permissions})
  endif()
endif()

# MinGW programs load its C++ runtime DLLs, which a Windows machine does not have.
if(KIV_MINGW_RUNTIME_FILES)
  install(FILES ${KIV_MINGW_RUNTIME_FILES} DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()
