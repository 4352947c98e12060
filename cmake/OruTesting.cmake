# oru_add_test(NAME <name> SOURCES <files...> LABELS <labels...> [LIBRARIES <libs...>])
# One GoogleTest executable, linked with the engine's internal library and the test support
# code, registered with CTest under the given labels (unit, e2e).
include(GoogleTest)

function(oru_add_test)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LABELS;LIBRARIES" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_compile_options(${ARG_NAME} PRIVATE ${ORUPLAY_WARNINGS})
  target_link_libraries(${ARG_NAME} PRIVATE oruplay_internal oru_test_support
                        GTest::gmock_main ${ARG_LIBRARIES})
  gtest_discover_tests(${ARG_NAME}
    PROPERTIES LABELS "${ARG_LABELS}"
    DISCOVERY_TIMEOUT 60)
endfunction()
