# Script mode: turns the default configuration into a C array, so that the service and the
# tools that embed it run without any file installed.
file(READ ${INPUT} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," hex "${hex}")
string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" hex "${hex}")
file(WRITE ${OUTPUT}.tmp
     "// Generated from default-config.json; do not edit.\n"
     "extern \"C\" const char kVelaDefaultConfig[] = {\n${hex}0x00};\n")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)
