# A process under the tracker from its load to its end: what allocations are charged to, how loading, forking
# and ending go, and what the library exports.
find_program(FORMS_GCC NAMES g++-12 g++)
find_program(FORMS_CLANG NAMES clang++-14 clang++)
set(FORMS_FOLDER ${CMAKE_CURRENT_BINARY_DIR}/forms)

# forms_build(NAME COMPILER LEVEL): the host of all forms of allocation with its library and its plugin, as
# another compiler and another optimisation make them.
function(forms_build name compiler level)
  set(out ${FORMS_FOLDER}/${name})
  file(MAKE_DIRECTORY ${out})
  set(compile ${compiler} -std=c++20 -g ${level} -fomit-frame-pointer -fPIC -Wall -Wextra -Werror
    -I${PROJECT_SOURCE_DIR}/include -I${CMAKE_CURRENT_SOURCE_DIR})
  add_custom_command(OUTPUT ${out}/forms_host
    COMMAND ${compile} -shared -DMODULE_FUNCTION=library_block -DMODULE_FUNCTION_LINE=library_block_line
      ${CMAKE_CURRENT_SOURCE_DIR}/forms_module.cpp -o ${out}/libforms_library.so
    COMMAND ${compile} -shared -DMODULE_FUNCTION=plugin_block -DMODULE_FUNCTION_LINE=plugin_block_line
      ${CMAKE_CURRENT_SOURCE_DIR}/forms_module.cpp -o ${out}/forms_plugin.so
    COMMAND ${compile} ${CMAKE_CURRENT_SOURCE_DIR}/forms_host.cpp -o ${out}/forms_host -Wl,--no-as-needed
      ${TCMALLOC_MINIMAL_LIBRARY} $<TARGET_FILE:ktl_mem> ${out}/libforms_library.so -ldl -pthread
      -Wl,-rpath,${out}:$<TARGET_FILE_DIR:ktl_mem>
    DEPENDS forms_host.cpp forms_module.cpp forms_place.h ktl_mem VERBATIM)
  set_property(GLOBAL APPEND PROPERTY FORMS_BUILDS ${name})
  set_property(GLOBAL APPEND PROPERTY FORMS_HOSTS ${out}/forms_host)
endfunction()
foreach(level O0 O2 O3)
  forms_build(gcc_${level} ${FORMS_GCC} -${level})
  if(FORMS_CLANG)
    forms_build(clang_${level} ${FORMS_CLANG} -${level})
  endif()
endforeach()
get_property(forms_hosts GLOBAL PROPERTY FORMS_HOSTS)
get_property(forms_builds GLOBAL PROPERTY FORMS_BUILDS)
list(JOIN forms_builds " " forms_builds)
add_custom_target(forms_hosts DEPENDS ${forms_hosts})

add_executable(test_forms forms_test.cpp child_process.cpp)
target_compile_definitions(test_forms PRIVATE FORMS_FOLDER="${FORMS_FOLDER}" FORMS_BUILDS="${forms_builds}"
  TCMALLOC_MINIMAL="${TCMALLOC_MINIMAL_LIBRARY}")
target_link_libraries(test_forms PRIVATE ktl_mem_flags GTest::gtest GTest::gtest_main)
add_dependencies(test_forms forms_hosts)
add_test(NAME forms COMMAND test_forms)

add_test(NAME exported_symbols COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/exported_symbols.sh
  $<TARGET_FILE:ktl_mem> ${CMAKE_CURRENT_SOURCE_DIR}/exported_symbols.txt)
set_tests_properties(forms exported_symbols PROPERTIES LABELS process TIMEOUT 300)

add_executable(counting_host counting_host.cpp)
add_executable(test_counting counting_test.cpp child_process.cpp)
target_compile_options(counting_host PRIVATE -fno-builtin -Wno-conversion)
target_link_libraries(counting_host PRIVATE ktl_mem_flags ktl_mem ${TCMALLOC_MINIMAL_LIBRARY})
target_compile_definitions(test_counting PRIVATE COUNTING_HOST="$<TARGET_FILE:counting_host>"
  TCMALLOC_MINIMAL="${TCMALLOC_MINIMAL_LIBRARY}")
target_link_libraries(test_counting PRIVATE ktl_mem_flags GTest::gtest GTest::gtest_main)
add_dependencies(test_counting counting_host)
add_test(NAME counting COMMAND test_counting)
set_tests_properties(counting PROPERTIES LABELS process TIMEOUT 120)

add_executable(life_host life_host.cpp)
target_link_libraries(life_host PRIVATE ktl_mem_flags ktl_mem ${TCMALLOC_MINIMAL_LIBRARY} ${CMAKE_DL_LIBS})
target_link_options(life_host PRIVATE -rdynamic -Wl,--no-as-needed)
add_library(life_plugin MODULE life_plugin.cpp)
target_link_libraries(life_plugin PRIVATE ktl_mem_flags)
add_executable(life_plain_host life_plain_host.cpp)
add_executable(test_life life_test.cpp child_process.cpp)
target_compile_definitions(test_life PRIVATE LIFE_HOST="$<TARGET_FILE:life_host>"
  LIFE_PLUGIN="$<TARGET_FILE:life_plugin>" PLAIN_HOST="$<TARGET_FILE:life_plain_host>"
  KTL_MEM_LIBRARY="$<TARGET_FILE:ktl_mem>" TCMALLOC_MINIMAL="${TCMALLOC_MINIMAL_LIBRARY}")
target_link_libraries(test_life PRIVATE ktl_mem_flags GTest::gtest GTest::gtest_main)
add_dependencies(test_life life_host life_plugin life_plain_host)
add_test(NAME life COMMAND test_life)
set_tests_properties(life PROPERTIES LABELS process TIMEOUT 600)

add_executable(edges_host edges_host.cpp)
target_link_libraries(edges_host PRIVATE ktl_mem_flags ktl_mem ${TCMALLOC_MINIMAL_LIBRARY})
target_link_options(edges_host PRIVATE -Wl,--no-as-needed)
# An allocator that lacks one of the seven entries.
add_library(incomplete_allocator SHARED incomplete_allocator.cpp)
set_target_properties(incomplete_allocator PROPERTIES OUTPUT_NAME tcmalloc_minimal
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/incomplete)
target_link_libraries(incomplete_allocator PRIVATE ktl_mem_flags)
add_executable(test_edges edges_test.cpp child_process.cpp)
target_compile_definitions(test_edges PRIVATE EDGES_HOST="$<TARGET_FILE:edges_host>"
  PLAIN_HOST="$<TARGET_FILE:life_plain_host>" KTL_MEM_LIBRARY="$<TARGET_FILE:ktl_mem>"
  INCOMPLETE_ALLOCATOR="$<TARGET_FILE:incomplete_allocator>" TCMALLOC_MINIMAL="${TCMALLOC_MINIMAL_LIBRARY}")
target_link_libraries(test_edges PRIVATE ktl_mem_flags GTest::gtest GTest::gtest_main)
add_dependencies(test_edges edges_host incomplete_allocator life_plain_host)
add_test(NAME edges COMMAND test_edges)
set_tests_properties(edges PROPERTIES LABELS process TIMEOUT 120)
