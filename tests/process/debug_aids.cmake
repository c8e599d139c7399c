# The debugging aids and the registry's listing.
add_executable(debug_aids_host debug_aids_host.cpp)
target_compile_options(debug_aids_host PRIVATE -fno-builtin)
target_link_libraries(debug_aids_host PRIVATE ktl_mem_flags ktl_mem tcmalloc_minimal)

add_executable(test_debug_aids child_process.cpp debug_aids_test.cpp)
target_compile_definitions(test_debug_aids PRIVATE
  TCMALLOC_MINIMAL="${TCMALLOC_MINIMAL_LIBRARY}"
  DEBUG_AIDS_HOST="$<TARGET_FILE:debug_aids_host>")
target_link_libraries(test_debug_aids PRIVATE ktl_mem_flags GTest::gmock GTest::gtest GTest::gtest_main)
add_dependencies(test_debug_aids debug_aids_host)
add_test(NAME debug_aids COMMAND test_debug_aids)
set_tests_properties(debug_aids PROPERTIES LABELS process TIMEOUT 120)
