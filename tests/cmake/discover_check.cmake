# Drives cmake/DmguiDiscoverTests.cmake with stand-in programs (shell scripts printing what a
# GoogleTest program prints) and checks the ctest script it writes.
#   cmake -DSOURCE_DIR=<repository> -DWORK_DIR=<scratch folder> -P discover_check.cmake
include("${SOURCE_DIR}/cmake/DmguiDiscoverTests.cmake")
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

function(expect_contains text pattern)
  string(FIND "${text}" "${pattern}" at)
  if(at EQUAL -1)
    message(SEND_ERROR "expected to find\n  ${pattern}\nin\n${text}")
  endif()
endfunction()
function(expect_lacks text pattern)
  string(FIND "${text}" "${pattern}" at)
  if(NOT at EQUAL -1)
    message(SEND_ERROR "did not expect\n  ${pattern}\nin\n${text}")
  endif()
endfunction()

set(settings "${WORK_DIR}/settings.cmake")
file(WRITE "${settings}" "")

# A program listing two suites, a disabled case and a value-parameterised case with its comment.
set(program "${WORK_DIR}/lister.sh")
file(WRITE "${program}" "#!/bin/sh
echo 'Running main() from gtest_main.cc'
echo 'Parser.'
echo '  ReleaseWithinClickTimeDeliversStartAndFinishBatch'
echo '  DISABLED_Slow'
echo 'MouseGestures/Scenario.'
echo '  GivesTheVerdicts/PressIsAPress  # GetParam() = 24-byte object <00-11>'
echo 'MeshImport.'
echo '  ATruncated3mfIsAnError'
")
file(CHMOD "${program}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
set(ctest_file "${WORK_DIR}/lister_tests.cmake")
dmgui_discover_tests(NAME Lister PROGRAM "${program}" CTEST_FILE "${ctest_file}" SETTINGS "${settings}"
  LABELS "Lister;extra" LEAK_CASES "MeshImport.ATruncated3mfIsAnError" LEAK_SUPPRESSIONS "/x/leaks.supp")
file(READ "${ctest_file}" listed)
expect_contains("${listed}" "# cases listed\n")
expect_contains("${listed}" "add_test([==[Parser.ReleaseWithinClickTimeDeliversStartAndFinishBatch]==] [==[${program}]==] [==[--gtest_filter=Parser.ReleaseWithinClickTimeDeliversStartAndFinishBatch]==] --gtest_brief=1)")
expect_contains("${listed}" "add_test([==[MouseGestures/Scenario.GivesTheVerdicts/PressIsAPress]==]")
expect_contains("${listed}" "PROPERTIES LABELS [==[Lister;extra]==])")
expect_contains("${listed}" "set_tests_properties([==[MeshImport.ATruncated3mfIsAnError]==] PROPERTIES LABELS [==[Lister;extra]==] ENVIRONMENT [==[LSAN_OPTIONS=suppressions=/x/leaks.supp:print_suppressions=0]==])")
expect_lacks("${listed}" "DISABLED_")
expect_lacks("${listed}" "GetParam")
expect_lacks("${listed}" "Running")
string(REGEX MATCHALL "add_test" added "${listed}")
list(LENGTH added count)
if(NOT count EQUAL 3)
  message(SEND_ERROR "expected 3 tests, got ${count}:\n${listed}")
endif()

# The list is kept while the program is older than it: a program that changed its output is not
# run again until it is rebuilt.
file(WRITE "${program}" "#!/bin/sh\nexit 3\n")
file(TOUCH_NOCREATE "${ctest_file}")
execute_process(COMMAND ${CMAKE_COMMAND} -E sleep 1.1)
file(TOUCH_NOCREATE "${ctest_file}")
dmgui_discover_tests(NAME Lister PROGRAM "${program}" CTEST_FILE "${ctest_file}" SETTINGS "${settings}" LABELS "Lister")
file(READ "${ctest_file}" kept)
if(NOT kept STREQUAL listed)
  message(SEND_ERROR "the cached list was not kept:\n${kept}")
endif()

# Once the program is newer, it is listed again; failing, it becomes one failing test, not cached.
execute_process(COMMAND ${CMAKE_COMMAND} -E sleep 1.1)
file(TOUCH_NOCREATE "${program}")
dmgui_discover_tests(NAME Lister PROGRAM "${program}" CTEST_FILE "${ctest_file}" SETTINGS "${settings}" LABELS "Lister")
file(READ "${ctest_file}" failed)
expect_contains("${failed}" "add_test([==[Lister.ListsItsTests]==] [==[${program}]==] --gtest_list_tests)")
expect_lacks("${failed}" "# cases listed")
expect_lacks("${failed}" "Parser.")
