# Runs at ctest time (included from each test program's include file, see dmgui_add_test): lists the
# cases of one GoogleTest program and registers each as a ctest test. The list is kept in
# CTEST_FILE and taken again only when the program or its settings are newer than it.
#
# A program that cannot list its cases (a crash, a sanitizer report, a timeout) does not stop ctest:
# it becomes one failing test, <name>.ListsItsTests, that runs the listing again and shows its output,
# while every other program's cases still run.

set(DMGUI_DISCOVER_SCRIPT "${CMAKE_CURRENT_LIST_FILE}")

function(dmgui_discover_tests)
  cmake_parse_arguments(ARG "" "NAME;PROGRAM;CTEST_FILE;SETTINGS;LEAK_CASES;LEAK_SUPPRESSIONS" "LABELS" ${ARGN})
  set(marker "# cases listed")
  if(EXISTS "${ARG_CTEST_FILE}" AND "${ARG_CTEST_FILE}" IS_NEWER_THAN "${ARG_PROGRAM}"
     AND "${ARG_CTEST_FILE}" IS_NEWER_THAN "${ARG_SETTINGS}" AND "${ARG_CTEST_FILE}" IS_NEWER_THAN "${DMGUI_DISCOVER_SCRIPT}")
    file(STRINGS "${ARG_CTEST_FILE}" first LIMIT_COUNT 1)
    if(first STREQUAL marker)
      return()
    endif()
  endif()

  execute_process(COMMAND "${ARG_PROGRAM}" --gtest_list_tests
    TIMEOUT 120 RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  set(labels "${ARG_LABELS}")
  if(NOT status EQUAL 0)
    # Not marked as listed, so the next run tries again.
    file(WRITE "${ARG_CTEST_FILE}"
      "add_test([==[${ARG_NAME}.ListsItsTests]==] [==[${ARG_PROGRAM}]==] --gtest_list_tests)\n"
      "set_tests_properties([==[${ARG_NAME}.ListsItsTests]==] PROPERTIES LABELS [==[${labels}]==])\n")
    return()
  endif()

  string(REPLACE ":" ";" leak_cases "${ARG_LEAK_CASES}")
  set(script "${marker}\n")
  set(suite "")
  string(REPLACE "\n" ";" lines "${output}")
  foreach(line IN LISTS lines)
    # Drop gtest's comments (type and value parameters); our instances carry readable names.
    string(REGEX REPLACE " +#.*" "" line "${line}")
    if(line MATCHES "^  ([^ ]+)$")
      set(test "${CMAKE_MATCH_1}")
      if(suite STREQUAL "" OR suite MATCHES "^DISABLED_" OR test MATCHES "^DISABLED_")
        continue()
      endif()
      set(full "${suite}.${test}")
      string(APPEND script "add_test([==[${full}]==] [==[${ARG_PROGRAM}]==] [==[--gtest_filter=${full}]==] --gtest_brief=1)\n")
      string(APPEND script "set_tests_properties([==[${full}]==] PROPERTIES LABELS [==[${labels}]==]")
      list(FIND leak_cases "${full}" leak_case)  # (ctest scripts run under old policies: no IN_LIST)
      if(NOT leak_case EQUAL -1)
        string(APPEND script " ENVIRONMENT [==[LSAN_OPTIONS=suppressions=${ARG_LEAK_SUPPRESSIONS}:print_suppressions=0]==]")
      endif()
      string(APPEND script ")\n")
    elseif(line MATCHES "^([^ ]+)\\.$")
      set(suite "${CMAKE_MATCH_1}")
    else()
      # "Running main() from ..." and anything else the program prints first.
      set(suite "")
    endif()
  endforeach()
  file(WRITE "${ARG_CTEST_FILE}" "${script}")
endfunction()
