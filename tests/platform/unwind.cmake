# The walker of stacks.

# Frames of the same functions as a compiler makes them at different optimisation.
function(ktl_mem_unwind_shapes name)
  add_library(unwind_shapes_${name} OBJECT unwind_shapes.cpp)
  target_link_libraries(unwind_shapes_${name} PRIVATE ktl_mem_flags)
  target_compile_definitions(unwind_shapes_${name} PRIVATE SHAPES_NAME=${name})
  target_compile_options(unwind_shapes_${name} PRIVATE ${ARGN})
endfunction()
ktl_mem_unwind_shapes(unoptimised -O0)
ktl_mem_unwind_shapes(optimised -O2 -fomit-frame-pointer)
ktl_mem_unwind_shapes(aggressive -O3 -fomit-frame-pointer)
set(shapes unwind_shapes_unoptimised unwind_shapes_optimised unwind_shapes_aggressive)

# Without start files, whose code has no call frame information.
function(ktl_mem_unwind_plugin name frame)
  add_library(${name} MODULE unwind_plugin.cpp)
  target_link_libraries(${name} PRIVATE ktl_mem_flags)
  target_compile_definitions(${name} PRIVATE PLUGIN_FRAME=${frame})
  target_compile_options(${name} PRIVATE -O2 -fomit-frame-pointer -fno-builtin)
  target_link_options(${name} PRIVATE -nostartfiles -Wl,-z,lazy)
endfunction()

ktl_mem_unit_test(unwind unwind_stacks.cpp LIBS ${shapes})
# These meddle with signals and the loader in ways that sanitizers do not follow.
if(NOT KTL_MEM_SANITIZE)
  ktl_mem_unwind_plugin(unwind_plugin_a 1048)
  ktl_mem_unwind_plugin(unwind_plugin_b 4120)
  ktl_mem_unit_test(unwind_process
    unwind_loader.cpp unwind_single_step.cpp LIBS ${shapes} ${CMAKE_DL_LIBS})
  target_compile_definitions(test_unwind_process PRIVATE
    UNWIND_PLUGIN_A="$<TARGET_FILE:unwind_plugin_a>" UNWIND_PLUGIN_B="$<TARGET_FILE:unwind_plugin_b>")
  set_target_properties(test_unwind_process PROPERTIES ENABLE_EXPORTS ON)
  add_dependencies(test_unwind_process unwind_plugin_a unwind_plugin_b)
endif()
