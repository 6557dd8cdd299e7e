# Windows finds a program's DLLs in the program's own folder: every program and DLL of the build goes to
# bin/, and so do the DLLs they load that are not ours (ONNX Runtime with DirectML, and MinGW's C++
# runtime), so that tests and the tool run from the build tree.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(KIV_RUNTIME_OUTPUT_DIR "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")

set(KIV_WINDOWS_RUNTIME_FILES ${KIV_ONNXRUNTIME_RUNTIME_FILES})
if(MINGW)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${dll}
                    OUTPUT_VARIABLE _kiv_dll OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(IS_ABSOLUTE "${_kiv_dll}" AND EXISTS "${_kiv_dll}")
      list(APPEND KIV_WINDOWS_RUNTIME_FILES "${_kiv_dll}")
      list(APPEND KIV_MINGW_RUNTIME_FILES "${_kiv_dll}")
    endif()
  endforeach()
endif()
file(COPY ${KIV_WINDOWS_RUNTIME_FILES} DESTINATION "${KIV_RUNTIME_OUTPUT_DIR}")
