# Writes a C++ source holding the bytes of INPUT as `const unsigned char SYMBOL[]` and
# `const std::size_t SYMBOL_size`, so a binary can carry a small file with it.
# Usage: cmake -DINPUT=file -DOUTPUT=file.cpp -DSYMBOL=name -P EmbedFile.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
# Sixteen bytes a line keep the generated file readable in a diff.
string(REGEX REPLACE "((0x[0-9a-f][0-9a-f],){16})" "\\1\n    " bytes "${bytes}")
get_filename_component(name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp"
    "// Generated from ${name} by EmbedFile.cmake; do not edit.\n"
    "#include <cstddef>\n\n"
    "extern const unsigned char ${SYMBOL}[];\n"
    "extern const std::size_t ${SYMBOL}_size;\n\n"
    "const unsigned char ${SYMBOL}[] = {\n    ${bytes}\n};\n"
    "const std::size_t ${SYMBOL}_size = ${size};\n")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
