# ombrik_embed(<target> <symbol> <file>): compiles <file> into <target> as
#   extern const unsigned char <symbol>[]; extern const unsigned long <symbol>_size;
# The data tables (node kinds, string catalogue, defaults) live as JSON in the tree and are
# linked into the binary, so nothing needs installing beside it.
set(_OMBRIK_EMBED_SCRIPT "${CMAKE_CURRENT_LIST_DIR}/embed_one.cmake")

function(ombrik_embed target symbol file)
  get_filename_component(abs "${file}" ABSOLUTE)
  set(out "${CMAKE_CURRENT_BINARY_DIR}/embedded/${symbol}.cpp")
  add_custom_command(
    OUTPUT "${out}"
    COMMAND ${CMAKE_COMMAND} -DIN=${abs} -DOUT=${out} -DSYMBOL=${symbol} -P ${_OMBRIK_EMBED_SCRIPT}
    DEPENDS "${abs}" "${_OMBRIK_EMBED_SCRIPT}"
    COMMENT "Embedding ${file}"
    VERBATIM)
  target_sources(${target} PRIVATE "${out}")
endfunction()
