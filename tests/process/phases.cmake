# Phases, peaks and timelines of real processes with the real allocator.
add_executable(phases_host phases_host.cpp)
target_link_libraries(phases_host PRIVATE ktl_mem ktl_mem_flags ${CMAKE_DL_LIBS})
add_library(phases_module MODULE phases_module.c)
target_compile_options(phases_module PRIVATE -g -fno-builtin)

add_executable(test_phases child_process.cpp phases_test.cpp)
target_compile_definitions(test_phases PRIVATE
  TCMALLOC_MINIMAL="${TCMALLOC_MINIMAL_LIBRARY}"
  PHASES_HOST="$<TARGET_FILE:phases_host>"
  PHASES_MODULE="$<TARGET_FILE:phases_module>")
target_link_libraries(test_phases PRIVATE ktl_mem_flags GTest::gtest GTest::gtest_main)
add_dependencies(test_phases phases_host phases_module)
add_test(NAME phases COMMAND test_phases)
set_tests_properties(phases PROPERTIES LABELS process TIMEOUT 300)
