# kiv_add_test_programs(<prefix> <tests-dir> LINK <libraries>... [SKIP <areas>...]): one GoogleTest program,
# <prefix>_<area>_tests, per directory of <tests-dir> that holds sources, so that each area's suite builds
# and runs on its own. The programs find <tests-dir> on their include path (for shared test support).
function(kiv_add_test_programs prefix tests_dir)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "LINK;SKIP")
  file(GLOB areas LIST_DIRECTORIES true "${tests_dir}/*")
  foreach(area_dir IN LISTS areas)
    get_filename_component(area "${area_dir}" NAME)
    if(NOT IS_DIRECTORY "${area_dir}" OR area IN_LIST arg_SKIP)
      continue()
    endif()
    kiv_collect_sources(area_sources "${area_dir}")
    if(NOT area_sources)
      continue()
    endif()
    set(target ${prefix}_${area}_tests)
    add_executable(${target} ${area_sources})
    target_link_libraries(${target} PRIVATE ${arg_LINK} GTest::gtest GTest::gtest_main)
    target_include_directories(${target} PRIVATE "${tests_dir}")
    kiv_target_options(${target})
    # Listing the tests runs the program, which under Wine (the Windows build) can take seconds.
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 300)
  endforeach()
endfunction()
