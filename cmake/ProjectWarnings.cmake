# Strict warnings for the project's own targets; third-party headers come in
# through imported targets and are treated as system headers.
function(qdx_project_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
    -Wnon-virtual-dtor -Woverloaded-virtual -Wno-unused-parameter -Werror)
endfunction()

# Adds a GoogleTest executable from the given sources and registers its cases
# with CTest so they run in parallel.
function(qdx_add_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main GTest::gmock)
  qdx_project_warnings(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600)
endfunction()
