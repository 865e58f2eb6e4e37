# Script mode: writes OUT, a C++ table of every file under DIR (relative path -> text).
file(GLOB_RECURSE files RELATIVE "${DIR}" "${DIR}/*.glsl" "${DIR}/*.comp" "${DIR}/*.vert" "${DIR}/*.frag")
list(SORT files)
set(body "")
set(index "")
set(i 0)
foreach(f IN LISTS files)
  file(READ "${DIR}/${f}" hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND body "static const unsigned char s${i}[] = {${bytes}0x00};\n")
  string(APPEND index "  {\"${f}\", reinterpret_cast<const char*>(s${i})},\n")
  math(EXPR i "${i} + 1")
endforeach()
file(WRITE "${OUT}.tmp" "// Generated from ${DIR}; do not edit.\n#include \"engine/shader_sources.h\"\n"
  "namespace ombrik {\nnamespace {\n${body}}\n"
  "const std::vector<ShaderFile>& shaderFiles() {\n  static const std::vector<ShaderFile> files = {\n${index}  };\n  return files;\n}\n}\n")
execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different "${OUT}.tmp" "${OUT}")
