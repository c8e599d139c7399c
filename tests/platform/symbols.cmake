# The probed library in the forms in which compilers and packagers leave debug information.
set(probed ${CMAKE_CURRENT_BINARY_DIR}/probed)
set(fixture ${CMAKE_CURRENT_SOURCE_DIR}/fixture)
file(MAKE_DIRECTORY ${probed})
find_program(GCC NAMES g++-12 g++ REQUIRED)
find_program(CLANG NAMES clang++-14 clang++ REQUIRED)

# probed_library(NAME COMPILER FLAGS [COMMAND words...]): one form; the commands, in which NAME is its name,
# run behind the link.
function(probed_library name compiler flags)
  separate_arguments(flags)
  string(REPLACE NAME ${name} commands "${ARGN}")
  set(file ${probed}/libprobed_${name}.so)
  set(compile ${${compiler}} -fPIC ${flags})
  add_custom_command(OUTPUT ${file}
    COMMAND ${compile} -c ${fixture}/probed.cpp -o ${name}_probed.o
    COMMAND ${compile} -x c -c ${fixture}/plain.c -o ${name}_plain.o
    COMMAND ${compile} -shared ${name}_probed.o ${name}_plain.o -o ${file}
    ${commands}
    DEPENDS ${fixture}/probed.cpp ${fixture}/probed.h ${fixture}/plain.c
    WORKING_DIRECTORY ${probed} VERBATIM)
  set(probed_outputs ${probed_outputs} ${file} PARENT_SCOPE)
endfunction()

probed_library(gcc_O0 GCC "-g -O0")
probed_library(gcc_O2 GCC "-g -O2")
probed_library(gcc_unread GCC "-g -O2")
probed_library(gcc_unopened GCC "-g -O2")
probed_library(gcc_dwarf4 GCC "-gdwarf-4 -O2")
probed_library(gcc_compressed GCC "-g -gz -O2")
probed_library(gcc_lto GCC "-g -O2 -flto")
probed_library(gcc_split GCC "-g -gsplit-dwarf -O2")
# binutils 2.40 packs the older form alone, LLVM 14 what its own compiler makes.
find_program(DWP NAMES dwp REQUIRED)
find_program(LLVM_DWP NAMES llvm-dwp-14 llvm-dwp REQUIRED)
set(packed -e libprobed_NAME.so -o libprobed_NAME.so.dwp COMMAND rm NAME_probed.dwo NAME_plain.dwo)
probed_library(clang_packed CLANG "-g -gsplit-dwarf -O2" COMMAND ${LLVM_DWP} ${packed})
probed_library(gcc_packed4 GCC "-gdwarf-4 -gsplit-dwarf -O2" COMMAND ${DWP} ${packed})
probed_library(clang_O0 CLANG "-g -O0")
probed_library(clang_O2 CLANG "-g -O2")
probed_library(clang_dwarf4 CLANG "-gdwarf-4 -O2")
probed_library(clang_lto CLANG "-g -O2 -flto -fuse-ld=lld")
set(separate_debug
  COMMAND objcopy --only-keep-debug libprobed_NAME.so libprobed_NAME.debug
  COMMAND strip -s libprobed_NAME.so
  COMMAND objcopy --add-gnu-debuglink=libprobed_NAME.debug libprobed_NAME.so)
probed_library(separate GCC "-g -O2" ${separate_debug})
probed_library(checksum GCC "-g -O2 -Wl,--build-id=none" ${separate_debug})
probed_library(strip_g GCC "-g -O2" COMMAND strip -g libprobed_NAME.so)
probed_library(strip_s GCC "-g -O2" COMMAND strip -s libprobed_NAME.so)
add_custom_target(probed_libraries DEPENDS ${probed_outputs})

ktl_mem_unit_test(symbols modules_test.cpp name_table_test.cpp symbols_test.cpp)
add_dependencies(test_symbols probed_libraries)
target_compile_definitions(test_symbols PRIVATE PROBED="${probed}" FIXTURE="${fixture}")
