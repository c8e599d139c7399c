# How every target of the project is compiled, and the three kinds of target that it has.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

add_library(ktl_mem_flags INTERFACE)
target_compile_options(ktl_mem_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wcast-qual -Wundef -Wredundant-decls
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wextra-semi>
  # clang 14 takes the 0 that an order is compared with for a pointer.
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wzero-as-null-pointer-constant>
  # Who touches what a lock guards holds it (mem/base/thread_safety.h).
  $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>
  $<$<BOOL:${KTL_MEM_WERROR}>:-Werror>
  -fvisibility=hidden $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>)
target_include_directories(ktl_mem_flags INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(ktl_mem_flags INTERFACE Threads::Threads)
if(KTL_MEM_SANITIZE)
  target_compile_options(ktl_mem_flags INTERFACE -fsanitize=${KTL_MEM_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all
    # GCC 12 takes the standard library's own code for uninitialised once it is instrumented.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(ktl_mem_flags INTERFACE -fsanitize=${KTL_MEM_SANITIZE})
endif()

# ktl_mem_room(NAME SOURCES... [LIBS libraries...]): one folder of the library.
# Its objects go into libktl_mem.so and into the archive that the unit tests link.
function(ktl_mem_room name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  add_library(ktl_mem_${name} OBJECT ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(ktl_mem_${name} PUBLIC ktl_mem_flags ${ARG_LIBS})
  set_property(GLOBAL APPEND PROPERTY KTL_MEM_ROOMS ktl_mem_${name})
endfunction()

# ktl_mem_unit_test(NAME SOURCES... [LIBS libraries...]): a GoogleTest program over the library's
# objects. It also runs under the sanitizers, so it must not need the allocator's hooks.
function(ktl_mem_unit_test name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  add_executable(test_${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(test_${name} PRIVATE ktl_mem_testing ktl_mem_flags ${ARG_LIBS}
    GTest::gmock GTest::gtest GTest::gtest_main)
  add_test(NAME ${name} COMMAND test_${name})
  set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT 300)
endfunction()
