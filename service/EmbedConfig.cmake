# Script mode: turns a JSON file (the default configuration, the schema) into a C array named
# SYMBOL (kVelaDefaultConfig when not given), so that the service and the tools that embed it
# run without any file installed.
if(NOT DEFINED SYMBOL)
    set(SYMBOL kVelaDefaultConfig)
endif()
get_filename_component(name ${INPUT} NAME)
file(READ ${INPUT} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," hex "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" hex "${hex}")
file(WRITE ${OUTPUT}.tmp
     "// Generated from ${name}; do not edit.\n"
     "extern \"C\" const char ${SYMBOL}[] = {\n${hex}0x00};\n")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)
