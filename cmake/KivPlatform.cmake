# Platform seams live in files named *_linux.cpp / *_windows.cpp beside the portable code;
# kiv_platform_sources() keeps only the ones for the platform being built.
if(WIN32)
  set(KIV_PLATFORM_SUFFIX "_windows")
  set(KIV_OTHER_PLATFORM_SUFFIX "_linux")
else()
  set(KIV_PLATFORM_SUFFIX "_linux")
  set(KIV_OTHER_PLATFORM_SUFFIX "_windows")
endif()

# kiv_collect_sources(<out-var> <dir>...): every .cpp under the directories, minus the other platform's seams.
function(kiv_collect_sources out)
  set(files "")
  foreach(dir IN LISTS ARGN)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS "${dir}/*.cpp")
    list(APPEND files ${found})
  endforeach()
  list(FILTER files EXCLUDE REGEX "${KIV_OTHER_PLATFORM_SUFFIX}\\.cpp$")
  list(SORT files)
  set(${out} ${files} PARENT_SCOPE)
endfunction()
