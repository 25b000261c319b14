# Puts files into a program as they are. `source` becomes a C++ file that defines
# `namespace::contents`, a table of NAME=PATH pairs, each a name in the program and a file.
function(zln_embed source)
  set(assembly "")
  set(declarations "")
  set(rows "")
  set(number 0)
  foreach(pair IN LISTS ARGN)
    string(REGEX MATCH "^([^=]+)=(.+)$" matched "${pair}")
    set(name "${CMAKE_MATCH_1}")
    set(path "${CMAKE_MATCH_2}")
    string(APPEND assembly "    \"zln_embedded_${number}: .incbin \\\"${path}\\\"\\n\"\n"
                           "    \"zln_embedded_${number}_end: .byte 0\\n\"\n")
    string(APPEND declarations "extern const char zln_embedded_${number}[];\n"
                               "extern const char zln_embedded_${number}_end[];\n")
    string(APPEND rows "    {\"${name}\", zln_embedded_${number}, zln_embedded_${number}_end},\n")
    set_property(SOURCE ${source} APPEND PROPERTY OBJECT_DEPENDS ${path})
    math(EXPR number "${number} + 1")
  endforeach()
  # Compiled with others, it would not be compiled again when one of the files changes.
  set_property(SOURCE ${source} PROPERTY SKIP_UNITY_BUILD_INCLUSION ON)
  file(CONFIGURE OUTPUT ${source} @ONLY CONTENT [[
#include "collector/embedded_contents.h"

asm(".pushsection .rodata\n"
@assembly@    ".popsection\n");

extern "C" {
@declarations@}

namespace zln::collector {
namespace {

const EmbeddedContent kContents[] = {
@rows@};

}  // namespace

std::span<const EmbeddedContent> embeddedContents() { return kContents; }

}  // namespace zln::collector
]])
endfunction()
