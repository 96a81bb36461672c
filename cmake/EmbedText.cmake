# Script mode: turns a text file (the default configuration, the schema) into a C string named
# SYMBOL, so that the service and the tools that embed it run without any file installed. The
# device build's genrule writes the very same raw string literal, so both builds compile one
# form of the text.
if(NOT DEFINED SYMBOL)
    set(SYMBOL kVelaDefaultConfig)
endif()
get_filename_component(name ${INPUT} NAME)
file(READ ${INPUT} text)
string(FIND "${text}" ")vela_json\"" clash)
if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${name} contains the raw string's closing delimiter )vela_json\"")
endif()
file(WRITE ${OUTPUT}.tmp
     "// Generated from ${name}; do not edit.\n"
     "extern \"C\" const char ${SYMBOL}[] = R\"vela_json(${text})vela_json\";\n")
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)
