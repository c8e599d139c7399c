# How processes end: hosts that run out of memory or die of a fault, and the tests that start them.
find_library(TCMALLOC_MINIMAL_LIBRARY NAMES libtcmalloc_minimal.so.4 tcmalloc_minimal REQUIRED)

foreach(host frame_memory_host frame_fault_host)
  add_executable(${host} ${host}.cpp)
  target_link_libraries(${host} PRIVATE ktl_mem ktl_mem_flags)
endforeach()
add_library(failing_allocator SHARED failing_allocator.cpp)
target_link_libraries(failing_allocator PRIVATE ktl_mem_flags ${CMAKE_DL_LIBS})

add_executable(test_frame_process
  child_process.cpp
  frame_failing_allocation_test.cpp
  frame_fatal_exit_test.cpp
  frame_out_of_memory_test.cpp)
target_compile_definitions(test_frame_process PRIVATE
  TCMALLOC_MINIMAL="${TCMALLOC_MINIMAL_LIBRARY}"
  MEMORY_HOST="$<TARGET_FILE:frame_memory_host>"
  FAULT_HOST="$<TARGET_FILE:frame_fault_host>"
  FAILING_ALLOCATOR="$<TARGET_FILE:failing_allocator>")
target_link_libraries(test_frame_process PRIVATE ktl_mem_flags GTest::gtest GTest::gtest_main)
add_dependencies(test_frame_process frame_memory_host frame_fault_host failing_allocator)
add_test(NAME frame_process COMMAND test_frame_process)
set_tests_properties(frame_process PROPERTIES LABELS process TIMEOUT 600)
