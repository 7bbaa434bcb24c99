# morvane_test(room/tst_thing [WIDGETS] LINK target... [LABELS label...] [TIMEOUT seconds])
# makes one Qt Test executable of tests/<room>/tst_<thing>.cpp. Every run gets its own HOME,
# settings folder and short temporary folder (local sockets live there), and no display.
# The label "threads" marks what the ThreadSanitizer preset runs.
function(morvane_test path)
  cmake_parse_arguments(ARG "WIDGETS" "TIMEOUT" "LINK;LABELS;SOURCES" ${ARGN})
  get_filename_component(name "${path}" NAME)
  add_executable(${name} "${path}.cpp" ${ARG_SOURCES})
  if(ARG_WIDGETS)
    morvane_target(${name} WIDGETS)
  else()
    morvane_target(${name})
  endif()
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE Qt5::Test ${ARG_LINK})
  add_test(NAME ${name} COMMAND "${PROJECT_SOURCE_DIR}/tests/support/sandbox.sh" $<TARGET_FILE:${name}>)
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  # Tests of the preload list load the hook before the sanitizer.
  set_tests_properties(
    ${name}
    PROPERTIES
      TIMEOUT ${ARG_TIMEOUT}
      LABELS "${ARG_LABELS}"
      ENVIRONMENT
      "QT_QPA_PLATFORM=offscreen;LC_ALL=C.UTF-8;ASAN_OPTIONS=verify_asan_link_order=0;TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/tsan.supp:halt_on_error=1;LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/lsan.supp:print_suppressions=0"
  )
endfunction()
