# Makes the shared library small where a build is meant for games, which carry it along. Debug builds
# and those with sanitizers stay as they are, and so does a static library: it holds plain objects,
# of which every linker takes only what a game uses.
include(CheckCXXCompilerFlag)
include(CheckIPOSupported)
include(CheckLinkerFlag)

set(zln_small_configs Release RelWithDebInfo MinSizeRel)

# Optimizes all of the given targets as one piece.
function(zln_optimize_together)
  check_ipo_supported(RESULT is_supported LANGUAGES CXX)
  if(NOT is_supported)
    message(STATUS "No link-time optimization: the shared library becomes larger")
    return()
  endif()
  foreach(config IN LISTS zln_small_configs)
    string(TOUPPER ${config} suffix)
    set_property(TARGET ${ARGN} PROPERTY INTERPROCEDURAL_OPTIMIZATION_${suffix} ON)
  endforeach()
endfunction()

# The library and the objects that it is made of. Clang inlines much with -Os and little with -Oz.
function(zln_make_small library)
  list(JOIN zln_small_configs "," configs)
  set(level $<IF:$<CXX_COMPILER_ID:Clang>,-Oz,-Os>)
  set(flags ${level} -ffunction-sections -fdata-sections)
  # With -Os GCC copies the shortest text by an instruction that takes long to begin.
  check_cxx_compiler_flag(-mstringop-strategy=libcall zln_compiler_calls_for_copies)
  if(zln_compiler_calls_for_copies)
    list(APPEND flags -mstringop-strategy=libcall)
  endif()
  foreach(target IN LISTS library ARGN)
    target_compile_options(${target} PRIVATE "$<$<CONFIG:${configs}>:${flags}>")
  endforeach()
  zln_optimize_together(${library} ${ARGN})
  foreach(flag --gc-sections -z,pack-relative-relocs -z,noseparate-code)
    string(MAKE_C_IDENTIFIER "zln_linker_takes_${flag}" is_taken)
    check_linker_flag(CXX LINKER:${flag} ${is_taken})
    if(${is_taken})
      target_link_options(${library} PRIVATE $<$<CONFIG:${configs}>:LINKER:${flag}>)
    endif()
  endforeach()
endfunction()
