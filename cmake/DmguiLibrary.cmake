# dmgui_add_library(<name> SOURCES ... HEADERS ... [PUBLIC_DEPS ...] [PRIVATE_DEPS ...])
#
# One shared library per platform library and one for libDataModelGUI. Headers are included from the
# repository root ("platform/base/reference.h"), so the root is the public include directory. Every
# public header is recorded so that the header test can compile each one on its own.
function(dmgui_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;PUBLIC_DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} SHARED ${ARG_SOURCES} ${ARG_HEADERS})
  add_library(dmgui::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  if(ARG_PUBLIC_DEPS)
    target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_DEPS})
  endif()
  if(ARG_PRIVATE_DEPS)
    target_link_libraries(${name} PRIVATE ${ARG_PRIVATE_DEPS})
  endif()
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  # Recorded for the layering test: the library's folder, its public headers and the libraries of
  # ours it links, so it can tell an include across libraries that CMake does not allow.
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set_property(GLOBAL APPEND PROPERTY DMGUI_LIBRARY_LINES "library ${name} ${folder}")
  foreach(kind IN ITEMS PUBLIC PRIVATE)
    foreach(dep IN LISTS ARG_${kind}_DEPS)
      if(dep MATCHES "^dmgui::(.+)$")
        string(TOLOWER ${kind} word)
        set_property(GLOBAL APPEND PROPERTY DMGUI_LIBRARY_LINES "${word} ${name} ${CMAKE_MATCH_1}")
      endif()
    endforeach()
  endforeach()
  foreach(header IN LISTS ARG_HEADERS)
    get_filename_component(absolute ${header} ABSOLUTE)
    file(RELATIVE_PATH relative ${PROJECT_SOURCE_DIR} ${absolute})
    set_property(GLOBAL APPEND PROPERTY DMGUI_PUBLIC_HEADERS "${relative}|${name}")
    set_property(GLOBAL APPEND PROPERTY DMGUI_LIBRARY_LINES "header ${name} ${relative}")
  endforeach()
endfunction()

# dmgui_write_library_manifest(<file>)
# Writes what dmgui_add_library recorded, one fact a line. Call it once every library is declared
# (deferred to the end of the top-level directory), so libraries added later are covered too.
function(dmgui_write_library_manifest file)
  get_property(lines GLOBAL PROPERTY DMGUI_LIBRARY_LINES)
  list(JOIN lines "\n" content)
  set(content "${content}\n")
  if(EXISTS "${file}")
    file(READ "${file}" old)
  else()
    set(old "")
  endif()
  if(NOT old STREQUAL content)
    file(WRITE "${file}" "${content}")
  endif()
endfunction()

# dmgui_add_test(<name> SOURCES ... LIBS ... [LABELS ...]
#                [THIRD_PARTY_LEAKS <Suite.Case[:Suite.Case...]> <suppression file>])
# One GoogleTest executable; every test case in it becomes a ctest test of its own
# ("Suite.Case", "Instance/Suite.Case/Param"), so `ctest -R Signal` picks cases by name, and every
# case is labelled with its program (`ctest -L GeometryTests`).
# The cases are listed when ctest runs, not when the program links (cmake/DmguiDiscoverTests.cmake):
# a program that cannot list its cases then fails as one test with its output instead of breaking
# the build or the whole run, and the list is only taken again after the program changed.
# THIRD_PARTY_LEAKS names the only cases that run with the leak suppressions of `file` (leaks a
# third-party library makes on its own in what those cases drive); every other case runs without.
function(dmgui_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS;THIRD_PARTY_LEAKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main)
  set(labels ${name})
  if(ARG_LABELS)
    list(APPEND labels ${ARG_LABELS})
  endif()
  set(leak_cases "")
  set(leak_suppressions "")
  if(ARG_THIRD_PARTY_LEAKS)
    list(LENGTH ARG_THIRD_PARTY_LEAKS count)
    if(NOT count EQUAL 2)
      message(FATAL_ERROR "dmgui_add_test(${name}): THIRD_PARTY_LEAKS takes a list of cases and a suppression file")
    endif()
    list(GET ARG_THIRD_PARTY_LEAKS 0 leak_cases)
    list(GET ARG_THIRD_PARTY_LEAKS 1 leak_suppressions)
  endif()
  set(include_file "${CMAKE_CURRENT_BINARY_DIR}/${name}_include.cmake")
  set(ctest_file "${CMAKE_CURRENT_BINARY_DIR}/${name}_tests.cmake")
  file(GENERATE OUTPUT "${include_file}" CONTENT "\
if(EXISTS [==[$<TARGET_FILE:${name}>]==])
  include([==[${PROJECT_SOURCE_DIR}/cmake/DmguiDiscoverTests.cmake]==])
  dmgui_discover_tests(NAME ${name} PROGRAM [==[$<TARGET_FILE:${name}>]==] CTEST_FILE [==[${ctest_file}]==]
    SETTINGS [==[${include_file}]==] LABELS [==[${labels}]==]
    LEAK_CASES [==[${leak_cases}]==] LEAK_SUPPRESSIONS [==[${leak_suppressions}]==])
  include([==[${ctest_file}]==])
else()
  add_test([==[${name}.IsBuilt]==] [==[${name}-was-not-built]==])
endif()
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${include_file}")
endfunction()

# dmgui_add_benchmark(<name> SOURCES ... LIBS ...)
function(dmgui_add_benchmark name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} benchmark::benchmark benchmark::benchmark_main)
  set_property(GLOBAL APPEND PROPERTY DMGUI_BENCHMARKS ${name})
endfunction()
