# Script mode: turns the file IN into a C++ source OUT defining SYMBOL and SYMBOL_size.
file(READ "${IN}" hex HEX)
string(LENGTH "${hex}" hexlen)
math(EXPR size "${hexlen} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
file(WRITE "${OUT}" "// Generated from ${IN}; do not edit.\n"
  "extern const unsigned char ${SYMBOL}[];\nextern const unsigned long ${SYMBOL}_size;\n"
  "const unsigned char ${SYMBOL}[] = {\n${bytes}0x00};\n"
  "const unsigned long ${SYMBOL}_size = ${size};\n")
