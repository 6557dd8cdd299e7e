# Warning and sanitizer flags for the project's own targets (never applied to dependencies).

function(kiv_target_options target)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                             -Wold-style-cast -Wcast-align -Woverloaded-virtual -Wnull-dereference)
    if(KIV_WARNINGS_AS_ERRORS)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
      # The recycler's operator delete takes the size; clang before 19 leaves sized deallocation off.
      target_compile_options(${target} PRIVATE -fsized-deallocation)
      if(KIV_THREAD_SAFETY_ANALYSIS)
        # Not -Wthread-safety-negative: it wants every function that locks to declare the mutex not held,
        # which a re-entrant mutex (RecursiveMutex) does not need.
        target_compile_options(${target} PRIVATE -Wthread-safety -Wthread-safety-beta)
      endif()
    endif()
  elseif(MSVC)
    target_compile_options(${target} PRIVATE /W4 /permissive-)
    if(KIV_WARNINGS_AS_ERRORS)
      target_compile_options(${target} PRIVATE /WX)
    endif()
  endif()
endfunction()

if(KIV_THREAD_SAFETY_ANALYSIS AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "KIV_THREAD_SAFETY_ANALYSIS needs clang (CMAKE_CXX_COMPILER=clang++)")
endif()

if(KIV_SANITIZE STREQUAL "address")
  # No vptr check: Direct3D 12 objects from vkd3d are C structs laid out as COM interfaces, without the C++
  # type information the check reads, so it would fire on every COM call.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=undefined
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(KIV_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT KIV_SANITIZE STREQUAL "")
  message(FATAL_ERROR "KIV_SANITIZE must be empty, 'address' or 'thread', not '${KIV_SANITIZE}'")
endif()
