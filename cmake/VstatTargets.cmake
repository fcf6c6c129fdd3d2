# Helpers shared by every layer: one static library per folder, one GoogleTest binary per test folder.

# vstat_layer(NAME SOURCES ... DEPS ...): a static library whose headers are included as "layer/file.h".
function(vstat_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  if(ARG_SOURCES)
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  else()
    # A layer whose sources are not written yet still exists, so the layers above can name it.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} INTERFACE ${ARG_DEPS})
  endif()
endfunction()

# vstat_test(NAME SOURCES ... DEPS ... [LABELS ...] [RESOURCE_LOCK name] [FIXTURE name]): a
# GoogleTest binary registered test by test with CTest. Tests sharing a RESOURCE_LOCK never run at the same
# time (for example those that write the fixed report path); tests with a FIXTURE run after the CTest test
# that sets it up (for example the package build). Tests know where the built programs and the test data
# live through two definitions.
function(vstat_test name)
  cmake_parse_arguments(ARG "" "RESOURCE_LOCK;FIXTURE" "SOURCES;DEPS;LABELS" ${ARGN})
  if(NOT ARG_SOURCES)
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gtest_main Threads::Threads)
  target_compile_definitions(${name} PRIVATE
    VSTAT_BIN_DIR="${VSTAT_BIN_DIR}"
    VSTAT_TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/data")
  include(GoogleTest)
  set(properties TIMEOUT 120)
  if(ARG_LABELS)
    list(APPEND properties LABELS "${ARG_LABELS}")
  endif()
  if(ARG_RESOURCE_LOCK)
    list(APPEND properties RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
  endif()
  if(ARG_FIXTURE)
    list(APPEND properties FIXTURES_REQUIRED ${ARG_FIXTURE})
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()

# Sources of a folder, found at configure time (re-globbed when files are added).
macro(vstat_sources var)
  file(GLOB ${var} CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
endmacro()
